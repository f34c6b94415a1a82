// KwKeyRow: searching in sorted rows of 32-bit keys with vector instructions. Internal to the library.
//
// Vectors compare signed numbers, so rows hold keys with the top bit turned, which sorts the same way. Reads go in
// whole steps.
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
constexpr std::size_t kTopStep = 64;  // as many as are counted at once
constexpr Key kUnused = INT32_MAX;    // fills a row behind its last key

inline Key FromId(std::uint32_t id) {
    return static_cast<Key>(id ^ 0x80000000u);
}

// The steps that hold `count` keys.
inline std::size_t Steps(std::size_t count) {
    return (count + (kStep - 1)) / kStep;
}

// A bit for each of the kStep keys from `row` on: whether it is above `key`, and whether it is equal.
#if defined(__SSE2__)
template <typename Compare4>
unsigned int CompareStep(const Key* row, Key key, Compare4 compare) {
    const __m128i wanted = _mm_set1_epi32(key);
    const auto four = [&](std::size_t at) {
        return compare(_mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(row + at))), wanted);
    };
    const __m128i low = _mm_packs_epi32(four(0), four(4));
    const __m128i high = _mm_packs_epi32(four(8), four(12));
    return static_cast<unsigned int>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
}
inline unsigned int Above(const Key* row, Key key) {
    return CompareStep(row, key, [](__m128i keys, __m128i wanted) { return _mm_cmpgt_epi32(keys, wanted); });
}
inline unsigned int Equal(const Key* row, Key key) {
    return CompareStep(row, key, [](__m128i keys, __m128i wanted) { return _mm_cmpeq_epi32(keys, wanted); });
}
#else
template <typename Compare>
unsigned int CompareStep(const Key* row, Key key, Compare compare) {
    unsigned int bits = 0;
    for (std::size_t i = 0; i < kStep; ++i) bits |= static_cast<unsigned int>(compare(row[i], key)) << i;
    return bits;
}
inline unsigned int Above(const Key* row, Key key) {
    return CompareStep(row, key, [](Key at, Key wanted) { return at > wanted; });
}
inline unsigned int Equal(const Key* row, Key key) {
    return CompareStep(row, key, [](Key at, Key wanted) { return at == wanted; });
}
#endif

// How many of the first `count`, 1 to kStep, are not above `key`; what stands behind them has no meaning.
inline std::size_t CountStep(const Key* row, std::size_t count, Key key) {
    return static_cast<std::size_t>(std::countr_zero(Above(row, key) | 1u << count));
}

// A page of an index: records with their keys, and every kStep-th key once more as a sample, in one piece of memory.
struct Page {
    void** records;
    int count;
    // The last so many, added since the page was looked into last, are sorted among themselves only. Adding moves a
    // few records so, instead of half a page.
    int pending;
};

// All pages of an index. Rows of keys are filled up with unused ones.
struct Pages {
    Key* firsts = nullptr;       // of every page, INT32_MIN for the first one
    Key* tops = nullptr;         // every kTopStep-th of those
    std::size_t topRoom = 0;     // a multiple of kTopStep
    std::size_t count = 0;       // pages
    std::size_t keys = 0;        // where they begin in a page, in bytes from its records
    std::size_t samples = 0;     // and where these do
    std::size_t sampleRoom = 0;  // a multiple of kTopStep

    Key* Keys(void* const* records) const { return At(records, keys); }
    Key* Samples(void* const* records) const { return At(records, samples); }

private:
    static Key* At(void* const* records, std::size_t offset) {
        void* bytes = const_cast<void**>(records);
        return static_cast<Key*>(static_cast<void*>(static_cast<unsigned char*>(bytes) + offset));
    }
};

// The searches for one set of instructions.
struct Searches {
    // Stores the page that `key` is in or belongs into and findInPage's result for it. There is a page. Gives the
    // record; null when there is none, and when the page has pending ones.
    void* (*find)(const Pages& pages, const Page* table, Key key, int& page, int& position);
    // The position of `key` in a page or the complement of where it belongs, pending records left out.
    int (*findInPage)(const Pages& pages, const Page& page, Key key);
};

// With the widest vectors that this processor has.
const Searches& Fastest();

}  // namespace KwKeyRow
