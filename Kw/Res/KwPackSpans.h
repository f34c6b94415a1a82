// KwPackSpans: whether the bodies of a pack lie in one another. Internal.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "Kw/Res/KwPackLayout.h"

class KwPackSpans {
public:
    // Of a pack with `count` entries from `directory` on.
    KwPackSpans(unsigned int directory, unsigned int count)
        : directory_(directory),
          directoryEnd_(std::uint64_t{directory} + std::uint64_t{count} * KwPackLayout::kEntrySize) {
        spans_.reserve(count);
    }

    // A body inside the file, of 1 to kMaxStored bytes.
    void Add(unsigned int offset, unsigned int size) {
        const bool inDirectory = offset < directoryEnd_ && std::uint64_t{offset} + size > directory_;
        if (offset < KwPackLayout::kHeaderSize || inDirectory) overlap_ = true;
        const std::uint64_t span = std::uint64_t{offset} << kSizeBits | size;
        if (!spans_.empty() && Offset(span) < Offset(spans_.back())) sorted_ = false;
        spans_.push_back(span);
    }

    // Whether a body shares bytes with the header, the directory or another body. Bodies at the same place and of the
    // same size are one body with two names.
    bool Overlap() {
        if (!sorted_) Sort();
        for (std::size_t i = 1; i < spans_.size() && !overlap_; ++i) {
            const std::uint64_t before = spans_[i - 1];
            overlap_ = Offset(spans_[i]) < Offset(before) + (before & KwPackLayout::kMaxStored) && spans_[i] != before;
        }
        return overlap_;
    }

private:
    static constexpr int kSizeBits = 24;

    static std::uint64_t Offset(std::uint64_t span) { return span >> kSizeBits; }

    // By offset, digit by digit: a directory is in the order of hashes, which is none.
    void Sort() {
        constexpr int kDigitBits = 11;
        std::vector<std::uint64_t> other(spans_.size());
        for (int shift = kSizeBits; shift < kSizeBits + 32; shift += kDigitBits) {
            std::array<unsigned int, std::size_t{1} << kDigitBits> next{};
            const auto digit = [shift](std::uint64_t span) {
                return static_cast<std::size_t>((span >> shift) & ((1u << kDigitBits) - 1));
            };
            for (const std::uint64_t span : spans_) ++next[digit(span)];
            unsigned int place = 0;
            for (unsigned int& count : next) {
                const unsigned int begin = place;
                place += count;
                count = begin;
            }
            for (const std::uint64_t span : spans_) other[next[digit(span)]++] = span;
            spans_.swap(other);
        }
    }

    std::vector<std::uint64_t> spans_;
    std::uint64_t directory_;
    std::uint64_t directoryEnd_;
    bool sorted_ = true;
    bool overlap_ = false;
};
