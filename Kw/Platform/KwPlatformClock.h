// KwPlatformClock: ticks, the high-resolution counter, the wall clock and sleep.
//
// Thread-safety: every function from any thread.
#pragma once

#include <cstdint>

#include "Kw/KwFileTime.h"

namespace KwPlatform {

// A date and time of day as a clock on the wall shows it.
struct CalendarTime {
    int year = 0;    // full, e.g. 2019
    int month = 0;   // 1-12
    int day = 0;     // 1-31
    int hour = 0;    // 0-23
    int minute = 0;  // 0-59
    int second = 0;  // 0-59 (60 in a leap second)
    int week = 0;    // 0 = Sunday ... 6 = Saturday
};

// Milliseconds since some point in the past; never set back, wraps after 49.7 days.
std::uint32_t TickCount();

// The finest steady counter of the system, and its steps per second.
std::int64_t CounterNow();
std::int64_t CounterFrequency();

// Suspends the calling thread for at least `ms` milliseconds; 0 gives the rest of its time slice away.
void SleepMs(unsigned int ms);

// The current instant.
KwFileTime FileTimeNow();

// The local time now. False, with `local` untouched, when the system does not tell.
bool LocalNow(CalendarTime& local);

// Converts between an instant and local time, daylight saving as in force at that instant. LocalFromFileTime
// drops what is below a second; FileTimeFromLocal ignores `week`. False, with the output untouched, for a
// date that does not exist and for years outside 1601 to 9999.
bool LocalFromFileTime(const KwFileTime& time, CalendarTime& local);
bool FileTimeFromLocal(const CalendarTime& local, KwFileTime& time);

}  // namespace KwPlatform
