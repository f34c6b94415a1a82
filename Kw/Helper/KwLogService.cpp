#include "Kw/Helper/KwLogService.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwFormat.h"
#include "Kw/KwOS.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Res/KwRes.h"

// A queued line; its text stands behind it and ends in a line feed.
struct SKwLogServiceLine {
    SKwLogServiceLine* next;
    unsigned int room;  // characters that fit, the line feed not counted
    unsigned int size;
    int id;

    char* Text() { return reinterpret_cast<char*>(this + 1); }
    const char* Text() const { return reinterpret_cast<const char*>(this + 1); }
};

namespace {

constexpr int kPoolLimit = 1024;
constexpr unsigned int kIdlePasses = 100000;
constexpr unsigned int kRetryMs = 1000;   // for a file that cannot be opened
constexpr unsigned int kReportMs = 1000;  // between reports of dropped lines

}  // namespace

void KwLogService::Queue::Add(SKwLogServiceLine* line) {
    line->next = nullptr;
    (first == nullptr ? first : last->next) = line;
    last = line;
}

SKwLogServiceLine* KwLogService::Queue::Take() {
    SKwLogServiceLine* const line = first;
    if (line != nullptr) first = line->next;
    return line;
}

KwLogService::KwLogService(const char* name) : name_(name == nullptr ? "" : name) {}

KwLogService::~KwLogService() {
    Close();
    Free(submitted_);
    Free(reading_);
    Free(pool_);
}

void KwLogService::Free(Queue& queue) {
    while (SKwLogServiceLine* line = queue.Take()) KwMemory::Free(line, nullptr, 0);
}

// Set-up ------------------------------------------------------------------------------------------------------

bool KwLogService::SetLogPath(const char* path) {
    if (state_ == State::kStarted) return false;
    char full[KwRes::kPathSize + 1];
    if (!KwRes::GetFullPath(full, path, -1)) return false;
    KwRes::CheckAddCharPathToDir(full, -1);
    KwRes::CreateFolder(full, true, 0);
    path_ = full;
    return true;
}

bool KwLogService::SetLogFile(int id, const char* folder, const char* name, const SLogTimeCheck&, const SLogTimeCheck&,
                              int lines, unsigned int seconds) {
    if (state_ == State::kStarted || id == 0) return false;
    const Guard guard(this);
    File& file = files_[id];
    file.folder = folder == nullptr ? "" : folder;
    file.name = name == nullptr ? "" : name;
    file.lineLimit = std::max(lines, 1);
    file.idleLimit = std::clamp(seconds, 1u, 0x7FFFFFFFu / 1000) * 1000;
    return true;
}

bool KwLogService::Start(int bufferSize) {
    if (state_ == State::kStarted) return false;
    {
        const std::lock_guard<KwLock> guard(poolLock_);
        bufferSize_ = static_cast<unsigned int>(std::max(bufferSize, 128));
        Free(pool_);
        pooled_ = 0;
    }
    state_ = State::kStarted;
    // Without a reference: the last Release of the host ends the writer, too.
    thread_ = KwOS::NewThread(_OnThread, this);
    if (thread_ == nullptr) state_ = State::kSetUp;
    return thread_ != nullptr;
}

void KwLogService::Close() {
    {
        const Guard guard(this);  // what is being submitted is in the queue afterwards
        if (state_ == State::kStarted) state_ = State::kClosed;
    }
    if (thread_ == nullptr) return;
    KwOS::CloseService(thread_);
    thread_ = nullptr;
}

// Submitting --------------------------------------------------------------------------------------------------

SKwLogServiceLine* KwLogService::TakeLine(unsigned int size) {
    unsigned int room;
    {
        const std::lock_guard<KwLock> guard(poolLock_);
        room = bufferSize_ - 1;
        SKwLogServiceLine* const line = size <= room ? pool_.Take() : nullptr;
        if (line != nullptr) {
            --pooled_;
            return line;
        }
    }
    room = std::max(size, room);
    if (room > 0x7FFFFFFFu) return nullptr;
    void* const block =
        KwMemory::Malloc(static_cast<unsigned int>(sizeof(SKwLogServiceLine)) + room + 1, __FILE__, __LINE__);
    return block == nullptr ? nullptr : new (block) SKwLogServiceLine{nullptr, room, 0, 0};
}

void KwLogService::GiveBack(SKwLogServiceLine* line) {
    Queue one;
    one.Add(line);
    GiveBack(one);
}

void KwLogService::GiveBack(Queue& used) {
    Queue more;
    {
        const std::lock_guard<KwLock> guard(poolLock_);
        while (SKwLogServiceLine* const line = used.Take()) {
            if (pooled_ < kPoolLimit && line->room == bufferSize_ - 1) {
                // The one used last is taken first: it is in the cache.
                line->next = pool_.first;
                if (pool_.first == nullptr) pool_.last = line;
                pool_.first = line;
                ++pooled_;
            } else {
                more.Add(line);
            }
        }
    }
    Free(more);
}

bool KwLogService::Submit(int id, SKwLogServiceLine* line) {
    line->id = id;
    line->Text()[line->size] = '\n';
    for (;;) {
        {
            const Guard guard(this);
            if (id != 0 && files_.find(id) == files_.end()) {
                GiveBack(line);
                return false;
            }
            if (state_ == State::kClosed) break;
            if (queued_ < queueLimit_) {
                submitted_.Add(line);
                ++queued_;
                return true;
            }
        }
        if (!waitWhenFull_ || state_ != State::kStarted) break;
        KwPlatform::SleepMs(1);
    }
    ++dropped_;
    GiveBack(line);
    return false;
}

bool KwLogService::Write(int id, const char* text, int length) {
    if (text == nullptr) return false;
    const std::size_t size = length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
    SKwLogServiceLine* const line = size > 0x7FFFFFFFu ? nullptr : TakeLine(static_cast<unsigned int>(size));
    if (line == nullptr) {
        ++dropped_;
        return false;
    }
    std::memcpy(line->Text(), text, size);
    line->size = static_cast<unsigned int>(size);
    return Submit(id, line);
}

bool KwLogService::WriteF(int id, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const bool queued = WriteV(id, format, args);
    va_end(args);
    return queued;
}

bool KwLogService::WriteV(int id, const char* format, va_list args) {
    if (format == nullptr) return false;
    SKwLogServiceLine* const line = TakeLine(0);
    if (line == nullptr) {
        ++dropped_;
        return false;
    }
    va_list copy;
    va_copy(copy, args);
    const int length = KwFormat::Print(line->Text(), line->room, format, copy);
    va_end(copy);
    if (length < 0) {
        GiveBack(line);
        return false;
    }
    line->size = std::min(static_cast<unsigned int>(length), line->room);
    return Submit(id, line);
}

// The writer --------------------------------------------------------------------------------------------------

void KwLogService::_OnThread(bool& run, void* self) {
    static_cast<KwLogService*>(self)->OnThread(run);
}

void KwLogService::OnThread(bool& run) {
    for (unsigned int pass = 1;; ++pass) {
        const bool running = std::atomic_ref<bool>(run).load(std::memory_order_acquire);
        const unsigned int most = linesPerPass_;
        const bool empty = Pass(running && most != 0 ? most : ~0u);
        if (consoleHeld_) std::fflush(stdout);
        consoleHeld_ = false;
        if (empty) FlushFiles();
        ReportDropped(!running);
        if (!running && empty) break;
        if (pass % kIdlePasses == 0) CloseIdleFiles();
        if (running) KwPlatform::SleepMs(1);
    }
    for (auto& [id, file] : files_) file.file.Close();
}

// Writes up to `most` lines; returns whether no more wait.
bool KwLogService::Pass(unsigned int most) {
    if (reading_.first == nullptr) {
        const Guard guard(this);
        std::swap(reading_, submitted_);
        submitted_ = Queue();
    }
    Queue used;
    unsigned int count = 0;
    for (; count < most; ++count) {
        SKwLogServiceLine* const line = reading_.Take();
        if (line == nullptr) break;
        WriteLine(*line);
        used.Add(line);
    }
    if (count == 0) return true;
    GiveBack(used);
    return (queued_ -= count) == 0;
}

void KwLogService::WriteLine(const SKwLogServiceLine& line) {
    bool done;
    if (line.id == 0) {
        done = std::fwrite(line.Text(), 1, line.size + 1, stdout) == line.size + 1;
        consoleHeld_ = true;
    } else {
        File& file = files_.find(line.id)->second;
        done = OpenFile(file) && file.file.Write(line.Text(), line.size + 1);
        if (done) {
            ++file.lines;
            file.lastTick = KwPlatform::TickCount();
            file.held = true;
        }
    }
    ++(done ? written_ : dropped_);
}

bool KwLogService::OpenFile(File& file) {
    if (file.file.CanWrite()) return true;
    const unsigned int now = KwPlatform::TickCount();
    if (file.failed && now - file.failedTick < kRetryMs) return false;
    std::string path = path_;
    if (!file.folder.empty()) {
        path += file.folder + '\\';
        KwRes::CreateFolder(path.c_str(), true, 0);
    }
    path += file.name + ".log";
    file.failed = !file.file.Append(path.c_str());
    file.failedTick = now;
    file.lines = 0;
    return !file.failed;
}

void KwLogService::FlushFiles() {
    for (auto& [id, file] : files_) {
        if (file.held) file.file.Flush();
        file.held = false;
    }
}

void KwLogService::CloseIdleFiles() {
    const unsigned int now = KwPlatform::TickCount();
    for (auto& [id, file] : files_) {
        if (!file.file.CanWrite()) continue;
        if (file.lines >= file.lineLimit || (file.lines != 0 && now - file.lastTick > file.idleLimit))
            file.file.Close();
    }
}

void KwLogService::ReportDropped(bool now) {
    const unsigned long long dropped = dropped_;
    if (dropped == reported_) return;
    const unsigned int tick = KwPlatform::TickCount();
    if (!now && reported_ != 0 && tick - reportTick_ < kReportMs) return;
    KwLogSystem::Push("log service %s dropped %llu lines", name_.c_str(), dropped - reported_);
    reported_ = dropped;
    reportTick_ = tick;
}
