#include "Kw/KwTime.h"

#include <bit>
#include <cstdio>

#include "Kw/KwCalendar.h"
#include "Kw/KwStr.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformFile.h"

void KwTime::Wait(unsigned int ms) {
    KwPlatform::SleepMs(ms);
}

unsigned int KwTime::GetTime() {
    return KwPlatform::TickCount();
}

double KwTime::GetTime64() {
    return static_cast<double>(KwPlatform::TickCount());
}

void KwTime::QueryTimeStart(double* counter, double* frequency) {
    if (counter != nullptr) *counter = static_cast<double>(KwPlatform::CounterNow());
    if (frequency != nullptr) {
        const std::int64_t steps = KwPlatform::CounterFrequency();
        *frequency = steps > 0 ? static_cast<double>(steps) : 1.0;
    }
}

unsigned int KwTime::QueryTime(double start, double frequency) {
    if (!(frequency >= 1.0)) frequency = 1.0;
    const double ms = (static_cast<double>(KwPlatform::CounterNow()) - start) * 1000.0 / frequency;
    // What does not fit wraps, as the tick count does.
    constexpr double kLimit = 9.2e18;
    if (!(ms > -kLimit && ms < kLimit)) return 0;
    return static_cast<unsigned int>(static_cast<std::int64_t>(ms));
}

void KwTime::GetCurTime(STime* time) {
    KwPlatform::CalendarTime now;
    if (time != nullptr && KwPlatform::LocalNow(now)) {
        *time = KwCalendar::ToRecord(now);
        time->week = static_cast<std::uint8_t>(now.week);
    }
}

// Packing ---------------------------------------------------------------------------------------------------

namespace {

// Minute in bits 0-5, hour 6-10, day 11-15, month 16-19, `top` from bit 20 on. Fields that are too large
// run into the next one.
unsigned int Pack(unsigned int top, unsigned int month, unsigned int day, unsigned int hour, unsigned int minute) {
    return (((top * 16 + month) * 32 + day) * 32 + hour) * 64 + minute;
}

double FromHalves(unsigned int high, unsigned int low) {
    return std::bit_cast<double>((static_cast<std::uint64_t>(high) << 32) | low);
}

}  // namespace

unsigned int KwTime::PackTime(int year, int month, int day, int hour, int minute) {
    return Pack(static_cast<unsigned int>(year), static_cast<unsigned int>(month), static_cast<unsigned int>(day),
                static_cast<unsigned int>(hour), static_cast<unsigned int>(minute));
}

unsigned int KwTime::PackTime(const STime& time) {
    return Pack(time.year, time.month, time.day, time.hour, time.minute);
}

void KwTime::UnPackTime(unsigned int packed, int& year, int& month, int& day, int& hour, int& minute) {
    minute = static_cast<int>(packed & 63);
    hour = static_cast<int>((packed >> 6) & 31);
    day = static_cast<int>((packed >> 11) & 31);
    month = static_cast<int>((packed >> 16) & 15);
    year = static_cast<int>(packed >> 20);
}

void KwTime::UnPackTime(unsigned int packed, STime& time) {
    int year, month, day, hour, minute;
    UnPackTime(packed, year, month, day, hour, minute);
    KwCalendar::Store(time, year, month, day, hour, minute, 0);
}

double KwTime::PackTimeEx(int year, int month, int day, int hour, int minute, int second) {
    return FromHalves(
        static_cast<unsigned int>(year),
        Pack(static_cast<unsigned int>(second), static_cast<unsigned int>(month), static_cast<unsigned int>(day),
             static_cast<unsigned int>(hour), static_cast<unsigned int>(minute)));
}

double KwTime::PackTimeEx(const STime& time) {
    // The minute stands where the month belongs, and is there twice: stored stamps were made this way and
    // are compared with new ones, so it stays.
    return FromHalves(time.year, Pack(time.second, time.minute, time.day, time.hour, time.minute));
}

void KwTime::UnPackTimeEx(double packed, int& year, int& month, int& day, int& hour, int& minute, int& second) {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(packed);
    // The low half is PackTime's with the second in place of the year.
    UnPackTime(static_cast<unsigned int>(bits), second, month, day, hour, minute);
    year = static_cast<int>(bits >> 32);
}

void KwTime::UnPackTimeEx(double packed, STime& time) {
    int year, month, day, hour, minute, second;
    UnPackTimeEx(packed, year, month, day, hour, minute, second);
    KwCalendar::Store(time, year, month, day, hour, minute, second);
}

// Text ------------------------------------------------------------------------------------------------------

int KwTime::PackToString(STime& time, char* out) {
    constexpr std::size_t kRoom = sizeof("65535_255_255_255_255_255");
    return std::snprintf(out, kRoom, "%02d_%02d_%02d_%02d_%02d_%02d", time.year, time.month, time.day, time.hour,
                         time.minute, time.second);
}

void KwTime::UnpackToString(const char* text, STime& time) {
    int year = time.year, month = time.month, day = time.day;
    int hour = time.hour, minute = time.minute, second = time.second;
    KwStr::Sscanf(text, "%d_%d_%d_%d_%d_%d", &year, &month, &day, &hour, &minute, &second);
    KwCalendar::Store(time, year, month, day, hour, minute, second);
}

// File times ------------------------------------------------------------------------------------------------

void KwTime::FileTimeToTime(KwFileTime* fileTime, STime& time) {
    time = STime();
    KwPlatform::CalendarTime local;
    if (fileTime != nullptr && KwPlatform::LocalFromFileTime(*fileTime, local)) time = KwCalendar::ToRecord(local);
}

void KwTime::TimeToFileTime(STime* time, KwFileTime& fileTime) {
    fileTime = KwFileTime();
    if (time == nullptr) return;
    const KwPlatform::CalendarTime local = {time->year,   time->month,  time->day, time->hour,
                                            time->minute, time->second, 0};
    KwPlatform::FileTimeFromLocal(local, fileTime);
}

namespace {

// The time in a file's units; null for no time and for a date that does not exist.
const std::uint64_t* ToUnits(STime* time, std::uint64_t& units) {
    KwFileTime fileTime;
    KwTime::TimeToFileTime(time, fileTime);
    units = KwFileTimeToUnits(fileTime);
    return units == 0 ? nullptr : &units;
}

void FromUnits(std::uint64_t units, STime* time) {
    if (time == nullptr) return;
    KwFileTime fileTime = KwFileTimeFromUnits(units);
    KwTime::FileTimeToTime(&fileTime, *time);
}

}  // namespace

bool KwTime::SetFileTime(const char* name, const KwWChar* wname, void* handle, STime* created, STime* accessed,
                         STime* written) {
    std::uint64_t units[3];
    const std::uint64_t* c = ToUnits(created, units[0]);
    const std::uint64_t* a = ToUnits(accessed, units[1]);
    const std::uint64_t* w = ToUnits(written, units[2]);
    if (handle != KwPlatform::FileNoHandle()) return KwPlatform::FileSetTimes(handle, c, a, w);
    char path[KwPlatform::kPathSize];
    if (name == nullptr) {
        if (!KwPlatform::PathFromWide(wname, path, sizeof(path))) return false;
        name = path;
    }
    return KwPlatform::FileSetTimes(name, c, a, w);
}

bool KwTime::GetFileTime(const char* name, const KwWChar* wname, void*, STime* created, STime* accessed,
                         STime* written) {
    char path[KwPlatform::kPathSize];
    if (wname != nullptr) {
        if (!KwPlatform::PathFromWide(wname, path, sizeof(path))) return false;
        name = path;
    }
    KwPlatform::FileTimes times;
    if (name == nullptr || !KwPlatform::FileGetTimes(name, times)) return false;
    FromUnits(times.created, created);
    FromUnits(times.accessed, accessed);
    FromUnits(times.written, written);
    return true;
}
