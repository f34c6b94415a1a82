// KwUtfCode: single characters of UTF-8, UTF-16 and UTF-32. Internal to the library.
#pragma once

#include <cstddef>
#include <cstring>

#include "Kw/KwDefine.h"

namespace KwUtfCode {

constexpr char32_t kReplacement = 0xFFFD;

inline bool IsHigh(char32_t unit) {
    return (unit & 0xFFFFFC00) == 0xD800;
}
inline bool IsLow(char32_t unit) {
    return (unit & 0xFFFFFC00) == 0xDC00;
}
inline bool IsSurrogate(char32_t unit) {
    return (unit & 0xFFFFF800) == 0xD800;
}

inline char16_t Load16(const unsigned char* at) {
    char16_t unit;
    std::memcpy(&unit, at, sizeof(unit));
    return unit;
}

inline void Store16(unsigned char* at, char32_t unit) {
    const char16_t value = static_cast<char16_t>(unit);
    std::memcpy(at, &value, sizeof(value));
}

// The character at `at`, of which `avail` (at least 1) bytes may be read; its bytes into `length`. A byte is
// read only when all before it belong to the same character, so terminated text needs no true `avail`.
inline char32_t DecodeUtf8(const unsigned char* at, std::size_t avail, unsigned int& length) {
    const unsigned char lead = at[0];
    length = 1;
    if (lead < 0x80) return lead;
    // The well-formed sequences of two and three bytes, which are nearly all: the top bits of what continues them are
    // taken off by the same operation that tests them.
    if (lead >= 0xE0 && avail >= 3) {
        const unsigned int second = at[1] ^ 0x80u;
        const unsigned int third = second < 0x40 ? at[2] ^ 0x80u : 0x40;
        const char32_t common = (lead & 0x0Fu) << 12 | second << 6 | third;
        if (third < 0x40 && lead < 0xF0 && common >= 0x800 && !IsSurrogate(common)) {
            length = 3;
            return common;
        }
    } else if (lead >= 0xC2 && avail >= 2) {
        const unsigned int second = at[1] ^ 0x80u;
        if (second < 0x40 && lead < 0xE0) {
            length = 2;
            return (lead & 0x1Fu) << 6 | second;
        }
    }
    if (lead < 0xC2 || lead > 0xF4) return kReplacement;
    unsigned int more = 1;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
    char32_t code = lead & 0x1F;
    if (lead >= 0xF0) {
        more = 3;
        code = lead & 0x07;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else if (lead >= 0xE0) {
        more = 2;
        code = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    }
    for (; more != 0; --more, ++length) {
        if (length >= avail || at[length] < low || at[length] > high) return kReplacement;
        code = code << 6 | (at[length] & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return code;
}

// The character at the unit `at`, of which `avail` (at least 1) units may be read; its units into `length`.
inline char32_t DecodeUtf16(const unsigned char* at, std::size_t avail, unsigned int& length) {
    const char32_t unit = Load16(at);
    length = 1;
    if (!IsSurrogate(unit)) return unit;
    if (IsLow(unit) || avail < 2) return kReplacement;
    const char32_t low = Load16(at + 2);
    if (!IsLow(low)) return kReplacement;
    length = 2;
    return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

// Bytes or units of a valid character.
inline unsigned int Utf8Size(char32_t code) {
    return code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
}
inline unsigned int Utf16Size(char32_t code) {
    return code < 0x10000 ? 1 : 2;
}

// Write a valid character; the result is its size.
inline unsigned int EncodeUtf8(unsigned char* out, char32_t code) {
    const auto continuation = [code](int shift) { return static_cast<unsigned char>(0x80 | (code >> shift & 0x3F)); };
    if (code < 0x80) {
        out[0] = static_cast<unsigned char>(code);
        return 1;
    }
    if (code < 0x800) {
        out[0] = static_cast<unsigned char>(0xC0 | code >> 6);
        out[1] = continuation(0);
        return 2;
    }
    if (code < 0x10000) {
        out[0] = static_cast<unsigned char>(0xE0 | code >> 12);
        out[1] = continuation(6);
        out[2] = continuation(0);
        return 3;
    }
    out[0] = static_cast<unsigned char>(0xF0 | code >> 18);
    out[1] = continuation(12);
    out[2] = continuation(6);
    out[3] = continuation(0);
    return 4;
}

inline unsigned int EncodeUtf16(unsigned char* out, char32_t code) {
    if (code < 0x10000) {
        Store16(out, code);
        return 1;
    }
    Store16(out, 0xD800 + ((code - 0x10000) >> 10));
    Store16(out + 2, 0xDC00 + (code & 0x3FF));
    return 2;
}

}  // namespace KwUtfCode
