// KwLog: a log file of a host, which carries the day in its name.
//
// Lines are appended to "directory\name_day_month_year.log". The host's loop calls Run, which reopens the file
// now and then: that writes the lines through, and begins a new file on a new day.
// Derived classes choose the file name, the time stamp and what surrounds a line.
// With SetRotation a file that is too large or too old is renamed to "name.log.1", the one before it to ".2", ...
// Thread-safety: with the lock that Init makes, Write, WriteF, WriteV, Run and Close from any thread; without it
// one thread at a time.
#pragma once

#include <cstdarg>
#include <string>

#include "Kw/Res/KwFile.h"

class KwLogLine;
class KwLogLock;
class KwLogRotation;

class KW_API KwLog {
public:
    KW_TRACKED_NEW

    KwLog() = default;
    // A copy has the settings, a lock of its own if the source has one, and no open file.
    KwLog(const KwLog& other);
    KwLog& operator=(const KwLog& other);

    // Creates the directory and opens the file. The file is checked by Run after `linesPerCheck` lines (at least 1)
    // or `checkSeconds` (at most 24 days). False, with nothing opened, when the file cannot be opened.
    virtual bool Init(const char* directory, const char* name, bool withLock, int linesPerCheck,
                      unsigned int checkSeconds);
    // Closes the file; lines are ignored until the next Init.
    virtual void Close();
    // Reopens the file when a check is due and something was written since the last. `tick` is the current tick.
    virtual void Run(unsigned int tick);
    // One line of `length` characters, to the terminator when `length` is negative.
    virtual void Write(const char* text, int length);
    // One line of formatted text. When it cannot be formatted "writefilev error" goes to KwLogSystem and
    // the line is empty.
    virtual void WriteF(const char* format, ...) KW_PRINTF(2, 3);
    virtual void WriteV(const char* format, va_list args) KW_PRINTF(2, 0);

    // Lets every write check the file itself, for hosts that do not call Run. Off by default.
    void SetCheckOnWrite(bool check) { checkOnWrite_ = check; }

    // Begins a new file behind the line that brings the open one to `maxBytes`, and at the next line or Run when it
    // was made `maxAgeSeconds` ago; 0 is no limit, two of 0 turn rotation off, as it is from the start. Old files
    // beyond `keep` (1 to 999) are removed, the oldest first: the numbered ones, and with the default file
    // names those of other days, too. Call it before Init, or between two lines.
    void SetRotation(unsigned int maxBytes, unsigned int maxAgeSeconds, int keep);

protected:
    // Writes the path of the file to append to, at most KwRes::kPathSize characters with the terminator.
    virtual void GetNewFile(char* out, const char* directory, const char* name);
    // Called before and after the text of each line, under the lock; they may write to the file.
    virtual void OnBeginWrite(KwFile* file);
    virtual void OnEndWrite(KwFile* file);
    // The time stamp of a line: 0 none, 1 "[hour_minute_second]", 2 "[hour_minute_second/day/month/year]".
    virtual int GetTimeWrite();

    bool IsOpen() const { return file_.CanWrite(); }
    // Hands the lines so far to the system.
    void Flush();

public:
    virtual ~KwLog();

private:
    void WriteLine(const char* text, unsigned int length);
    void _OnCheck();
    void _OnWriteTime();
    bool IsCheckDue(unsigned int tick) const;
    void Reopen(unsigned int tick);
    bool OpenFile();
    void RotateIfDue();

    KwFile file_;
    std::string directory_;
    std::string name_;
    int linesPerCheck_ = 100;
    int lines_ = 0;                        // since the last check
    unsigned int nextCheckTick_ = 0;       // any tick but 0 is past it before the first check
    unsigned int checkInterval_ = 600000;  // ms
    KwLogLock* lock_ = nullptr;
    bool checkOnWrite_ = false;
    bool lost_ = false;                  // the last reopening failed
    bool checked_ = false;               // nextCheckTick_ is set
    KwLogRotation* rotation_ = nullptr;  // null when off
};
