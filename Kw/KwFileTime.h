// KwFileTime: an instant in 100 ns units since 1 January 1601, UTC.
//
// The layout is that of Windows' FILETIME, whose field names it bears.
#pragma once

#include <cstdint>

struct KwFileTime {
    std::uint32_t dwLowDateTime = 0;
    std::uint32_t dwHighDateTime = 0;
};
static_assert(sizeof(KwFileTime) == 8);

// The units as one number, and back.
constexpr std::uint64_t KwFileTimeToUnits(const KwFileTime& time) {
    return (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}
constexpr KwFileTime KwFileTimeFromUnits(std::uint64_t units) {
    return {static_cast<std::uint32_t>(units), static_cast<std::uint32_t>(units >> 32)};
}
