// Search.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "Kw/KwStr.h"
#include "Kw/KwStrText.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

using KwStrText::Length;

template <typename Char>
int FindFirst(const Char* text, int length, Char ch) {
    const Char* hit = std::char_traits<Char>::find(text, static_cast<std::size_t>(length), ch);
    return hit == nullptr ? -1 : static_cast<int>(hit - text);
}

template <typename Char>
int FindLast(const Char* text, int length, Char ch) {
    int i = length - 1;
    while (i >= 0 && text[i] != ch) --i;
    return i;
}

// Whether text[at], text[at + 1] ... are the `count` characters of `pattern`. Behind `textLen` the text
// goes up to its first zero.
template <typename Char>
bool MatchesAt(const Char* text, int textLen, std::int64_t at, const Char* pattern, int count) {
    for (int k = 0; k < count; ++k, ++at) {
        if (text[at] != pattern[k]) return false;
        if (at >= textLen && text[at] == 0) return k + 1 == count;
    }
    return true;
}

template <typename Char>
int FindShifted(const Char* text, int textLen, const Char* pattern, int patLen, bool forward) {
    textLen = Length(text, textLen);
    patLen = Length(pattern, patLen);
    if (textLen == 0 || patLen == 0) return -1;
    if (forward) {
        for (int i = 0; i < textLen; ++i) {
            const int hit = FindFirst(text + i, textLen - i, pattern[0]);
            if (hit < 0) return -1;
            i += hit;
            if (patLen == 1) return i;
            // Behind the last character only the terminator stands, and the comparison would begin behind that.
            const bool beyond = i + 1 == textLen && text[textLen] == 0;
            if (!beyond && MatchesAt(text, textLen, std::int64_t{i} + 2, pattern + 1, patLen - 1)) return i;
        }
        return -1;
    }
    const Char last = pattern[patLen - 1];
    for (int i = FindLast(text, textLen, last); i >= 0; i = FindLast(text, i, last)) {
        if (MatchesAt(text, textLen, std::int64_t{i} + 1, pattern, patLen - 1)) return i;
    }
    return -1;
}

// Looks for `pattern` at `text` and behind with a rolling hash, in time that grows with the text alone. `last`
// is the last start at which the pattern fits.
const char* FindRolling(const char* text, const char* last, const char* pattern, std::size_t patLen) {
    constexpr std::uint64_t kBase = 0x9E3779B97F4A7C15U;
    std::uint64_t wanted = 0;
    std::uint64_t hash = 0;
    std::uint64_t leaving = 1;  // the weight of the character that has left the window
    for (std::size_t i = 0; i < patLen; ++i) {
        wanted = wanted * kBase + static_cast<unsigned char>(pattern[i]);
        hash = hash * kBase + static_cast<unsigned char>(text[i]);
        leaving *= kBase;
    }
    for (;; ++text) {
        if (hash == wanted && std::memcmp(text, pattern, patLen) == 0) return text;
        if (text == last) return nullptr;
        hash = hash * kBase + (static_cast<unsigned char>(text[patLen]) - static_cast<unsigned char>(*text) * leaving);
    }
}

// The plain search for patterns of at least two characters.
class QuickSearch {
public:
    QuickSearch(const char* text, std::size_t textLen, const char* pattern, std::size_t patLen)
        : start_(text), cursor_(text), last_(text + (textLen - patLen)), pattern_(pattern), patLen_(patLen) {}

    const char* Run() {
        const char* hit = nullptr;
        if (RunWide(hit)) return hit;
        const char first = pattern_[0];
        for (; cursor_ <= last_; ++cursor_) {
            const auto left = static_cast<std::size_t>(last_ - cursor_) + 1;
            cursor_ = static_cast<const char*>(std::memchr(cursor_, first, left));
            if (cursor_ == nullptr) return nullptr;
            if (cursor_[patLen_ - 1] != pattern_[patLen_ - 1]) continue;
            if (Matches(cursor_)) return cursor_;
            if (IsTooSlow()) return FindRolling(cursor_, last_, pattern_, patLen_);
        }
        return nullptr;
    }

private:
    // Compares a candidate whose first and last character fit.
    bool Matches(const char* at) {
        const std::size_t inner = patLen_ - 2;
        const std::size_t start = std::min<std::size_t>(inner, 32);
        if (std::memcmp(at + 1, pattern_ + 1, start) != 0) return false;
        if (start == inner) return true;
        wasted_ += inner;
        return std::memcmp(at + 1 + start, pattern_ + 1 + start, inner - start) == 0;
    }
    // Whether long comparisons that failed, as in "aaaa...", cost so much that a steady pace is better.
    bool IsTooSlow() const { return wasted_ > 4096 + 4 * static_cast<std::size_t>(cursor_ - start_); }

#if defined(__SSE2__)
    // 32 starts at a time, while so many are left. True when that settled the search.
    bool RunWide(const char*& hit) {
        const __m128i first = _mm_set1_epi8(pattern_[0]);
        const __m128i last = _mm_set1_epi8(pattern_[patLen_ - 1]);
        const auto starts = [&](const char* at) {
            const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
            const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + patLen_ - 1));
            return _mm_and_si128(_mm_cmpeq_epi8(front, first), _mm_cmpeq_epi8(back, last));
        };
        for (; last_ - cursor_ >= 31; cursor_ += 32) {
            const __m128i low = starts(cursor_);
            const __m128i high = starts(cursor_ + 16);
            if (_mm_movemask_epi8(_mm_or_si128(low, high)) == 0) continue;
            auto mask = static_cast<std::uint32_t>(_mm_movemask_epi8(low)) |
                        static_cast<std::uint32_t>(_mm_movemask_epi8(high)) << 16;
            for (; mask != 0; mask &= mask - 1) {
                const char* at = cursor_ + std::countr_zero(mask);
                if (Matches(at)) {
                    hit = at;
                    return true;
                }
            }
            if (IsTooSlow()) {
                hit = FindRolling(cursor_, last_, pattern_, patLen_);
                return true;
            }
        }
        return false;
    }
#else
    bool RunWide(const char*&) {
        return false;
    }
#endif

    const char* start_;
    const char* cursor_;
    const char* last_;  // the last start at which the pattern fits
    const char* pattern_;
    std::size_t patLen_;
    std::size_t wasted_ = 0;  // characters of comparisons that failed late
};

}  // namespace

int KwStr::Find(const char* text, int textLen, const char* pattern, int patLen, bool forward) {
    return FindShifted(text, textLen, pattern, patLen, forward);
}
int KwStr::Find(const KwWChar* text, int textLen, const KwWChar* pattern, int patLen, bool forward) {
    return FindShifted(text, textLen, pattern, patLen, forward);
}

int KwStr::FindChar(const char* text, int len, char ch, bool forward) {
    len = Length(text, len);
    if (len == 0) return -1;
    return forward ? FindFirst(text, len, ch) : FindLast(text, len, ch);
}
int KwStr::FindChar(const KwWChar* text, int len, KwWChar ch, bool forward) {
    len = Length(text, len);
    if (len == 0) return -1;
    return forward ? FindFirst(text, len, ch) : FindLast(text, len, ch);
}

const char* KwStr::FindStringQuick(const char* text, int textLen, const char* pattern, int patLen) {
    textLen = Length(text, textLen);
    patLen = Length(pattern, patLen);
    if (patLen == 0 || textLen < patLen) return nullptr;
    const auto size = static_cast<std::size_t>(textLen);
    if (patLen == 1) return static_cast<const char*>(std::memchr(text, pattern[0], size));
    return QuickSearch(text, size, pattern, static_cast<std::size_t>(patLen)).Run();
}
