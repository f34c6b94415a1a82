#include "Kw/KwClock.h"

#include "Kw/KwCalendar.h"
#include "Kw/Platform/KwPlatformClock.h"

namespace {

constinit KwClock g_system;

}  // namespace

KwClock::~KwClock() = default;

unsigned int KwClock::GetTick() {
    return KwPlatform::TickCount();
}

bool KwClock::GetLocalTime(STime& time) {
    KwPlatform::CalendarTime now;
    if (!KwPlatform::LocalNow(now)) return false;
    time = KwCalendar::ToRecord(now);
    time.week = static_cast<std::uint8_t>(now.week);
    return true;
}

KwClock& KwClock::GetSystem() {
    return g_system;
}
