#include <algorithm>
#include <cstdio>
#include <cstring>

#include "kwdb/Commands.h"
#include "kwdb/Rewrite.h"

namespace {

// The lock that a database holds while it is open.
class DirectoryLock {
public:
    explicit DirectoryLock(const Database& db) : files_(db.GetFiles()), lock_(files_.Lock(db.GetNames().GetLock())) {
        if (lock_ == nullptr) {
            // Whoever may write there can open the file, also while another holds the lock.
            const std::string path = db.GetNames().GetLock();
            const bool writable = files_.Open(path, true) != nullptr;
            throw ToolError(path +
                            (writable ? ": the database is open elsewhere" : ": the file cannot be made or written"));
        }
    }
    ~DirectoryLock() { files_.Unlock(lock_); }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

private:
    KwDBFiles& files_;
    void* lock_;
};

// The part of the copy that the journal held. It begins with what is still whole of the journal: records that other
// threads queued just before a commit stand in front of it, in the new journal. Where nothing is left to compare
// it begins behind the last commit.
struct Source {
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    std::uint64_t records = 0;
    std::string cut;  // what was left out at the copy's end
};

Source FindInCopy(const Sequence& copy, const Sequence& journal, std::uint64_t journalWhole) {
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
            return (one.offset <= commit.offset || commit.offset == 0) && journalWhole <= source.to - one.offset &&
                   copy.IsSame(one.offset, journal, 0, journalWhole);
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
    Replace(db, path, {{journal, 0, walk.whole}});
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
    Replace(db, path, {{copy, source.from, source.to}});
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
    RepairLogs(db);
    if (cutAside)
        std::printf("A journal aside was cut: the changes it lost are followed by those of later journals.\n");
    return 0;
}
