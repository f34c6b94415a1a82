// STime and KwTime: calendar records, the clock, and packing, counting and normalising of times.
//
// Two day-of-week conventions live side by side: GetCurTime counts 0 = Sunday ... 6 = Saturday, CalcWeek
// and KwCalcTime count 2 = Monday ... 7 = Saturday, 8 = Sunday.
// Thread-safety: every operation from any thread; records belong to the caller.
#pragma once

#include <cstdint>

#include "Kw/KwDefine.h"
#include "Kw/KwFileTime.h"

// A date and time of day, 8 bytes. Where a record is the pattern of a comparison, a field that holds its
// maximum (65535, 255) stands for any value.
struct STime {
    std::uint8_t second;
    std::uint8_t minute;
    std::uint8_t hour;
    std::uint8_t day;    // 1-31
    std::uint8_t week;   // see the two conventions above
    std::uint8_t month;  // 1-12
    std::uint16_t year;  // full, e.g. 2019
};
static_assert(sizeof(STime) == 8);

class KW_API KwTime {
public:
    // Sleeps `ms` milliseconds.
    static void Wait(unsigned int ms);

    // The system's tick count in milliseconds; wraps after 49.7 days. GetTime64 is the same value.
    static unsigned int GetTime();
    static double GetTime64();

    // Stores the high-resolution counter and its steps per second (1 when the system gives none), each
    // through its pointer if not null.
    static void QueryTimeStart(double* counter, double* frequency);
    // Whole milliseconds since `start`; a frequency below 1 counts as 1.
    static unsigned int QueryTime(double start, double frequency);

    // The local time now, `week` 0 = Sunday. Nothing for null, or when the local time is unavailable.
    static void GetCurTime(STime* time);

    // A time to the minute in 32 bits that order as the times do: minute in bits 0-5, hour 6-10, day 11-15,
    // month 16-19, year 20-31. Unpacking gives second 0 and leaves `week` alone.
    static unsigned int PackTime(int year, int month, int day, int hour, int minute);
    static unsigned int PackTime(const STime& time);
    static void UnPackTime(unsigned int packed, STime& time);
    static void UnPackTime(unsigned int packed, int& year, int& month, int& day, int& hour, int& minute);

    // A time to the second in the 64 bits of a double: an opaque value, not a number. The low half is
    // PackTime's without the year and with the second from bit 20 on, the high half is the year.
    static double PackTimeEx(int year, int month, int day, int hour, int minute, int second);
    // As above, but the minute is added where the month belongs and the month is lost; stored stamps
    // are compared with it.
    static double PackTimeEx(const STime& time);
    static void UnPackTimeEx(double packed, int& year, int& month, int& day, int& hour, int& minute, int& second);
    static void UnPackTimeEx(double packed, STime& time);

    // Writes "%02d_%02d_%02d_%02d_%02d_%02d" (year to second) and a terminator; returns the characters
    // without it. `out` has room for 26, the longest such text.
    static int PackToString(STime& time, char* out);
    // Reads the same six numbers back; fields that the text does not have stay as they are.
    static void UnpackToString(const char* text, STime& time);

    // Local time of a file time, `week` 0; all zero for null and for times that cannot be converted.
    static void FileTimeToTime(KwFileTime* fileTime, STime& time);
    // File time of a local time; 0 for null and for a date that does not exist.
    static void TimeToFileTime(STime* time, KwFileTime& fileTime);

    // Sets the times given (local, null for none, what is no date counts as none) of a file: the one behind the
    // system's handle, or when that is the invalid handle value (all ones) the one called `name`, or when that
    // is null `wname`. A creation time is ignored on POSIX systems. False when there is no such file.
    static bool SetFileTime(const char* name, const KwWChar* wname, void* handle, STime* created, STime* accessed,
                            STime* written);
    // Stores the local times of the file called `wname`, or when that is null `name`, through the pointers that
    // are not null; the handle is not used. False when there is no such file.
    static bool GetFileTime(const char* name, const KwWChar* wname, void* handle, STime* created, STime* accessed,
                            STime* written);

    // Days from `from` to `to`: exact within one year, too small across years, since the month and day
    // step counts from `from`'s month even then. 0 for null and when `from`'s year is later.
    static int CalcTotalDay(STime* from, STime* to);
    // 28 to 31; 30 for a month outside 1-12.
    static int GetMaxDayInMonth(int year, int month);
    // Moves `t` (the current time, when `fromNow`) forward.
    static void CalcTotalTime(STime& t, unsigned int days, unsigned int seconds, bool fromNow);
    // 1, 0 or -1 as `a` is later than, equal to or earlier than `b`; seconds are not compared.
    static int TestTime(STime& a, STime& b);
    // Carries fields that are too large into the next one; nothing is borrowed, and 8-bit fields wrap.
    static void CheckTime(STime& time);
    // Weeks since Monday, 1 January 2018 (week 0, negative before it) and the day of the week, 2 = Monday
    // ... 8 = Sunday. See the source for January 2018 and for Mondays before it.
    static void CalcWeek(int year, int month, int day, int& weekIndex, int& weekday);
};
