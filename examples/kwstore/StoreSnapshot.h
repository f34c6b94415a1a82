// StoreSnapshot: the file with the whole state of the store.
//
//   0 magic "KwSS" 4, 4 version 4, 8 number of objects 4
//   each object: id 8 (a double), data file 4, offset 4, size 4, length 4 and as many bytes of payload (StoreCodec)
//   and 8 bytes FNV-1a of everything before
//
// Numbers are little-endian. The file is written beside the old one and takes its place when it is on the disk.
// Thread-safety: none.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "StoreObject.h"

class StoreSnapshot {
public:
    StoreSnapshot();

    void Add(const StoreObject& object);
    // Writes what was added to `path` in `folder`. False, with one line, and the old file in its place.
    bool Save(const std::string& path, const std::string& folder);

    // Takes one object, by id, what it holds and where; false when it cannot.
    using Each = std::function<bool(double, StoreChange&, const StorePlace&)>;
    // Reads a file that may hold anything; nothing to read, and true, when there is none. The whole file is
    // checked before the first object is taken. False, with one line, when it cannot be read or is damaged.
    static bool Load(const std::string& path, const Each& each);
    // The same for the bytes of a file: gives what is wrong with them, null when nothing is.
    static const char* Parse(std::string_view bytes, const Each& each);

private:
    std::string bytes_;
    std::uint32_t count_ = 0;
};
