// The instruction sets for which the loops of KwTableScan are built: KwScanPlain everywhere, KwScanSse2 where the
// compiler may use it, and KwScanAvx2 where the processor may turn out to have it. Internal.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "Kw/Res/KwTableScan.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define KW_SCAN_HAS_AVX2 1
#endif

namespace KwScanPlain {
struct SMasks {
    std::uint64_t tab, lf, cr;
};

// Eight bytes at a time: a zero byte of `x` becomes a set top bit, and those are gathered by a multiplication.
inline std::uint64_t EqualMask(std::uint64_t bytes, unsigned char c) {
    constexpr std::uint64_t kLow = 0x0101010101010101u;
    constexpr std::uint64_t kRest = 0x7F7F7F7F7F7F7F7Fu;
    const std::uint64_t x = bytes ^ (kLow * c);
    const std::uint64_t zeros = ~(((x & kRest) + kRest) | x | kRest);
    return ((zeros >> 7) * 0x0102040810204080u) >> 56;
}

inline SMasks Masks(const unsigned char* text) {
    SMasks masks{};
    for (unsigned int i = 0; i < 64; i += 8) {
        std::uint64_t bytes = 0;
        for (unsigned int k = 0; k < 8; ++k) bytes |= static_cast<std::uint64_t>(text[i + k]) << (8 * k);
        masks.tab |= EqualMask(bytes, '\t') << i;
        masks.lf |= EqualMask(bytes, '\n') << i;
        masks.cr |= EqualMask(bytes, '\r') << i;
    }
    return masks;
}
}  // namespace KwScanPlain
#define KW_SCAN_SPACE KwScanPlain
#define KW_SCAN_TARGET
#include "Kw/Res/KwTableScanKernel.h"
#undef KW_SCAN_SPACE
#undef KW_SCAN_TARGET

#if defined(__SSE2__)
namespace KwScanSse2 {
using KwScanPlain::SMasks;

inline std::uint64_t EqualMask(const __m128i (&bytes)[4], char c) {
    const __m128i wanted = _mm_set1_epi8(c);
    std::uint64_t mask = 0;
    for (unsigned int i = 0; i < 4; ++i) {
        const int part = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes[i], wanted));
        mask |= static_cast<std::uint64_t>(static_cast<unsigned int>(part)) << (16 * i);
    }
    return mask;
}

inline SMasks Masks(const unsigned char* text) {
    __m128i bytes[4];
    std::memcpy(bytes, text, sizeof(bytes));
    return {EqualMask(bytes, '\t'), EqualMask(bytes, '\n'), EqualMask(bytes, '\r')};
}
}  // namespace KwScanSse2
#define KW_SCAN_SPACE KwScanSse2
#define KW_SCAN_TARGET
#include "Kw/Res/KwTableScanKernel.h"
#undef KW_SCAN_SPACE
#undef KW_SCAN_TARGET
#endif

#if defined(KW_SCAN_HAS_AVX2)
#define KW_SCAN_TARGET __attribute__((target("avx2,bmi,lzcnt,popcnt")))
namespace KwScanAvx2 {
using KwScanPlain::SMasks;

KW_SCAN_TARGET inline std::uint64_t EqualMask(const unsigned char* text, char c) {
    const __m256i wanted = _mm256_set1_epi8(c);
    __m256i low;
    __m256i high;
    std::memcpy(&low, text, sizeof(low));
    std::memcpy(&high, text + 32, sizeof(high));
    const auto lowMask = static_cast<unsigned int>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(low, wanted)));
    const auto highMask = static_cast<unsigned int>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(high, wanted)));
    return lowMask | static_cast<std::uint64_t>(highMask) << 32;
}

KW_SCAN_TARGET inline SMasks Masks(const unsigned char* text) {
    return {EqualMask(text, '\t'), EqualMask(text, '\n'), EqualMask(text, '\r')};
}
}  // namespace KwScanAvx2
#define KW_SCAN_SPACE KwScanAvx2
#include "Kw/Res/KwTableScanKernel.h"
#undef KW_SCAN_SPACE
#undef KW_SCAN_TARGET
#endif
