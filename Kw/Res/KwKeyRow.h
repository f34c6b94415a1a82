// KwKeyRow: counting in short sorted rows of 32-bit keys with vector instructions. Internal to the library.
//
// Vectors compare signed numbers, so rows hold keys with the top bit turned, which sorts the same way. Reads go in
// whole steps: a row's memory is a multiple of kStep keys.
#pragma once

#include <algorithm>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace KwKeyRow {

using Key = std::int32_t;

constexpr std::size_t kStep = 16;     // keys that are compared together
constexpr Key kUnused = INT32_MAX;    // fills a row behind its last key
constexpr std::size_t kCounted = 64;  // up to so many keys, counting all of them is faster than halving

inline Key FromId(std::uint32_t id) {
    return static_cast<Key>(id ^ 0x80000000u);
}

inline std::size_t Padded(std::size_t count) {
    return (count + (kStep - 1)) / kStep * kStep;
}

#if defined(__SSE2__)

inline __m128i Above(const Key* row, __m128i key) {
    return _mm_cmpgt_epi32(_mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(row))), key);
}

// The keys of `length`, a multiple of kStep, that are not above `key`.
inline std::size_t CountAll(const Key* row, std::size_t length, Key key) {
    const __m128i wanted = _mm_set1_epi32(key);
    __m128i even = _mm_setzero_si128();  // each key above counts -1
    __m128i odd = even;
    for (std::size_t i = 0; i < length; i += kStep) {
        even = _mm_add_epi32(even, _mm_add_epi32(Above(row + i, wanted), Above(row + i + 4, wanted)));
        odd = _mm_add_epi32(odd, _mm_add_epi32(Above(row + i + 8, wanted), Above(row + i + 12, wanted)));
    }
    even = _mm_add_epi32(even, odd);
    even = _mm_add_epi32(even, _mm_shuffle_epi32(even, _MM_SHUFFLE(1, 0, 3, 2)));
    even = _mm_add_epi32(even, _mm_shuffle_epi32(even, _MM_SHUFFLE(2, 3, 0, 1)));
    return length - static_cast<std::size_t>(-_mm_cvtsi128_si32(even));
}

// Those of the first `count`, 1 to kStep; what stands behind them has no meaning.
inline std::size_t CountStep(const Key* row, std::size_t count, Key key) {
    const __m128i wanted = _mm_set1_epi32(key);
    const __m128i low = _mm_packs_epi32(Above(row, wanted), Above(row + 4, wanted));
    const __m128i high = _mm_packs_epi32(Above(row + 8, wanted), Above(row + 12, wanted));
    const auto above = static_cast<unsigned int>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
    return static_cast<std::size_t>(std::countr_zero(above | 1u << count));
}

#else

inline std::size_t CountAll(const Key* row, std::size_t length, Key key) {
    return static_cast<std::size_t>(std::upper_bound(row, row + length, key) - row);
}

inline std::size_t CountStep(const Key* row, std::size_t count, Key key) {
    return CountAll(row, count, key);
}

#endif

// CountAll with the widest vectors that this processor has.
using CountFunction = std::size_t (*)(const Key* row, std::size_t length, Key key);
CountFunction Fastest();

// The keys that are not above `key` in a sorted row of `length`, a multiple of kStep; unused keys count when `key` is
// the largest. `countAll` counts what halving leaves.
template <typename Function>
std::size_t Count(const Key* row, std::size_t length, Key key, Function countAll) {
    const Key* at = row;
    while (length > kCounted) {
        const std::size_t half = length / 2 / kStep * kStep;
        at += at[half - 1] <= key ? half : 0;
        length -= half;
    }
    return static_cast<std::size_t>(at - row) + countAll(at, length, key);
}

}  // namespace KwKeyRow
