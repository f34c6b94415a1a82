// The repair of the journal copy and of the text log.
#include <algorithm>
#include <cstdio>

#include "kwdb/Commands.h"
#include "kwdb/Rewrite.h"

namespace {

std::string Number(std::uint64_t number) {
    return std::to_string(number);
}

void SayCut(const std::string& path, const Walk& walk) {
    std::printf("%s: kept %s bytes, %s; dropped %s bytes\n", path.c_str(), Number(walk.whole).c_str(),
                walk.CountText().c_str(), Number(walk.size - walk.whole).c_str());
}

// Where the copy, whose whole records end at `end` with one that begins at `last`, goes on in the journals: behind
// the same record, if all before it are the same too, as far as both go. 0 when the copy has none of the journals'
// records, and the journals' size when it has others beside them.
std::uint64_t FindEnd(const Sequence& copy, std::uint64_t last, std::uint64_t end, const Sequence& journals) {
    std::uint64_t found = 0;
    bool seen = false;
    for (const Sequence::Part& part : journals.GetParts()) {
        WalkRecords(*part.file, part.path, [&](KwDBRTReader& reader) {
            const std::uint64_t total = reader.GetRecord().GetTotal();
            const std::uint64_t behind = part.base + reader.GetOffset();
            if (total != end - last || !journals.IsSame(behind - total, copy, last, total)) return;
            seen = true;
            const std::uint64_t both = std::min(behind, end);
            if (journals.IsSame(behind - both, copy, end - both, both)) found = behind;
        });
    }
    return found == 0 && seen ? journals.GetSize() : found;
}

void RepairCopy(const Database& db, const std::string& path, bool isLast) {
    Sequence copy(db, {path});
    std::uint64_t last = 0;  // where the last whole record begins
    const Walk walk =
        WalkRecords(*copy.GetParts()[0].file, path, [&last](KwDBRTReader& reader) { last = reader.GetRecordOffset(); });
    if (walk.IsWhole()) {
        std::printf("%s: whole, left as it is\n", path.c_str());
        return;
    }
    std::printf("%s: %s\n", path.c_str(), walk.DamageText().c_str());
    Sequence journals(db, isLast ? db.ListJournals() : std::vector<std::string>());
    const std::uint64_t size = journals.GetSize();
    const std::uint64_t from = size == 0 || walk.whole == 0 ? 0 : FindEnd(copy, last, walk.whole, journals);
    Replace(db, path, {{copy, 0, walk.whole}, {journals, from, size}});
    SayCut(path, walk);
    if (from < size) {
        std::printf("%s: completed from the journal, %s bytes; %s\n", path.c_str(), Number(size - from).c_str(),
                    from != 0 ? "nothing is missing" : "records between the two may be missing");
    }
}

void RepairText(const Database& db, const std::string& path) {
    Sequence text(db, {path});
    const TextWalk walk = WalkText(*text.GetParts()[0].file, path, [](std::uint64_t) {});
    if (walk.damage.empty()) {
        std::printf("%s: whole, left as it is\n", path.c_str());
        return;
    }
    std::printf("%s: %s\n", path.c_str(), walk.damage.c_str());
    Replace(db, path, {{text, 0, walk.whole}});
    std::printf("%s: kept %s bytes, %s lines; dropped %s bytes\n", path.c_str(), Number(walk.whole).c_str(),
                Number(walk.lines).c_str(), Number(walk.size - walk.whole).c_str());
}

}  // namespace

void RepairLogs(const Database& db) {
    const std::vector<std::string> copies = db.ListLog("logdat");
    for (const std::string& path : copies) RepairCopy(db, path, path == copies.back());
    // Only the host can write the text of a payload: with the durable setting it does so when it opens the database.
    for (const std::string& path : db.ListLog("log")) RepairText(db, path);
}
