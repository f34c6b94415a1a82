// Floating-point numbers: a scaled-integer path for everyday %f, std::to_chars for all other doubles, the C library
// for the long doubles that are no doubles.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "Kw/KwFormatNumber.h"

namespace KwFormatNumber {

namespace {

constexpr int kMantissaBits = 52;
constexpr std::uint64_t kMantissaMask = (std::uint64_t{1} << kMantissaBits) - 1;

constexpr int kFixedDecimals = 8;  // most that PutFixed takes
constexpr std::uint32_t kPowersOfTen[kFixedDecimals + 1] = {1,      10,      100,      1000,     10000,
                                                            100000, 1000000, 10000000, 100000000};

// Digits behind these positions are zeros: the last one of the smallest number, and the longest run of significant
// ones. What a caller asks for beyond them is only counted.
template <class T>
struct Limits;
template <>
struct Limits<double> {
    static constexpr int kDecimals = 1074;
    static constexpr int kSignificant = 767;
};
template <>
struct Limits<long double> {
    static constexpr int kDecimals = 16494;
    static constexpr int kSignificant = 11563;
};

// The text of a finite, non-negative number with `precision` digits behind the point, fixed or scientific.
char* PutExact(char* room, double value, bool fixed, int precision) {
    return std::to_chars(room, room + kDoubleRoom, value,
                         fixed ? std::chars_format::fixed : std::chars_format::scientific, precision)
        .ptr;
}

char* PutExact(char* room, long double value, bool fixed, int precision) {
    const int length = std::snprintf(room, kLongDoubleRoom, fixed ? "%.*Lf" : "%.*Le", precision, value);
    char* const end = room + std::clamp(length, 0, static_cast<int>(kLongDoubleRoom) - 1);
    // The C library writes the locale's point, of one byte or more.
    char* point = std::find_if(room, end, [](char ch) { return ch < '0' || ch > '9'; });
    if (point == end || *point == 'e') return end;
    *point++ = '.';
    char* const rest = std::find_if(point, end, [](char ch) { return ch >= '0' && ch <= '9'; });
    std::memmove(point, rest, static_cast<std::size_t>(end - rest));
    return end - (rest - point);
}

void SetBody(KwFormatPieces& pieces, const char* start, const char* end) {
    pieces.body = start;
    pieces.bodyLength = static_cast<std::size_t>(end - start);
}

template <class T>
void MakeFixed(KwFormatPieces& pieces, const KwFormatSpec& parsed, int precision, T value, char* room) {
    const int exact = std::min(precision, Limits<T>::kDecimals);
    char* end = nullptr;
    if constexpr (sizeof(T) == sizeof(double)) end = PutFixed(room, value, exact);
    if (end == nullptr) end = PutExact(room, value, true, exact);
    if (precision == 0 && parsed.alternate) *end++ = '.';
    SetBody(pieces, room, end);
    pieces.midZeros = static_cast<std::uint64_t>(precision - exact);
}

template <class T>
void MakeScientific(KwFormatPieces& pieces, const KwFormatSpec& parsed, bool upper, int precision, T value,
                    char* room) {
    const int exact = std::min(precision, Limits<T>::kSignificant - 1);
    char* const end = PutExact(room, value, false, exact);
    char* mark = std::find(room, end, 'e');
    pieces.SetTail(mark, static_cast<std::size_t>(end - mark));
    if (upper) pieces.tail[0] = 'E';
    if (precision == 0 && parsed.alternate) *mark++ = '.';
    SetBody(pieces, room, mark);
    pieces.midZeros = static_cast<std::uint64_t>(precision - exact);
}

// %g: the scientific digits decide by their exponent which of the two layouts they get.
template <class T>
void MakeGeneral(KwFormatPieces& pieces, const KwFormatSpec& parsed, bool upper, int precision, T value, char* room) {
    const int significant = std::max(precision, 1);
    const int exact = std::min(significant, Limits<T>::kSignificant);
    char* const digits = room + 8;  // in front: room for "0.000"
    char* const end = PutExact(digits, value, false, exact - 1);
    char* const mark = std::find(digits, end, 'e');
    int exponent = 0;
    std::from_chars(mark + (mark[1] == '+' ? 2 : 1), end, exponent);

    char* start = digits;
    char* stop = mark;
    const bool scientific = exponent < -4 || exponent >= significant;
    if (scientific) {
        pieces.SetTail(mark, static_cast<std::size_t>(end - mark));
        if (upper) pieces.tail[0] = 'E';
    } else if (exponent < 0) {
        char* first = digits;
        if (exact > 1) *++first = digits[0];  // over the point
        start = first - (1 - exponent);
        std::fill(start, first, '0');
        start[1] = '.';
    } else if (exact > 1) {
        std::memmove(digits + 1, digits + 2, static_cast<std::size_t>(exponent));
        digits[exponent + 1] = '.';
    }
    const bool hasPoint = std::find(start, stop, '.') != stop;
    if (parsed.alternate) {
        if (!hasPoint) *stop++ = '.';
        pieces.midZeros = static_cast<std::uint64_t>(significant - exact);
    } else if (hasPoint) {
        while (stop[-1] == '0') --stop;
        if (stop[-1] == '.') --stop;
    }
    SetBody(pieces, start, stop);
}

// %a of a double: one digit before the point, 1 for normal numbers.
void MakeHex(KwFormatPieces& pieces, const KwFormatSpec& parsed, bool upper, double value, char* room) {
    constexpr int kDigits = kMantissaBits / 4;
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    std::uint64_t mantissa = bits & kMantissaMask;
    int exponent = static_cast<int>(bits >> kMantissaBits & 0x7FF);
    if (exponent != 0) mantissa |= std::uint64_t{1} << kMantissaBits;
    exponent = mantissa == 0 ? 0 : exponent == 0 ? -1022 : exponent - 1023;
    int digits = parsed.precision;
    if (digits < 0) {
        digits = mantissa == 0 ? 0 : std::max(0, kDigits - std::countr_zero(mantissa) / 4);
    } else if (digits < kDigits) {
        const int drop = 4 * (kDigits - digits);
        const std::uint64_t rest = mantissa & ((std::uint64_t{1} << drop) - 1);
        const std::uint64_t half = std::uint64_t{1} << (drop - 1);
        mantissa >>= drop;
        if (rest > half || (rest == half && (mantissa & 1) != 0)) ++mantissa;
        mantissa <<= drop;
    }
    const char* const alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    const int exact = std::min(digits, kDigits);
    char* out = room;
    *out++ = alphabet[mantissa >> kMantissaBits];
    if (digits > 0 || parsed.alternate) *out++ = '.';
    for (int i = 1; i <= exact; ++i) *out++ = alphabet[mantissa >> (kMantissaBits - 4 * i) & 15];
    SetBody(pieces, room, out);
    pieces.midZeros = static_cast<std::uint64_t>(digits - exact);
    pieces.AddPrefix('0');
    pieces.AddPrefix(upper ? 'X' : 'x');
    char tail[8] = {upper ? 'P' : 'p', exponent < 0 ? '-' : '+'};
    char* const end = std::to_chars(tail + 2, tail + sizeof(tail), std::abs(exponent)).ptr;
    pieces.SetTail(tail, static_cast<std::size_t>(end - tail));
}

// The C library's form: the digit before the point is its choice.
void MakeHex(KwFormatPieces& pieces, const KwFormatSpec& parsed, bool upper, long double value, char* room) {
    constexpr int kMost = 32;  // hexadecimal digits of the longest mantissa
    const int exact = std::min(parsed.precision, kMost);
    const int length = parsed.precision < 0
                           ? std::snprintf(room, kLongDoubleRoom, upper ? "%LA" : "%La", value)
                           : std::snprintf(room, kLongDoubleRoom, upper ? "%.*LA" : "%.*La", exact, value);
    char* const end = room + length;
    char* mark = std::find(room, end, upper ? 'P' : 'p');
    pieces.SetTail(mark, std::min<std::size_t>(static_cast<std::size_t>(end - mark), sizeof(pieces.tail)));
    pieces.AddPrefix(room[0]);
    pieces.AddPrefix(room[1]);
    if (mark - room > 3) {
        room[3] = '.';
    } else if (parsed.alternate) {
        *mark++ = '.';
    }
    SetBody(pieces, room + 2, mark);
    if (parsed.precision > exact) pieces.midZeros = static_cast<std::uint64_t>(parsed.precision - exact);
}

template <class T>
void Make(KwFormatPieces& pieces, const KwFormatSpec& parsed, char conversion, T value, char* room) {
    const char lower = static_cast<char>(conversion | 0x20);
    const bool upper = lower != conversion;
    if (std::signbit(value)) {
        pieces.AddPrefix('-');
        value = -value;
    } else if (parsed.plus) {
        pieces.AddPrefix('+');
    } else if (parsed.space) {
        pieces.AddPrefix(' ');
    }
    if (!std::isfinite(value)) {
        pieces.body = std::isnan(value) ? (upper ? "NAN" : "nan") : (upper ? "INF" : "inf");
        pieces.bodyLength = 3;
        return;
    }
    pieces.zeroPad = parsed.zero;
    const int precision = parsed.precision < 0 ? 6 : parsed.precision;
    switch (lower) {
        case 'f': MakeFixed(pieces, parsed, precision, value, room); break;
        case 'e': MakeScientific(pieces, parsed, upper, precision, value, room); break;
        case 'g': MakeGeneral(pieces, parsed, upper, precision, value, room); break;
        default: MakeHex(pieces, parsed, upper, value, room); break;
    }
}

}  // namespace

char* PutFixed(char* out, double value, int decimals) {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    const int biased = static_cast<int>(bits >> kMantissaBits & 0x7FF);
    if (decimals > kFixedDecimals || biased >= 1023 + 63) return nullptr;
    const std::uint64_t mantissa =
        (bits & kMantissaMask) | (biased != 0 ? std::uint64_t{1} << kMantissaBits : std::uint64_t{0});
    const int shift = 1023 + kMantissaBits - (biased != 0 ? biased : 1);  // value = mantissa / 2^shift

    std::uint64_t whole = 0;
    std::uint64_t part = 0;  // the decimals as an integer
    if (shift <= 0) {
        whole = mantissa << -shift;
    } else {
        std::uint64_t fraction = mantissa;
        if (shift <= kMantissaBits) {
            whole = mantissa >> shift;
            fraction = mantissa & ((std::uint64_t{1} << shift) - 1);
        }
        // fraction * 10^decimals = high * 2^32 + low, below 2^83; cut `shift` bits off and round on them.
        const std::uint64_t scale = kPowersOfTen[decimals];
        const std::uint64_t product = (fraction & 0xFFFFFFFF) * scale;
        const std::uint64_t high = (fraction >> 32) * scale + (product >> 32);
        const std::uint64_t low = product & 0xFFFFFFFF;
        std::uint64_t rest = 0;  // what was cut off, against half of its range; its lowest bits only as "not 0"
        std::uint64_t half = 1;
        if (shift <= 32) {
            part = high << (32 - shift) | low >> shift;
            rest = low & ((std::uint64_t{1} << shift) - 1);
            half = std::uint64_t{1} << (shift - 1);
        } else if (shift < 95) {
            part = high >> (shift - 32);
            rest = (high & ((std::uint64_t{1} << (shift - 32)) - 1)) << 1 | (low != 0 ? 1 : 0);
            half = std::uint64_t{1} << (shift - 32);
        }  // else the value is below half a unit of the last decimal
        // Without a branch, since it would be a coin toss.
        const std::uint64_t odd = (decimals == 0 ? whole : part) & 1;
        part += static_cast<std::uint64_t>(rest > half) | (static_cast<std::uint64_t>(rest == half) & odd);
        if (part == scale) {
            part = 0;
            ++whole;
        }
    }
    out = PutDecimal(out, whole);
    if (decimals == 0) return out;
    *out++ = '.';
    StoreDigits(out, EightDigits(static_cast<std::uint32_t>(part * kPowersOfTen[kFixedDecimals - decimals])));
    return out + decimals;
}

void MakeFloat(KwFormatPieces& pieces, const KwFormatSpec& parsed, char conversion, double value, char* room) {
    Make(pieces, parsed, conversion, value, room);
}

void MakeFloat(KwFormatPieces& pieces, const KwFormatSpec& parsed, char conversion, long double value, char* room) {
    const double narrow = static_cast<double>(value);
    if (!std::isfinite(value) || static_cast<long double>(narrow) == value) {
        Make(pieces, parsed, conversion, narrow, room);
    } else {
        Make(pieces, parsed, conversion, value, room);
    }
}

}  // namespace KwFormatNumber
