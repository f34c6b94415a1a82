#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "common/Progress.h"
#include "kwdb/Commands.h"

namespace {

// Several files read as one.
class Sequence {
public:
    Sequence(const Database& db, const std::vector<std::string>& paths) {
        for (const std::string& path : paths) {
            parts_.push_back({path, db.Open(path), size_});
            size_ += parts_.back().file->GetSize();
        }
    }
    struct Part {
        std::string path;
        std::unique_ptr<KwDBFile> file;
        std::uint64_t base;  // of its first byte in the sequence
    };
    std::vector<Part>& GetParts() { return parts_; }
    // A file that is open cannot be replaced everywhere.
    void Close() { parts_.clear(); }

    // Throws when the bytes cannot be read.
    void Read(std::uint64_t offset, unsigned char* out, std::size_t size) {
        for (const Part& part : parts_) {
            if (size == 0) return;
            const std::uint64_t end = part.base + part.file->GetSize();
            if (offset >= end) continue;
            const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(size, end - offset));
            if (part.file->Read(offset - part.base, out, count) != count) {
                throw ToolError(part.path + ": the file cannot be read at offset " +
                                std::to_string(offset - part.base));
            }
            offset += count;
            out += count;
            size -= count;
        }
    }

private:
    std::vector<Part> parts_;
    std::uint64_t size_ = 0;
};

constexpr std::size_t kPiece = 1u << 20;

// The lock that a database holds while it is open.
class DirectoryLock {
public:
    explicit DirectoryLock(const Database& db) : files_(db.GetFiles()), lock_(files_.Lock(db.GetNames().GetLock())) {
        if (lock_ == nullptr) {
            throw ToolError(db.GetNames().GetLock() +
                            ": the database is open elsewhere, or the folder is not writable");
        }
    }
    ~DirectoryLock() { files_.Unlock(lock_); }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

private:
    KwDBFiles& files_;
    void* lock_;
};

// Writes the bytes from `from` to `to` of the sequence to a new file, which is on the disk then. On failure it is
// removed again.
void WriteFile(const Database& db, const std::string& path, Sequence& source, std::uint64_t from, std::uint64_t to) {
    bool ok = false;
    {
        const std::unique_ptr<KwDBFile> file = db.GetFiles().Open(path, true);
        if (file == nullptr) throw ToolError(path + ": the file cannot be made");
        Progress progress("write", to - from);
        std::vector<unsigned char> piece(kPiece);
        std::uint64_t at = from;
        ok = file->GetSize() == 0;
        try {
            while (ok && at < to) {
                const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, to - at));
                source.Read(at, piece.data(), count);
                ok = file->Append(piece.data(), count) == count;
                at += count;
                progress.Update(at - from);
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

// Puts a file with those bytes in the place of a journal. At every moment there is a journal under its name:
// the old one is copied to its backup, not renamed. Closes the sequence.
void Replace(const Database& db, const std::string& path, Sequence& source, std::uint64_t from, std::uint64_t to) {
    KwDBFiles& files = db.GetFiles();
    const std::string fresh = path + ".repair";
    if (files.Exists(fresh) && !files.Remove(fresh)) {
        throw ToolError(fresh + ": what an interrupted repair left cannot be removed");
    }
    WriteFile(db, fresh, source, from, to);
    const bool exists = files.Exists(path);
    std::string backup = path + ".damaged";
    try {
        if (exists) {
            for (int number = 2; files.Exists(backup); ++number) backup = path + ".damaged_" + std::to_string(number);
            Sequence old(db, {path});
            WriteFile(db, backup, old, 0, old.GetParts()[0].file->GetSize());
        }
    } catch (const ToolError&) {
        files.Remove(fresh);
        throw;
    }
    source.Close();
    // The host goes on with the new file as it did with the old one.
    std::error_code ignored;
    const std::filesystem::file_status status = std::filesystem::status(path, ignored);
    if (exists && !ignored) std::filesystem::permissions(fresh, status.permissions(), ignored);
    const std::string& directory = db.GetNames().GetDirectory();
    if (!files.SyncFolder(directory) || !files.Rename(fresh, path)) {
        files.Remove(fresh);
        throw ToolError(path + ": the new file cannot be put in its place; nothing was changed");
    }
    if (exists) std::printf("%s: the damaged file is kept as %s\n", path.c_str(), backup.c_str());
    if (!files.SyncFolder(directory)) throw ToolError(directory + ": the folder cannot be flushed to the disk");
}

// Whether the copy goes on at `offset` with the first `size` bytes of the journal.
bool BeginsWith(Sequence& copy, std::uint64_t offset, std::uint64_t end, Sequence& journal, std::uint64_t size) {
    if (size > end - offset) return false;
    std::vector<unsigned char> left(kPiece), right(kPiece);
    for (std::uint64_t at = 0; at < size; at += kPiece) {
        const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, size - at));
        copy.Read(offset + at, left.data(), count);
        journal.Read(at, right.data(), count);
        if (std::memcmp(left.data(), right.data(), count) != 0) return false;
    }
    return true;
}

// The part of the copy that the journal held. It begins with what is still whole of the journal: records that other
// threads queued just before a commit stand in front of it, in the new journal. Where nothing is left to compare
// it begins behind the last commit.
struct Source {
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    std::uint64_t records = 0;
    std::string cut;  // what was left out at the copy's end
};

Source FindInCopy(Sequence& copy, Sequence& journal, std::uint64_t journalWhole) {
    std::vector<unsigned char> head;  // the journal's first record
    if (journalWhole != 0) {
        KwDBRTReader reader(*journal.GetParts()[0].file);
        reader.Next();
        head.assign(reader.GetBytes(), reader.GetBytes() + reader.GetRecord().GetTotal());
    }
    Source source;
    struct Start {
        std::uint64_t offset;
        std::uint64_t index;  // records before it
    };
    std::vector<Start> starts;
    Start commit{0, 0};  // behind the last one; there is none at 0
    std::uint64_t index = 0;
    std::string broken;
    for (const Sequence::Part& part : copy.GetParts()) {
        if (!source.cut.empty()) broken = source.cut;
        source.cut.clear();
        const Walk walk = WalkRecords(*part.file, part.path, [&](KwDBRTReader& reader) {
            const std::size_t total = static_cast<std::size_t>(reader.GetRecord().GetTotal());
            if (total == head.size() && std::memcmp(reader.GetBytes(), head.data(), total) == 0) {
                starts.push_back({part.base + reader.GetRecordOffset(), index});
            }
            ++index;
            if (reader.GetRecord().type == KwDBRTRecord::kCommit) {
                commit = {part.base + reader.GetOffset(), index};
                broken.clear();
            }
        });
        source.to = part.base + walk.whole;
        if (walk.IsWhole()) continue;
        source.cut = part.path + ": " + walk.DamageText();
        if (walk.behind.records != 0) broken = source.cut;
        // What stands on both sides of a damage is not one sequence.
        if (&part != &copy.GetParts().back()) starts.clear();
    }
    if (!broken.empty()) throw ToolError(broken + "; the copy is no source for a repair");
    Start start = commit;
    if (journalWhole != 0) {
        const auto fits = [&](const Start& one) {
            return (one.offset <= commit.offset || commit.offset == 0) &&
                   BeginsWith(copy, one.offset, source.to, journal, journalWhole);
        };
        // Without a commit the journal is as old as the copy.
        if (commit.offset != 0) std::reverse(starts.begin(), starts.end());
        const auto found = std::find_if(starts.begin(), starts.end(), fits);
        if (found == starts.end()) {
            throw ToolError(copy.GetParts().back().path +
                            ": the copy does not hold the whole records of the journal; repair without --from-copy");
        }
        start = *found;
    }
    source.from = start.offset;
    source.records = index - start.index;
    return source;
}

void Ignore(KwDBRTReader&) {}

// True when something was repaired.
bool Cut(const Database& db, const std::string& path) {
    Sequence journal(db, {path});
    const Walk walk = WalkRecords(*journal.GetParts()[0].file, path, Ignore);
    if (walk.IsWhole()) {
        std::printf("%s: whole, left as it is\n", path.c_str());
        return false;
    }
    std::printf("%s: %s\n", path.c_str(), walk.DamageText().c_str());
    Replace(db, path, journal, 0, walk.whole);
    std::printf("%s: kept %s bytes, %s; dropped %s bytes\n", path.c_str(), std::to_string(walk.whole).c_str(),
                walk.CountText().c_str(), std::to_string(walk.size - walk.whole).c_str());
    return true;
}

void Rebuild(const Database& db, const std::string& path) {
    const bool exists = db.GetFiles().Exists(path);
    Sequence journal(db, exists ? std::vector<std::string>{path} : std::vector<std::string>{});
    Walk walk;
    if (exists) {
        walk = WalkRecords(*journal.GetParts()[0].file, path, Ignore);
        if (walk.IsWhole() && walk.size != 0) {
            std::printf("%s: whole, left as it is\n", path.c_str());
            return;
        }
        std::printf("%s: %s\n", path.c_str(), walk.size == 0 ? "empty" : walk.DamageText().c_str());
    } else {
        std::printf("%s: missing\n", path.c_str());
    }
    const std::vector<std::string> copies = db.ListLog("logdat");
    if (copies.empty()) throw ToolError(db.GetNames().GetFile("logdat") + ": there is no journal copy");
    Sequence copy(db, copies);
    const Source source = FindInCopy(copy, journal, walk.whole);
    journal.Close();
    Replace(db, path, copy, source.from, source.to);
    std::printf(
        "%s: made from the copy, %s records, %s bytes; %s more records than the whole ones of the old journal\n",
        path.c_str(), std::to_string(source.records).c_str(), std::to_string(source.to - source.from).c_str(),
        std::to_string(source.records - std::min(source.records, walk.GetRecords())).c_str());
    if (!source.cut.empty()) std::printf("%s; that was left out\n", source.cut.c_str());
}

}  // namespace

int Repair(const Database& db, bool fromCopy) {
    const DirectoryLock lock(db);
    const std::string path = db.GetNames().GetJournal();
    bool cutAside = false;
    for (const std::string& one : db.ListJournals()) {
        if (one != path) {
            cutAside = Cut(db, one) || cutAside;
        } else if (!fromCopy) {
            Cut(db, one);
        }
    }
    if (fromCopy) Rebuild(db, path);
    if (cutAside)
        std::printf("A journal aside was cut: the changes it lost are followed by those of later journals.\n");
    return 0;
}
