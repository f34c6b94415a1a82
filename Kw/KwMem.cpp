#include <cstring>

#include "Kw/KwMemory.h"

namespace {

// 0 when the pointers allow a comparison; otherwise `*result` is the answer.
bool NullDecides(const void* a, const void* b, int* result) {
    if (a != nullptr && b != nullptr) return false;
    *result = a != nullptr ? 1 : (b != nullptr ? -1 : 0);
    return true;
}

unsigned char Fold(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c + 32) : c;
}

// The first place in which the ranges differ without regard to ASCII case, n when there is none.
unsigned int FirstFoldedDifference(const unsigned char* a, const unsigned char* b, unsigned int n) {
    unsigned int i = 0;
    while (i < n && (a[i] == b[i] || Fold(a[i]) == Fold(b[i]))) ++i;
    return i;
}

int CompareLengths(unsigned int a, unsigned int b) {
    return a < b ? -1 : (a > b ? 1 : 0);
}

}  // namespace

void KwMem::Copy(void* dst, const void* src, unsigned int n) {
    if (dst == nullptr || src == nullptr || n == 0) return;
    auto* to = static_cast<unsigned char*>(dst);
    const auto* from = static_cast<const unsigned char*>(src);
    // Forward byte by byte is observable when the target begins inside the source: it repeats the
    // bytes in between. Everywhere else memmove does the same faster.
    if (to <= from || to >= from + n) {
        std::memmove(to, from, n);
    } else {
        for (unsigned int i = 0; i < n; ++i) to[i] = from[i];
    }
}

int KwMem::Cmp(const void* a, const void* b, unsigned int n) {
    int result = 0;
    if (n == 0 || NullDecides(a, b, &result)) return result;
    const auto* x = static_cast<const unsigned char*>(a);
    const auto* y = static_cast<const unsigned char*>(b);
    unsigned int i = 0;
    while (n - i >= 8 && std::memcmp(x + i, y + i, 8) == 0) i += 8;
    while (i < n && x[i] == y[i]) ++i;
    return i == n ? 0 : x[i] - y[i];
}

int KwMem::Cmp2(const void* a, unsigned int alen, const void* b, unsigned int blen) {
    int result = 0;
    if (NullDecides(a, b, &result)) return result;
    const int order = std::memcmp(a, b, alen < blen ? alen : blen);
    if (order != 0) return order < 0 ? -1 : 1;
    return CompareLengths(alen, blen);
}

int KwMem::ICmp(const void* a, const void* b, unsigned int n) {
    int result = 0;
    if (n == 0 || NullDecides(a, b, &result)) return result;
    const auto* x = static_cast<const unsigned char*>(a);
    const auto* y = static_cast<const unsigned char*>(b);
    const unsigned int i = FirstFoldedDifference(x, y, n);
    return i == n ? 0 : x[i] - y[i];
}

int KwMem::ICmp2(const void* a, unsigned int alen, const void* b, unsigned int blen) {
    int result = 0;
    if (NullDecides(a, b, &result)) return result;
    const auto* x = static_cast<const unsigned char*>(a);
    const auto* y = static_cast<const unsigned char*>(b);
    const unsigned int shorter = alen < blen ? alen : blen;
    const unsigned int i = FirstFoldedDifference(x, y, shorter);
    if (i < shorter) return x[i] < y[i] ? -1 : 1;
    return CompareLengths(alen, blen);
}
