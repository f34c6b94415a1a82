// KwFormatNumber: numbers as the pieces of printf text, independent of the character width. Internal to the
// library.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

enum class KwFormatSize : unsigned char { None, Char, Short, Long, LongLong, Max, Size, Diff, LongDouble, Fix32, Wide };

struct KwFormatSpec {
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zero = false;
    KwFormatSize size = KwFormatSize::None;
    int width = 0;
    int precision = -1;  // below 0: not given
};

// prefix, leadZeros times '0', body, midZeros times '0', tail. Body and tail point into the maker's work space.
struct KwFormatPieces {
    char prefix[4];
    unsigned int prefixLength = 0;
    bool zeroPad = false;  // the width is filled with zeros before the body instead of blanks before the prefix
    std::uint64_t leadZeros = 0;
    const char* body = nullptr;
    std::size_t bodyLength = 0;
    std::uint64_t midZeros = 0;
    char tail[8];
    unsigned int tailLength = 0;

    void AddPrefix(char ch) { prefix[prefixLength++] = ch; }
    void SetTail(const char* text, std::size_t length) {
        std::memcpy(tail, text, length);
        tailLength = static_cast<unsigned int>(length);
    }
};

namespace KwFormatNumber {

// Eight digits of `value`, below 10^8, as bytes 0 to 9 in memory order: pairs of four, two and one digit are divided
// side by side in one register.
inline std::uint64_t EightDigits(std::uint32_t value) {
    const std::uint64_t fours = value / 10000 | std::uint64_t{value % 10000} << 32;
    const std::uint64_t hundreds = (fours * 5243 >> 19) & 0x0000007F0000007F;
    const std::uint64_t twos = hundreds + ((fours - hundreds * 100) << 16);
    const std::uint64_t tens = (twos * 103 >> 10) & 0x000F000F000F000F;
    return tens + ((twos - tens * 10) << 8);
}

constexpr std::uint64_t kAsciiZeros = 0x3030303030303030;

inline void StoreDigits(char* out, std::uint64_t digits) {
    const std::uint64_t text = digits + kAsciiZeros;
    std::memcpy(out, &text, sizeof(text));
}

// Writes the decimal digits of `value`, at most 20, and returns their end. Up to 8 bytes behind the end, in
// all 24, are overwritten too.
inline char* PutDecimal(char* out, std::uint64_t value) {
    constexpr std::uint32_t kChunk = 100000000;
    std::uint32_t low[2];
    int chunks = 0;
    while (value >= kChunk) {
        low[chunks++] = static_cast<std::uint32_t>(value % kChunk);
        value /= kChunk;
    }
    const std::uint64_t digits = EightDigits(static_cast<std::uint32_t>(value));
    const int zeros = std::countr_zero(digits | std::uint64_t{1} << 56) & ~7;  // leading ones, in bits
    const std::uint64_t text = (digits + kAsciiZeros) >> zeros;
    std::memcpy(out, &text, sizeof(text));
    out += 8 - zeros / 8;
    while (chunks != 0) {
        StoreDigits(out, EightDigits(low[--chunks]));
        out += 8;
    }
    return out;
}

// Room for an integer in any base, and for the digits of any double and of any long double.
constexpr std::size_t kIntegerRoom = 24;
constexpr std::size_t kDoubleRoom = 1600;
constexpr std::size_t kLongDoubleRoom = 24000;

// The longest text of PutFixed.
constexpr std::size_t kFixedRoom = 48;

// "123.457" for |value| below 2^63 and up to 8 decimals, rounded to nearest-even; the sign is left out. The
// result is the end of the text, or null for what it does not handle.
char* PutFixed(char* out, double value, int decimals);

// `conversion` is one of d u o x X. `room` has kIntegerRoom bytes.
void MakeInteger(KwFormatPieces& pieces, const KwFormatSpec& parsed, char conversion, std::uint64_t magnitude,
                 bool negative, char* room);

// `conversion` is one of f F e E g G a A. `room` has kDoubleRoom or kLongDoubleRoom bytes.
void MakeFloat(KwFormatPieces& pieces, const KwFormatSpec& parsed, char conversion, double value, char* room);
void MakeFloat(KwFormatPieces& pieces, const KwFormatSpec& parsed, char conversion, long double value, char* room);

}  // namespace KwFormatNumber
