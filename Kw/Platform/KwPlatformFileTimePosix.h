// File times from those of the system. For the sources of the seam only.
#pragma once

#include <cstdint>

namespace KwPlatform {

constexpr std::int64_t kUnits = 10000000;               // of 100 ns in a second
constexpr std::int64_t kSecondsTo1970 = 11644473600LL;  // since 1 January 1601

inline std::uint64_t FileTimeFromUnix(std::int64_t seconds, std::int64_t nanoseconds) {
    if (seconds < -kSecondsTo1970) return 0;
    if (seconds > INT64_MAX / kUnits - kSecondsTo1970 - 1) return static_cast<std::uint64_t>(INT64_MAX);
    return static_cast<std::uint64_t>((seconds + kSecondsTo1970) * kUnits + nanoseconds / 100);
}

}  // namespace KwPlatform
