// KwParseError: where and why a text failed to load, for tools and hosts that show errors to people.
//
// The loader has logged its one line already; this is the same message with its position.
#pragma once

#include <new>
#include <string>

#include "Kw/KwDefine.h"

struct KwParseError {
    // Both count from 1, the column in bytes; a line ends at LF, CR or CR LF. Both are 0 while nothing has
    // failed, and when the fault lies in no place of the text (a file that cannot be read).
    int line = 0;
    int column = 0;
    // As it was logged, if it was; empty while nothing has failed.
    std::string message;

    // What stands for "nothing has failed".
    static const KwParseError& None() {
        alignas(KwParseError) static unsigned char place[sizeof(KwParseError)];
        static const KwParseError& none = *new (place) KwParseError;  // never destroyed: asked for at any time
        return none;
    }

    // Sets the position to that of `at` in the text that starts at `text`; `at` may be its end.
    void SetPosition(const unsigned char* text, const unsigned char* at) {
        const unsigned char* start = text;
        line = 1;
        for (const unsigned char* p = text; p < at; ++p) {
            const bool inPair = *p == '\r' && p + 1 < at && p[1] == '\n';
            if ((*p == '\n' || *p == '\r') && !inPair) {
                ++line;
                start = p + 1;
            }
        }
        column = static_cast<int>(at - start) + 1;
    }
};
