// KwFilterText: the number and block scanners of the data-script language.
//
// Each takes a range of bytes, not null, that need no terminator, reads from its start and gives the position
// behind what it read, or null when there is no such thing; one pass, nothing outside the range.
// Thread-safety: everything may be called from any thread.
#pragma once

#include "Kw/KwDefine.h"

// A scanned number.
struct SFilterNumber {
    int kind = 0;  // 0: intValue, 1: uintValue, 2: doubleValue
    union {
        int intValue = 0;
        unsigned int uintValue;
        double doubleValue;
    };
};

class KW_API KwFilterText {
public:
    // Scans a number at `cursor`: a byte in single quotes ('c', INT of the byte); or an optional sign and
    //   0x or 0X with 1 to 9 hexadecimal digits: UINT of the low 32 bits, the sign ignored;
    //   decimal digits: INT up to 2147483647, with either sign; UINT up to 4294967295 without a minus;
    //     Double beyond;
    //   decimal digits with one point behind the first of them: Double. A second point fails.
    // There is no exponent; a Double too large to hold is infinite. `number` is unchanged on failure.
    static const unsigned char* MakeNumber(const unsigned char* cursor, const unsigned char* end,
                                           SFilterNumber& number);

    // The `}` that closes the block whose `{` is at `cursor`. Braces are counted; comments (// to the end of
    // the line, /* to the next */) are stepped over; a brace in a quoted string counts like any other.
    // Null without a `{` at `cursor`, without a match, and for a block comment that does not end.
    static const unsigned char* FindBlockEnd(const unsigned char* cursor, const unsigned char* end);

    // Steps over blanks (tab, line feed, carriage return, space) and comments; `cursor` itself when there are
    // none. Null for a block comment that does not end. A line comment ends before its line feed or carriage return.
    static const unsigned char* SkipBlank(const unsigned char* cursor, const unsigned char* end);
};
