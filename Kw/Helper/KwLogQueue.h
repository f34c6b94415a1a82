// KwLogQueue: lines on their way from many writers to one reader. Internal.
//
// Writers append to one of two blocks while the reader walks the other; Turn swaps them. Beyond the limit lines
// are dropped and counted. Nothing here uses the tracked allocator.
// Thread-safety: every operation under the owner's lock; the lines that Turn gave are the reader's until
// the next Turn.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <string>

class KwLogQueue {
public:
    static constexpr std::size_t kDefaultLimit = std::size_t{16} << 20;  // bytes

    // What Turn took: the lines in order.
    class Lines {
    public:
        // Calls `each(text, size)` for every line, the text terminated; returns their number.
        template <class Each>
        int ForEach(Each each) const {
            int count = 0;
            const char* at = bytes_.data();
            for (const char* const end = at + bytes_.size(); at != end; ++count) {
                std::uint32_t size;
                std::memcpy(&size, at, sizeof(size));
                each(at + sizeof(size), size);
                at += sizeof(size) + size + 1;
            }
            return count;
        }

    private:
        friend class KwLogQueue;
        std::string bytes_;  // for each line its size in 32 bits, its text, a terminator
    };

    void SetLimit(std::size_t bytes) { limit_ = bytes; }
    // False when the line was dropped.
    bool Push(const char* text, std::size_t size) {
        std::string& to = blocks_[filling_].bytes_;
        if (size > limit_ || to.size() > limit_ - size) return Drop();
        const auto prefix = static_cast<std::uint32_t>(size);
        const std::size_t needed = to.size() + sizeof(prefix) + size + 1;
        if (needed > to.capacity()) {
            try {
                to.reserve(needed * 2);
            } catch (const std::bad_alloc&) {
                return Drop();
            }
        }
        to.append(reinterpret_cast<const char*>(&prefix), sizeof(prefix));
        to.append(text, size);
        to.push_back('\0');
        return true;
    }
    // The lines so far; what is pushed from here on goes into the other block.
    const Lines& Turn() {
        const int full = filling_;
        filling_ ^= 1;
        std::string& empty = blocks_[filling_].bytes_;
        empty.clear();
        if (empty.capacity() > kKeep) std::string().swap(empty);
        return blocks_[full];
    }
    // Forgets what was pushed since the last Turn.
    void Clear() {
        blocks_[filling_].bytes_.clear();
        dropped_ = 0;
    }
    // Lines dropped since the last call.
    unsigned int TakeDropped() {
        const unsigned int count = dropped_;
        dropped_ = 0;
        return count;
    }

private:
    static constexpr std::size_t kKeep = std::size_t{1} << 20;  // bytes of an empty block

    bool Drop() {
        if (dropped_ != ~0u) ++dropped_;
        return false;
    }

    Lines blocks_[2];
    int filling_ = 0;
    std::size_t limit_ = kDefaultLimit;
    unsigned int dropped_ = 0;
};
