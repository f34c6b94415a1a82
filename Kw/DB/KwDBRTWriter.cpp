#include "Kw/DB/KwDBRTWriter.h"

#include <mutex>
#include <utility>

#include "Kw/DB/KwDBRTAccess.h"
#include "Kw/DB/KwDBRTRecord.h"
#include "Kw/Helper/KwLogSystem.h"

namespace {

constexpr std::size_t kGather = 1u << 20;     // bytes of journal handed to the system at once
constexpr std::size_t kKeep = 4u << 20;       // larger buffers are not kept between passes
constexpr std::uint64_t kReserve = 1u << 20;  // bytes set aside for the journal at once where passes are flushed
// While a full disk holds back more than this, no record is taken from the queue.
constexpr std::size_t kHeldBack = 64u << 20;

void Shrink(std::string& buffer) {
    buffer.clear();
    if (buffer.capacity() > kKeep) std::string().swap(buffer);
}

KwBuffer* Snapshot(KwBuffer* record) {
    return static_cast<KwBuffer*>(record->GetUserData());
}

}  // namespace

bool KwDBRTWriter::Begin(const KwDBRTNames& names) {
    names_ = names;
    directoryLock_ = files_->Lock(names.GetLock());
    if (directoryLock_ == nullptr) {
        // Whoever may write there can open the file, also while another holds the lock.
        const bool writable = files_->Open(names.GetLock(), true) != nullptr;
        return KwLogSystem::PushRes("open database %s error: %s", names.GetLock().c_str(),
                                    writable ? "it is open elsewhere" : "the file cannot be made or written");
    }
    journalPath_ = names.GetJournal();
    for (Log* log : {&copy_, &text_}) {
        log->path = names.GetFile(log->extension);
        log->bytes.clear();
    }
    data_.Reset();
    failed_.store(false, std::memory_order_release);
    written_.store(0, std::memory_order_release);
    dropped_.store(0, std::memory_order_release);
    standing_ = uncommitted_ = reserved_ = 0;
    trims_ = false;
    // Those who made the files may not have flushed their names.
    madeFile_ = true;
    return true;
}

void KwDBRTWriter::End() {
    TrimJournal();
    DropQueued();
    for (Log* log : {&copy_, &text_}) {
        if (!log->bytes.empty()) KwLogSystem::Push("write file %s error", log->path.c_str());
        Shrink(log->bytes);
    }
    data_.Reset();
    files_->Unlock(directoryLock_);
    directoryLock_ = nullptr;
}

void KwDBRTWriter::DropQueued() {
    while (KwBufferNode* node = pool_.PopUsed()) {
        dropped_.fetch_add(1, std::memory_order_release);
        Free(node);
    }
}

void KwDBRTWriter::Free(KwBufferNode* node) {
    KwBuffer* snapshot = Snapshot(node);
    if (snapshot != nullptr) snapshot->Release();
    node->SetUserData(nullptr);
    node->Release();
}

bool KwDBRTWriter::Fail(const char* path) {
    failed_.store(true, std::memory_order_release);
    return KwLogSystem::PushRes("flush file %s error: the database takes no more changes until it is opened again",
                                path);
}

bool KwDBRTWriter::OpenFiles() {
    const auto open = [this](const std::string& path, std::unique_ptr<KwDBFile>& file) {
        file = files_->Open(path, true);
        if (file == nullptr) return KwLogSystem::PushRes("modify file %s error", path.c_str());
        if (file->GetSize() == 0) madeFile_ = true;
        return true;
    };
    return open(journalPath_, journal_) && open(copy_.path, copy_.file) && open(text_.path, text_.file);
}

void KwDBRTWriter::CloseFiles() {
    journal_ = nullptr;
    copy_.file = nullptr;
    text_.file = nullptr;
}

bool KwDBRTWriter::PassAll() {
    const std::lock_guard<KwLock> guard(lock_);
    do {
        if (!Pass()) return false;
    } while (!pool_.Empty(true));
    return true;
}

bool KwDBRTWriter::Pass() {
    const std::lock_guard<KwLock> guard(lock_);
    if (IsFailed() || inPass_) return false;
    int left = pool_.GetItemCount(true);
    if (left == 0 && copy_.bytes.empty() && text_.bytes.empty() && !data_.HasWaiting()) return true;
    inPass_ = true;
    bool ok = OpenFiles();
    if (ok && copy_.bytes.size() + text_.bytes.size() > kHeldBack) ok = WriteLog(copy_) && WriteLog(text_);
    if (ok) {
        // What others queue from here on is the next pass's, so that this one ends.
        for (; left > 0 && !IsFailed(); --left) {
            KwBufferNode* node = pool_.PopUsed();
            if (node == nullptr) break;
            Gather(node);
            if (bytes_.size() + lines_.size() >= kGather) WriteGathered();
        }
        WriteGathered();
        WriteLog(copy_);
        WriteLog(text_);
        ok = !IsFailed() && Flush();
        if (ok) written_.store(data_.GetFirstWaiting(standing_), std::memory_order_release);
        LimitLog(copy_);
        LimitLog(text_);
    }
    CloseFiles();
    Shrink(bytes_);
    Shrink(lines_);
    inPass_ = false;
    return ok;
}

// Encodes one record as it goes to the files. The host's text for a payload is asked for first: it gets the plain
// payload.
void KwDBRTWriter::Gather(KwBufferNode* node) {
    unsigned char* data = node->GetData();
    const unsigned int used = node->GetUsed();
    KwDBRTRecord record;
    const bool header = used >= KwDBRTRecord::kHeaderSize;
    // A payload of no bytes is written as it was queued.
    const KwDBRTRecord::State state = KwDBRTRecord::Parse(data, used, record);
    const bool whole = state == KwDBRTRecord::State::kWhole || (header && state == KwDBRTRecord::State::kLengthZero);
    if (!whole) {
        // A record buffer too small even for its header.
        dropped_.fetch_add(1, std::memory_order_release);
        KwLogSystem::Push("write data dbrt error");
        Free(node);
        return;
    }
    if (!record.IsEvent() && record.length == 0) KwDBRTRecord::ParseFields(data, record);
    const std::size_t start = bytes_.size();
    record.AppendText(lines_);
    if (!record.IsEvent()) {
        CKwDBRT::Access::DecryptLog(db_, record.id, data + KwDBRTRecord::kHeaderSize, record.length, lines_);
        lines_ += '\n';
    }
    bytes_.append(reinterpret_cast<const char*>(data), used);
    if (record.length != 0) {
        mask_.Round(bytes_.data() + start + KwDBRTRecord::kHeaderSize, record.length);
    }
    queued_.push_back({node, bytes_.size(), lines_.size(), false});
}

// Its record could not be written: nothing of it stands anywhere.
void KwDBRTWriter::Refuse(Queued& queued) {
    dropped_.fetch_add(1, std::memory_order_release);
    KwLogSystem::Push("write data dbrt error");
    KwBuffer* snapshot = Snapshot(queued.node);
    if (snapshot == nullptr) return;
    KwDBRTRecord record;
    KwDBRTRecord::ParseFields(queued.node->GetData(), record);
    data_.Refused(record.fileNumber, record.offset, record.size);
}

// A flush is done sooner when the file system has not to look for room first.
void KwDBRTWriter::ReserveJournal() {
    const std::uint64_t end = journal_->GetSize() + bytes_.size();
    if (!IsDurable() || end <= reserved_) return;
    reserved_ = end + kReserve;  // also where that fails: not to be tried in each pass
    if (journal_->Reserve(reserved_)) trims_ = true;
}

// Gives back what was set aside and not used.
void KwDBRTWriter::TrimJournal() {
    reserved_ = 0;
    if (!std::exchange(trims_, false) || IsFailed()) return;
    const std::unique_ptr<KwDBFile> file = files_->Exists(journalPath_) ? files_->Open(journalPath_, true) : nullptr;
    if (file != nullptr) file->Truncate(file->GetSize());
}

void KwDBRTWriter::WriteJournal() {
    std::size_t next = 0;
    std::size_t start = 0;  // in bytes_, of the record `next`
    ReserveJournal();
    while (next < queued_.size() && !IsFailed()) {
        std::uint64_t whole = journal_->GetSize();
        journalDirty_ = true;
        const std::size_t taken = start + journal_->Append(bytes_.data() + start, bytes_.size() - start);
        for (; next < queued_.size() && queued_[next].journalEnd <= taken; ++next) {
            queued_[next].stands = true;
            whole += queued_[next].journalEnd - start;
            start = queued_[next].journalEnd;
        }
        if (next == queued_.size()) {
            // The disk works while the copy, the text log and the data files are written.
            if (IsDurable()) journal_->StartSync();
            return;
        }
        // The next one stands there in part, or not at all.
        reserved_ = 0;
        if (journal_->GetSize() != whole && !journal_->Truncate(whole)) Fail(journalPath_.c_str());
        start = queued_[next].journalEnd;
        Refuse(queued_[next++]);
    }
    for (; next < queued_.size(); ++next) Refuse(queued_[next]);
}

void KwDBRTWriter::WriteGathered() {
    if (queued_.empty()) return;
    const std::uint64_t refused = GetDropped();
    WriteJournal();
    const bool all = GetDropped() == refused;
    std::size_t bytesStart = 0;
    std::size_t linesStart = 0;
    for (Queued& queued : queued_) {
        if (queued.stands) {
            if (!all) copy_.bytes.append(bytes_, bytesStart, queued.journalEnd - bytesStart);
            if (!all) text_.bytes.append(lines_, linesStart, queued.textEnd - linesStart);
            const unsigned char* data = queued.node->GetData();
            KwDBRTRecord record;
            KwBuffer* snapshot = Snapshot(queued.node);
            if (data[4] == KwDBRTRecord::kData) ++uncommitted_;
            if (snapshot != nullptr) {
                KwDBRTRecord::ParseFields(data, record);
                queued.node->SetUserData(nullptr);
                data_.Write(*files_, names_, record.id, record.fileNumber, record.offset, snapshot, standing_);
            }
            ++standing_;
        }
        bytesStart = queued.journalEnd;
        linesStart = queued.textEnd;
        Free(queued.node);
    }
    queued_.clear();
    if (all) {
        copy_.Take(bytes_);
        text_.Take(lines_);
    }
    bytes_.clear();
    lines_.clear();
    if (!IsFailed()) {
        WriteLog(copy_);
        WriteLog(text_);
    }
}

// Writes what the log holds. Bytes that the disk refuses are kept for the next time, and what was taken of
// them is cut off again, so that no torn record stands there.
bool KwDBRTWriter::WriteLog(Log& log) {
    if (log.bytes.empty()) return true;
    const std::uint64_t before = log.file->GetSize();
    const std::size_t taken = log.file->Append(log.bytes.data(), log.bytes.size());
    if (taken == log.bytes.size()) {
        Shrink(log.bytes);
        return true;
    }
    if (taken != 0 && !log.file->Truncate(before)) log.bytes.erase(0, taken);
    return KwLogSystem::PushRes("write file %s error", log.path.c_str());
}

bool KwDBRTWriter::Flush() {
    const bool durable = IsDurable();
    std::string failed;
    if (!data_.EndPass(*files_, names_, durable, failed)) return Fail(failed.c_str());
    if (!durable) return true;
    if (journalDirty_ && !journal_->Sync()) return Fail(journalPath_.c_str());
    journalDirty_ = false;
    if (data_.TakeMadeFile() || madeFile_) {
        if (!files_->SyncFolder(names_.GetDirectory())) return Fail(names_.GetDirectory().c_str());
        madeFile_ = false;
    }
    return true;
}

// A log that has reached the limit goes on in a new file.
void KwDBRTWriter::LimitLog(Log& log) {
    const std::uint64_t limit = logLimit_.load(std::memory_order_relaxed);
    if (limit == 0 || log.file == nullptr || !log.bytes.empty() || log.file->GetSize() < limit) return;
    // Under its number nobody flushes it any more.
    if (IsDurable() && !log.file->Sync()) return;
    log.file = nullptr;
    std::vector<unsigned int> earlier;
    bool ok = names_.ListEarlier(*files_, log.extension, earlier);
    const unsigned int number = earlier.empty() ? 1 : earlier.back() + 1;
    ok = ok && files_->Rename(log.path, names_.GetFile(log.extension, static_cast<int>(number)));
    if (!ok) KwLogSystem::Push("rename file %s error", log.path.c_str());
}

bool KwDBRTWriter::SetAside() {
    const std::lock_guard<KwLock> guard(lock_);
    if (!files_->Exists(journalPath_)) return true;
    TrimJournal();
    std::vector<unsigned int> aside;
    bool ok = names_.ListAside(*files_, aside);
    const std::string path = names_.GetAside(aside.empty() ? 1 : aside.back() + 1);
    ok = ok && files_->Rename(journalPath_, path);
    if (ok && files_->Open(journalPath_, true) == nullptr) {
        files_->Rename(path, journalPath_);
        ok = false;
    }
    if (!ok) return KwLogSystem::PushRes("create file %s error", journalPath_.c_str());
    madeFile_ = true;
    return true;
}

void KwDBRTWriter::RemoveAside() {
    const std::lock_guard<KwLock> guard(lock_);
    if (IsDurable() && !SyncLogs()) return;
    // Oldest first, each removal on the disk before the next: what is left after a crash must be the end of the
    // sequence, since replaying that once more leads to the same state.
    std::vector<unsigned int> aside;
    if (!names_.ListAside(*files_, aside)) KwLogSystem::Push("read folder %s error", names_.GetDirectory().c_str());
    for (const unsigned int number : aside) {
        const std::string path = names_.GetAside(number);
        if (!files_->Remove(path)) {
            KwLogSystem::Push("remove file %s error", path.c_str());
            return;
        }
        if (IsDurable() && !SyncNames()) return;
    }
}
