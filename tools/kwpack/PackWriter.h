// PackWriter: makes a pack file. It is written beside its final name, flushed and renamed: until Commit is through,
// what had the name stays as it was, and a writer that is destroyed before leaves nothing behind.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwPackLayout.h"

enum class PackMethod { kAuto, kStored, kNrv2b };

// The bytes of an entry as the pack holds them.
struct PackBody {
    std::vector<unsigned char> bytes;
    unsigned int unpackedSize = 0;
    unsigned int method = KwPackLayout::kMethodStored;
};

// Takes the smaller form unless told. Bytes that do not unpack to `data` are never taken. Throws ToolError, with
// `name`, when that form does not fit the 24 bits of a stored size. From any thread.
PackBody MakeBody(const std::string& name, std::vector<unsigned char> data, PackMethod method, int level);

class PackWriter {
public:
    // Both throw ToolError when the disk refuses, and when the pack would have 4 GiB.
    explicit PackWriter(const std::string& path);
    void Add(unsigned int hash, const PackBody& body);
    // Writes directory and header and puts the pack in its place. Each hash was added once, one at least.
    void Commit(bool split);

    ~PackWriter();
    PackWriter(const PackWriter&) = delete;
    PackWriter& operator=(const PackWriter&) = delete;

    std::uint64_t GetSize() const { return size_; }  // bytes so far

private:
    void Write(const void* data, std::size_t size);
    [[noreturn]] void Fail() const;

    std::string path_;
    std::string fresh_;  // the file that is written
    KwFile file_;
    std::uint64_t size_ = 0;
    std::vector<KwPackLayout::Entry> entries_;
};
