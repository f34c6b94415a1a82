// The files of a closed database, as the commands of kwdb look at them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kw/DB/KwDBFiles.h"
#include "Kw/DB/KwDBRTNames.h"
#include "Kw/DB/KwDBRTReader.h"
#include "common/ToolError.h"

class Database {
public:
    // Throws when no file of that database is in the folder. `files` stays the caller's.
    Database(const std::string& directory, const std::string& name, KwDBFiles& files = *KwDBFiles::GetDisk());

    KwDBFiles& GetFiles() const { return files_; }
    const KwDBRTNames& GetNames() const { return names_; }

    // The paths of the files that are there, oldest first: the journals aside and the journal, and the files of
    // "logdat" or "log".
    std::vector<std::string> ListJournals() const;
    std::vector<std::string> ListLog(const char* extension) const;
    std::vector<int> ListData() const;

    // Opens a file for reading; throws.
    std::unique_ptr<KwDBFile> Open(const std::string& path) const;
    std::uint64_t GetSize(const std::vector<std::string>& paths) const;

private:
    [[noreturn]] void ThrowUnread() const;

    KwDBFiles& files_;
    KwDBRTNames names_;
};

// What stands in a file from an offset on.
struct Behind {
    std::uint64_t records = 0;  // that seem to be whole
    bool zeros = true;          // there are only zero bytes
};
Behind LookBehind(KwDBFile& file, std::uint64_t offset);

// The records of a file up to its end or to the first damage.
struct Walk {
    std::uint64_t size = 0;   // bytes of the file
    std::uint64_t whole = 0;  // bytes of whole records
    std::uint64_t logins = 0;
    std::uint64_t commits = 0;
    std::uint64_t data = 0;
    std::string damage;  // why the record at `whole` is damaged; empty when there is none
    Behind behind;       // what stands from there on

    bool IsWhole() const { return damage.empty(); }
    std::uint64_t GetRecords() const { return logins + commits + data; }
    // "4 records (1 login, 0 commit, 3 data)"
    std::string CountText() const;
    // "damaged at offset 61: the record is cut; 12 bytes from there on, 0 records among them"
    std::string DamageText() const;
};
// Calls each(reader) for every whole record. Throws when the file cannot be read.
Walk WalkRecords(KwDBFile& file, const std::string& path, const std::function<void(KwDBRTReader&)>& each);

// The lines of a text log. The host writes the text of its payloads as it likes: only how the file ends can be wrong.
struct TextWalk {
    std::uint64_t size = 0;   // bytes of the file
    std::uint64_t whole = 0;  // bytes of whole lines
    std::uint64_t lines = 0;
    std::string damage;  // "damaged at offset 61: the last line is cut"; empty when there is none
};
// Calls progress(bytes) now and then. Throws when the file cannot be read.
TextWalk WalkText(KwDBFile& file, const std::string& path, const std::function<void(std::uint64_t)>& progress);
