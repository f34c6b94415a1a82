// KwLogSystem: the process-wide log, through which every part of the library reports.
//
// Lines go to the console, to one append-only file, or to a function of the host. A line is formatted by the
// thread that pushes it and handed out whole: lines of several threads never mix. A log that cannot write
// says so on the console and never fails its caller.
// The log file is written through when it is reopened (after every 101st line, or by the next lines once a
// minute has passed) and by Flush; a file that was renamed or deleted meanwhile is made anew then.
// Thread-safety: every operation from any thread, before the library is up and after its release too.
#pragma once

#include <cstdarg>

#include "Kw/KwDefine.h"

struct STime;
class CBLogToBuffer;

class KW_API KwLogSystem {
public:
    // Gets one line: the format, its arguments, and the local time (null without the time flag). `args` is
    // null when the format is ready text. Called under the log's lock: it must not wait for a thread that
    // logs, and must not keep `args` or `time` beyond the call. What it pushes itself goes to the console, and so
    // does a line about what it throws, which nobody else sees.
    using Callback = void (*)(const char* format, va_list args, STime* time);

    // Makes sure that the process has a console and routes the standard streams to it; a title that
    // is neither null nor empty becomes the console's title.
    static void OpenConsole(const char* title);

    // Where the lines go from now on; the old output file is closed. With `withTime` each line begins with
    // "[day_month_year][hour_minute_second]" (a callback gets the time instead).
    static void SetOutputLogConsole(bool withTime);
    // Appends to the file at `path`, at most 255 characters when resolved. When it cannot be opened, one
    // line says so and the console is the output.
    static void SetOutputLogFile(const char* path, bool withTime);
    // Null leaves the console as the output, with one line that says so.
    static void SetOutputLogCallback(Callback callback, bool withTime);

    // Hands the lines that wait in the output file's buffer to the system.
    static void Flush();

    // One line of printf-formatted text. The forms with a result return false, so that a function that
    // fails can return it. Nothing for a null format; a format that cannot be formatted is written as it is.
    static void Push(const char* format, ...) KW_PRINTF(1, 2);
    static bool PushRes(const char* format, ...) KW_PRINTF(1, 2);
    // On the console "[name]" stands before the text, unless `name` is null or empty; a file and a
    // callback get the text alone.
    static bool PushName(const char* name, const char* format, ...) KW_PRINTF(2, 3);
    // The same with a ready argument list, which is not consumed; a null one makes `format` ready text.
    static bool PushV(const char* format, va_list args) KW_PRINTF(1, 0);
    static bool PushV(const char* format, va_list args, const char* name) KW_PRINTF(1, 0);

    // One line to the log and the same text, without a time, to the end of `file`. Nothing at all when
    // that file cannot be opened.
    static void WriteLog(const char* file, const char* format, ...) KW_PRINTF(2, 3);
    static void WriteLogV(const char* file, const char* format, va_list args) KW_PRINTF(2, 0);

    // Pushes ">>>>ProcessTimeWork[label]=n": the milliseconds since the last call, 0 in the first.
    static void SetProcessTimeWork(const char* label);

    // Captures every line from now on for `object`, to which the log takes a reference; the one before it is
    // unhooked. Null unhooks.
    static void Hook(CBLogToBuffer* object);
    // Hands over what was captured, then lets the object go. Nothing when none is hooked.
    static void UnHook();
    // Calls the hooked object with the lines captured since the last call, oldest first, on this thread and
    // without the log's lock; returns their number. 0 without an object, and inside such a call. Waits for a
    // call that another thread makes.
    static int CallHook();
};
