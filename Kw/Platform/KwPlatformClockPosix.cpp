#include "Kw/Platform/KwPlatformClock.h"

#include <sched.h>
#include <time.h>

#include <cerrno>
#include <mutex>

#include "Kw/KwStaticLock.h"

namespace KwPlatform {

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::int64_t kUnitsPerSecond = 10'000'000;       // units of KwFileTime
constexpr std::int64_t kSecondsTo1970 = 11'644'473'600;    // from 1601
constexpr std::int64_t kLastSecond = 253'402'300'800 - 1;  // 31 December 9999, 23:59:59

std::int64_t SteadyNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNanoseconds + now.tv_nsec;
}

// The C library has a lock of its own for its zone, which the thread sanitizer cannot see.
constinit KwStaticLock g_zoneLock;

bool ToLocal(time_t seconds, CalendarTime& local) {
    const std::lock_guard<KwStaticLock> guard(g_zoneLock);
    // localtime_r alone never notices that TZ was changed.
    tzset();
    tm parts{};
    if (localtime_r(&seconds, &parts) == nullptr) return false;
    local = {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
             parts.tm_min,         parts.tm_sec,     parts.tm_wday};
    return true;
}

}  // namespace

std::uint32_t TickCount() {
    return static_cast<std::uint32_t>(SteadyNanoseconds() / 1'000'000);
}

std::int64_t CounterNow() {
    return SteadyNanoseconds();
}
std::int64_t CounterFrequency() {
    return kNanoseconds;
}

void SleepMs(unsigned int ms) {
    if (ms == 0) {
        sched_yield();
        return;
    }
    timespec rest{static_cast<time_t>(ms / 1000), static_cast<std::int32_t>(ms % 1000) * 1'000'000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
    }
}

KwFileTime FileTimeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return KwFileTimeFromUnits(
        static_cast<std::uint64_t>((now.tv_sec + kSecondsTo1970) * kUnitsPerSecond + now.tv_nsec / 100));
}

bool LocalNow(CalendarTime& local) {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
    return ToLocal(now.tv_sec, local);
}

bool LocalFromFileTime(const KwFileTime& time, CalendarTime& local) {
    const std::uint64_t units = KwFileTimeToUnits(time);
    const std::int64_t seconds = static_cast<std::int64_t>(units / kUnitsPerSecond) - kSecondsTo1970;
    if (seconds > kLastSecond) return false;
    return ToLocal(static_cast<time_t>(seconds), local);
}

bool FileTimeFromLocal(const CalendarTime& local, KwFileTime& time) {
    if (local.year < 1601 || local.year > 9999) return false;
    tm parts{};
    parts.tm_year = local.year - 1900;
    parts.tm_mon = local.month - 1;
    parts.tm_mday = local.day;
    parts.tm_hour = local.hour;
    parts.tm_min = local.minute;
    parts.tm_sec = local.second;
    parts.tm_isdst = -1;
    // mktime fills the weekday, which tells the last second of 1969 from its failure.
    parts.tm_wday = -1;
    const time_t seconds = mktime(&parts);
    if (parts.tm_wday == -1) return false;
    // It also turns 31 April into 1 May. A time skipped by daylight saving moves within its day and is fine.
    if (parts.tm_year != local.year - 1900 || parts.tm_mon != local.month - 1 || parts.tm_mday != local.day)
        return false;
    if (local.hour < 0 || local.hour > 23 || local.minute < 0 || local.minute > 59 || local.second < 0 ||
        local.second > 59 || seconds < -kSecondsTo1970) {
        return false;
    }
    time = KwFileTimeFromUnits((static_cast<std::uint64_t>(seconds) + kSecondsTo1970) * kUnitsPerSecond);
    return true;
}

}  // namespace KwPlatform
