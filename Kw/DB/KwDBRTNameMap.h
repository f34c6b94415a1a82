// KwDBRTNameMap: the objects of a runtime database by their names. Internal.
//
// One flat table with linear probing, at most 5/8 full, like the one of the ids. A slot holds a part of the name's
// hash, and the names stand close together in blocks of their own: a search seldom looks at more than one of them,
// and never at an object. The names of removed objects are swept out once they take half of the room.
// Thread-safety: none, the database's map lock guards it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "Kw/KwMemory.h"

class CKwDBRTObject;

class KwDBRTNameMap {
public:
    KW_TRACKED_NEW

    KwDBRTNameMap();

    // The object of that name, or null.
    CKwDBRTObject* Find(std::string_view name) const;
    // Adds an object under a name of at most kLongest bytes. False when the name is taken or memory is out.
    bool Add(std::string_view name, CKwDBRTObject* object);
    // Takes the object out of the name that it has here; nothing when the name is another one's.
    void Remove(std::string_view name, CKwDBRTObject* object);

    static constexpr std::size_t kLongest = 0x10000;

private:
    struct Slot {
        std::uint32_t hash;
        std::uint32_t name;     // its place, see Store
        CKwDBRTObject* object;  // null: free
    };
    using Block = std::unique_ptr<char[]>;

    std::uint32_t Hash(std::string_view name) const;
    std::size_t Search(std::string_view name, std::uint32_t hash) const;
    std::size_t Home(std::uint32_t hash) const { return std::size_t{hash} >> shift_; }
    std::string_view GetName(std::uint32_t place) const;
    bool Store(std::string_view name, std::uint32_t& place);
    bool Grow();
    void Sweep();

    std::unique_ptr<Slot[]> slots_;
    std::size_t mask_ = 0;  // slots - 1
    unsigned int shift_ = 31;
    std::size_t count_ = 0;
    std::vector<Block> blocks_;
    std::uint32_t end_ = 0;   // units used of the last block
    std::uint64_t live_ = 0;  // units of names that are in use, and of names that were removed
    std::uint64_t dead_ = 0;
    std::uint64_t seed_;
};
