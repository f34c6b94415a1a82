#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes first.
#include "Kw/Platform/KwPlatformClock.h"

#include <algorithm>

namespace KwPlatform {

namespace {

constexpr int kFirstYear = 1601;
constexpr int kLastYear = 9999;
constexpr DWORD kLongestSleep = 0x7FFFFFFF;  // 0xFFFFFFFF would mean for ever

CalendarTime FromSystem(const SYSTEMTIME& time) {
    return {time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, time.wDayOfWeek};
}

int DaysInMonth(int year, int month) {
    if (month != 2) return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
}

// The zone's rules as in force in `year`; null, for the present ones, when the system does not tell.
const TIME_ZONE_INFORMATION* ZoneOf(WORD year, TIME_ZONE_INFORMATION& zone) {
    return GetTimeZoneInformationForYear(year, nullptr, &zone) != 0 ? &zone : nullptr;
}

}  // namespace

std::uint32_t TickCount() {
    return GetTickCount();
}

std::int64_t CounterNow() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

std::int64_t CounterFrequency() {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

void SleepMs(unsigned int ms) {
    if (ms == 0) {
        Sleep(0);
        return;
    }
    // The system counts its own ticks, of which the first may be nearly over, so a sleep can end early.
    const std::int64_t frequency = CounterFrequency();
    const std::int64_t end = CounterNow() + frequency * ms / 1000;
    Sleep(std::min<DWORD>(ms, kLongestSleep));
    for (std::int64_t now = CounterNow(); now < end; now = CounterNow()) {
        const std::int64_t rest = (end - now) * 1000 / frequency + 1;
        Sleep(static_cast<DWORD>(std::min<std::int64_t>(rest, kLongestSleep)));
    }
}

KwFileTime FileTimeNow() {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return {now.dwLowDateTime, now.dwHighDateTime};
}

bool LocalNow(CalendarTime& local) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    local = FromSystem(now);
    return true;
}

bool LocalFromFileTime(const KwFileTime& time, CalendarTime& local) {
    const FILETIME instant{time.dwLowDateTime, time.dwHighDateTime};
    SYSTEMTIME universal;
    SYSTEMTIME wall;
    TIME_ZONE_INFORMATION zone;
    if (FileTimeToSystemTime(&instant, &universal) == 0 || universal.wYear > kLastYear ||
        SystemTimeToTzSpecificLocalTime(ZoneOf(universal.wYear, zone), &universal, &wall) == 0) {
        return false;
    }
    local = FromSystem(wall);
    return true;
}

bool FileTimeFromLocal(const CalendarTime& local, KwFileTime& time) {
    if (local.year < kFirstYear || local.year > kLastYear || local.month < 1 || local.month > 12 || local.day < 1 ||
        local.day > DaysInMonth(local.year, local.month) || local.hour < 0 || local.hour > 23 || local.minute < 0 ||
        local.minute > 59 || local.second < 0 || local.second > 59) {
        return false;
    }
    SYSTEMTIME wall{};
    wall.wYear = static_cast<WORD>(local.year);
    wall.wMonth = static_cast<WORD>(local.month);
    wall.wDay = static_cast<WORD>(local.day);
    wall.wHour = static_cast<WORD>(local.hour);
    wall.wMinute = static_cast<WORD>(local.minute);
    wall.wSecond = static_cast<WORD>(local.second);
    SYSTEMTIME universal;
    FILETIME instant;
    TIME_ZONE_INFORMATION zone;
    if (TzSpecificLocalTimeToSystemTime(ZoneOf(wall.wYear, zone), &wall, &universal) == 0 ||
        SystemTimeToFileTime(&universal, &instant) == 0) {
        return false;
    }
    time = {instant.dwLowDateTime, instant.dwHighDateTime};
    return true;
}

}  // namespace KwPlatform
