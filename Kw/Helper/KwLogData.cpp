#include "Kw/Helper/KwLogData.h"

#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>

#include "Kw/KwGuardedCall.h"
#include "Kw/KwModuleChain.h"
#include "Kw/KwStaticLock.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwRes.h"

namespace {

constinit std::atomic<CLogData*> g_state{nullptr};
constinit KwStaticLock g_creation;

// Carries the state through the library's release.
class LogModule : public KwModuleEngine {
public:
    // The hooked object belongs to others, who end first.
    void BeginRelease() override { KwLogSystem::UnHook(); }
    void EndRelease() override {
        g_state.store(nullptr, std::memory_order_release);
        this->~LogModule();
    }
    CLogData data;
};

// Room of its own, so that the log never fails for lack of memory.
alignas(LogModule) constinit unsigned char g_room[sizeof(LogModule)] = {};

// A va_list parameter is a pointer on both platforms, so that a host can pass null for "no arguments".
template <class List>
bool IsNull(List& args) {
    static_assert(std::is_pointer_v<List>);
    return args == nullptr;
}

}  // namespace

CLogData& CLogData::Get() {
    CLogData* state = g_state.load(std::memory_order_acquire);
    if (state != nullptr) return *state;
    const std::lock_guard<KwStaticLock> guard(g_creation);
    state = g_state.load(std::memory_order_relaxed);
    if (state == nullptr) {
        LogModule* module = new (g_room) LogModule;
        state = &module->data;
        // What others report while they end, and the allocator of what is still alive, goes where the log goes.
        KwModuleChain::Get().PostOldest(module);
        g_state.store(state, std::memory_order_release);
    }
    return *state;
}

CLogData::~CLogData() {
    CloseFile();
}

void CLogData::SetConsole(bool withTime) {
    const std::lock_guard<KwLock> guard(lock_);
    CloseFile();
    path_[0] = '\0';
    reported_ = false;
    callback_ = nullptr;
    withTime_ = withTime;
}

void CLogData::SetFile(const char* path, bool withTime) {
    const std::lock_guard<KwLock> guard(lock_);
    SetConsole(withTime);
    char full[KwRes::kPathSize];
    const bool resolved = KwRes::GetFullPath(full, path, -1);
    const std::size_t length = resolved ? std::strlen(full) : 0;
    if (resolved && length < sizeof(path_)) {
        std::memcpy(path_, full, length + 1);
        lineLimit_ = 100;
        countLimit_ = 100;
        tickLimit_ = 60000;
        if (OpenFile()) return;
        path_[0] = '\0';
    }
    ReportFile(path == nullptr ? "" : path);
}

void CLogData::SetCallback(KwLogSystem::Callback callback, bool withTime) {
    const std::lock_guard<KwLock> guard(lock_);
    SetConsole(withTime);
    callback_ = callback;
    if (callback == nullptr) KwLogSystem::Push("Set Log Func error func = null");
}

void CLogData::Flush() {
    const std::lock_guard<KwLock> guard(lock_);
    if (file_ != nullptr && std::fflush(file_) != 0 && !reported_) ReportFile(path_);
}

void CLogData::Push(const char* format, va_list args, const char* name) {
    if (format == nullptr) return;
    // Formatting outside the lock is what lets several threads log at once; only a callback, which
    // formats by itself, does without. The mode may change until the lock is taken, so it is asked twice.
    KwLogLine line;
    bool formatted = false;
    const auto formatLine = [&] {
        if (IsNull(args)) {
            line.SetText(format, name);
        } else {
            va_list copy;
            va_copy(copy, args);
            if (!line.Format(format, copy, name)) line.SetText(format, name);
            va_end(copy);
        }
        formatted = true;
    };
    if (callback_.load(std::memory_order_relaxed) == nullptr) formatLine();
    const std::lock_guard<KwLock> guard(lock_);
    if (hook_.load(std::memory_order_relaxed) != nullptr) {
        if (!formatted) formatLine();
        Capture(line);
    }
    if (callback_.load(std::memory_order_relaxed) != nullptr && !inCallback_) {
        CallHost(format, args);
        return;
    }
    if (!formatted) formatLine();
    Write(line);
}

void CLogData::Capture(KwLogLine& line) {
    const std::size_t prefixSize = TakeTime() ? prefixSize_ : 0;
    const KwLogLine::Piece whole = line.Whole(prefix_, prefixSize, true);
    captured_.Push(whole.data, whole.size - 1);
}

void CLogData::SetHook(CBLogToBuffer* object) {
    const std::lock_guard<KwLock> guard(lock_);
    hook_ = object;
    captured_.Clear();
}

const KwLogQueue::Lines* CLogData::BeginHookCall(unsigned int& lost) {
    if (inHookCall_) return nullptr;
    inHookCall_ = true;
    const std::lock_guard<KwLock> guard(lock_);
    lost = captured_.TakeDropped();
    return &captured_.Turn();
}

void CLogData::CallHost(const char* format, va_list args) {
    STime* time = TakeTime() ? &time_ : nullptr;
    inCallback_ = true;
    const KwLogSystem::Callback callback = callback_.load(std::memory_order_relaxed);
    // Lines are pushed from everywhere, and nobody there expects an exception of the host.
    KwGuardedCall("the log callback", nullptr, [&] {
        if (IsNull(args)) {
            callback(format, args, time);
            return;
        }
        va_list copy;
        va_copy(copy, args);
        callback(format, copy, time);
        va_end(copy);
    });
    inCallback_ = false;
}

void CLogData::Write(KwLogLine& line) {
    TakeTime();
    if (inCallback_ || path_[0] == '\0') {
        WriteConsole(line);
        return;
    }
    // A file that could not be reopened is tried again as often as it would have been reopened.
    if (file_ == nullptr) {
        WriteConsole(line);
    } else {
        const KwLogLine::Piece piece = line.Whole(prefix_, withTime_ ? prefixSize_ : 0, false);
        std::fwrite(piece.data, 1, piece.size, file_);
    }
    CountLine();
}

void CLogData::WriteConsole(KwLogLine& line) {
    const KwLogLine::Piece piece = line.Whole(prefix_, withTime_ ? prefixSize_ : 0, true);
    std::fwrite(piece.data, 1, piece.size, stdout);
    // Whoever reads the console through a pipe sees each line when it is pushed.
    std::fflush(stdout);
}

void CLogData::CountLine() {
    ++lines_;
    ++counts_;
    if (lines_ > lineLimit_) {
        ReopenFile();
        return;
    }
    // The second step of the count makes the time come up every 51 lines: the clock is read that
    // seldom, and operators know the rhythm.
    ++counts_;
    if (counts_ <= countLimit_) return;
    counts_ = 0;
    if (KwPlatform::TickCount() - reopenTick_ > tickLimit_) ReopenFile();
}

bool CLogData::OpenFile() {
    lines_ = 0;
    counts_ = 0;
    reopenTick_ = KwPlatform::TickCount();
    file_ = KwPlatform::FileOpen(path_, "ab");
    if (file_ == nullptr) return false;
    std::setvbuf(file_, buffer_, _IOFBF, sizeof(buffer_));
    return true;
}

bool CLogData::CloseFile() {
    if (file_ == nullptr) return true;
    const bool failed = std::ferror(file_) != 0;
    std::FILE* file = file_;
    file_ = nullptr;
    return std::fclose(file) == 0 && !failed;
}

void CLogData::ReopenFile() {
    const bool written = CloseFile();
    if (OpenFile() && written) {
        reported_ = false;
    } else if (!reported_) {
        ReportFile(path_);
    }
}

void CLogData::ReportFile(const char* path) {
    reported_ = true;
    char text[400];
    std::snprintf(text, sizeof(text), "Set Log file error not append file %s", path);
    KwLogLine line;
    line.SetText(text, nullptr);
    TakeTime();
    WriteConsole(line);
}

bool CLogData::TakeTime() {
    if (!withTime_) return false;
    const KwFileTime now = KwPlatform::FileTimeNow();
    const std::uint64_t second = KwFileTimeToUnits(now) / 10'000'000;
    // A given second of the world's clock shows the same local time whenever it is asked for, so a clock
    // that is set or a change of daylight saving leaves this right.
    if (second == timeSecond_) return true;
    KwPlatform::CalendarTime local;
    if (!KwPlatform::LocalFromFileTime(now, local)) return true;
    timeSecond_ = second;
    time_.second = static_cast<std::uint8_t>(local.second);
    time_.minute = static_cast<std::uint8_t>(local.minute);
    time_.hour = static_cast<std::uint8_t>(local.hour);
    time_.day = static_cast<std::uint8_t>(local.day);
    time_.week = static_cast<std::uint8_t>(local.week);
    time_.month = static_cast<std::uint8_t>(local.month);
    time_.year = static_cast<std::uint16_t>(local.year);
    prefixSize_ =
        static_cast<std::size_t>(std::snprintf(prefix_, sizeof(prefix_), "[%d_%d_%d][%d_%d_%d]", time_.day, time_.month,
                                               time_.year, time_.hour, time_.minute, time_.second));
    return true;
}

unsigned int CLogData::MeasureProcessTime() {
    const std::lock_guard<KwLock> guard(lock_);
    const unsigned int now = KwPlatform::TickCount();
    const unsigned int passed = measured_ ? now - measureTick_ : 0;
    measured_ = true;
    measureTick_ = now;
    return passed;
}
