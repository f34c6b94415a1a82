#include "Kw/Res/KwKeyRow.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

namespace {

using KwKeyRow::Key;
using KwKeyRow::kStep;

#define KW_AVX2 __attribute__((target("avx2,popcnt")))
#define KW_AVX512 __attribute__((target("avx512f,popcnt")))

KW_AVX2 inline __m256i Above8(const Key* row, __m256i key) {
    return _mm256_cmpgt_epi32(_mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(row))), key);
}

KW_AVX2 std::size_t CountAvx2(const Key* row, std::size_t length, Key key) {
    const __m256i wanted = _mm256_set1_epi32(key);
    __m256i low = _mm256_setzero_si256();  // each key above counts -1
    __m256i high = low;
    for (std::size_t i = 0; i < length; i += kStep) {
        low = _mm256_add_epi32(low, Above8(row + i, wanted));
        high = _mm256_add_epi32(high, Above8(row + i + 8, wanted));
    }
    low = _mm256_add_epi32(low, high);
    __m128i sum = _mm_add_epi32(_mm256_castsi256_si128(low), _mm256_extracti128_si256(low, 1));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(1, 0, 3, 2)));
    sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(2, 3, 0, 1)));
    return length - static_cast<std::size_t>(-_mm_cvtsi128_si32(sum));
}

#if defined(__x86_64__)
KW_AVX512 inline unsigned int Above16(const Key* row, __m512i key) {
    return _mm512_cmpgt_epi32_mask(_mm512_loadu_si512(row), key);
}

KW_AVX512 std::size_t CountAvx512(const Key* row, std::size_t length, Key key) {
    const __m512i wanted = _mm512_set1_epi32(key);
    unsigned int above = 0;
    std::size_t i = 0;
    for (; i + 2 * kStep <= length; i += 2 * kStep) {
        const unsigned int mask = Above16(row + i, wanted) | Above16(row + i + kStep, wanted) << kStep;
        above += static_cast<unsigned int>(__builtin_popcount(mask));
    }
    if (i < length) above += static_cast<unsigned int>(__builtin_popcount(Above16(row + i, wanted)));
    return length - above;
}
#endif

}  // namespace

KwKeyRow::CountFunction KwKeyRow::Fastest() {
    if (!__builtin_cpu_supports("popcnt")) return CountAll;
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f")) return CountAvx512;
#endif
    return __builtin_cpu_supports("avx2") ? CountAvx2 : CountAll;
}

#else

KwKeyRow::CountFunction KwKeyRow::Fastest() {
    return CountAll;
}

#endif
