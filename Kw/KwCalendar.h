// KwCalendar: the arithmetic behind KwTime and KwCalcTime. Internal.
//
// Years are proleptic Gregorian without a lower bound. Months outside 1-12 have 30 days, as
// KwTime::GetMaxDayInMonth gives them.
#pragma once

#include <cstdint>

#include "Kw/KwTime.h"
#include "Kw/Platform/KwPlatformClock.h"

namespace KwCalendar {

constexpr std::int64_t kDaysIn400Years = 146097;

constexpr bool IsLeap(std::int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

constexpr int DaysInYear(std::int64_t year) {
    return IsLeap(year) ? 366 : 365;
}

constexpr int DaysInMonth(std::int64_t year, std::int64_t month) {
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 30;
    return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

// Days of the whole years `first` up to, and without, `end`; 0 when there are none.
std::int64_t DaysInYears(std::int64_t first, std::int64_t end);

// Days of the months `first` up to, and without, `end` of one year; 0 when there are none.
std::int64_t DaysInMonths(std::int64_t year, std::int64_t first, std::int64_t end);

// Stores six fields, each cut to its width; `week` is left alone.
void Store(STime& time, int year, int month, int day, int hour, int minute, int second);

// A record of date and time of day with `week` 0.
STime ToRecord(const KwPlatform::CalendarTime& time);

}  // namespace KwCalendar
