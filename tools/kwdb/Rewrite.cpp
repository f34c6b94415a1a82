#include "kwdb/Rewrite.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "common/Progress.h"

namespace {

constexpr std::size_t kPiece = 1u << 20;

// A narrow path would be taken for text of the machine's code page on Windows.
std::filesystem::path Native(const std::string& path) {
    return std::u8string(path.begin(), path.end());
}

// Writes the pieces to a new file, which is on the disk then. On failure it is removed again.
void WriteFile(const Database& db, const std::string& path, const std::vector<Piece>& pieces) {
    bool ok = false;
    {
        const std::unique_ptr<KwDBFile> file = db.GetFiles().Open(path, true);
        if (file == nullptr) throw ToolError(path + ": the file cannot be made");
        std::uint64_t size = 0;
        for (const Piece& piece : pieces) size += piece.to - piece.from;
        Progress progress("write", size);
        std::vector<unsigned char> buffer(static_cast<std::size_t>(std::min<std::uint64_t>(size, kPiece)));
        ok = file->GetSize() == 0;
        try {
            for (const Piece& piece : pieces) {
                for (std::uint64_t at = piece.from; ok && at < piece.to;) {
                    const std::size_t count =
                        static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), piece.to - at));
                    piece.source.Read(at, buffer.data(), count);
                    ok = file->Append(buffer.data(), count) == count;
                    at += count;
                    progress.Update(file->GetSize());
                }
            }
            ok = ok && file->Sync();
        } catch (const ToolError& error) {
            std::fprintf(stderr, "kwdb: %s\n", error.what());
            ok = false;
        }
    }
    if (ok) return;
    db.GetFiles().Remove(path);
    throw ToolError(path + ": the file cannot be written; nothing was changed");
}

}  // namespace

Sequence::Sequence(const Database& db, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        parts_.push_back({path, db.Open(path), size_});
        size_ += parts_.back().file->GetSize();
    }
}

void Sequence::Read(std::uint64_t offset, unsigned char* out, std::size_t size) const {
    for (const Part& part : parts_) {
        if (size == 0) return;
        const std::uint64_t end = part.base + part.file->GetSize();
        if (offset >= end) continue;
        const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(size, end - offset));
        if (part.file->Read(offset - part.base, out, count) != count) {
            throw ToolError(part.path + ": the file cannot be read at offset " + std::to_string(offset - part.base));
        }
        offset += count;
        out += count;
        size -= count;
    }
}

bool Sequence::IsSame(std::uint64_t offset, const Sequence& other, std::uint64_t otherOffset,
                      std::uint64_t size) const {
    const std::size_t room = static_cast<std::size_t>(std::min<std::uint64_t>(size, kPiece));
    std::vector<unsigned char> left(room), right(room);
    for (std::uint64_t at = 0; at < size; at += room) {
        const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(room, size - at));
        Read(offset + at, left.data(), count);
        other.Read(otherOffset + at, right.data(), count);
        if (std::memcmp(left.data(), right.data(), count) != 0) return false;
    }
    return true;
}

void Replace(const Database& db, const std::string& path, const std::vector<Piece>& pieces) {
    KwDBFiles& files = db.GetFiles();
    const std::string fresh = path + ".repair";
    if (files.Exists(fresh) && !files.Remove(fresh)) {
        throw ToolError(fresh + ": what an interrupted repair left cannot be removed");
    }
    WriteFile(db, fresh, pieces);
    const bool exists = files.Exists(path);
    std::string backup = path + ".damaged";
    try {
        if (exists) {
            for (int number = 2; files.Exists(backup); ++number) backup = path + ".damaged_" + std::to_string(number);
            Sequence old(db, {path});
            WriteFile(db, backup, {{old, 0, old.GetSize()}});
        }
    } catch (const ToolError&) {
        files.Remove(fresh);
        throw;
    }
    for (const Piece& piece : pieces) piece.source.Close();
    // The host goes on with the new file as it did with the old one.
    std::error_code ignored;
    const std::filesystem::file_status status = std::filesystem::status(Native(path), ignored);
    if (exists && !ignored) std::filesystem::permissions(Native(fresh), status.permissions(), ignored);
    const std::string& directory = db.GetNames().GetDirectory();
    if (!files.SyncFolder(directory) || !files.Rename(fresh, path)) {
        files.Remove(fresh);
        throw ToolError(path + ": the new file cannot be put in its place; nothing was changed");
    }
    if (exists) std::printf("%s: the damaged file is kept as %s\n", path.c_str(), backup.c_str());
    if (!files.SyncFolder(directory)) throw ToolError(directory + ": the folder cannot be flushed to the disk");
}
