// KwDataBlocks: which `}` closes each `{` of a text, found for all of them in one pass.
//
// The answer for a `{` is that of KwFilterText::FindBlockEnd at that place: braces are counted, comments stepped over,
// quotes not respected. Asking that function at every brace costs length times depth.
// Internal. Thread-safety: none.
#pragma once

#include <cstdint>
#include <vector>

class KwDataBlocks {
public:
    // Indexes the text from `begin` to `end`, which must be less than 4 GiB. Throws std::bad_alloc without memory.
    void Build(const unsigned char* begin, const unsigned char* end);
    bool IsBuilt() const { return begin_ != nullptr; }

    // The brace that closes the one at `open`, null when there is none before `end`. Calls must ask for places
    // in ascending order.
    const unsigned char* FindEnd(const unsigned char* open, const unsigned char* end);

private:
    static constexpr std::uint32_t kNone = 0xFFFFFFFFu;
    struct Pair {
        std::uint32_t open;   // offset of the `{`
        std::uint32_t close;  // offset of its `}`, or kNone
    };

    const unsigned char* begin_ = nullptr;
    std::vector<Pair> pairs_;  // descending by `open`; those already asked for are gone
};
