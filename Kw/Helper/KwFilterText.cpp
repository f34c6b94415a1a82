#include "Kw/Helper/KwFilterText.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Kw/Helper/KwMath.h"

namespace {

using Byte = unsigned char;

bool IsDigit(Byte c) {
    return c >= '0' && c <= '9';
}

// The value of a hexadecimal digit, 16 for any other byte.
unsigned int HexValue(Byte c) {
    if (IsDigit(c)) return c - '0';
    const auto lower = static_cast<Byte>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10U : 16U;
}

const Byte* FindByte(const Byte* from, const Byte* end, char byte) {
    return static_cast<const Byte*>(std::memchr(from, byte, static_cast<std::size_t>(end - from)));
}

const Byte* MakeHex(const Byte* cursor, const Byte* end, SFilterNumber& number) {
    const Byte* limit = end - cursor > 9 ? cursor + 9 : end;
    const Byte* p = cursor;
    unsigned int value = 0;
    for (; p != limit && HexValue(*p) < 16; ++p) value = value << 4 | HexValue(*p);
    if (p == cursor) return nullptr;
    number.kind = 1;
    number.uintValue = value;
    return p;
}

// The end of the comment that starts at `cursor`, `cursor` when none does, null when it does not end.
const Byte* SkipComment(const Byte* cursor, const Byte* end) {
    if (end - cursor < 2 || *cursor != '/') return cursor;
    if (cursor[1] == '/') {
        const Byte* p = cursor + 2;
        while (p != end && *p != '\n' && *p != '\r') ++p;
        return p;
    }
    if (cursor[1] != '*') return cursor;
    for (const Byte* star = cursor + 2; (star = FindByte(star, end, '*')) != nullptr; ++star) {
        if (end - star > 1 && star[1] == '/') return star + 2;
    }
    return nullptr;
}

}  // namespace

const Byte* KwFilterText::MakeNumber(const Byte* cursor, const Byte* end, SFilterNumber& number) {
    if (cursor == end) return nullptr;
    if (*cursor == '\'') {
        if (end - cursor < 3 || cursor[2] != '\'') return nullptr;
        number.kind = 0;
        number.intValue = cursor[1];
        return cursor + 3;
    }
    const Byte* p = cursor;
    const bool negative = *p == '-';
    if (negative || *p == '+') ++p;
    if (p == end || !IsDigit(*p)) return nullptr;
    if (*p == '0' && end - p > 1 && (p[1] | 0x20) == 'x') return MakeHex(p + 2, end, number);

    const Byte* first = p;
    std::uint64_t value = 0;
    for (; p != end && IsDigit(*p); ++p) {
        if (value <= UINT32_MAX) value = value * 10 + (*p - '0');  // beyond, only that it is too large matters
    }
    const bool point = p != end && *p == '.';
    if (point) {
        do ++p;
        while (p != end && IsDigit(*p));
        if (p != end && *p == '.') return nullptr;
    }
    if (!point && value <= INT32_MAX) {
        number.kind = 0;
        number.intValue = negative ? -static_cast<int>(value) : static_cast<int>(value);
    } else if (!point && !negative && value <= UINT32_MAX) {
        number.kind = 1;
        number.uintValue = static_cast<unsigned int>(value);
    } else {
        // The range ends before a letter that could be an exponent.
        const auto length = static_cast<int>(std::min<std::ptrdiff_t>(p - first, INT_MAX));
        const double magnitude = KwMath::ToDouble(reinterpret_cast<const char*>(first), length);
        number.kind = 2;
        number.doubleValue = negative ? -magnitude : magnitude;
    }
    return p;
}

const Byte* KwFilterText::FindBlockEnd(const Byte* cursor, const Byte* end) {
    if (cursor == end || *cursor != '{') return nullptr;
    unsigned int depth = 0;
    const Byte* p = cursor;
    while (p != end) {
        if (*p == '{') {
            ++depth;
        } else if (*p == '}') {
            if (--depth == 0) return p;
        } else if (*p == '/') {
            const Byte* behind = SkipComment(p, end);
            if (behind == nullptr) return nullptr;
            if (behind != p) {
                p = behind;
                continue;
            }
        }
        ++p;
    }
    return nullptr;
}

const Byte* KwFilterText::SkipBlank(const Byte* cursor, const Byte* end) {
    while (cursor != end) {
        if (*cursor == ' ' || *cursor == '\t' || *cursor == '\n' || *cursor == '\r') {
            ++cursor;
            continue;
        }
        const Byte* behind = SkipComment(cursor, end);
        if (behind == cursor || behind == nullptr) return behind;
        cursor = behind;
    }
    return cursor;
}
