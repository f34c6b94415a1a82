// KwLogService: log files that a thread of its own writes.
//
// Files are named by numbers before Start; Write, WriteF and WriteV then queue lines for them from any thread, and the
// writer thread takes the lines to the files in the order in which they were queued. 0 is the console.
//
// Pace: each pass of the writer sleeps 1 ms and writes one line, some 900 lines a second, so that logging never
// competes with the host for the disk. A host with more to say calls SetLinesPerPass: with n the rate is n times that,
// with 0 each pass writes all that waits, up to the speed of the disk.
// The queue is bounded (SetQueueLimit): what does not fit is dropped, counted and reported once a second by a line of
// KwLogSystem; or the submitter waits for room, if SetWaitWhenFull says so.
// Lines of a file reach the system when the queue has been written out, and when the file is closed; those of the
// console with each pass. Thread-safety: Write, WriteF, WriteV and the counts from any thread; the rest from one at a
// time.
#pragma once

#include <atomic>
#include <cstdarg>
#include <map>
#include <string>

#include "Kw/KwInf.h"
#include "Kw/Res/KwFile.h"

struct SKwLogServiceLine;

// A rule for the time in a log file's name. No rule is settled: names carry no time.
struct SLogTimeCheck {};

class KW_API KwLogService : public KwInfLock {
public:
    explicit KwLogService(const char* name);
    KwLogService(const KwLogService&) = delete;
    KwLogService& operator=(const KwLogService&) = delete;
    // Closes. No thread may be in an operation any more.
    ~KwLogService() override;

    // The folder of the files, made with its parents when it is missing. False after Start, and for a path that cannot
    // be resolved.
    bool SetLogPath(const char* path);
    // Names file `id`: "<log path>folder\name.log". The file is closed, to be opened by the next line, once it has got
    // `lines` (at least 1) or `seconds` (at least 1, at most 24 days) after its last line; the writer looks every
    // 100,000 passes. False after Start and for id 0. A second call for an id replaces the first.
    bool SetLogFile(int id, const char* folder, const char* name, const SLogTimeCheck& created,
                    const SLogTimeCheck& changed, int lines, unsigned int seconds);
    // Starts the writer. Formatted lines are cut to max(bufferSize, 128) - 1 characters, to 2047 before Start. False
    // when it is started, and when there is no thread.
    bool Start(int bufferSize);
    // Writes what is queued, ends the writer and closes the files. Start begins anew with the same files.
    void Close();

    // Lines that each pass writes at most; 0 for all that wait. 1 from the start.
    void SetLinesPerPass(unsigned int lines) { linesPerPass_ = lines; }
    // Lines that may wait, 16,384 from the start; at least 1. Each takes the buffer size in memory.
    void SetQueueLimit(unsigned int lines) { queueLimit_ = lines == 0 ? 1 : lines; }
    // Lets a submitter that finds the queue full sleep until there is room, in place of dropping its line. Lines
    // that are queued without a writer are dropped all the same.
    void SetWaitWhenFull(bool wait) { waitWhenFull_ = wait; }

    // Queue one line for file `id`: `length` characters (to the terminator when negative), or printf-formatted text.
    // False when the line was dropped, for an id without a file, and for a null or erroneous text.
    // Lines queued before Start are written after it; between Close and the next Start they are refused.
    bool Write(int id, const char* text, int length);
    bool WriteF(int id, const char* format, ...) KW_PRINTF(3, 4);
    bool WriteV(int id, const char* format, va_list args) KW_PRINTF(3, 0);

    // Since the object was made: lines written, and lines lost to a full queue or to a file that could not be opened
    // or written.
    unsigned long long GetWrittenCount() const { return written_; }
    unsigned long long GetDroppedCount() const { return dropped_; }
    // Lines that wait at this moment.
    unsigned int GetQueuedCount() const { return queued_; }

private:
    struct File {
        KwFile file;
        std::string folder;
        std::string name;
        int lineLimit = 1;
        unsigned int idleLimit = 1000;  // ms
        int lines = 0;                  // since it was opened
        unsigned int lastTick = 0;      // of the last line
        unsigned int failedTick = 0;    // of the last failure to open
        bool failed = false;
        bool held = false;  // lines have not reached the system yet
    };
    // First in, first out; linked through the lines.
    struct Queue {
        SKwLogServiceLine* first = nullptr;
        SKwLogServiceLine* last = nullptr;
        void Add(SKwLogServiceLine* line);
        SKwLogServiceLine* Take();
    };

    static void _OnThread(bool& run, void* self);
    void OnThread(bool& run);
    bool Pass(unsigned int most);
    void WriteLine(const SKwLogServiceLine& line);
    bool OpenFile(File& file);
    void FlushFiles();
    void CloseIdleFiles();
    void ReportDropped(bool now);

    SKwLogServiceLine* TakeLine(unsigned int size);
    void GiveBack(SKwLogServiceLine* line);
    void GiveBack(Queue& used);
    bool Submit(int id, SKwLogServiceLine* line);
    static void Free(Queue& queue);

    enum class State : unsigned char { kSetUp, kStarted, kClosed };

    std::string name_;
    std::string path_;           // ends in a separator, or empty
    std::map<int, File> files_;  // grows under the inherited lock, before Start; then its files belong to the writer
    std::atomic<State> state_{State::kSetUp};
    void* thread_ = nullptr;
    std::atomic<unsigned int> linesPerPass_{1};
    std::atomic<unsigned int> queueLimit_{16384};
    std::atomic<bool> waitWhenFull_{false};

    Queue submitted_;  // under the inherited lock
    Queue reading_;    // the writer's
    std::atomic<unsigned int> queued_{0};

    KwLock poolLock_;
    Queue pool_;  // all of bufferSize_
    int pooled_ = 0;
    unsigned int bufferSize_ = 2048;

    std::atomic<unsigned long long> written_{0};
    std::atomic<unsigned long long> dropped_{0};
    unsigned long long reported_ = 0;  // of dropped_
    unsigned int reportTick_ = 0;
    bool consoleHeld_ = false;
};
