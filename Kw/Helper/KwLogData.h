// CLogData: the process-wide log state behind KwLogSystem. Internal.
//
// Made at the first use of any operation; the library's release closes its file and ends it last of all, and
// the next use makes a fresh one. Nothing here uses the tracked allocator: its error reporter may push lines while
// it holds the allocator's lock.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "Kw/Helper/KwLogLine.h"
#include "Kw/Helper/KwLogQueue.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwLock.h"
#include "Kw/KwTime.h"

class CLogData {
public:
    // The state, made when there is none.
    static CLogData& Get();

    CLogData() = default;
    ~CLogData();

    void SetConsole(bool withTime);
    void SetFile(const char* path, bool withTime);
    void SetCallback(KwLogSystem::Callback callback, bool withTime);
    void Flush();

    // Hands one line out, as the mode at that moment wants it. `args` may be null (ready text).
    void Push(const char* format, va_list args, const char* name) KW_PRINTF(2, 0);
    // Milliseconds since the last call, 0 in the first.
    unsigned int MeasureProcessTime();

    // The lock under which lines go out; WriteLogV keeps two outputs in step with it.
    KwLock& GetLock() { return lock_; }

    // The capture for a host object. Its lock is taken before the log's and held while the object is called; all four
    // operations need it.
    KwLock& GetHookLock() { return hookLock_; }
    void SetHook(CBLogToBuffer* object);
    CBLogToBuffer* GetHook() const { return hook_.load(std::memory_order_relaxed); }
    // The lines captured so far and the number of those lost; null while they are being handed over. EndHookCall
    // follows.
    const KwLogQueue::Lines* BeginHookCall(unsigned int& lost);
    void EndHookCall() { inHookCall_ = false; }

private:
    void Write(KwLogLine& line);
    void WriteFile(KwLogLine& line);
    void WriteConsole(KwLogLine& line);
    void CallHost(const char* format, va_list args);
    void CountLine();
    bool OpenFile();
    bool CloseFile();
    void ReopenFile();
    void ReportFile(const char* path);
    bool TakeTime();
    void Capture(KwLogLine& line);

    KwLock lock_;
    std::FILE* file_ = nullptr;
    char path_[256] = {};
    bool withTime_ = false;
    std::atomic<KwLogSystem::Callback> callback_{nullptr};
    STime time_ = {};
    int lines_ = 0;   // since the last reopen
    int counts_ = 0;  // the "second count": grows by two a line
    unsigned int reopenTick_ = 0;
    int lineLimit_ = 100;
    int countLimit_ = 100;
    unsigned int tickLimit_ = 60000;  // ms

    bool inCallback_ = false;
    bool reported_ = false;  // that the file cannot be written, once until it can again
    bool measured_ = false;
    unsigned int measureTick_ = 0;
    std::uint64_t timeSecond_ = 0;  // the second that time_ and prefix_ show, 0 for none
    std::size_t prefixSize_ = 0;
    char prefix_[64] = {};
    KwLock hookLock_;
    std::atomic<CBLogToBuffer*> hook_{nullptr};
    KwLogQueue captured_;
    bool inHookCall_ = false;
    char buffer_[1 << 16];  // of file_, kept over reopening
};
