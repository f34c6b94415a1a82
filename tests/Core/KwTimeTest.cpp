#include "Kw/KwTime.h"
#include "KwTestSupport.h"

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>

#include "Kw/KwDefine.h"

// Where the comparisons and messages of the test framework look for them.
static bool operator==(const STime& a, const STime& b) {
    return std::memcmp(&a, &b, sizeof(a)) == 0;
}

static std::ostream& operator<<(std::ostream& out, const STime& t) {
    return out << t.year << '-' << +t.month << '-' << +t.day << ' ' << +t.hour << ':' << +t.minute << ':' << +t.second
               << " w" << +t.week;
}

namespace {

STime Record(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int week = 0) {
    STime time;
    time.year = static_cast<std::uint16_t>(year);
    time.month = static_cast<std::uint8_t>(month);
    time.day = static_cast<std::uint8_t>(day);
    time.hour = static_cast<std::uint8_t>(hour);
    time.minute = static_cast<std::uint8_t>(minute);
    time.second = static_cast<std::uint8_t>(second);
    time.week = static_cast<std::uint8_t>(week);
    return time;
}

std::uint64_t Bits(double packed) {
    return std::bit_cast<std::uint64_t>(packed);
}

std::chrono::sys_days Days(int year, int month, int day) {
    return std::chrono::year(year) / static_cast<unsigned>(month) / static_cast<unsigned>(day);
}

// The wall clock in a zone with daylight saving, whatever the machine has, where a program can choose its own.
class KwTimeZoneTest : public testing::Test {
protected:
    KwTimeZoneTest() {
        if (const char* zone = std::getenv("TZ")) old_ = zone;
        zoned_ = SetTimeZone("CET-1CEST,M3.5.0,M10.5.0/3");
    }
    ~KwTimeZoneTest() override { SetTimeZone(old_.empty() ? nullptr : old_.c_str()); }

    bool zoned_;

private:
    std::string old_;
};

TEST(KwTimeTest, TheCurrentTimeCountsWeekdaysFromSunday) {
    const std::time_t before = std::time(nullptr);
    STime now = Record(0, 0, 0);
    KwTime::GetCurTime(&now);
    const std::time_t after = std::time(nullptr);
    const auto matches = [&now](std::time_t instant) {
        const std::tm t = *std::localtime(&instant);
        return now == Record(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday);
    };
    EXPECT_TRUE(matches(before) || matches(after)) << now;
    KwTime::GetCurTime(nullptr);
}

TEST(KwTimeTest, TicksAndCountersMeasureASleep) {
    double start = 0;
    double frequency = 0;
    KwTime::QueryTimeStart(&start, &frequency);
    KwTime::QueryTimeStart(nullptr, nullptr);
    const unsigned int tick = KwTime::GetTime();
    KwTime::Wait(30);
    const unsigned int ticks = KwTime::GetTime() - tick;
    const unsigned int ms = KwTime::QueryTime(start, frequency);
    EXPECT_GE(ticks, 14u) << "Windows counts its ticks in steps of up to 16 ms";
    EXPECT_GE(ms, 30u);
    EXPECT_LT(ms, 3000u);
    EXPECT_NEAR(KwTime::GetTime64(), KwTime::GetTime(), 1000);
    // Below 1 the counter's steps count as seconds; the result wraps in 32 bits.
    EXPECT_LT(KwTime::QueryTime(1e300, 0), 1u);
    KwTime::QueryTimeStart(&start, nullptr);
    const unsigned int thousand = KwTime::QueryTime(start, 0);
    EXPECT_EQ(thousand % 8, 0u) << "1000 for each step";
}

// Packing -------------------------------------------------------------------------------------------------------

TEST(KwTimeTest, TheMinuteStampKeepsItsFiveFields) {
    EXPECT_EQ(KwTime::PackTime(2019, 12, 31, 23, 59), (2019u << 20) | (12u << 16) | (31u << 11) | (23u << 6) | 59u);
    STime time = Record(1, 1, 1, 1, 1, 1, 5);
    KwTime::UnPackTime(KwTime::PackTime(2019, 12, 31, 23, 59), time);
    EXPECT_EQ(time, Record(2019, 12, 31, 23, 59, 0, 5));
    EXPECT_EQ(KwTime::PackTime(time), KwTime::PackTime(2019, 12, 31, 23, 59));
    int year, month, day, hour, minute;
    KwTime::UnPackTime(0xFFFFFFFFu, year, month, day, hour, minute);
    EXPECT_EQ(std::vector<int>({year, month, day, hour, minute}), std::vector<int>({4095, 15, 31, 31, 63}));
}

TEST(KwTimeTest, TheSecondStampKeepsItsSixFields) {
    const double packed = KwTime::PackTimeEx(2019, 5, 6, 7, 8, 9);
    EXPECT_EQ(Bits(packed), (std::uint64_t{2019} << 32) | (9u << 20) | (5u << 16) | (6u << 11) | (7u << 6) | 8u);
    STime time = Record(0, 0, 0, 0, 0, 0, 4);
    KwTime::UnPackTimeEx(packed, time);
    EXPECT_EQ(time, Record(2019, 5, 6, 7, 8, 9, 4));
}

// The record form loses the month and puts the minute in its place, carrying into the second's bits.
TEST(KwTimeTest, TheSecondStampOfARecordHasTheMinuteForTheMonth) {
    const auto low = [](int second, int minute, int day, int hour) {
        return static_cast<std::uint32_t>((second << 20) + (minute << 16) + (day << 11) + (hour << 6) + minute);
    };
    EXPECT_EQ(Bits(KwTime::PackTimeEx(Record(2019, 5, 6, 7, 8, 9))), (std::uint64_t{2019} << 32) | low(9, 8, 6, 7));
    EXPECT_EQ(Bits(KwTime::PackTimeEx(Record(2019, 5, 6, 7, 59, 9))), (std::uint64_t{2019} << 32) | low(9, 59, 6, 7));
}

TEST(KwTimeTest, TextHasSixFieldsAndReadsBack) {
    STime time = Record(2019, 5, 6, 7, 8, 9, 3);
    char text[26];
    EXPECT_EQ(KwTime::PackToString(time, text), 19);
    EXPECT_STREQ(text, "2019_05_06_07_08_09");
    STime read = Record(0, 0, 0, 0, 0, 0, 3);
    KwTime::UnpackToString(text, read);
    EXPECT_EQ(read, time);
    KwTime::UnpackToString("2020_11", read);
    EXPECT_EQ(read, Record(2020, 11, 6, 7, 8, 9, 3));
    STime widest = Record(65535, 255, 255, 255, 255, 255);
    EXPECT_EQ(KwTime::PackToString(widest, text), 25);
}

// File times ----------------------------------------------------------------------------------------------------

TEST_F(KwTimeZoneTest, FileTimesAreUtcAndRecordsLocal) {
    if (!zoned_) GTEST_SKIP() << "the time zone belongs to the whole machine";
    // 1 January 1970 is 116444736000000000 units in; winter is an hour ahead of UTC, summer two.
    STime winter = Record(1970, 1, 1, 1, 0, 0, 7);
    KwFileTime fileTime;
    KwTime::TimeToFileTime(&winter, fileTime);
    EXPECT_EQ(KwFileTimeToUnits(fileTime), 116444736000000000u);
    STime summer = Record(2019, 7, 1, 2, 0, 1);
    KwTime::TimeToFileTime(&summer, fileTime);
    EXPECT_EQ(KwFileTimeToUnits(fileTime), 116444736000000000u + 15619392010000000u);
    fileTime = KwFileTimeFromUnits(KwFileTimeToUnits(fileTime) + 9999999);
    STime back;
    KwTime::FileTimeToTime(&fileTime, back);
    EXPECT_EQ(back, summer);

    STime first = Record(1601, 1, 2);
    KwTime::TimeToFileTime(&first, fileTime);
    KwTime::FileTimeToTime(&fileTime, back);
    EXPECT_EQ(back, first);
}

TEST_F(KwTimeZoneTest, WhatIsNoDateIsNoFileTime) {
    KwFileTime fileTime;
    for (STime bad : {Record(2019, 2, 29), Record(2019, 4, 31), Record(2019, 0, 1), Record(2019, 13, 1),
                      Record(2019, 1, 0), Record(2019, 1, 1, 24), Record(2019, 1, 1, 0, 60),
                      Record(2019, 1, 1, 0, 0, 60), Record(1600, 1, 1), Record(65535, 1, 1), Record(0, 0, 0)}) {
        fileTime = KwFileTimeFromUnits(5);
        KwTime::TimeToFileTime(&bad, fileTime);
        EXPECT_EQ(KwFileTimeToUnits(fileTime), 0u) << bad;
    }
    KwTime::TimeToFileTime(nullptr, fileTime);
    EXPECT_EQ(KwFileTimeToUnits(fileTime), 0u);
    STime time = Record(1, 1, 1, 1, 1, 1, 1);
    KwTime::FileTimeToTime(nullptr, time);
    EXPECT_EQ(time, STime());
    fileTime = KwFileTimeFromUnits(0xFFFFFFFFFFFFFFFFu);
    KwTime::FileTimeToTime(&fileTime, time);
    EXPECT_EQ(time, STime());
    STime gap = Record(2019, 3, 31, 2, 30);  // skipped by daylight saving
    KwTime::TimeToFileTime(&gap, fileTime);
    KwTime::FileTimeToTime(&fileTime, time);
    EXPECT_EQ(time.day, 31);
}

TEST_F(KwTimeZoneTest, TimesOfAFileAreSetByNameInBothWidths) {
    const std::string path = testing::TempDir() + "kwtimetest" + std::to_string(std::random_device{}());
    const KwWString wide(path.begin(), path.end());
    std::ofstream(path) << "x";
    void* const none = reinterpret_cast<void*>(static_cast<std::intptr_t>(-1));
    STime written = Record(2011, 3, 4, 5, 6, 7);
    STime accessed = Record(2012, 3, 4, 5, 6, 7);
    STime notADate = Record(2012, 2, 30);
    STime got[3];
    EXPECT_TRUE(KwTime::SetFileTime(path.c_str(), nullptr, none, nullptr, &accessed, &written));
    EXPECT_TRUE(KwTime::GetFileTime(nullptr, wide.c_str(), nullptr, &got[0], &got[1], &got[2]));
    EXPECT_EQ(got[1], accessed);
    EXPECT_EQ(got[2], written);
    EXPECT_GT(got[0].year, 2000);
    EXPECT_TRUE(KwTime::SetFileTime(nullptr, wide.c_str(), none, nullptr, &written, &notADate));
    EXPECT_TRUE(KwTime::GetFileTime(path.c_str(), nullptr, nullptr, nullptr, &got[1], &got[2]));
    EXPECT_EQ(got[1], written);
    EXPECT_EQ(got[2], written);
    std::filesystem::remove(path);
    EXPECT_FALSE(KwTime::SetFileTime(path.c_str(), nullptr, none, nullptr, &accessed, &written));
    EXPECT_FALSE(KwTime::GetFileTime(path.c_str(), nullptr, nullptr, nullptr, nullptr, &got[2]));
    EXPECT_FALSE(KwTime::SetFileTime(nullptr, nullptr, none, nullptr, nullptr, nullptr));
    EXPECT_FALSE(KwTime::GetFileTime(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
}

// Counting ------------------------------------------------------------------------------------------------------

TEST(KwTimeTest, MonthLengths) {
    EXPECT_EQ(KwTime::GetMaxDayInMonth(1900, 2), 28);
    EXPECT_EQ(KwTime::GetMaxDayInMonth(2000, 2), 29);
    EXPECT_EQ(KwTime::GetMaxDayInMonth(-4, 2), 29);
    EXPECT_EQ(KwTime::GetMaxDayInMonth(2019, 13), 30);
    EXPECT_EQ(KwTime::GetMaxDayInMonth(2019, 0), 30);
}

// Every day of 400 years around the epoch of the week count, against the system's own day count.
TEST(KwTimeTest, WeekdaysAndWeeksOf400Years) {
    const auto epoch = Days(2018, 1, 1);
    for (auto date = Days(1818, 1, 1); date < Days(2218, 1, 1); date += std::chrono::days(1)) {
        const std::chrono::year_month_day ymd(date);
        const int year = static_cast<int>(ymd.year());
        const int month = static_cast<int>(static_cast<unsigned>(ymd.month()));
        const int day = static_cast<int>(static_cast<unsigned>(ymd.day()));
        int n = static_cast<int>((date - epoch).count());
        if (year == 2018 && month == 1) --n;  // that January is a day late
        // Monday = 2 ... Sunday = 8; before the epoch a Monday begins the next lower index.
        int weekday = ((n % 7) + 7) % 7 + 2;
        int index = n >= 0 ? n / 7 : -1 - (-n) / 7;
        if (year == 2018 && month == 1 && day == 1) {
            weekday = 2;
            index = 0;
        }
        int gotIndex = -99;
        int gotWeekday = -99;
        KwTime::CalcWeek(year, month, day, gotIndex, gotWeekday);
        ASSERT_EQ(gotWeekday, weekday) << year << '-' << month << '-' << day;
        ASSERT_EQ(gotIndex, index) << year << '-' << month << '-' << day;
    }
}

TEST(KwTimeTest, WeeksAtTheEdges) {
    struct {
        int year, month, day, index, weekday;
    } const cases[] = {{2019, 1, 1, 52, 3},   {2018, 2, 1, 4, 5},    {2018, 1, 2, 0, 2},   {2018, 1, 1, 0, 2},
                       {2017, 12, 31, -1, 8}, {2017, 12, 25, -2, 2}, {2017, 12, 26, -1, 3}};
    for (const auto& c : cases) {
        int index = -99;
        int weekday = -99;
        KwTime::CalcWeek(c.year, c.month, c.day, index, weekday);
        EXPECT_EQ(index, c.index) << c.year << '-' << c.month << '-' << c.day;
        EXPECT_EQ(weekday, c.weekday) << c.year << '-' << c.month << '-' << c.day;
    }
    // Fields far outside a calendar end quickly, with a weekday of the table.
    for (const int year : {INT_MIN, -1, 2017, 2018, 2019, INT_MAX}) {
        for (const int month : {INT_MIN, 0, 13, INT_MAX}) {
            for (const int day : {INT_MIN, -1, INT_MAX}) {
                int index = 0;
                int weekday = 0;
                KwTime::CalcWeek(year, month, day, index, weekday);
                EXPECT_GE(weekday, 2);
                EXPECT_LE(weekday, 8);
            }
        }
    }
}

TEST(KwTimeTest, CheckTimeCarriesForward) {
    struct {
        STime in, out;
    } const cases[] = {{Record(2019, 12, 31, 23, 59, 60), Record(2020, 1, 1)},
                       {Record(2019, 2, 29), Record(2019, 3, 1)},
                       {Record(2019, 1, 255), Record(2019, 9, 12)},
                       {Record(2019, 13, 31), Record(2020, 2, 1)},  // a month without a name has 30 days
                       {Record(2019, 255, 1), Record(2040, 3, 1)},
                       {Record(65535, 13, 1), Record(0, 1, 1)},
                       {Record(2019, 1, 1, 0, 255, 255), Record(2019, 1, 1, 0, 3, 15)},  // the minute wraps
                       {Record(2019, 0, 0), Record(2019, 0, 0)}};
    for (const auto& c : cases) {
        STime time = c.in;
        KwTime::CheckTime(time);
        EXPECT_EQ(time, c.out) << c.in;
    }
}

TEST(KwTimeTest, CalcTotalTimeAddsDaysAndSecondsAsTheCalendarDoes) {
    const auto start = Days(2019, 1, 31);
    for (const unsigned int days : {0u, 1u, 28u, 29u, 365u, 366u, 10000u, 146096u, 146128u, 146129u, 500000u}) {
        for (const unsigned int seconds : {0u, 59u, 60u, 3600u, 86399u, 86400u, 400000u}) {
            STime time = Record(2019, 1, 31, 23, 59, 59);
            KwTime::CalcTotalTime(time, days, seconds, false);
            const std::int64_t total = 86399 + std::int64_t{seconds};
            const std::chrono::year_month_day ymd(start + std::chrono::days(days + total / 86400));
            EXPECT_EQ(time,
                      Record(static_cast<int>(ymd.year()), static_cast<int>(static_cast<unsigned>(ymd.month())),
                             static_cast<int>(static_cast<unsigned>(ymd.day())), static_cast<int>(total % 86400 / 3600),
                             static_cast<int>(total % 3600 / 60), static_cast<int>(total % 60)))
                << days << ' ' << seconds;
        }
    }
    STime far = Record(2019, 1, 1);
    KwTime::CalcTotalTime(far, 0xFFFFFFFFu, 0xFFFFFFFFu, false);  // ends soon
    STime now = {};
    KwTime::GetCurTime(&now);
    STime today = Record(1, 1, 1);
    KwTime::CalcTotalTime(today, 0, 0, true);
    EXPECT_GE(KwTime::TestTime(today, now), 0);
}

TEST(KwTimeTest, CalcTotalDayIsExactWithinAYearAndFallsShortAcross) {
    const auto total = [](STime from, STime to) { return KwTime::CalcTotalDay(&from, &to); };
    for (auto date = Days(2020, 1, 1); date < Days(2021, 1, 1); date += std::chrono::days(1)) {
        const std::chrono::year_month_day ymd(date);
        const STime to = Record(2020, static_cast<int>(static_cast<unsigned>(ymd.month())),
                                static_cast<int>(static_cast<unsigned>(ymd.day())));
        ASSERT_EQ(total(Record(2020, 1, 1), to), (date - Days(2020, 1, 1)).count());
    }
    // Across years: the rest of the first year, whole years between, and the step from month to month.
    EXPECT_EQ(total(Record(2019, 12, 31), Record(2020, 1, 1)), 0);
    EXPECT_EQ(total(Record(2019, 1, 1), Record(2020, 3, 1)), 364 + 29 + 31);
    EXPECT_EQ(total(Record(2019, 5, 10), Record(2021, 5, 20)), 21 + 214 + 366 + 10);
    EXPECT_EQ(total(Record(2020, 1, 1), Record(2019, 1, 1)), 0);
    EXPECT_EQ(total(Record(2020, 5, 1), Record(2020, 3, 1)), 0);
    EXPECT_EQ(KwTime::CalcTotalDay(nullptr, nullptr), 0);
}

TEST(KwTimeTest, TestTimeIgnoresSeconds) {
    STime a = Record(2019, 5, 6, 7, 8, 9);
    STime b = Record(2019, 5, 6, 7, 8, 59);
    EXPECT_EQ(KwTime::TestTime(a, b), 0);
    b.minute = 7;
    EXPECT_EQ(KwTime::TestTime(a, b), 1);
    b.year = 2020;
    EXPECT_EQ(KwTime::TestTime(a, b), -1);
}

}  // namespace
