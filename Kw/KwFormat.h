// KwFormat: the one formatter for the printf language, for 8-bit and UTF-16 text alike.
//
//   %[flags][width][.precision][size]conversion
//   flags       - + space # 0            width, precision: a number or * (an int argument)
//   size        hh h l ll j z t L, I64 I32 I (as wide as a pointer), w (wide text)
//   conversion  d i u o x X c C s S p f F e E g G a A %
//
// Text arguments, where "own" is the width of the format itself and "other" is the other one:
//   %s %c own   %S %C other   %hs %hc 8-bit   %ls %lc %ws %wc UTF-16
// Text of the other width crosses as UTF-8 <-> UTF-16, malformed parts as U+FFFD; its precision counts
// characters of the output and never cuts a code point. A null text prints "(null)".
// %p prints 0x and lower-case hexadecimal digits without padding. %l integers have the size of the platform's
// own `long`. Floating-point output is exact at any precision, rounds to nearest-even, and always uses '.'.
// %n, unknown conversions and a format that ends inside a conversion are errors. Apart from `long` and
// `long double` the same arguments give the same characters on every platform, whatever the locale.
// Thread-safety: every operation may be called from any thread; nothing allocates except Append.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

#include "Kw/KwDefine.h"

class KW_API KwFormat {
public:
    // Writes the first `size` characters of the text to `dst` (null only with size 0), without a terminator.
    // The result is the count that the whole text needs, which may exceed `size`; -1 for a null or
    // erroneous format and for a text of more than 2^31 - 1 characters (`dst` then holds some of it).
    // `args` is used up: who needs it again passes a copy.
    static int Print(char* dst, unsigned int size, const char* format, va_list args) KW_PRINTF(3, 0);
    static int Print(KwWChar* dst, unsigned int size, const KwWChar* format, va_list args);

    // Appends the text to `out`. False, with `out` as it was, where Print gives -1.
    static bool Append(std::string& out, const char* format, va_list args) KW_PRINTF(2, 0);
    static bool Append(KwWString& out, const KwWChar* format, va_list args);

    // Writes the text to an open stream; wide text is written as UTF-8. The result is the bytes written, or
    // -1 where Print gives -1 and when the stream refuses them; a part of the text may stand there then.
    static int PrintFile(std::FILE* file, const char* format, va_list args) KW_PRINTF(2, 0);
    static int PrintFile(std::FILE* file, const KwWChar* format, va_list args);
};
