#include "Kw/Net/KwNetFrame.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kFirstSize = 4096;
constexpr std::size_t kLastSize = 65536;  // one read takes as many packets as the system gives, up to this

}  // namespace

unsigned char* KwNetFrame::Room(std::size_t& size) {
    const std::size_t rest = end_ - begin_;
    // A buffer that was filled to its end was too small for what came in, and a packet must fit whole.
    const bool wasFull = size_ != 0 && end_ == size_;
    const std::size_t packet = rest >= kHeader ? LengthAt(begin_) : 0;
    std::size_t want = std::max(size_, kFirstSize);
    while (want < kLastSize && (want < packet || (wasFull && want == size_))) want *= 2;
    if (want != size_) {
        std::unique_ptr<unsigned char[]> larger(new unsigned char[want]);
        if (rest != 0) std::memcpy(larger.get(), buffer_.get() + begin_, rest);
        buffer_ = std::move(larger);
        size_ = want;
    } else if (begin_ != 0 && rest != 0) {
        std::memmove(buffer_.get(), buffer_.get() + begin_, rest);
    }
    begin_ = 0;
    end_ = rest;
    size = size_ - end_;
    return buffer_.get() + end_;
}

KwNetFrame::Cut KwNetFrame::Next(const unsigned char*& packet, unsigned int& size) {
    const std::size_t rest = end_ - begin_;
    if (rest < kHeader) return Cut::kMore;
    const unsigned int length = LengthAt(begin_);
    if (length < kHeader || length > maxPacket_) return Cut::kBad;
    if (rest < length) return Cut::kMore;
    packet = buffer_.get() + begin_;
    size = length;
    begin_ += length;
    return Cut::kPacket;
}

bool KwNetFrame::HasPacket() const {
    const std::size_t rest = end_ - begin_;
    if (rest < kHeader) return false;
    const unsigned int length = LengthAt(begin_);
    return length < kHeader || length > maxPacket_ || rest >= length;
}
