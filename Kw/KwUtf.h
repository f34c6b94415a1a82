// KwUtf: conversions between UTF-8, UTF-16 and UTF-32 over explicit ranges.
//
// Texts are byte ranges of any alignment; the 16- and 32-bit units in them are little-endian. Zero is a
// character like any other and nothing is terminated here. Malformed input never fails: each maximal part of
// a UTF-8 sequence that cannot be completed, each unpaired surrogate and each value that is no code point
// becomes one U+FFFD. A conversion stops before the first character that does not fit whole.
// Thread-safety: every operation may be called from any thread.
#pragma once

#include <cstddef>

#include "Kw/KwDefine.h"

class KW_API KwUtf {
public:
    // What a conversion consumed and produced, in units of the source and of the destination. All of the
    // source was converted when `read` is its length.
    struct Result {
        std::size_t read = 0;
        std::size_t written = 0;
    };

    // Destination and source must not overlap. Bytes of the destination behind the text, as far as they lie
    // inside its stated room, may be overwritten.
    static Result Utf8ToUtf16(void* dst, std::size_t dstUnits, const void* src, std::size_t srcBytes);
    static Result Utf16ToUtf8(void* dst, std::size_t dstBytes, const void* src, std::size_t srcUnits);
    static Result Utf32ToUtf16(void* dst, std::size_t dstUnits, const void* src, std::size_t srcUnits);

    // Characters (code points) in UTF-8 text.
    static std::size_t CountUtf8(const void* src, std::size_t srcBytes);

    // The exact room that a conversion needs, in units of its destination.
    static std::size_t Utf16Length(const void* utf8, std::size_t srcBytes);
    static std::size_t Utf8Length(const void* utf16, std::size_t srcUnits);

    // The conversions use the fastest kernels that the processor has: 2 AVX-512, 1 AVX2, 0 any processor.
    // UseKernels restricts them, for tests and measurements, to those up to `most`; the result is the set in use.
    static constexpr int kAllKernels = 2;
    static int UseKernels(int most);

    // Units before the terminating zero.
    static std::size_t Length16(const void* text);
    static std::size_t Length32(const void* text);
};
