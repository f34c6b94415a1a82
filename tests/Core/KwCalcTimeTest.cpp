#include "Kw/KwCalcTime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <random>

namespace {

STime Record(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    STime time = {};
    time.year = static_cast<std::uint16_t>(year);
    time.month = static_cast<std::uint8_t>(month);
    time.day = static_cast<std::uint8_t>(day);
    time.hour = static_cast<std::uint8_t>(hour);
    time.minute = static_cast<std::uint8_t>(minute);
    time.second = static_cast<std::uint8_t>(second);
    return time;
}

KwCalcTime At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    return KwCalcTime(Record(year, month, day, hour, minute, second));
}

std::chrono::sys_days Days(const STime& t) {
    return std::chrono::year(t.year) / static_cast<unsigned>(t.month) / static_cast<unsigned>(t.day);
}

TEST(KwCalcTimeTest, TheMonthArgumentIsNotStored) {
    KwCalcTime time(2019, 5, 6);
    EXPECT_EQ(time.GetTime().month, 0);
    EXPECT_EQ(time.GetTime().day, 6);
    time.Set(Record(2019, 5, 6));
    time.Set(2020, 11, 7, 1, 2, 3);
    EXPECT_EQ(KwTime::PackTime(time.GetTime()), KwTime::PackTime(2020, 5, 7, 1, 2));
    EXPECT_EQ(time.GetTime().second, 3);
    time.Set(2019, 1, 6);
    EXPECT_EQ(KwTime::PackTime(time.GetTime()), KwTime::PackTime(2019, 5, 6, 0, 0));
    EXPECT_EQ(time.GetTime().week, 2) << "6 May 2019 was a Monday";
}

TEST(KwCalcTimeTest, CompareSkipsWildcardsAndWhatIsNotSelected) {
    const KwCalcTime time = At(2019, 5, 6, 7, 8, 9);
    EXPECT_EQ(time.Compare(Record(2020, 1, 1), true, true), -1);
    EXPECT_EQ(time.Compare(Record(2019, 5, 6, 7, 8, 8), true, true), 1);
    EXPECT_EQ(time.Compare(Record(2020, 1, 1, 7, 8, 9), false, true), 0);
    EXPECT_EQ(time.Compare(Record(2020, 1, 1), false, false), 0);
    EXPECT_EQ(time.Compare(Record(65535, 255, 5), true, false), 1);
    EXPECT_EQ(time.Compare(Record(65535, 255, 6), true, false), 0);
    EXPECT_EQ(time.Compare(Record(65535, 255, 255, 255, 255, 10), true, true), -1);
}

TEST(KwCalcTimeTest, CompareWithARange) {
    const STime from = Record(2019, 5, 6);
    const STime to = Record(2019, 5, 9);
    const int expected[] = {1, 2, 3, 3, 4, 5};
    for (int day = 5; day <= 10; ++day) EXPECT_EQ(At(2019, 5, day).Compare(from, to, true, false), expected[day - 5]);
}

// Seconds, minutes, hours and days over 400 years, against the system's own day count.
TEST(KwCalcTimeTest, AddFollowsTheCalendar) {
    std::mt19937 random(20190506);
    const auto pick = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    for (int round = 0; round < 20000; ++round) {
        const STime start = Record(pick(1900, 2300), pick(1, 12), pick(1, 28), pick(0, 23), pick(0, 59), pick(0, 59));
        const int days = pick(-73000, 73000);
        const int hours = pick(-5000, 5000);
        const int minutes = pick(-5000, 5000);
        const int seconds = pick(-500000, 500000);
        KwCalcTime time(start);
        time.Add(0, 0, days, hours, minutes, seconds);
        const std::chrono::sys_seconds want = Days(start) + std::chrono::seconds(start.second) +
                                              std::chrono::minutes(start.minute) + std::chrono::hours(start.hour) +
                                              std::chrono::days(days) + std::chrono::hours(hours) +
                                              std::chrono::minutes(minutes) + std::chrono::seconds(seconds);
        const STime& got = time.GetTime();
        const std::chrono::sys_seconds have = Days(got) + std::chrono::seconds(got.second) +
                                              std::chrono::minutes(got.minute) + std::chrono::hours(got.hour);
        ASSERT_EQ(have, want) << "round " << round;
    }
}

TEST(KwCalcTimeTest, AddRunsOverTheEndOfAShortMonth) {
    struct {
        STime start;
        int years, months, days;
        STime end;
    } const cases[] = {
        {Record(2019, 1, 31), 0, 1, 0, Record(2019, 3, 3)},      {Record(2020, 2, 29), 1, 0, 0, Record(2021, 3, 1)},
        {Record(2019, 12, 1), 0, 1, 0, Record(2020, 1, 1)},      {Record(2019, 1, 1), 0, -1, 0, Record(2018, 12, 1)},
        {Record(2019, 6, 15), 0, -30, 0, Record(2016, 12, 15)},  {Record(2019, 6, 15), 0, 30, 0, Record(2021, 12, 15)},
        {Record(2019, 12, 15), 0, -12, 0, Record(2018, 12, 15)}, {Record(2019, 3, 1), 0, 0, -1, Record(2019, 2, 28)},
        {Record(2019, 1, 1), -19, 0, -1, Record(1999, 12, 31)}};
    for (const auto& c : cases) {
        KwCalcTime time(c.start);
        time.Add(c.years, c.months, c.days, 0, 0, 0);
        EXPECT_EQ(KwTime::PackTime(time.GetTime()), KwTime::PackTime(c.end));
        EXPECT_EQ(time.GetTime().week, KwCalcTime(c.end).GetTime().week);
    }
    for (const int most : {INT_MIN, INT_MAX}) {
        KwCalcTime time = At(2019, 5, 6, 7, 8, 9);
        time.Add(most, most, most, most, most, most);  // ends soon
        EXPECT_LE(time.GetTime().day, 31);
    }
}

TEST(KwCalcTimeTest, CalcDayCountsAcrossMonthsAndYears) {
    std::mt19937 random(7);
    const auto pick = [&random](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    for (int round = 0; round < 20000; ++round) {
        const STime a = Record(pick(1900, 2300), pick(1, 12), pick(1, 28));
        const STime b = Record(round % 4 == 0 ? a.year : pick(1900, 2300), pick(1, 12), pick(1, 28));
        int want = static_cast<int>((Days(b) - Days(a)).count());
        if (a.year == b.year && a.month == b.month && want > 0) want = -want;  // within a month never positive
        ASSERT_EQ(KwCalcTime(a).CalcDay(b), want) << "round " << round;
    }
    EXPECT_EQ(At(2019, 5, 10).CalcDay(Record(2019, 5, 15)), -5);
    EXPECT_EQ(At(2019, 5, 15).CalcDay(Record(2019, 5, 10)), -5);
}

TEST(KwCalcTimeTest, CalcSecondAddsTheTimeOfDay) {
    const KwCalcTime time = At(2019, 5, 10, 10, 20, 30);
    struct {
        STime other;
        double seconds;
    } const cases[] = {{Record(2019, 6, 10, 12, 0, 0), 31 * 86400.0 + 5970},
                       {Record(2019, 5, 10, 10, 30, 0), -570},  // the minutes count down
                       {Record(2019, 5, 10, 10, 20, 31), -1},
                       {Record(2019, 5, 10, 10, 20, 29), -1},
                       {Record(2019, 5, 10, 10, 10, 30), -600},
                       {Record(2019, 5, 10, 9, 20, 30), -3600},
                       // Where this time of day is the later one the days turn their sign.
                       {Record(2019, 6, 10, 9, 20, 30), -(31 * 86400.0 + 3600)},
                       {Record(2019, 5, 12, 10, 20, 30), -2 * 86400.0}};
    for (const auto& c : cases) EXPECT_DOUBLE_EQ(time.CalcSecond(c.other), c.seconds);
}

TEST(KwCalcTimeTest, TheSameWeekIsMondayToSunday) {
    const KwCalcTime tuesday = At(2019, 12, 31);
    EXPECT_TRUE(tuesday.IsAsWeek(2019, 12, 30));
    EXPECT_FALSE(tuesday.IsAsWeek(2019, 12, 29));
    EXPECT_TRUE(tuesday.IsAsWeek(2020, 1, 5));
    EXPECT_FALSE(tuesday.IsAsWeek(2020, 1, 6));
    const KwCalcTime monday = At(2019, 5, 6);
    EXPECT_FALSE(monday.IsAsWeek(2019, 5, 7)) << "within a month every date counts as an earlier one";
    EXPECT_TRUE(At(2019, 5, 12).IsAsWeek(2019, 5, 18)) << "for the same reason";
}

TEST(KwCalcTimeTest, YearsAndWeeks) {
    EXPECT_EQ(At(2020, 2, 1).GetMaxDayInMonth(), 29);
    EXPECT_EQ(At(2020, 2, 1).GetMaxDayInYear(), 366);
    EXPECT_EQ(At(2100, 2, 1).GetMaxDayInYear(), 365);
    EXPECT_EQ(At(2019, 1, 1).GetWeek(), 52);
    for (auto date = Days(Record(2020, 1, 1)); date < Days(Record(2021, 1, 1)); date += std::chrono::days(1)) {
        const std::chrono::year_month_day ymd(date);
        const STime time = Record(2020, static_cast<int>(static_cast<unsigned>(ymd.month())),
                                  static_cast<int>(static_cast<unsigned>(ymd.day())));
        ASSERT_EQ(KwCalcTime::GetAllDayFromBeginYear(time) + KwCalcTime::GetAllDayToEndYear(time), 366);
    }
}

}  // namespace
