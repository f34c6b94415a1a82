// KwFormatNumber: numbers as the pieces of printf text, independent of the character width. Internal to the
// library.
#pragma once

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

// "00" to "99", two characters each.
extern const char kPairs[201];

// Writes the decimal digits of `value` so that they end before `end`; the result is their start. At most 20.
inline char* PutDecimal(char* end, std::uint64_t value) {
    while (value >= 100) {
        end -= 2;
        std::memcpy(end, kPairs + 2 * (value % 100), 2);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        std::memcpy(end, kPairs + 2 * value, 2);
    } else {
        *--end = static_cast<char>('0' + value);
    }
    return end;
}

// Room for an integer in any base, and for the digits of any double and of any long double.
constexpr std::size_t kIntegerRoom = 24;
constexpr std::size_t kDoubleRoom = 1600;
constexpr std::size_t kLongDoubleRoom = 24000;

// The longest text of PutFixed.
constexpr std::size_t kFixedRoom = 40;

// "123.457" for |value| below 2^63 and up to 9 decimals, rounded to nearest-even; the sign is left out. The
// result is the end of the text, or null for what it does not handle.
char* PutFixed(char* out, double value, int decimals);

// `conversion` is one of d u o x X. `room` has kIntegerRoom bytes.
void MakeInteger(KwFormatPieces& pieces, const KwFormatSpec& spec, char conversion, std::uint64_t magnitude,
                 bool negative, char* room);

// `conversion` is one of f F e E g G a A. `room` has kDoubleRoom or kLongDoubleRoom bytes.
void MakeFloat(KwFormatPieces& pieces, const KwFormatSpec& spec, char conversion, double value, char* room);
void MakeFloat(KwFormatPieces& pieces, const KwFormatSpec& spec, char conversion, long double value, char* room);

}  // namespace KwFormatNumber
