#include "Kw/Helper/KwMath.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// A text of known or unknown length, read from the front. Peek gives 0 at the end, and since no number
// holds a zero byte, a text without a length never has to be measured.
class Reader {
public:
    Reader(const char* text, int length)
        : text_(text),
          left_(text == nullptr ? 0
                : length < 0    ? SIZE_MAX
                                : static_cast<std::size_t>(length)) {}

    char Peek(std::size_t ahead = 0) const { return ahead < left_ ? text_[ahead] : '\0'; }
    const char* At() const { return text_; }
    void Step(std::size_t count = 1) {
        text_ += count;
        left_ -= count;
    }
    void SkipBlanks() {
        while (IsBlank(Peek())) Step();
    }
    // Steps over a sign; true for a minus.
    bool TakeSign() {
        const char sign = Peek();
        if (sign == '-' || sign == '+') Step();
        return sign == '-';
    }
    // Steps over digits; their count.
    std::size_t TakeDigits() {
        const char* start = text_;
        while (IsDigit(Peek())) Step();
        return static_cast<std::size_t>(text_ - start);
    }

private:
    const char* text_;
    std::size_t left_;
};

void Report(const char** end, const char* position) {
    if (end != nullptr) *end = position;
}

template <typename Int>
Int ReadInteger(const char* text, int length, const char** end) {
    using Unsigned = std::make_unsigned_t<Int>;
    Reader reader(text, length);
    reader.SkipBlanks();
    const bool negative = reader.TakeSign();
    // The magnitude of the smallest value is one more than that of the largest.
    const Unsigned limit = static_cast<Unsigned>(std::numeric_limits<Int>::max()) + (negative ? 1U : 0U);
    Unsigned value = 0;
    if (!IsDigit(reader.Peek())) {
        Report(end, text);
        return 0;
    }
    for (; IsDigit(reader.Peek()); reader.Step()) {
        const auto digit = static_cast<Unsigned>(reader.Peek() - '0');
        value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
    }
    Report(end, reader.At());
    return static_cast<Int>(negative ? Unsigned{0} - value : value);
}

// Whether a decimal number that no double holds is too large rather than too small: the power of ten of
// its first digit that is not zero decides. `first` has no sign.
bool IsTooLarge(const char* first, const char* last) {
    std::int64_t power = 0;  // of the digit before the point, counted from the first one that is not zero
    bool started = false;
    bool behindPoint = false;
    const char* p = first;
    for (; p != last && *p != 'e' && *p != 'E'; ++p) {
        if (*p == '.') {
            behindPoint = true;
            continue;
        }
        started = started || *p != '0';
        if (started && !behindPoint) ++power;
        if (!started && behindPoint) --power;
    }
    if (p == last) return power > 0;
    return power + static_cast<std::int64_t>(KwMath::ToInt(p + 1, static_cast<int>(last - p - 1))) > 0;
}

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The value of each Base64 character, -1 for every other byte.
constexpr std::array<signed char, 256> kBase64Value = [] {
    std::array<signed char, 256> table{};
    table.fill(-1);
    for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kBase64[i])] = static_cast<signed char>(i);
    return table;
}();

int Value64(char c) {
    return kBase64Value[static_cast<unsigned char>(c)];
}

}  // namespace

int KwMath::ToInt(const char* text, int length, const char** end) {
    return ReadInteger<int>(text, length, end);
}

std::int64_t KwMath::ToInt64(const char* text, int length, const char** end) {
    return ReadInteger<std::int64_t>(text, length, end);
}

double KwMath::ToDouble(const char* text, int length, const char** end) {
    Reader reader(text, length);
    reader.SkipBlanks();
    const bool negative = reader.TakeSign();
    const char* first = reader.At();
    std::size_t digits = reader.TakeDigits();
    if (reader.Peek() == '.') {
        reader.Step();
        digits += reader.TakeDigits();
    }
    if (digits == 0) {
        Report(end, text);
        return 0;
    }
    if (reader.Peek() == 'e' || reader.Peek() == 'E') {
        const std::size_t sign = reader.Peek(1) == '-' || reader.Peek(1) == '+' ? 1 : 0;
        if (IsDigit(reader.Peek(1 + sign))) {
            reader.Step(1 + sign);
            reader.TakeDigits();
        }
    }
    const char* last = reader.At();
    Report(end, last);
    double value = 0;
    if (std::from_chars(first, last, value).ec == std::errc::result_out_of_range) {
        value = IsTooLarge(first, last) ? std::numeric_limits<double>::infinity() : 0.0;
    }
    return negative ? -value : value;
}

int KwMath::TruncateToInt(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 2147483647.0) return std::numeric_limits<int>::max();
    if (value <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

unsigned int KwMath::TruncateToUint(double value) {
    constexpr double kTwo63 = 9223372036854775808.0;
    if (value >= -kTwo63 && value < kTwo63) return static_cast<unsigned int>(static_cast<std::int64_t>(value));
    if (value >= kTwo63 && value < 2 * kTwo63) return static_cast<unsigned int>(static_cast<std::uint64_t>(value));
    return 0;
}

std::string KwMath::EncodeBase64(const void* data, unsigned int length) {
    std::string out;
    if (data == nullptr || length == 0) return out;
    const auto* bytes = static_cast<const unsigned char*>(data);
    out.reserve((static_cast<std::size_t>(length) + 2) / 3 * 4);
    unsigned int i = 0;
    for (; length - i >= 3; i += 3) {
        const unsigned int group = bytes[i] * 65536U + bytes[i + 1] * 256U + bytes[i + 2];
        const char four[] = {kBase64[group >> 18], kBase64[group >> 12 & 63], kBase64[group >> 6 & 63],
                             kBase64[group & 63]};
        out.append(four, 4);
    }
    if (length - i == 1) {
        out += {kBase64[bytes[i] >> 2], kBase64[bytes[i] << 4 & 63], '=', '='};
    } else if (length - i == 2) {
        const unsigned int group = bytes[i] * 256U + bytes[i + 1];
        out += {kBase64[group >> 10], kBase64[group >> 4 & 63], kBase64[group << 2 & 63], '='};
    }
    return out;
}

bool KwMath::DecodeBase64(const char* text, int length, std::string& out) {
    const std::size_t size = text == nullptr ? 0 : length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
    std::string bytes;  // apart from `out`, which may hold the text
    bytes.reserve(size / 4 * 3);
    bool valid = size % 4 == 0;
    for (std::size_t i = 0; valid && i < size; i += 4) {
        const bool last = i + 4 == size;
        const int padding = last && text[i + 3] == '=' ? (text[i + 2] == '=' ? 2 : 1) : 0;
        const int a = Value64(text[i]);
        const int b = Value64(text[i + 1]);
        const int c = padding == 2 ? 0 : Value64(text[i + 2]);
        const int d = padding >= 1 ? 0 : Value64(text[i + 3]);
        if ((a | b | c | d) < 0) {
            valid = false;
            break;
        }
        const int group = a << 18 | b << 12 | c << 6 | d;
        // The bits that the padded bytes would have had must be clear, so that each content has one text.
        valid = (group & (padding == 2 ? 0xFFFF : padding == 1 ? 0xFF : 0)) == 0;
        const char three[] = {static_cast<char>(group >> 16), static_cast<char>(group >> 8), static_cast<char>(group)};
        bytes.append(three, static_cast<std::size_t>(3 - padding));
    }
    if (!valid) bytes.clear();
    out = std::move(bytes);
    return valid;
}
