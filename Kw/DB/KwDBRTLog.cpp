// The runtime database's journal copy, read for inspection.
#include <mutex>

#include "Kw/DB/KwDBRT.h"
#include "Kw/DB/KwDBRTReader.h"
#include "Kw/DB/KwDBRTWriter.h"
#include "Kw/Helper/KwLogSystem.h"

void CKwDBRT::LoadLog() {
    // No pass appends meanwhile.
    const std::lock_guard<KwLock> guard(writer_->GetLock());
    logLoaded_ = true;
    logins_.clear();
    commits_.clear();
    actions_.clear();
    const KwDBRTNames& names = writer_->GetNames();
    std::vector<std::string> paths;
    std::vector<unsigned int> numbers;
    const std::string last = names.GetFile("logdat");
    if (!names.ListEarlier(writer_->GetFiles(), "logdat", numbers)) {
        logLoaded_ = false;
        KwLogSystem::Push("open file %s error", last.c_str());
        return;
    }
    for (const unsigned int number : numbers) {
        paths.push_back(names.GetFile("logdat", static_cast<int>(number)));
    }
    // Right after one file was full, the next has not begun.
    if (paths.empty() || writer_->GetFiles().Exists(last)) paths.push_back(last);
    std::uint64_t base = 0;
    bool started = false;
    for (const std::string& path : paths) {
        const std::unique_ptr<KwDBFile> file = writer_->GetFiles().Open(path, false);
        bool read = file != nullptr;
        if (read) {
            if (!started) KwLogSystem::Push("start load log");
            started = true;
            logLoaded_ = ReadCopy(*file, base, read);
            if (!logLoaded_ && read) KwLogSystem::Push("read log error");
            base += file->GetSize();
        }
        if (!read) {
            logLoaded_ = false;
            KwLogSystem::Push("open file %s error", path.c_str());
        }
        if (!logLoaded_) break;
    }
    if (logLoaded_) return;
    logins_.clear();
    commits_.clear();
    actions_.clear();
}

// Lists the records of one file, whose first byte is at `base` of the whole copy; `read` tells whether it could be.
bool CKwDBRT::ReadCopy(KwDBFile& file, std::uint64_t base, bool& read) {
    KwDBRTReader reader(file);
    while (reader.Next()) {
        const KwDBRTRecord& record = reader.GetRecord();
        const bool login = record.type == KwDBRTRecord::kLogin;
        const char* action = !record.IsEvent() ? "data" : login ? "login" : "commit";
        actions_.push_back({base + reader.GetRecordOffset(), action, record.time});
        if (record.IsEvent()) (login ? logins_ : commits_).push_back(actions_.back());
    }
    read = !reader.IsReadError();
    return read && reader.GetState() == KwDBRTRecord::State::kWhole;
}

void CKwDBRT::LogActions(const std::vector<KwDBRTAction>& actions, bool withAction) {
    std::string line;
    for (const KwDBRTAction& action : actions) {
        line.clear();
        KwDBRTRecord::AppendTime(line, action.time);
        if (withAction) line.append("action=").append(action.action).append("\t");
        KwLogSystem::Push("%soffset=%llu", line.c_str(), static_cast<unsigned long long>(action.offset));
    }
}

void CKwDBRT::RestoreLogin() {
    const std::lock_guard<KwLock> guard(writer_->GetLock());
    if (!logLoaded_) LoadLog();
    LogActions(logins_, false);
}

void CKwDBRT::RestoreCommit() {
    const std::lock_guard<KwLock> guard(writer_->GetLock());
    if (!logLoaded_) LoadLog();
    LogActions(commits_, false);
}

void CKwDBRT::RestoreTime() {
    const std::lock_guard<KwLock> guard(writer_->GetLock());
    if (!logLoaded_) LoadLog();
    LogActions(actions_, true);
}
