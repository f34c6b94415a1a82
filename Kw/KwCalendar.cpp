// The calendar: counting days, normalising, and the operations of KwTime that do it.
#include "Kw/KwCalendar.h"

#include <algorithm>

namespace KwCalendar {

namespace {

// Multiples of `step` below `end`; negative numbers round down.
constexpr std::int64_t Multiples(std::int64_t end, std::int64_t step) {
    const std::int64_t last = end - 1;
    return last / step - (last % step < 0 ? 1 : 0);
}

constexpr std::int64_t LeapsBefore(std::int64_t year) {
    return Multiples(year, 4) - Multiples(year, 100) + Multiples(year, 400);
}

}  // namespace

std::int64_t DaysInYears(std::int64_t first, std::int64_t end) {
    return end <= first ? 0 : (end - first) * 365 + LeapsBefore(end) - LeapsBefore(first);
}

std::int64_t DaysInMonths(std::int64_t year, std::int64_t first, std::int64_t end) {
    if (end <= first) return 0;
    const std::int64_t known = std::clamp<std::int64_t>(first, 1, 13);
    const std::int64_t knownEnd = std::clamp<std::int64_t>(end, 1, 13);
    std::int64_t days = 30 * ((end - first) - (knownEnd - known));
    for (std::int64_t month = known; month < knownEnd; ++month) days += DaysInMonth(year, month);
    return days;
}

void Store(STime& time, int year, int month, int day, int hour, int minute, int second) {
    time.year = static_cast<std::uint16_t>(year);
    time.month = static_cast<std::uint8_t>(month);
    time.day = static_cast<std::uint8_t>(day);
    time.hour = static_cast<std::uint8_t>(hour);
    time.minute = static_cast<std::uint8_t>(minute);
    time.second = static_cast<std::uint8_t>(second);
}

STime ToRecord(const KwPlatform::CalendarTime& time) {
    STime record = {};
    Store(record, time.year, time.month, time.day, time.hour, time.minute, time.second);
    return record;
}

}  // namespace KwCalendar

namespace {

using namespace KwCalendar;

// Adds in the field's own width: 255 + 1 is 0.
void Add(std::uint8_t& field, unsigned int value) {
    field = static_cast<std::uint8_t>(field + value);
}

}  // namespace

int KwTime::GetMaxDayInMonth(int year, int month) {
    return DaysInMonth(year, month);
}

int KwTime::TestTime(STime& a, STime& b) {
    const int pairs[][2] = {
        {a.year, b.year}, {a.month, b.month}, {a.day, b.day}, {a.hour, b.hour}, {a.minute, b.minute}};
    for (const auto& [left, right] : pairs) {
        if (left != right) return left > right ? 1 : -1;
    }
    return 0;
}

void KwTime::CheckTime(STime& time) {
    for (bool changed = true; changed;) {
        changed = false;
        if (time.second >= 60) {
            time.second = static_cast<std::uint8_t>(time.second - 60);
            Add(time.minute, 1);
            changed = true;
        }
        if (time.minute > 59) {
            time.minute = static_cast<std::uint8_t>(time.minute - 60);
            Add(time.hour, 1);
            changed = true;
        }
        if (time.hour >= 24) {
            time.hour = static_cast<std::uint8_t>(time.hour - 24);
            Add(time.day, 1);
            changed = true;
        }
        const int length = DaysInMonth(time.year, time.month);
        if (time.day > length) {
            time.day = static_cast<std::uint8_t>(time.day - length);
            Add(time.month, 1);
            changed = true;
        }
        if (time.month >= 13) {
            time.month = static_cast<std::uint8_t>(time.month - 12);
            ++time.year;
            changed = true;
        }
    }
}

void KwTime::CalcTotalTime(STime& t, unsigned int days, unsigned int seconds, bool fromNow) {
    if (fromNow) GetCurTime(&t);
    while (seconds > 0) {
        if (seconds < 60) {
            Add(t.second, seconds);
            seconds = 0;
        } else if (seconds < 3600) {
            Add(t.minute, seconds / 60);
            seconds %= 60;
        } else if (seconds < 86400) {
            Add(t.hour, seconds / 3600);
            seconds %= 3600;
        } else {
            Add(t.day, 1);
            seconds -= 86400;
        }
        CheckTime(t);
    }
    while (days > 0) {
        const unsigned int length = static_cast<unsigned int>(DaysInMonth(t.year, t.month));
        if (days > kDaysIn400Years + 31 && t.month >= 1 && t.month <= 12 && t.year <= 65535 - 401) {
            // The calendar repeats: the same place 400 years on, instead of 4,800 steps.
            t.year = static_cast<std::uint16_t>(t.year + 400);
            days -= static_cast<unsigned int>(kDaysIn400Years);
        } else if (days > length) {
            Add(t.month, 1);
            days -= length;
        } else {
            Add(t.day, days);
            days = 0;
        }
        CheckTime(t);
    }
}

int KwTime::CalcTotalDay(STime* from, STime* to) {
    if (from == nullptr || to == nullptr || from->year > to->year) return 0;
    std::int64_t total = 0;
    if (from->year < to->year) {
        total += DaysInMonth(from->year, from->month) - from->day;
        total += DaysInMonths(from->year, from->month + 1, 13);
        total += DaysInYears(from->year + 1, to->year);
    }
    // Counts from `from`'s month and day across years too, where the rest of its year is in the total
    // already. Callers ask within one year and have stored what it gives beyond, so it stays.
    total += DaysInMonths(to->year, from->month + 1, to->month);
    if (from->month < to->month) {
        total += to->day - from->day + DaysInMonth(from->year, from->month);
    } else if (from->month == to->month) {
        total += to->day - from->day;
    }
    return static_cast<int>(total);
}

void KwTime::CalcWeek(int year, int month, int day, int& weekIndex, int& weekday) {
    constexpr int kForward[] = {2, 3, 4, 5, 6, 7, 8};   // from Monday, 1 January 2018
    constexpr int kBackward[] = {2, 8, 7, 6, 5, 4, 3};  // back from it
    weekIndex = 0;
    weekday = kForward[0];  // for a day number that leads out of its year to the other side of the epoch
    if (year >= 2018) {
        std::int64_t n = day + DaysInMonths(year, 1, month) + DaysInYears(2018, year) - 1;
        // January 2018 is a day late: the 2nd counts as the Monday that the 1st is, which has its weekday
        // fixed above. Week numbers are stored, so it stays.
        if (year == 2018 && month <= 1) --n;
        if (n < 0) return;
        weekIndex = static_cast<int>(n / 7);
        weekday = kForward[n % 7];
        return;
    }
    // Days from the date to the epoch. A Monday a whole number of weeks before it begins the next lower
    // index, a day before the rest of its week does; kept like the January above.
    const std::int64_t b = DaysInMonth(year, month) - static_cast<std::int64_t>(day) +
                           DaysInMonths(year, static_cast<std::int64_t>(month) + 1, 13) +
                           DaysInYears(static_cast<std::int64_t>(year) + 1, 2018) + 1;
    if (b < 0) return;
    weekIndex = static_cast<int>(-1 - b / 7);
    weekday = kBackward[b % 7];
}
