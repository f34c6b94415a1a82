#include "Kw/Helper/KwHash.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::uint32_t kPrime1 = 2654435761U;
constexpr std::uint32_t kPrime2 = 2246822519U;
constexpr std::uint32_t kPrime3 = 3266489917U;
constexpr std::uint32_t kPrime4 = 668265263U;
constexpr std::uint32_t kPrime5 = 374761393U;

// A little-endian number at any address, on any machine.
template <typename Number>
Number Load(const unsigned char* from) {
    Number value = 0;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(&value, from, sizeof(value));
    } else {
        for (std::size_t i = sizeof(value); i-- > 0;) value = static_cast<Number>(value << 8 | from[i]);
    }
    return value;
}

void Store(unsigned char* to, std::uint64_t value) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(to, &value, sizeof(value));
    } else {
        for (std::size_t i = 0; i < sizeof(value); ++i) to[i] = static_cast<unsigned char>(value >> 8 * i);
    }
}

std::uint32_t Round(std::uint32_t lane, const unsigned char* from) {
    return std::rotl(lane + Load<std::uint32_t>(from) * kPrime2, 13) * kPrime1;
}

}  // namespace

unsigned int KwHash::HashString2(const char* text, int length) {
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    std::size_t left = text == nullptr ? 0 : length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
    const auto total = static_cast<std::uint32_t>(left);
    std::uint32_t hash = kPrime5;
    if (left >= 16) {
        std::uint32_t lane1 = kPrime1 + kPrime2;
        std::uint32_t lane2 = kPrime2;
        std::uint32_t lane3 = 0;
        std::uint32_t lane4 = 0U - kPrime1;
        for (; left >= 16; left -= 16, p += 16) {
            lane1 = Round(lane1, p);
            lane2 = Round(lane2, p + 4);
            lane3 = Round(lane3, p + 8);
            lane4 = Round(lane4, p + 12);
        }
        hash = std::rotl(lane1, 1) + std::rotl(lane2, 7) + std::rotl(lane3, 12) + std::rotl(lane4, 18);
    }
    hash += total;
    for (; left >= 4; left -= 4, p += 4) hash = std::rotl(hash + Load<std::uint32_t>(p) * kPrime3, 17) * kPrime4;
    for (; left > 0; --left, ++p) hash = std::rotl(hash + *p * kPrime5, 11) * kPrime1;
    hash = (hash ^ hash >> 15) * kPrime2;
    hash = (hash ^ hash >> 13) * kPrime3;
    return hash ^ hash >> 16;
}

void KwHash::RoundData(void* data, unsigned int length, unsigned int key) {
    if (data == nullptr) return;
    auto* p = static_cast<unsigned char*>(data);
    std::uint64_t state = key;
    const auto next = [&state] {
        state += 0x9E3779B97F4A7C15U;
        std::uint64_t z = state;
        z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9U;
        z = (z ^ z >> 27) * 0x94D049BB133111EBU;
        return z ^ z >> 31;
    };
    for (; length >= 8; length -= 8, p += 8) Store(p, Load<std::uint64_t>(p) ^ next());
    std::uint64_t mask = length > 0 ? next() : 0;
    for (; length > 0; --length, ++p, mask >>= 8) *p = static_cast<unsigned char>(*p ^ mask);
}
