// The conversions with AVX2: classes of bytes as 32-bit masks, characters gathered by shuffles out of tables.
#include "Kw/KwUtfKernel.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <bit>
#include <cstdint>
#include <cstring>

#define KW_AVX2 __attribute__((target("avx2,bmi,popcnt")))
#define KW_AVX2_INLINE KW_AVX2 __attribute__((always_inline)) inline

namespace {

struct Table {
    alignas(16) unsigned char shuffle[256][16];
};

// Moves the 16-bit units whose bits are set to the front.
constexpr Table MakeCompress() {
    Table table{};
    for (unsigned int mask = 0; mask < 256; ++mask) {
        unsigned int at = 0;
        for (unsigned int unit = 0; unit < 8; ++unit) {
            if ((mask >> unit & 1) == 0) continue;
            table.shuffle[mask][at++] = static_cast<unsigned char>(2 * unit);
            table.shuffle[mask][at++] = static_cast<unsigned char>(2 * unit + 1);
        }
        while (at < 16) table.shuffle[mask][at++] = 0x80;
    }
    return table;
}

// Joins the leading bytes of four 32-bit lanes: bit i of the index asks for a second byte of lane i, bit 4 + i for a
// third.
constexpr Table MakeJoin() {
    Table table{};
    for (unsigned int index = 0; index < 256; ++index) {
        unsigned int at = 0;
        for (unsigned int lane = 0; lane < 4; ++lane) {
            const unsigned int bytes = 1 + (index >> lane & 1) + (index >> (4 + lane) & 1);
            for (unsigned int i = 0; i < bytes; ++i) {
                table.shuffle[index][at++] = static_cast<unsigned char>(4 * lane + i);
            }
        }
        while (at < 16) table.shuffle[index][at++] = 0x80;
    }
    return table;
}

constexpr Table kCompress = MakeCompress();
constexpr Table kJoin = MakeJoin();

KW_AVX2_INLINE __m256i Load(const unsigned char* at) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(static_cast<const void*>(at)));
}
KW_AVX2_INLINE void Store(unsigned char* at, __m256i value) {
    _mm256_storeu_si256(static_cast<__m256i*>(static_cast<void*>(at)), value);
}
KW_AVX2_INLINE void Store(unsigned char* at, __m128i value) {
    _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(at)), value);
}
KW_AVX2_INLINE __m128i Shuffle(const Table& table, __m128i value, unsigned int index) {
    return _mm_shuffle_epi8(
        value, _mm_load_si128(static_cast<const __m128i*>(static_cast<const void*>(table.shuffle[index]))));
}
KW_AVX2_INLINE __m256i Set8(int value) {
    return _mm256_set1_epi8(static_cast<char>(value));
}
KW_AVX2_INLINE std::uint32_t Mask(__m256i value) {
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(value));
}
KW_AVX2_INLINE unsigned int Count(std::uint32_t mask) {
    return static_cast<unsigned int>(_mm_popcnt_u32(mask));
}
// Unsigned value >= limit.
KW_AVX2_INLINE __m256i AtLeast(__m256i value, int limit) {
    return _mm256_cmpeq_epi8(_mm256_max_epu8(value, Set8(limit)), value);
}
// The bytes one and two places further on, zeros in front.
KW_AVX2_INLINE __m256i Back1(__m256i value) {
    return _mm256_alignr_epi8(value, _mm256_permute2x128_si256(value, value, 0x08), 15);
}
KW_AVX2_INLINE __m256i Back2(__m256i value) {
    return _mm256_alignr_epi8(value, _mm256_permute2x128_si256(value, value, 0x08), 14);
}

// The units that 16 bytes end, each at the place of its last byte.
KW_AVX2_INLINE __m256i Join(__m128i last, __m128i middle, __m128i first) {
    const __m256i high = _mm256_or_si256(_mm256_slli_epi16(_mm256_cvtepu8_epi16(middle), 6),
                                         _mm256_slli_epi16(_mm256_cvtepu8_epi16(first), 12));
    return _mm256_or_si256(_mm256_cvtepu8_epi16(last), high);
}

// Writes the units at the places of `ends`, 16 bits of them; the result is the end of the text.
KW_AVX2_INLINE unsigned char* Gather(unsigned char* dst, __m256i units, std::uint32_t ends) {
    Store(dst, Shuffle(kCompress, _mm256_castsi256_si128(units), ends & 0xFF));
    dst += 2 * Count(ends & 0xFF);
    Store(dst, Shuffle(kCompress, _mm256_extracti128_si256(units, 1), ends >> 8 & 0xFF));
    return dst + 2 * Count(ends >> 8 & 0xFF);
}

struct Block {
    std::uint32_t read = 0;     // bytes
    std::uint32_t written = 0;  // units
    bool fault = false;         // what stands behind is no well-formed character of up to three bytes
};

// Converts the whole characters at the front of 32 bytes; `out` has room for 32 units.
KW_AVX2_INLINE Block Convert(unsigned char* out, __m256i bytes) {
    const std::uint32_t high = Mask(bytes);
    if (high == 0) {
        Store(out, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(bytes)));
        Store(out + 32, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(bytes, 1)));
        return {32, 32, false};
    }
    const __m256i contBytes = _mm256_cmpgt_epi8(Set8(0xC0), bytes);
    const __m256i lead3Bytes = AtLeast(bytes, 0xE0);
    const std::uint32_t cont = Mask(contBytes);
    const std::uint32_t lead = high & ~cont;
    const std::uint32_t lead3 = Mask(lead3Bytes);
    // Leads that begin nothing or a surrogate pair, then overlong forms and surrogates by their second byte.
    std::uint32_t strange = Mask(_mm256_cmpeq_epi8(_mm256_and_si256(bytes, Set8(0xFE)), Set8(0xC0)));
    std::uint32_t wrong = ((lead << 1) | (lead3 << 2)) ^ cont;
    if (lead3 != 0) {
        strange |= Mask(AtLeast(bytes, 0xF0));
        const std::uint32_t e0 = Mask(_mm256_cmpeq_epi8(bytes, Set8(0xE0)));
        const std::uint32_t ed = Mask(_mm256_cmpeq_epi8(bytes, Set8(0xED)));
        const std::uint32_t low = Mask(_mm256_cmpgt_epi8(Set8(0xA0), bytes));
        wrong |= ((e0 << 1) & low) | ((ed << 1) & cont & ~low);
    }
    wrong |= strange << 1;
    // A character that goes on behind the block is cut off, and so is the last one in front of a fault.
    std::uint32_t taken = _tzcnt_u32((lead & 0x80000000) | (lead3 & 0x40000000));
    const std::uint32_t place = _tzcnt_u32(wrong);
    const bool fault = wrong != 0 && place <= taken;
    if (fault) {
        const std::uint32_t starts = ~cont & ((std::uint32_t{1} << place) - 1);
        taken = starts == 0 ? 0 : static_cast<std::uint32_t>(std::bit_width(starts) - 1);
    }
    if (taken == 0) return {0, 0, true};
    const std::uint32_t within = ~std::uint32_t{0} >> (32 - taken);
    const std::uint32_t ends = (~(cont >> 1) | std::uint32_t{1} << (taken - 1)) & within;

    // The sign bit is ASCII's own zero; the strip keeps 5 bits of a lead and 6 of what continues it.
    const __m256i strip = _mm256_blendv_epi8(Set8(0x1F), Set8(0x3F), contBytes);
    const __m256i last = _mm256_blendv_epi8(bytes, _mm256_and_si256(bytes, strip), bytes);
    const __m256i middle = _mm256_and_si256(Back1(last), contBytes);
    const __m256i first = _mm256_and_si256(Back2(last), Back2(lead3Bytes));
    out = Gather(out, Join(_mm256_castsi256_si128(last), _mm256_castsi256_si128(middle), _mm256_castsi256_si128(first)),
                 ends & 0xFFFF);
    Gather(out,
           Join(_mm256_extracti128_si256(last, 1), _mm256_extracti128_si256(middle, 1),
                _mm256_extracti128_si256(first, 1)),
           ends >> 16);
    return {taken, Count(ends), fault};
}

KW_AVX2 KwUtf::Result To16(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    KwUtf::Result result;
    Block block;
    while (length - result.read >= 32 && room - result.written >= 32) {
        block = Convert(dst + 2 * result.written, Load(src + result.read));
        result.read += block.read;
        result.written += block.written;
        if (block.fault) return result;
        if (block.written == 32)
            KwUtfKernel::SkipAscii(KwUtfKernel::kPortable.to16, result, dst, 2, room, src, 1, length);
    }
    // The rest, as one block with zeros behind it.
    const std::size_t rest = length - result.read;
    if (rest == 0 || rest >= 32) return result;
    unsigned char from[32] = {};
    unsigned char to[64];
    std::memcpy(from, src + result.read, rest);
    block = Convert(to, Load(from));
    if (block.read == 0) return result;
    const std::size_t zeros = block.read > rest ? block.read - rest : 0;
    const std::size_t units = block.written - zeros;
    if (room - result.written < units) return result;
    std::memcpy(dst + 2 * result.written, to, 2 * units);
    return {result.read + block.read - zeros, result.written + units};
}

// Eight units, none of them a surrogate, as bytes; the result is the end of the text.
KW_AVX2_INLINE unsigned char* Expand(unsigned char* dst, __m128i units) {
    const __m256i codes = _mm256_cvtepu16_epi32(units);
    const __m256i two = _mm256_cmpgt_epi32(codes, _mm256_set1_epi32(0x7F));
    const __m256i three = _mm256_cmpgt_epi32(codes, _mm256_set1_epi32(0x7FF));
    const __m256i third = _mm256_slli_epi32(_mm256_and_si256(codes, _mm256_set1_epi32(0x3F)), 16);
    const __m256i second = _mm256_slli_epi32(_mm256_and_si256(codes, _mm256_set1_epi32(0xFC0)), 2);
    const __m256i long3 = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(codes, 12), _mm256_set1_epi32(0x008080E0)),
                                          _mm256_or_si256(second, third));
    const __m256i long2 = _mm256_or_si256(_mm256_srli_epi32(long3, 8), _mm256_set1_epi32(0x40));
    const __m256i bytes = _mm256_blendv_epi8(_mm256_blendv_epi8(codes, long2, two), long3, three);
    const unsigned int twos = static_cast<unsigned int>(_mm256_movemask_ps(_mm256_castsi256_ps(two)));
    const unsigned int threes = static_cast<unsigned int>(_mm256_movemask_ps(_mm256_castsi256_ps(three)));
    const unsigned int low = (twos & 15) | (threes & 15) << 4;
    const unsigned int high = twos >> 4 | (threes & 0xF0);
    Store(dst, Shuffle(kJoin, _mm256_castsi256_si128(bytes), low));
    dst += 4 + Count(low);
    Store(dst, Shuffle(kJoin, _mm256_extracti128_si256(bytes, 1), high));
    return dst + 4 + Count(high);
}

constexpr std::size_t kBlock8 = 52;  // 16 units are at most 48 bytes, the last store has 4 more

// Converts 16 units into `out` with kBlock8 bytes of room; null when there is a surrogate among them.
KW_AVX2_INLINE unsigned char* Convert8(unsigned char* out, __m256i units) {
    if (_mm256_testz_si256(units, _mm256_set1_epi16(static_cast<short>(0xFF80))) != 0) {
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(units, units), 0xD8);
        Store(out, _mm256_castsi256_si128(packed));
        return out + 16;
    }
    const __m256i top = _mm256_and_si256(units, _mm256_set1_epi16(static_cast<short>(0xF800)));
    if (Mask(_mm256_cmpeq_epi16(top, _mm256_set1_epi16(static_cast<short>(0xD800)))) != 0) return nullptr;
    return Expand(Expand(out, _mm256_castsi256_si128(units)), _mm256_extracti128_si256(units, 1));
}

KW_AVX2 KwUtf::Result To8(unsigned char* dst, std::size_t room, const unsigned char* src, std::size_t length) {
    KwUtf::Result result;
    while (length - result.read >= 16 && room - result.written >= kBlock8) {
        unsigned char* const out = dst + result.written;
        const unsigned char* const end = Convert8(out, Load(src + 2 * result.read));
        if (end == nullptr) return result;
        result.read += 16;
        result.written += static_cast<std::size_t>(end - out);
        if (end - out == 16) KwUtfKernel::SkipAscii(KwUtfKernel::kPortable.to8, result, dst, 1, room, src, 2, length);
    }
    // The rest, with zeros behind it; they are the last bytes of the output.
    const std::size_t rest = length - result.read;
    if (rest == 0 || rest > 16) return result;
    unsigned char from[32] = {};
    unsigned char to[kBlock8];
    std::memcpy(from, src + 2 * result.read, 2 * rest);
    const unsigned char* const end = Convert8(to, Load(from));
    if (end == nullptr) return result;
    const std::size_t bytes = static_cast<std::size_t>(end - to) - (16 - rest);
    if (room - result.written < bytes) return result;
    std::memcpy(dst + result.written, to, bytes);
    return {length, result.written + bytes};
}

}  // namespace

const KwUtfKernels KwUtfKernel::kAvx2 = {To16, To8};

#endif
