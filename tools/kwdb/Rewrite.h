// What the repairs share: files read as one, and a file put in the place of a damaged one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kwdb/Database.h"

// Several files read as one.
class Sequence {
public:
    Sequence(const Database& db, const std::vector<std::string>& paths);

    struct Part {
        std::string path;
        std::unique_ptr<KwDBFile> file;
        std::uint64_t base;  // of its first byte in the sequence
    };
    const std::vector<Part>& GetParts() const { return parts_; }
    std::uint64_t GetSize() const { return size_; }
    // Throws when the bytes cannot be read.
    void Read(std::uint64_t offset, unsigned char* out, std::size_t size) const;
    // Whether `size` bytes from `offset` on are those of the other one from `otherOffset` on; both have them.
    bool IsSame(std::uint64_t offset, const Sequence& other, std::uint64_t otherOffset, std::uint64_t size) const;
    // A file that is open cannot be replaced everywhere.
    void Close() { parts_.clear(); }

private:
    std::vector<Part> parts_;
    std::uint64_t size_ = 0;
};

// The bytes from `from` to `to` of a sequence.
struct Piece {
    Sequence& source;
    std::uint64_t from;
    std::uint64_t to;
};

// Puts a file with the bytes of these pieces, which are on the disk then, in the place of `path`, and keeps the old one
// as `path`.damaged. At every moment there is a file under that name: the old one is copied, not renamed. Closes the
// sequences. Throws when it cannot, with all as it was.
void Replace(const Database& db, const std::string& path, const std::vector<Piece>& pieces);

// Cuts the damaged files of the journal copy and of the text log, and completes the copy from the journals, which
// are whole.
void RepairLogs(const Database& db);
