// KwLogQuickMulti: a log file that many threads post to and one writes.
//
// PostLog copies the line into memory and returns: no file is touched, and no poster waits for a disk. RunLog, which
// the host's loop calls, writes what has come together. Lines keep the order in which they were posted. Derived classes
// choose file name and time stamp as with KwLog; the stamp shows when the line was written.
// Thread-safety: PostLog from any thread; the rest from one at a time.
#pragma once

#include "Kw/Helper/KwLog.h"
#include "Kw/KwLock.h"

class KwLogQueue;

class KW_API KwLogQuickMulti : public KwLog {
public:
    KwLogQuickMulti();
    KwLogQuickMulti(const KwLogQuickMulti&) = delete;
    KwLogQuickMulti& operator=(const KwLogQuickMulti&) = delete;
    // Closes the log. A derived class that chooses names or stamps calls CloseLog in its own destructor.
    ~KwLogQuickMulti() override;

    // Opens the file, as KwLog::Init does. Posting is possible before, too: the lines wait for the first RunLog.
    bool InitLog(const char* directory, const char* name, int linesPerCheck, unsigned int checkSeconds);
    // Writes what is waiting and closes the file.
    void CloseLog();
    // Writes what is waiting, hands it to the system, and does what KwLog::Run does with the current tick. Returns the
    // lines written. With the file closed the lines go on waiting.
    int RunLog(unsigned int tick);

    // Queues one line of `length` characters, to the terminator when `length` is negative; wide text is written as
    // UTF-8. False when it was dropped because 16 MB are waiting: the next RunLog writes a line with the number of
    // those.
    bool PostLog(const char* text, int length = -1);
    bool PostLog(const KwWChar* text, int length = -1);

private:
    KwLock posting_;
    KwLogQueue* queue_;
};
