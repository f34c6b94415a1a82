// A pack as the commands of kwpack look at it: its entries with their names.
#pragma once

#include <string>
#include <vector>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFilePack.h"
#include "common/ToolError.h"

// The pack is damaged, or no pack at all.
class PackError : public ToolError {
    using ToolError::ToolError;
};

class Pack {
public:
    struct Entry {
        const SPackFileItem* item;
        std::string name;  // as it was packed; empty when the pack does not tell

        // The name, or "hash:1a2b3c4d".
        std::string Show() const;
    };

    // `limit` is the largest unpacked size that is read, in bytes. Throws ToolError for a file that cannot be read and
    // PackError, with the reason, for one that is no pack.
    explicit Pack(const std::string& path, unsigned int limit = KwFilePack::kUnpackLimit);

    const std::string& GetPath() const { return path_; }
    // The packed files, by name and hash. Not among them: the list of names.
    const std::vector<Entry>& GetEntries() const { return entries_; }
    // The one of that name, or hash ("hash:1a2b3c4d"); null when there is none.
    const Entry* Find(const std::string& name) const;
    // Why the list of names, if there is one, cannot be read; empty when it can.
    const std::string& GetNamesFault() const { return namesFault_; }
    bool HasNames() const { return hasNames_; }
    // The names that lead to no entry.
    const std::vector<std::string>& GetLostNames() const { return lost_; }

    // Reads and unpacks; false, with the reason, when that cannot be done.
    bool Read(const SPackFileItem& item, KwBuffer& out, std::string& why) const;

    static const char* GetMethodName(const SPackFileItem& item);

private:
    void ReadNameList();

    std::string path_;
    unsigned int limit_;
    KwFilePack pack_;
    std::vector<Entry> entries_;
    std::vector<std::string> lost_;
    std::string namesFault_;
    bool hasNames_ = false;
};
