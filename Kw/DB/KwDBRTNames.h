// KwDBRTNames: the files of a runtime database called N in the directory D.
//
//   D N.info          the journal
//   D N.info.1 ...    journals that stand aside until the host has committed them, oldest first
//   D N.logdat        the journal copy; D N.logdat_1 ... are its earlier files where its size is limited
//   D N.log           the text log, and D N.log_1 ... likewise
//   D N.dat           data file 0; D N.dat_3 is data file 3
//   D N.lock          held by the process that has the database open
// Thread-safety: plain values.
#pragma once

#include <string>
#include <vector>

#include "Kw/KwDefine.h"

class KwDBFiles;

class KW_API KwDBRTNames {
public:
    // The directory gets a `\` at its end unless it has a separator there.
    void Init(const std::string& directory, const std::string& name);

    const std::string& GetDirectory() const { return directory_; }
    const std::string& GetName() const { return name_; }
    std::string GetJournal() const { return directory_ + name_ + ".info"; }
    std::string GetAside(unsigned int number) const { return GetJournal() + "." + std::to_string(number); }
    std::string GetLock() const { return directory_ + name_ + ".lock"; }
    // "D N.extension" for number 0, else "D N.extension_number": data files are "dat", the copy's files "logdat" and
    // the text log's "log".
    std::string GetFile(const char* extension, int number = 0) const;

    // The numbers of the journals aside, and of the earlier files of "logdat" or "log", ascending. False, with nothing
    // logged, when the directory cannot be read: then nobody may act as if there were none.
    [[nodiscard]] bool ListAside(KwDBFiles& files, std::vector<unsigned int>& numbers) const;
    [[nodiscard]] bool ListEarlier(KwDBFiles& files, const char* extension, std::vector<unsigned int>& numbers) const;

private:
    bool ListNumbers(KwDBFiles& files, const std::string& before, std::vector<unsigned int>& numbers) const;

    std::string directory_;
    std::string name_;
};
