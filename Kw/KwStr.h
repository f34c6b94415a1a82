// KwStr: the string toolkit, in a narrow (8-bit) and a wide (UTF-16) form.
//
// Rules for all: a null pointer is allowed everywhere. Lengths and sizes count characters (bytes, or
// 16-bit units), unless a name ends in Bytes. A negative source length means up to the terminating zero; a
// null source has length 0. A buffer that is written is terminated within its size. Blanks are tab,
// line feed, carriage return and space. Upper and lower case concern ASCII letters only.
// An operation that edits in place and finds nothing to change leaves the text untouched; otherwise it
// terminates the text at its new length.
// Thread-safety: everything may be called from any thread.
#pragma once

#include <cstdarg>
#include <list>
#include <string>

#include "Kw/KwDefine.h"

class KW_API KwStr {
public:
    // --- Length, copy, comparison ---

    // Characters before the terminator; 0 for null.
    static int Len(const char* text);
    static int Len(const KwWChar* text);

    // Copies all of `src`, which `dst` must have room for; returns the count. 0 for a null `dst`.
    static int Cpy(char* dst, const char* src);
    static int Cpy(KwWChar* dst, const KwWChar* src);

    // Copies min(dstSize - 1, srcLen) characters; returns the count. Size 0 or less writes nothing.
    static int CpyLen(char* dst, int dstSize, const char* src, int srcLen);
    static int CpyLen(KwWChar* dst, int dstSize, const KwWChar* src, int srcLen);

    // The difference of the first differing pair of unsigned characters, the terminator included; 0 when
    // equal. A null text is less than any but the empty one, which it equals.
    static int Cmp(const char* a, const char* b);
    static int Cmp(const KwWChar* a, const KwWChar* b);
    // The same with letters equal in both cases; characters that differ are ordered by their raw values,
    // so "a" is greater than "B".
    static int ICmp(const char* a, const char* b);
    static int ICmp(const KwWChar* a, const KwWChar* b);
    // Cmp and ICmp over exactly `n` characters, terminators among them, up to the first difference; both
    // must hold as many. 0 for n = 0; a negative `n` is Cmp and ICmp. Null is less than not null.
    static int NCmp(const char* a, const char* b, int n);
    static int NCmp(const KwWChar* a, const KwWChar* b, int n);
    static int NICmp(const char* a, const char* b, int n);
    static int NICmp(const KwWChar* a, const KwWChar* b, int n);

    // --- Search ---

    // Looks for `pattern` by a shifted comparison that callers rely on: forward gives the first i with
    // text[i] = pattern[0] and text[i + k + 1] = pattern[k] for k from 1; backward the last i with
    // text[i] = pattern[patLen - 1] and text[i + k + 1] = pattern[k] for all k before. So one-character
    // patterns are found as one would think, "bc" is found at 0 in "bxc", and not at all in "abcabc".
    // FindStringQuick is the plain search.
    // i runs over the first `textLen` characters; the comparison may go on behind them, up to and never
    // behind the terminator, which the text must have. -1 when not found, and for an empty text or pattern.
    static int Find(const char* text, int textLen, const char* pattern, int patLen, bool forward);
    static int Find(const KwWChar* text, int textLen, const KwWChar* pattern, int patLen, bool forward);

    // The position of the first (`forward`) or last `ch` in the first `len` characters, or -1.
    static int FindChar(const char* text, int len, char ch, bool forward);
    static int FindChar(const KwWChar* text, int len, KwWChar ch, bool forward);

    // The first occurrence of `pattern` in `text`, neither of which need be terminated; null when there is
    // none, and for an empty text or pattern.
    static const char* FindStringQuick(const char* text, int textLen, const char* pattern, int patLen);
    static char* FindStringQuick(char* text, int textLen, const char* pattern, int patLen) {
        return const_cast<char*>(FindStringQuick(static_cast<const char*>(text), textLen, pattern, patLen));
    }

    // --- Editing in place ---

    // Deletes every occurrence of `pattern`, from left to right without overlap; returns their number.
    static int Remove(char* text, int len, const char* pattern, int patLen);
    static int Remove(KwWChar* text, int len, const KwWChar* pattern, int patLen);
    // Deletes every `ch`; returns the new length.
    static int RemoveChar(char* text, int len, char ch);
    static int RemoveChar(KwWChar* text, int len, KwWChar ch);
    // Makes one `ch` of every run of it; returns the new length, 0 for `ch` = 0.
    static int RemoveCharTruncate(char* text, int len, char ch);
    static int RemoveCharTruncate(KwWChar* text, int len, KwWChar ch);
    // Replaces every `from` by `to`; returns their number.
    static int ReplaceChar(char* text, int len, char from, char to);
    static int ReplaceChar(KwWChar* text, int len, KwWChar from, KwWChar to);

    // Counts blanks and, with `remove`, deletes them. Mode 0: the leading ones; mode 1: the trailing ones;
    // both return the count. Any other mode: all of them; returns the count without `remove` or when there
    // are none, and the new length after a removal.
    static int Trim(char* text, int len, bool remove, int mode);
    static int Trim(KwWChar* text, int len, bool remove, int mode);

    // Change the case of all letters; return how many changed.
    static int Upper(char* text);
    static int Upper(KwWChar* text);
    static int Lower(char* text);
    static int Lower(KwWChar* text);

    // --- Formatting, width, scanning, splitting ---

    // Writes printf-formatted text; returns the characters written. A text that does not fit gives a
    // negative result and a terminated prefix. 0 for a null `dst` or `format`.
    static int Format(char* dst, int size, const char* format, ...) KW_PRINTF(3, 4);
    static int Format(KwWChar* dst, int size, const KwWChar* format, ...);

    // Narrows by taking the low byte of each unit, up to the first one of 255 or more, a zero, size - 1
    // characters or the end; returns the count. Nothing for a null `dst` or a size below 1.
    static int ToString(char* dst, int size, const KwWChar* src, int srcLen);
    // Widens each byte to a unit, up to a zero, size - 1 characters or the end; as above otherwise.
    static int ToString(KwWChar* dst, int size, const char* src, int srcLen);

    // Narrow (low byte) or widen exactly `len` characters into a `dst` with room for them and the
    // terminator, without any check; return the count.
    static int CopyStringQuick(char* dst, const KwWChar* src, int len);
    static int CopyStringQuick(KwWChar* dst, const char* src, int len);

    // Reads numbers from `text`: "%d_%d_%d" three integers separated by "_". At each conversion blanks of the
    // text are skipped, the number is stored, and the text continues behind the next occurrence of the
    // character that follows the conversion letter; other characters of the format are not matched.
    //   %d int*, as KwMath::ToInt     %u unsigned int*, the low 32 bits of a number as KwMath::ToDouble reads it
    //   %f float*    %n double*       %s takes a pointer and stores nothing, to step over a field
    // A null pointer is stepped over without a store; an unknown letter takes no argument. The scan stops at
    // the end of the text, at the end of the format, and where the delimiter does not occur; arguments not
    // reached are left alone. Returns the number of values stored.
    static int Sscanf(const char* text, const char* format, ...);

    // Appends the pieces between separators to `out` and returns their number; n separators give n + 1
    // pieces, an all-blank text none. Blanks around a piece are dropped, and what follows the last run of
    // blanks inside a piece goes with that run: "ab cd,ef" gives "ab" and "ef".
    static int FilerParam(const char* text, int len, char separator, std::list<std::string>& out);
    static int FilerParam(const KwWChar* text, int len, KwWChar separator, std::list<KwWString>& out);

    // Splits the member path of a name and appends its parts to `out`; returns their number. "server.ports[2]"
    // at '.' gives "server", "ports" and "2"; without `index` brackets mean nothing and the second part is
    // "ports[2]". With `maxParts` above 0 the last part allowed keeps the rest of the path unsplit.
    // 0, with `out` unchanged, for a path with an empty part or index, a `[` without `]` or the reverse, and a
    // name directly behind an index.
    static int FilerNameMember(const std::string& name, int maxParts, bool index, char separator,
                               std::list<std::string>& out);

    // --- Encodings ---
    // All but UTF32ToUTF16 take and give bytes at any alignment, UTF-16 in the machine's byte order.

    // The number of characters (code points) in UTF-8 text; each malformed part counts as the U+FFFD that
    // a conversion would make of it.
    static int GetUTF8Len(const char* text, int len);

    // Return the bytes written, the terminator not counted, which stands behind them where it fits. A character that
    // does not fit whole ends the conversion. Malformed input becomes U+FFFD, one for each maximal
    // part of a sequence that starts like a valid one.
    static int UTF8ToUTF16(void* dst, int dstBytes, const void* src, int srcLen);
    static int UTF16ToUTF8(void* dst, int dstBytes, const void* src, int srcBytes);

    // Converts `srcLen` little-endian 32-bit units (negative: to the zero unit) into at most `dstLen` units of
    // UTF-16; returns the units written. What is no code point becomes U+FFFD.
    static int UTF32ToUTF16(const char* src, int srcLen, KwWChar* dst, int dstLen);

    // TCVN3 is the Vietnamese 8-bit code TCVN 5712 with all its precomposed letters. Both stop at the first
    // zero and at the first character that the other side cannot express, at the end of the source, and when
    // only the terminator still fits; return the bytes written, the terminator not counted.
    static int TCVN3ToUTF16(void* dst, int dstBytes, const void* src, int srcLen);
    static int UTF16ToTCVN3(void* dst, int dstSize, const void* src, int srcBytes);

    // Sets exist[i] to 1 where TCVN3 has the UTF-16 unit from + i, else to 0, for the units `from` to `to`
    // inclusive, so `exist` holds to - from + 1 bytes. Returns how many there are; 0 for null and `from` > `to`.
    static int GetUTF16CharacterExist(unsigned char* exist, int from, int to);
};
