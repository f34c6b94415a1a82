#include <algorithm>
#include <cstdio>
#include <map>

#include "common/Progress.h"
#include "kwdb/Commands.h"

namespace {

constexpr int kShown = 10;  // mismatches of one data file that are printed

class Checker {
public:
    explicit Checker(const Database& db) : db_(db) {
        for (const int number : db.ListData()) data_.try_emplace(number);
    }

    void CheckRecords(const std::vector<std::string>& paths, const char* what, bool entries) {
        Progress progress(what, db_.GetSize(paths));
        std::uint64_t base = 0;
        for (const std::string& path : paths) {
            const std::unique_ptr<KwDBFile> file = db_.Open(path);
            const Walk walk = WalkRecords(*file, path, [&](KwDBRTReader& reader) {
                progress.Update(base + reader.GetOffset());
                if (entries) CheckNamed(path, reader);
            });
            base += walk.size;
            Say(path, what, walk.size, walk.CountText());
            if (!walk.IsWhole()) Damage(path, walk.DamageText());
        }
    }

    void CheckText(const std::vector<std::string>& paths) {
        Progress progress("text log", db_.GetSize(paths));
        std::uint64_t base = 0;
        for (const std::string& path : paths) {
            const std::unique_ptr<KwDBFile> file = db_.Open(path);
            const TextWalk walk =
                WalkText(*file, path, [&progress, base](std::uint64_t at) { progress.Update(base + at); });
            base += walk.size;
            Say(path, "text log", walk.size, std::to_string(walk.lines) + " lines");
            if (!walk.damage.empty()) Damage(path, walk.damage);
        }
    }

    void CheckData() {
        for (auto& [number, data] : data_) {
            const std::string path = db_.GetNames().GetFile("dat", number);
            if (data.file == nullptr && db_.GetFiles().Exists(path)) data.file = db_.Open(path);
            if (data.file == nullptr) {
                Damage(path, "the file is missing; " + std::to_string(data.named) + " records name entries of it");
                continue;
            }
            CheckEntries(path, *data.file);
            if (data.named == 0) continue;
            std::printf("%s: %s records name entries, %s of them match\n", path.c_str(),
                        std::to_string(data.named).c_str(), std::to_string(data.named - data.wrong).c_str());
            for (const std::string& text : data.mismatches) std::printf("%s: %s\n", path.c_str(), text.c_str());
            if (data.wrong != 0) ++damaged_;
        }
    }

    int Finish() const {
        if (damaged_ == 0) {
            std::printf("no damage\n");
        } else {
            std::printf("damage found: %d\n", damaged_);
        }
        return damaged_ == 0 ? 0 : 1;
    }

private:
    struct Data {
        std::unique_ptr<KwDBFile> file;
        std::uint64_t named = 0;
        std::uint64_t wrong = 0;
        std::vector<std::string> mismatches;  // the first ones
    };

    static void Say(const std::string& path, const char* what, std::uint64_t size, const std::string& counts) {
        std::printf("%s: %s, %s bytes, %s\n", path.c_str(), what, std::to_string(size).c_str(), counts.c_str());
    }
    void Damage(const std::string& path, const std::string& text) {
        ++damaged_;
        std::printf("%s: %s\n", path.c_str(), text.c_str());
    }

    // The entry that a record names.
    void CheckNamed(const std::string& path, KwDBRTReader& reader) {
        const KwDBRTRecord& record = reader.GetRecord();
        if (record.IsEvent() || record.fileNumber < 0 || record.size == 0) return;
        Data& data = data_[record.fileNumber];
        ++data.named;
        const std::string dataPath = db_.GetNames().GetFile("dat", record.fileNumber);
        if (data.file == nullptr && db_.GetFiles().Exists(dataPath)) data.file = db_.Open(dataPath);
        std::string why;
        if (data.file != nullptr) {
            unsigned char header[KwDBRTRecord::kEntrySize];
            double id = 0;
            unsigned int size = 0;
            if (data.file->Read(record.offset, header, sizeof(header)) != sizeof(header)) {
                why = "the file ends before it";
            } else if (!KwDBRTRecord::ParseEntry(header, id, size)) {
                why = "no entry begins there";
            } else if (id != record.id) {
                why = "the entry is of another object";
            } else if (size != record.size) {
                why = "the entry has " + std::to_string(size) + " bytes";
            } else if (std::uint64_t{record.offset} + sizeof(header) + size > data.file->GetSize()) {
                why = "the entry is cut";
            } else {
                return;
            }
        }
        if (++data.wrong > kShown || why.empty()) return;
        char id[400];
        std::snprintf(id, sizeof(id), "%.0f", record.id);
        data.mismatches.push_back("the record at offset " + std::to_string(reader.GetRecordOffset()) + " of " + path +
                                  " names " + std::to_string(record.size) + " bytes of object " + id + " at offset " +
                                  std::to_string(record.offset) + ": " + why);
    }

    void CheckEntries(const std::string& path, KwDBFile& file) {
        const std::uint64_t size = file.GetSize();
        Progress progress("data file", size);
        std::uint64_t entries = 0;
        std::uint64_t empty = 0;
        std::uint64_t at = 0;
        std::string damage;
        while (at < size && damage.empty()) {
            unsigned char header[KwDBRTRecord::kEntrySize];
            double id = 0;
            unsigned int length = 0;
            const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(sizeof(header), size - at));
            if (file.Read(at, header, wanted) != wanted) {
                throw ToolError(path + ": the file cannot be read at offset " + std::to_string(at));
            }
            if (wanted < sizeof(header)) {
                damage = "the entry is cut";
            } else if (!KwDBRTRecord::ParseEntry(header, id, length)) {
                damage = "no entry begins here";
            } else if (at + sizeof(header) + length > size) {
                damage = "the entry is cut";
            } else {
                ++entries;
                if (id == -1) ++empty;
                at += sizeof(header) + length;
                progress.Update(at);
            }
        }
        Say(path, "data file", size,
            std::to_string(entries) + " entries (" + std::to_string(empty) + " without an object)");
        if (!damage.empty()) {
            Damage(path, "damaged at offset " + std::to_string(at) + ": " + damage + "; " + std::to_string(size - at) +
                             " bytes from there on");
        }
    }

    const Database& db_;
    std::map<int, Data> data_;
    int damaged_ = 0;
};

}  // namespace

int Check(const Database& db, bool copyToo) {
    Checker checker(db);
    std::vector<std::string> journals = db.ListJournals();
    std::vector<std::string> journal;
    if (!journals.empty() && journals.back() == db.GetNames().GetJournal()) {
        journal.push_back(journals.back());
        journals.pop_back();
    }
    checker.CheckRecords(journals, "journal aside", true);
    checker.CheckRecords(journal, "journal", true);
    checker.CheckRecords(db.ListLog("logdat"), "journal copy", copyToo);
    checker.CheckText(db.ListLog("log"));
    checker.CheckData();
    return checker.Finish();
}
