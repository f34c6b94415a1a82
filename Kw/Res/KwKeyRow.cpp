#include "Kw/Res/KwKeyRow.h"

namespace {

using KwKeyRow::Key;

// The place of the largest key of all, which unused ones look like.
int FindLargest(const KwKeyRow::Pages& pages, const KwKeyRow::Page& page) {
    const int count = page.count - page.pending;
    return count != 0 && pages.Keys(page.records)[count - 1] == KwKeyRow::kUnused ? count - 1 : ~count;
}

namespace Plain {

using Wanted = Key;

inline unsigned int NotAbove(const Key* row, Key key) {
    return ~KwKeyRow::Above(row, key) & 0xFFFFu;
}

using KwKeyRow::Equal;

inline std::size_t CountTop(const Key* row, Key key) {
    std::uint64_t above = 0;
    for (std::size_t i = 0; i < KwKeyRow::kTopStep; i += KwKeyRow::kStep) {
        above |= std::uint64_t{KwKeyRow::Above(row + i, key)} << i;
    }
    return static_cast<std::size_t>(std::countr_zero(above));
}

}  // namespace Plain

#define KW_ROW_SPACE Plain
#define KW_ROW_TARGET
#include "Kw/Res/KwKeyRowSearch.h"
#undef KW_ROW_SPACE
#undef KW_ROW_TARGET

}  // namespace

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

// AVX-512 is slower here: its comparisons give masks, and a processor has few registers for those that wait.
#define KW_AVX2 __attribute__((target("avx2,bmi,popcnt")))
#define KW_AVX2_INLINE [[gnu::always_inline]] KW_AVX2 inline

namespace {

namespace Avx2 {

struct Wanted {
    KW_AVX2 explicit Wanted(Key key) : keys(_mm256_set1_epi32(key)), next(_mm256_set1_epi32(key + 1)) {}
    __m256i keys;
    __m256i next;  // what is below this is not above the key
};

KW_AVX2_INLINE __m256i Load8(const Key* row) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(row)));
}

KW_AVX2_INLINE __m256i NotAbove8(const Key* row, const Wanted& key) {
    return _mm256_cmpgt_epi32(key.next, Load8(row));
}

KW_AVX2_INLINE unsigned int Bits(__m256i low, __m256i high) {
    return static_cast<unsigned int>(_mm256_movemask_ps(_mm256_castsi256_ps(low))) |
           static_cast<unsigned int>(_mm256_movemask_ps(_mm256_castsi256_ps(high))) << 8;
}

KW_AVX2_INLINE unsigned int NotAbove(const Key* row, const Wanted& key) {
    return Bits(NotAbove8(row, key), NotAbove8(row + 8, key));
}

KW_AVX2_INLINE unsigned int Equal(const Key* row, const Wanted& key) {
    return Bits(_mm256_cmpeq_epi32(Load8(row), key.keys), _mm256_cmpeq_epi32(Load8(row + 8), key.keys));
}

// A bit for each of 32 keys, in an order of its own.
KW_AVX2_INLINE std::uint32_t NotAbove32(const Key* row, const Wanted& key) {
    const __m256i low = _mm256_packs_epi32(NotAbove8(row, key), NotAbove8(row + 8, key));
    const __m256i high = _mm256_packs_epi32(NotAbove8(row + 16, key), NotAbove8(row + 24, key));
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_packs_epi16(low, high)));
}

KW_AVX2_INLINE std::size_t CountTop(const Key* row, const Wanted& key) {
    const std::uint64_t bits = NotAbove32(row, key) | std::uint64_t{NotAbove32(row + 32, key)} << 32;
    return static_cast<std::size_t>(std::popcount(bits));
}

}  // namespace Avx2

#define KW_ROW_SPACE Avx2
#define KW_ROW_TARGET KW_AVX2
#include "Kw/Res/KwKeyRowSearch.h"
#undef KW_ROW_SPACE
#undef KW_ROW_TARGET

}  // namespace

#endif

const KwKeyRow::Searches& KwKeyRow::Fastest() {
#if defined(__x86_64__) || defined(__i386__)
    static constexpr Searches kAvx2 = {Avx2::Find, Avx2::FindInPage};
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi")) return kAvx2;
#endif
    static constexpr Searches kPlain = {Plain::Find, Plain::FindInPage};
    return kPlain;
}
