// StoreLog: keeps what the log says in files by day, beside the console that shows it.
#pragma once

#include <Kw/Kw.h>

class StoreLog : public KwLog {
public:
    StoreLog() = default;
    StoreLog(const StoreLog&) = delete;
    StoreLog& operator=(const StoreLog&) = delete;
    ~StoreLog() override { Stop(); }

    // Begins as the document says; null is for no files. Its folder is below the program's own unless it is absolute.
    // False when no file can be written there.
    bool Start(KwDS* settings);
    // One pass of the main loop: writes what has been logged since the last one.
    void Pass(unsigned int tick);
    void Stop();

protected:
    int GetTimeWrite() override { return 1; }

private:
    // Hands the lines of the process-wide log to the file.
    class Reader : public CBLogToBuffer {
    public:
        explicit Reader(StoreLog& log) : log_(log) {}
        void OnLog(const char* text, unsigned int length) override { log_.Write(text, static_cast<int>(length)); }

    private:
        StoreLog& log_;
    };

    Reader* reader_ = nullptr;
};
