// Length, copy, comparison and width.
#include "Kw/KwStr.h"

#include <algorithm>
#include <cstring>

#include "Kw/KwMemory.h"
#include "Kw/KwStrText.h"

namespace {

using KwStrText::Length;
using KwStrText::Value;

template <typename Char>
int Copy(Char* dst, const Char* src, int count) {
    // The ranges may overlap: callers shift a text within its own buffer.
    if (count > 0) std::memmove(dst, src, static_cast<std::size_t>(count) * sizeof(Char));
    dst[std::max(count, 0)] = 0;
    return std::max(count, 0);
}

template <typename Char>
int CopyBounded(Char* dst, int dstSize, const Char* src, int srcLen) {
    if (dst == nullptr || dstSize < 1) return 0;
    return Copy(dst, src, std::min(dstSize - 1, Length(src, srcLen)));
}

// True when a null pointer or the same pointer decides a comparison.
template <typename Char>
bool DecidedByNull(const Char* a, const Char* b, int& result) {
    if (a != nullptr && b != nullptr) return false;
    result = a == b ? 0 : a == nullptr ? -1 : 1;
    return true;
}

// Null against empty: the longer length is 0, and so nothing differs.
template <typename Char>
bool BothEmpty(const Char* a, const Char* b) {
    return (a == nullptr || *a == 0) && (b == nullptr || *b == 0);
}

// Of two texts of different lengths the shorter one's terminator differs at the latest, so nothing
// behind it is looked at although the longer length counts.
template <typename Char>
int Compare(const Char* a, const Char* b) {
    int result = 0;
    if (BothEmpty(a, b) || DecidedByNull(a, b, result)) return result;
    for (; *a == *b; ++a, ++b) {
        if (*a == 0) return 0;
    }
    return Value(*a) - Value(*b);
}

template <typename Char>
int CompareCount(const Char* a, const Char* b, int n) {
    int result = 0;
    if (n < 0) return Compare(a, b);
    if (n == 0 || DecidedByNull(a, b, result)) return result;
    for (int i = 0; i < n; ++i) {
        if (a[i] != b[i]) return Value(a[i]) - Value(b[i]);
    }
    return 0;
}

int FoldedCompare(const char* a, const char* b, int n) {
    return KwMem::ICmp(a, b, static_cast<unsigned int>(n));
}

int FoldedCompare(const KwWChar* a, const KwWChar* b, int n) {
    const auto fold = [](int unit) { return unit >= 'A' && unit <= 'Z' ? unit + 32 : unit; };
    for (int i = 0; i < n; ++i) {
        if (fold(a[i]) != fold(b[i])) return a[i] - b[i];
    }
    return 0;
}

template <typename Char>
int CompareFolded(const Char* a, const Char* b) {
    int result = 0;
    if (BothEmpty(a, b) || DecidedByNull(a, b, result)) return result;
    const int lengthA = Length(a);
    const int lengthB = Length(b);
    return FoldedCompare(a, b, lengthA == lengthB ? lengthA : std::min(lengthA, lengthB) + 1);
}

template <typename Char>
int CompareFoldedCount(const Char* a, const Char* b, int n) {
    int result = 0;
    if (n < 0) return CompareFolded(a, b);
    if (n == 0 || DecidedByNull(a, b, result)) return result;
    return FoldedCompare(a, b, n);
}

template <typename To, typename From>
int ConvertQuick(To* dst, const From* src, int len) {
    if (dst == nullptr) return 0;
    const int count = Length(src, len);
    for (int i = 0; i < count; ++i) dst[i] = static_cast<To>(Value(src[i]));
    dst[count] = 0;
    return count;
}

// Copies up to the first character of `stop` or more.
template <typename To, typename From>
int ConvertBounded(To* dst, int size, const From* src, int srcLen, int stop) {
    if (dst == nullptr || size < 1) return 0;
    // An unmeasured length is never reached: the zero at the end comes first.
    const int limit = src == nullptr ? 0 : std::min(size - 1, srcLen < 0 ? INT_MAX : srcLen);
    int count = 0;
    for (; count < limit && src[count] != 0 && Value(src[count]) < stop; ++count) {
        dst[count] = static_cast<To>(Value(src[count]));
    }
    dst[count] = 0;
    return count;
}

}  // namespace

int KwStr::Len(const char* text) {
    return Length(text);
}
int KwStr::Len(const KwWChar* text) {
    return Length(text);
}

int KwStr::Cpy(char* dst, const char* src) {
    return dst == nullptr ? 0 : Copy(dst, src, Length(src));
}
int KwStr::Cpy(KwWChar* dst, const KwWChar* src) {
    return dst == nullptr ? 0 : Copy(dst, src, Length(src));
}

int KwStr::CpyLen(char* dst, int dstSize, const char* src, int srcLen) {
    return CopyBounded(dst, dstSize, src, srcLen);
}
int KwStr::CpyLen(KwWChar* dst, int dstSize, const KwWChar* src, int srcLen) {
    return CopyBounded(dst, dstSize, src, srcLen);
}

int KwStr::Cmp(const char* a, const char* b) {
    return Compare(a, b);
}
int KwStr::Cmp(const KwWChar* a, const KwWChar* b) {
    return Compare(a, b);
}
int KwStr::ICmp(const char* a, const char* b) {
    return CompareFolded(a, b);
}
int KwStr::ICmp(const KwWChar* a, const KwWChar* b) {
    return CompareFolded(a, b);
}
int KwStr::NCmp(const char* a, const char* b, int n) {
    return CompareCount(a, b, n);
}
int KwStr::NCmp(const KwWChar* a, const KwWChar* b, int n) {
    return CompareCount(a, b, n);
}
int KwStr::NICmp(const char* a, const char* b, int n) {
    return CompareFoldedCount(a, b, n);
}
int KwStr::NICmp(const KwWChar* a, const KwWChar* b, int n) {
    return CompareFoldedCount(a, b, n);
}

int KwStr::ToString(char* dst, int size, const KwWChar* src, int srcLen) {
    // 255 itself ends the text too: callers have always seen it so.
    return ConvertBounded(dst, size, src, srcLen, 255);
}
int KwStr::ToString(KwWChar* dst, int size, const char* src, int srcLen) {
    return ConvertBounded(dst, size, src, srcLen, 256);
}

int KwStr::CopyStringQuick(char* dst, const KwWChar* src, int len) {
    return ConvertQuick(dst, src, len);
}
int KwStr::CopyStringQuick(KwWChar* dst, const char* src, int len) {
    return ConvertQuick(dst, src, len);
}
