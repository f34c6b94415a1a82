// The runtime database's journal: replay at start, and commit.
#include <algorithm>
#include <climits>
#include <mutex>

#include "Kw/DB/KwDBRT.h"
#include "Kw/DB/KwDBRTReader.h"
#include "Kw/DB/KwDBRTWriter.h"
#include "Kw/Helper/KwLogSystem.h"

namespace {
using Guard = std::lock_guard<KwLock>;
}  // namespace

bool CKwDBRT::LoadInfo() {
    PostLogin();
    KwDBFiles& files = writer_->GetFiles();
    const KwDBRTNames& names = writer_->GetNames();
    std::vector<std::string> paths;
    for (const unsigned int number : names.ListAside(files)) paths.push_back(names.GetAside(number));
    if (files.Exists(journalPath_)) paths.push_back(journalPath_);
    int count = 0;
    std::uint64_t records = 0;
    for (const std::string& path : paths) {
        const std::unique_ptr<KwDBFile> file = files.Open(path, false);
        if (file == nullptr) return KwLogSystem::PushRes("open file %s error", path.c_str());
        KwDBRTReader reader(*file);
        if (Replay(reader, count, records)) continue;
        const char* why = reader.IsReadError() ? "it cannot be read" : KwDBRTRecord::Describe(reader.GetState());
        return KwLogSystem::PushRes("load journal %s error offset:%llu, %s", path.c_str(),
                                    static_cast<unsigned long long>(reader.GetOffset()),
                                    why != nullptr ? why : "the host refused the record before");
    }
    writer_->SetUncommitted(records);
    if (writer_->IsDurable() && !writer_->CompleteLogs(paths)) return false;
    if (count == 0) return true;
    if (!writer_->SetAside()) return false;
    PostCommit();
    if (!OnCommit(count)) return KwLogSystem::PushRes("commit journal %s error", journalPath_.c_str());
    writer_->SetUncommitted(0);
    writer_->RemoveAside();
    return true;
}

bool CKwDBRT::Replay(KwDBRTReader& reader, int& count, std::uint64_t& records) {
    while (reader.Next()) {
        KwDBRTRecord record = reader.GetRecord();
        if (record.IsEvent()) continue;
        ++records;
        reader.UnscramblePayload();
        unsigned char* cursor = reader.GetPayload();
        unsigned char* const end = cursor + record.length;
        if (!OnLoadObjectData(record.id, cursor, end, record.fileNumber, record.offset, record.size, &record.time,
                              count) ||
            cursor != end) {
            return false;
        }
    }
    return reader.GetState() == KwDBRTRecord::State::kWhole && !reader.IsReadError();
}

bool CKwDBRT::Checkpoint() {
    const Guard guard(commitLock_);
    if (!open_.load() || committing_ || IsFailed()) return false;
    std::uint64_t records = 0;
    {
        const Guard pass(writer_->GetLock());
        if (!writer_->PassAll()) return false;
        records = writer_->GetUncommitted();
        if (records == 0) return true;
        if (!writer_->SetAside()) return false;
        writer_->SetUncommitted(0);
        PostCommit();
    }
    committing_ = true;
    const bool committed = OnCommit(static_cast<int>(std::min<std::uint64_t>(records, INT_MAX)));
    committing_ = false;
    if (!committed) {
        const Guard pass(writer_->GetLock());
        writer_->SetUncommitted(writer_->GetUncommitted() + records);
        return KwLogSystem::PushRes("commit journal %s error", journalPath_.c_str());
    }
    writer_->RemoveAside();
    return true;
}
