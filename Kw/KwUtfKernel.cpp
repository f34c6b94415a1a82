#include "Kw/KwUtfKernel.h"

#include <cstdint>
#include <cstring>

#include "Kw/KwUtfCode.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

#if defined(__SSE2__)

constexpr std::size_t kStep = 16;

__m128i Load(const unsigned char* at) {
    return _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(at)));
}

void Store(unsigned char* at, __m128i value) {
    _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(at)), value);
}

bool WidenStep(unsigned char* dst, const unsigned char* src) {
    const __m128i bytes = Load(src);
    if (_mm_movemask_epi8(bytes) != 0) return false;
    Store(dst, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
    Store(dst + 16, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
    return true;
}

bool NarrowStep(unsigned char* dst, const unsigned char* src) {
    const __m128i low = Load(src);
    const __m128i high = Load(src + 16);
    const __m128i over = _mm_and_si128(_mm_or_si128(low, high), _mm_set1_epi16(static_cast<short>(0xFF80)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(over, _mm_setzero_si128())) != 0xFFFF) return false;
    Store(dst, _mm_packus_epi16(low, high));
    return true;
}

#else

constexpr std::size_t kStep = 8;

bool WidenStep(unsigned char* dst, const unsigned char* src) {
    std::uint64_t bytes;
    std::memcpy(&bytes, src, sizeof(bytes));
    if ((bytes & 0x8080808080808080) != 0) return false;
    for (std::size_t i = 0; i < kStep; ++i) KwUtfCode::Store16(dst + 2 * i, src[i]);
    return true;
}

bool NarrowStep(unsigned char* dst, const unsigned char* src) {
    std::uint64_t units[2];
    std::memcpy(units, src, sizeof(units));
    if (((units[0] | units[1]) & 0xFF80FF80FF80FF80) != 0) return false;
    for (std::size_t i = 0; i < kStep; ++i) dst[i] = src[2 * i];
    return true;
}

#endif

KwUtf::Result To16(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    const std::size_t limit = room < length ? room : length;
    std::size_t at = 0;
    while (limit - at >= kStep && WidenStep(dst + 2 * at, src + at)) at += kStep;
    return {at, at};
}

KwUtf::Result To8(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    const std::size_t limit = room < length ? room : length;
    std::size_t at = 0;
    while (limit - at >= kStep && NarrowStep(dst + at, src + 2 * at)) at += kStep;
    return {at, at};
}

}  // namespace

const KwUtfKernels KwUtfKernel::kPortable = {To16, To8};
