// The conversions with AVX-512: classes of bytes as 64-bit masks, characters gathered by the compress instructions.
#include "Kw/KwUtfKernel.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <bit>
#include <cstdint>

// GCC 12's intrinsics begin with an undefined register, which it then takes for a mistake of their caller.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define KW_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi,bmi2,popcnt")))
#define KW_AVX512_INLINE KW_AVX512 __attribute__((always_inline)) inline

namespace {

KW_AVX512_INLINE std::uint64_t Ones(std::uint64_t count) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned int>(count));
}

// Stores the first `count` (at most 32) units or 64 bytes.
KW_AVX512_INLINE void Store16(unsigned char* dst, __m512i units, std::uint64_t count) {
    if (count >= 32) return _mm512_storeu_si512(dst, units);
    _mm512_mask_storeu_epi16(dst, static_cast<__mmask32>(Ones(count)), units);
}

KW_AVX512_INLINE void Widen(unsigned char* dst, __m512i bytes, std::uint64_t count) {
    Store16(dst, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes)), count);
    if (count > 32) Store16(dst + 64, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1)), count - 32);
}

// Units of 32 characters out of their last, last but one and first bytes, stripped to their payload.
KW_AVX512_INLINE __m512i Join(__m256i last, __m256i middle, __m256i first) {
    const __m512i high = _mm512_or_si512(_mm512_slli_epi16(_mm512_cvtepu8_epi16(middle), 6),
                                         _mm512_slli_epi16(_mm512_cvtepu8_epi16(first), 12));
    return _mm512_or_si512(_mm512_cvtepu8_epi16(last), high);
}

// What a block of bytes consists of; bytes behind the end of the text are zero.
struct Block {
    std::uint64_t cont;
    std::uint64_t lead;  // of two, three or four bytes
    std::uint64_t lead3;
    std::uint64_t length;  // bytes of the leading whole, well-formed characters of up to three bytes
    bool fault;            // something else stands behind them
};

KW_AVX512_INLINE Block Classify(__m512i bytes, std::uint64_t high) {
    Block block;
    block.cont = _mm512_cmplt_epi8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xC0)));
    block.lead = high & ~block.cont;
    block.lead3 = _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0)));
    // Leads that begin nothing, or a surrogate pair.
    std::uint64_t strange = _mm512_mask_cmplt_epu8_mask(block.lead, bytes, _mm512_set1_epi8(static_cast<char>(0xC2)));
    std::uint64_t wrong = ((block.lead << 1) | (block.lead3 << 2)) ^ block.cont;
    if (block.lead3 != 0) {
        strange |= _mm512_cmpge_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xF0)));
        // Overlong forms and surrogates show in the second byte.
        const std::uint64_t e0 = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xE0)));
        const std::uint64_t ed = _mm512_cmpeq_epi8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xED)));
        const std::uint64_t low = _mm512_cmplt_epu8_mask(bytes, _mm512_set1_epi8(static_cast<char>(0xA0)));
        wrong |= ((e0 << 1) & low) | ((ed << 1) & ~low);
    }
    wrong |= strange << 1;
    // A character that goes on behind the block is cut off.
    block.length = _tzcnt_u64((block.lead & (std::uint64_t{1} << 63)) | (block.lead3 & (std::uint64_t{1} << 62)));
    const std::uint64_t place = _tzcnt_u64(wrong);
    block.fault = wrong != 0 && place <= block.length;
    if (block.fault) {
        const std::uint64_t starts = ~block.cont & Ones(place);  // the last of them is cut off too
        block.length = starts == 0 ? 0 : static_cast<std::uint64_t>(std::bit_width(starts) - 1);
    }
    return block;
}

KW_AVX512 KwUtf::Result To16(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    alignas(64) static constexpr auto kBack1 = [] {
        struct {
            unsigned char at[64];
        } table{};
        for (int i = 0; i < 64; ++i) table.at[i] = static_cast<unsigned char>((i - 1) & 63);
        return table;
    }();
    const __m512i back1 = _mm512_load_si512(kBack1.at);
    const __m512i back2 = _mm512_permutexvar_epi8(back1, back1);
    KwUtf::Result result;
    while (result.read < length) {
        std::uint64_t count = length - result.read;
        if (count > 64) count = 64;
        const __m512i bytes = _mm512_maskz_loadu_epi8(Ones(count), src + result.read);
        const std::uint64_t high = _mm512_movepi8_mask(bytes);
        unsigned char* const out = dst + 2 * result.written;
        if (high == 0) {
            if (room - result.written < count) break;
            Widen(out, bytes, count);
            result.read += count;
            result.written += count;
            if (count == 64) KwUtfKernel::SkipAscii(KwUtfKernel::kPortable.to16, result, dst, 2, room, src, 1, length);
            continue;
        }
        const Block block = Classify(bytes, high);
        const std::uint64_t taken = block.length < count ? block.length : count;
        if (taken == 0) break;
        const std::uint64_t within = Ones(taken);
        const std::uint64_t ends = (~(block.cont >> 1) | std::uint64_t{1} << (taken - 1)) & within;
        const std::uint64_t units = static_cast<std::uint64_t>(_mm_popcnt_u64(ends));
        if (room - result.written < units) break;

        const __m512i stripped = _mm512_mask_blend_epi8(block.lead, _mm512_set1_epi8(0x3F), _mm512_set1_epi8(0x1F));
        const __m512i payload = _mm512_mask_blend_epi8(high, bytes, _mm512_and_si512(bytes, stripped));
        const __m512i last = _mm512_maskz_compress_epi8(ends, payload);
        const __m512i middle =
            _mm512_maskz_compress_epi8(ends, _mm512_maskz_permutexvar_epi8(block.cont, back1, payload));
        const __m512i first =
            _mm512_maskz_compress_epi8(ends, _mm512_maskz_permutexvar_epi8(block.lead3 << 2, back2, payload));
        Store16(out, Join(_mm512_castsi512_si256(last), _mm512_castsi512_si256(middle), _mm512_castsi512_si256(first)),
                units);
        if (units > 32) {
            Store16(out + 64,
                    Join(_mm512_extracti64x4_epi64(last, 1), _mm512_extracti64x4_epi64(middle, 1),
                         _mm512_extracti64x4_epi64(first, 1)),
                    units - 32);
        }
        result.read += taken;
        result.written += units;
        if (block.fault) break;
    }
    return result;
}

// Up to 16 units, none of them a surrogate, as bytes; `two` and `three` mark those of at least so many. The result is
// the count of bytes.
KW_AVX512_INLINE std::uint64_t Expand(unsigned char* dst, __m256i units, std::uint32_t within, std::uint32_t two,
                                      std::uint32_t three) {
    const __m512i codes = _mm512_cvtepu16_epi32(units);
    // Bits 12, 6 and 0 upwards of each code into its first, second and third byte.
    const __m512i places = _mm512_set1_epi64(0x0020262C'0000060C);
    const __m512i spread = _mm512_multishift_epi64_epi8(places, codes);
    const __m512i long3 =
        _mm512_or_si512(_mm512_and_si512(spread, _mm512_set1_epi32(0x003F3F0F)), _mm512_set1_epi32(0x008080E0));
    const __m512i long2 = _mm512_or_si512(_mm512_srli_epi32(long3, 8), _mm512_set1_epi32(0x40));
    __m512i bytes = _mm512_mask_blend_epi32(static_cast<__mmask16>(two), codes, long2);
    bytes = _mm512_mask_blend_epi32(static_cast<__mmask16>(three), bytes, long3);
    const std::uint64_t keep = _pdep_u64(within, 0x1111111111111111) | _pdep_u64(two, 0x2222222222222222) |
                               _pdep_u64(three, 0x4444444444444444);
    const std::uint64_t count = static_cast<std::uint64_t>(_mm_popcnt_u64(keep));
    _mm512_mask_storeu_epi8(dst, Ones(count), _mm512_maskz_compress_epi8(keep, bytes));
    return count;
}

// The masks of units are 32 bits wide all the way: GCC 12 can widen a spilled one with the garbage beside it.
KW_AVX512 KwUtf::Result To8(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    KwUtf::Result result;
    while (result.read < length) {
        const std::size_t left = length - result.read;
        std::uint32_t count = left > 32 ? 32 : static_cast<std::uint32_t>(left);
        std::uint32_t within = static_cast<std::uint32_t>(Ones(count));
        const __m512i units = _mm512_maskz_loadu_epi16(within, src + 2 * result.read);
        std::uint32_t two = _mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(0x80));
        if (two == 0) {
            if (room - result.written < count) break;
            _mm256_mask_storeu_epi8(dst + result.written, within, _mm512_cvtepi16_epi8(units));
            result.read += count;
            result.written += count;
            if (count == 32) KwUtfKernel::SkipAscii(KwUtfKernel::kPortable.to8, result, dst, 1, room, src, 2, length);
            continue;
        }
        const std::uint32_t surrogates =
            _mm512_cmpeq_epi16_mask(_mm512_and_si512(units, _mm512_set1_epi16(static_cast<short>(0xF800))),
                                    _mm512_set1_epi16(static_cast<short>(0xD800)));
        if (surrogates != 0) {
            count = _tzcnt_u32(surrogates);
            if (count == 0) break;
            within = static_cast<std::uint32_t>(Ones(count));
        }
        two &= within;
        const std::uint32_t three = _mm512_cmpge_epu16_mask(units, _mm512_set1_epi16(0x800)) & within;
        const std::size_t bytes =
            count + static_cast<std::size_t>(_mm_popcnt_u32(two)) + static_cast<std::size_t>(_mm_popcnt_u32(three));
        if (room - result.written < bytes) break;
        unsigned char* out = dst + result.written;
        out += Expand(out, _mm512_castsi512_si256(units), within & 0xFFFF, two & 0xFFFF, three & 0xFFFF);
        if (count > 16) Expand(out, _mm512_extracti64x4_epi64(units, 1), within >> 16, two >> 16, three >> 16);
        result.read += count;
        result.written += bytes;
        if (surrogates != 0) break;
    }
    return result;
}

}  // namespace

const KwUtfKernels KwUtfKernel::kAvx512 = {To16, To8};

#endif
