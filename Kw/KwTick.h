// KwTick: distances between ticks, which are 32-bit milliseconds and wrap after 49.7 days. Internal.
#pragma once

// Whether tick `now` was taken before tick `since`: it is smaller by up to half of the range. One that is smaller by
// more has wrapped; one that is larger always counts as later.
constexpr bool Kw_IsTickBefore(unsigned int now, unsigned int since) {
    return now < since && since - now <= 0x80000000u;
}

// Whether more than `interval` milliseconds lie between `since` and a later tick `now`.
constexpr bool Kw_IsTickPast(unsigned int now, unsigned int since, unsigned int interval) {
    return !Kw_IsTickBefore(now, since) && now - since > interval;
}
