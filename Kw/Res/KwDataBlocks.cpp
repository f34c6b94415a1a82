#include "Kw/Res/KwDataBlocks.h"

#include <algorithm>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr std::uint32_t kBlock = 64;  // bytes that are looked at together

// One bit for each of 64 bytes.
struct Masks {
    std::uint64_t marks;  // braces and slashes
    std::uint64_t lines;  // LF and CR
};

#if defined(__SSE2__)
Masks BlockMasks(const unsigned char* text) {
    const auto is = [](__m128i bytes, char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
    Masks masks{};
    for (unsigned int i = 0; i < kBlock; i += 16) {
        __m128i bytes;
        __builtin_memcpy(&bytes, text + i, sizeof(bytes));
        const __m128i marks = _mm_or_si128(_mm_or_si128(is(bytes, '{'), is(bytes, '}')), is(bytes, '/'));
        const __m128i lines = _mm_or_si128(is(bytes, '\n'), is(bytes, '\r'));
        masks.marks |= static_cast<std::uint64_t>(static_cast<unsigned int>(_mm_movemask_epi8(marks))) << i;
        masks.lines |= static_cast<std::uint64_t>(static_cast<unsigned int>(_mm_movemask_epi8(lines))) << i;
    }
    return masks;
}
#else
Masks BlockMasks(const unsigned char* text) {
    Masks masks{};
    for (unsigned int i = 0; i < kBlock; ++i) {
        const unsigned char c = text[i];
        masks.marks |= static_cast<std::uint64_t>(c == '{' || c == '}' || c == '/') << i;
        masks.lines |= static_cast<std::uint64_t>(c == '\n' || c == '\r') << i;
    }
    return masks;
}
#endif

}  // namespace

// For every place of the text there is one brace that would close a block whose content starts there, if any.
// It follows from that of the next place, or of the place behind the comment or block that starts there; so a walk
// from the end to the start knows it everywhere at the cost of a few words.
class KwDataBlocksWalk {
public:
    KwDataBlocksWalk(const unsigned char* text, std::uint32_t length) : text_(text), length_(length) {}

    template <typename Found>
    void Mark(std::uint32_t at, Found found) {
        switch (text_[at]) {
            case '}':
                closings_.push_back({at, here_});
                here_ = static_cast<std::uint32_t>(closings_.size() - 1);
                break;
            case '{':
                if (here_ == kNothing) {
                    found(at, kNothing);
                } else {
                    found(at, closings_[here_].at);
                    here_ = closings_[here_].behind;
                }
                break;
            default: Slash(at); break;
        }
    }

    // A line end stands between the last mark and the next one.
    void LineEnd() { lineEnd_ = here_; }

    static constexpr std::uint32_t kNothing = 0xFFFFFFFFu;

private:
    struct Closing {
        std::uint32_t at;
        std::uint32_t behind;  // what closes a block that starts behind it: an index into closings_, or kNothing
    };
    struct CommentEnd {
        std::uint32_t slash;
        std::uint32_t behind;
    };

    // A slash may begin a comment, end one, or both: "*/*" does.
    void Slash(std::uint32_t at) {
        const std::uint32_t behind = here_;
        const unsigned char next = at + 1 < length_ ? text_[at + 1] : '\0';
        if (next == '/') {
            here_ = lineEnd_;
        } else if (next == '*') {
            // The star of "/*" does not end the comment that it begins.
            here_ = nearEnd_.slash >= at + 3 ? nearEnd_.behind : laterEnd_.behind;
        }
        if (at > 0 && text_[at - 1] == '*') {
            laterEnd_ = nearEnd_;
            nearEnd_ = {at, behind};
        }
    }

    const unsigned char* text_;
    std::uint32_t length_;
    std::uint32_t here_ = kNothing;           // what closes a block that starts at the current place
    std::uint32_t lineEnd_ = kNothing;        // the same for the next line end
    CommentEnd nearEnd_{kNothing, kNothing};  // the next two ends of block comments
    CommentEnd laterEnd_{kNothing, kNothing};
    std::vector<Closing> closings_;
};

void KwDataBlocks::Build(const unsigned char* begin, const unsigned char* end) {
    static_assert(kNone == KwDataBlocksWalk::kNothing);
    begin_ = begin;
    const auto length = static_cast<std::uint32_t>(end - begin);
    KwDataBlocksWalk walk(begin, length);
    const auto found = [this](std::uint32_t open, std::uint32_t close) { pairs_.push_back({open, close}); };
    const auto block = [&walk, &found](std::uint32_t at, Masks masks) {
        while (masks.marks != 0) {
            const auto bit = static_cast<std::uint32_t>(63 - __builtin_clzll(masks.marks));
            const std::uint64_t below = (std::uint64_t{1} << bit) - 1;
            if ((masks.lines & ~below) != 0) walk.LineEnd();
            walk.Mark(at + bit, found);
            masks.marks &= below;
            masks.lines &= below;
        }
        if (masks.lines != 0) walk.LineEnd();
    };
    const std::uint32_t whole = length / kBlock * kBlock;
    if (whole != length) {
        unsigned char rest[kBlock] = {};
        std::copy(begin + whole, end, rest);
        block(whole, BlockMasks(rest));
    }
    for (std::uint32_t at = whole; at > 0; at -= kBlock) block(at - kBlock, BlockMasks(begin + at - kBlock));
}

const unsigned char* KwDataBlocks::FindEnd(const unsigned char* open, const unsigned char* end) {
    const auto at = static_cast<std::uint32_t>(open - begin_);
    while (!pairs_.empty() && pairs_.back().open < at) pairs_.pop_back();
    if (pairs_.empty() || pairs_.back().open != at || pairs_.back().close == kNone) return nullptr;
    const unsigned char* close = begin_ + pairs_.back().close;
    return close < end ? close : nullptr;
}
