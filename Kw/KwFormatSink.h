// KwFormatSink: where formatted characters go. Internal to the library.
//
// A sink over a fixed buffer takes what fits and counts the rest; one with a drain empties its buffer into it
// and takes everything. Work is bounded by what is written, not by what is counted.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

template <class C>
class KwFormatSink {
public:
    // Takes the first characters of a full buffer and returns how many (at least 1).
    using Drain = std::size_t (*)(void* context, const C* text, std::size_t count);

    KwFormatSink(C* buffer, std::size_t size, Drain drain = nullptr, void* context = nullptr)
        : at_(buffer), end_(buffer + size), begin_(buffer), drain_(drain), context_(context) {}

    // Characters put so far, written or not.
    std::uint64_t Count() const { return passed_ + static_cast<std::uint64_t>(at_ - begin_); }
    // Room that Claim may be asked for, and the characters in the buffer.
    std::size_t Room() const { return static_cast<std::size_t>(end_ - at_); }
    std::size_t Held() const { return static_cast<std::size_t>(at_ - begin_); }
    C* At() { return at_; }
    void Advance(std::size_t count) { at_ += count; }

    void Put(C ch) {
        if (at_ != end_) {
            *at_++ = ch;
        } else {
            PutSlow(&ch, 1);
        }
    }

    void Put(const C* text, std::size_t count) {
        if (count > Room()) return PutSlow(text, count);
        std::memcpy(at_, text, count * sizeof(C));
        at_ += count;
    }

    // ASCII text into a sink of either width.
    void PutAscii(const char* text, std::size_t count) {
        if constexpr (sizeof(C) == 1) {
            Put(text, count);
        } else {
            for (std::size_t i = 0; i < count; ++i) Put(static_cast<C>(static_cast<unsigned char>(text[i])));
        }
    }

    void Fill(char ch, std::uint64_t count) {
        while (count != 0) {
            const std::size_t now = static_cast<std::size_t>(std::min<std::uint64_t>(count, Room()));
            std::fill_n(at_, now, static_cast<C>(ch));
            at_ += now;
            count -= now;
            if (count != 0 && !MakeRoom()) {
                passed_ += count;
                return;
            }
        }
    }

private:
    [[gnu::noinline]] void PutSlow(const C* text, std::size_t count) {
        while (true) {
            const std::size_t now = std::min(count, Room());
            if (now != 0) std::memcpy(at_, text, now * sizeof(C));
            at_ += now;
            text += now;
            count -= now;
            if (count == 0) return;
            if (!MakeRoom()) {
                passed_ += count;
                return;
            }
        }
    }

    bool MakeRoom() {
        if (drain_ == nullptr) return false;
        const std::size_t taken = drain_(context_, begin_, Held());
        std::memmove(begin_, begin_ + taken, (Held() - taken) * sizeof(C));
        at_ -= taken;
        passed_ += taken;
        return true;
    }

    C* at_;
    C* end_;
    C* begin_;
    std::uint64_t passed_ = 0;  // counted but not in the buffer
    Drain drain_;
    void* context_;
};
