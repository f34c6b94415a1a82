// KwMath: numbers read from text, and Base64.
//
// The readers take the longest valid number at the start of a text and ignore what follows, as atoi
// and atof do, but know nothing of the process's locale and have a defined result for every input.
// Lengths are in bytes; a negative one means up to the terminating zero. Null reads as 0.
// Thread-safety: everything may be called from any thread.
#pragma once

#include <cstdint>
#include <string>

#include "Kw/KwDefine.h"

class KW_API KwMath {
public:
    // The decimal integer at the start of `text`: blanks (tab, line feed, carriage return, space) are
    // skipped, then an optional sign and digits. 0 without a digit; a value out of range gives the
    // nearest end of the range. `end`, where not null, receives the first byte not read (`text`
    // itself when there is no number).
    static int ToInt(const char* text, int length = -1, const char** end = nullptr);
    static std::int64_t ToInt64(const char* text, int length = -1, const char** end = nullptr);

    // The decimal number at the start of `text`, correctly rounded: blanks, an optional sign, digits with an
    // optional point, and an optional exponent, which counts only when it has a digit. 0 without a digit;
    // too large gives an infinity and too small a zero, both signed. Hexadecimal forms and the words
    // for infinity and not-a-number are no numbers here: "0x10", "inf" and "nancy" read as 0.
    // `end` as above.
    static double ToDouble(const char* text, int length = -1, const char** end = nullptr);

    // `value` truncated toward zero, at the nearest end of the range when it lies outside; 0 for NaN.
    static int TruncateToInt(double value);
    // The low 32 bits of `value` truncated toward zero to a 64-bit integer, so -1.0 gives 4294967295.
    // 0 for NaN and where no 64-bit integer, signed or unsigned, holds the value.
    static unsigned int TruncateToUint(double value);

    // `length` bytes as Base64 (RFC 4648, section 4) with padding and without line breaks. Empty for null.
    static std::string EncodeBase64(const void* data, unsigned int length);
    // Replaces `out` by the bytes that `text` stands for. False, with `out` empty, for anything that
    // EncodeBase64 does not produce: foreign characters, blanks, missing padding, unused bits that are set.
    static bool DecodeBase64(const char* text, int length, std::string& out);
};
