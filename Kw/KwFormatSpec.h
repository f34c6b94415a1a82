// KwFormatSpec: reads a conversion's flags, width, precision and size, and its argument. Internal to the library.
#pragma once

#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "Kw/KwFormatNumber.h"

// A list that helpers can share: a va_list parameter is an array on some platforms and a copy on others.
struct KwFormatArguments {
    explicit KwFormatArguments(va_list args) { va_copy(list, args); }
    ~KwFormatArguments() { va_end(list); }
    KwFormatArguments(const KwFormatArguments&) = delete;
    KwFormatArguments& operator=(const KwFormatArguments&) = delete;
    va_list list;
};

namespace KwFormatSpecRead {

inline std::int64_t TakeSigned(KwFormatArguments& args, KwFormatSize size) {
    switch (size) {
        case KwFormatSize::Char: return static_cast<signed char>(va_arg(args.list, int));
        case KwFormatSize::Short: return static_cast<short>(va_arg(args.list, int));
        // The one place that knows the platform's long: callers pass one for %ld.
        case KwFormatSize::Long: return va_arg(args.list, long);
        case KwFormatSize::LongLong:
        case KwFormatSize::LongDouble: return va_arg(args.list, long long);
        case KwFormatSize::Max: return va_arg(args.list, std::intmax_t);
        case KwFormatSize::Size:
        case KwFormatSize::Diff: return va_arg(args.list, std::ptrdiff_t);
        default: return va_arg(args.list, int);
    }
}

inline std::uint64_t TakeUnsigned(KwFormatArguments& args, KwFormatSize size) {
    switch (size) {
        case KwFormatSize::Char: return static_cast<unsigned char>(va_arg(args.list, int));
        case KwFormatSize::Short: return static_cast<unsigned short>(va_arg(args.list, int));
        case KwFormatSize::Long: return va_arg(args.list, unsigned long);
        case KwFormatSize::LongLong:
        case KwFormatSize::LongDouble: return va_arg(args.list, unsigned long long);
        case KwFormatSize::Max: return va_arg(args.list, std::uintmax_t);
        case KwFormatSize::Size:
        case KwFormatSize::Diff: return va_arg(args.list, std::size_t);
        default: return va_arg(args.list, unsigned int);
    }
}

// Reads a number or '*'. False for one beyond int. `negative` tells of a negative '*'.
template <class C>
bool ReadCount(const C*& at, KwFormatArguments& args, int& count, bool& negative) {
    negative = false;
    if (*at == '*') {
        ++at;
        const int value = va_arg(args.list, int);
        if (value == INT_MIN) return false;
        negative = value < 0;
        count = negative ? -value : value;
        return true;
    }
    count = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        const int digit = static_cast<int>(*at - '0');
        if (count > (INT_MAX - digit) / 10) return false;
        count = count * 10 + digit;
    }
    return true;
}

template <class C>
KwFormatSize ReadSize(const C*& at) {
    switch (*at) {
        case 'h':
            if (at[1] != 'h') return ++at, KwFormatSize::Short;
            return at += 2, KwFormatSize::Char;
        case 'l':
            if (at[1] != 'l') return ++at, KwFormatSize::Long;
            return at += 2, KwFormatSize::LongLong;
        case 'I':
            if (at[1] == '6' && at[2] == '4') return at += 3, KwFormatSize::LongLong;
            if (at[1] == '3' && at[2] == '2') return at += 3, KwFormatSize::Fix32;
            return ++at, KwFormatSize::Size;
        case 'j': return ++at, KwFormatSize::Max;
        case 'z': return ++at, KwFormatSize::Size;
        case 't': return ++at, KwFormatSize::Diff;
        case 'L': return ++at, KwFormatSize::LongDouble;
        case 'w': return ++at, KwFormatSize::Wide;
        default: return KwFormatSize::None;
    }
}

// Everything between '%' and the conversion letter.
template <class C>
bool ReadSpec(const C*& at, KwFormatArguments& args, KwFormatSpec& parsed) {
    for (;; ++at) {
        if (*at == '-') {
            parsed.left = true;
        } else if (*at == '0') {
            parsed.zero = true;
        } else if (*at == '+') {
            parsed.plus = true;
        } else if (*at == ' ') {
            parsed.space = true;
        } else if (*at == '#') {
            parsed.alternate = true;
        } else {
            break;
        }
    }
    bool negative = false;
    if (!ReadCount(at, args, parsed.width, negative)) return false;
    parsed.left |= negative;
    if (*at == '.') {
        ++at;
        if (!ReadCount(at, args, parsed.precision, negative)) return false;
        if (negative) parsed.precision = -1;
    }
    parsed.size = ReadSize(at);
    return true;
}

}  // namespace KwFormatSpecRead
