// KwCalcTime: a date and time of day with arithmetic, comparison and week tests.
//
// Holds one STime whose `week` is always the day of the week of its date, 2 = Monday ... 8 = Sunday.
// Thread-safety: none; an object belongs to one user at a time.
#pragma once

#include "Kw/KwMemory.h"
#include "Kw/KwTime.h"

class KW_API KwCalcTime {
public:
    KW_TRACKED_NEW

    KwCalcTime(const STime& time) { Set(time); }
    // The month is taken but not stored: a new object has month 0 until Set(const STime&) or Add gives it one.
    KwCalcTime(int year, int month, int day) { Set(year, month, day); }
    KwCalcTime(int year, int month, int day, int hour, int minute, int second) {
        Set(year, month, day, hour, minute, second);
    }

    void Set(const STime& time);
    // Sets date and time of day (midnight in the first form) except for the month, which stays as it is.
    void Set(int year, int month, int day);
    void Set(int year, int month, int day, int hour, int minute, int second);
    const STime& GetTime() const { return time_; }

    // -1, 0 or 1 as this is earlier than, equal to or later than `other`, over the date (year, month, day) and
    // the time (hour, minute, second) as selected. A field of `other` that holds its maximum is skipped.
    int Compare(const STime& other, bool date, bool time) const;
    // The place in a range: 1 before `a`, 2 equal to `a`, 3 between, 4 equal to `b`, 5 after `b`.
    int Compare(const STime& a, const STime& b, bool date, bool time) const;

    // Moves by signed amounts; days of a month that is too short run into the next one.
    void Add(int years, int months, int days, int hours, int minutes, int seconds);

    int GetMaxDayInMonth() const;
    int GetMaxDayInYear() const;
    // The index of the week, as KwTime::CalcWeek counts it.
    int GetWeek();
    // Whether a date is in this one's week (Monday to Sunday). Like CalcDay it takes every date of this
    // month for an earlier one.
    bool IsAsWeek(const STime& other) const;
    bool IsAsWeek(int year, int month, int day) const;

    // Days from this date to `other`, negative when `other` is earlier, and never positive within one month.
    int CalcDay(const STime& other) const;
    // Seconds from this to `other`, built on CalcDay.
    double CalcSecond(const STime& other) const;

    // Days from a date to the last of its year, and from the last of the year before to it.
    static int GetAllDayToEndYear(const STime& time);
    static int GetAllDayFromBeginYear(const STime& time);

private:
    void UpdateWeek();

    STime time_ = {};
};
static_assert(sizeof(KwCalcTime) == sizeof(STime));
