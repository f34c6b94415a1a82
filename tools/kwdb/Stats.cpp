#include <algorithm>
#include <cstdio>
#include <unordered_set>

#include "common/Progress.h"
#include "kwdb/Commands.h"

namespace {

void PrintFiles(const char* what, const Database& db, const std::vector<std::string>& paths) {
    std::printf("%-14s %zu files, %s bytes\n", what, paths.size(), std::to_string(db.GetSize(paths)).c_str());
}

// True when all files are whole.
bool PrintRecords(const char* what, const Database& db, const std::vector<std::string>& paths) {
    Progress progress(what, db.GetSize(paths));
    Walk sum;
    std::unordered_set<double> ids;
    std::uint64_t payload = 0, entries = 0, entryBytes = 0, base = 0;
    unsigned int smallest = 0xFFFFFFFFu, largest = 0;
    std::string first, last, damage;
    for (const std::string& path : paths) {
        const std::unique_ptr<KwDBFile> file = db.Open(path);
        STime time{};
        const Walk walk = WalkRecords(*file, path, [&](KwDBRTReader& reader) {
            progress.Update(base + reader.GetOffset());
            const KwDBRTRecord& record = reader.GetRecord();
            time = record.time;
            if (first.empty()) KwDBRTRecord::AppendTime(first, time);
            if (record.IsEvent()) return;
            ids.insert(record.id);
            payload += record.length;
            smallest = std::min(smallest, record.length);
            largest = std::max(largest, record.length);
            if (record.fileNumber >= 0 && record.size != 0) {
                ++entries;
                entryBytes += record.size;
            }
        });
        base += walk.size;
        sum.logins += walk.logins;
        sum.commits += walk.commits;
        sum.data += walk.data;
        if (walk.GetRecords() != 0) {
            last.clear();
            KwDBRTRecord::AppendTime(last, time);
        }
        if (!walk.IsWhole()) damage += "  " + path + ": " + walk.DamageText() + "\n";
    }
    PrintFiles(what, db, paths);
    std::printf("  %s\n", sum.CountText().c_str());
    if (!first.empty())
        std::printf("  from %s to %s (hour_minute_second_day_month_year)\n", first.c_str(), last.c_str());
    if (sum.data != 0) {
        std::printf("  %zu objects, payloads of %u to %u bytes, %.1f on average, %s in all\n", ids.size(), smallest,
                    largest, static_cast<double>(payload) / static_cast<double>(sum.data),
                    std::to_string(payload).c_str());
        std::printf("  %s records name data entries, %s bytes\n", std::to_string(entries).c_str(),
                    std::to_string(entryBytes).c_str());
    }
    std::printf("%s", damage.c_str());
    return damage.empty();
}

}  // namespace

int Stats(const Database& db) {
    bool whole = PrintRecords("journal", db, db.ListJournals());
    whole = PrintRecords("journal copy", db, db.ListLog("logdat")) && whole;
    PrintFiles("text log", db, db.ListLog("log"));
    std::vector<std::string> data;
    for (const int number : db.ListData()) data.push_back(db.GetNames().GetFile("dat", number));
    PrintFiles("data files", db, data);
    return whole ? 0 : 1;
}
