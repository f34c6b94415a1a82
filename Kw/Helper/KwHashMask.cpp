#include "Kw/Helper/KwHashMask.h"

#include <cstdint>
#include <cstring>

#include "Kw/Helper/KwHash.h"

namespace {

constexpr unsigned int kBlock = 32;

// A fixed count, for which compilers use the wide registers of the processor.
void XorBlock(unsigned char* data, const unsigned char* mask) {
    std::uint64_t words[kBlock / 8];
    std::uint64_t masks[kBlock / 8];
    std::memcpy(words, data, kBlock);
    std::memcpy(masks, mask, kBlock);
    for (unsigned int i = 0; i < kBlock / 8; ++i) words[i] ^= masks[i];
    std::memcpy(data, words, kBlock);
}

}  // namespace

void KwHashMask::Round(void* data, unsigned int length) {
    if (length > kMost) return KwHash::RoundData(data, length, length);
    if (length != length_) {
        // Zeros show the mask.
        std::memset(mask_, 0, length);
        KwHash::RoundData(mask_, length, length);
        length_ = length;
    }
    auto* bytes = static_cast<unsigned char*>(data);
    unsigned int at = 0;
    for (; length - at >= kBlock; at += kBlock) XorBlock(bytes + at, mask_ + at);
    for (; length - at >= 8; at += 8) {
        std::uint64_t word = 0;
        std::uint64_t mask = 0;
        std::memcpy(&word, bytes + at, 8);
        std::memcpy(&mask, mask_ + at, 8);
        word ^= mask;
        std::memcpy(bytes + at, &word, 8);
    }
    for (; at < length; ++at) bytes[at] = static_cast<unsigned char>(bytes[at] ^ mask_[at]);
}
