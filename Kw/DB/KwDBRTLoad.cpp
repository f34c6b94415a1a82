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

// Has the processor fetch the objects of the records to come, which stand anywhere in memory: waiting for them one by
// one would take most of a replay. A record is seen twice, kSlot records ahead for its place in the table of ids and
// kObject records ahead for the object that is found there.
class Ahead {
public:
    explicit Ahead(const KwDBRTIdMap& ids) : ids_(ids) {}

    // The reader went to the next data record.
    void Step(KwDBRTReader& reader) {
        ++current_;
        double id = 0;
        for (seen_ = std::max(seen_, current_); seen_ < current_ + kSlot && reader.LookAhead(id); ++seen_) {
            ids_.Prefetch(id);
            ring_[seen_ % kSlot] = id;
        }
        for (found_ = std::max(found_, current_); found_ < std::min(current_ + kObject, seen_); ++found_) {
            const auto* object = reinterpret_cast<const char*>(ids_.Find(ring_[found_ % kSlot]));
            if (object == nullptr) continue;
            for (std::size_t line = 0; line < kBytes; line += kLine) __builtin_prefetch(object + line, 1);
        }
    }

private:
    static constexpr std::uint64_t kSlot = 16;
    static constexpr std::uint64_t kObject = 8;
    static constexpr std::size_t kBytes = 256;  // of an object: its own fields and what small hosts add
    static constexpr std::size_t kLine = 64;

    const KwDBRTIdMap& ids_;
    double ring_[kSlot] = {};
    // Counts of data records: that were gone to, whose ids were seen, whose objects were found.
    std::uint64_t current_ = 0;
    std::uint64_t seen_ = 0;
    std::uint64_t found_ = 0;
};

}  // namespace

bool CKwDBRT::LoadInfo() {
    PostLogin();
    KwDBFiles& files = writer_->GetFiles();
    const KwDBRTNames& names = writer_->GetNames();
    std::vector<std::string> paths;
    std::vector<unsigned int> aside;
    if (!names.ListAside(files, aside)) {
        return KwLogSystem::PushRes("read folder %s error", names.GetDirectory().c_str());
    }
    for (const unsigned int number : aside) paths.push_back(names.GetAside(number));
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
    Ahead ahead(ids_);
    while (reader.Next()) {
        KwDBRTRecord record = reader.GetRecord();
        if (record.IsEvent()) continue;
        ++records;
        ahead.Step(reader);
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
        // One pass: with threads that go on queueing, the queue may never be empty.
        if (!writer_->Pass()) return false;
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
