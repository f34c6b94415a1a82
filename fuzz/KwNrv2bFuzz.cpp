// Unpacking: the input is two bytes of the wanted size and a stream. Both blocks end where no memory follows, so that
// one byte too far is a crash, in the decoder's own code too. What unpacks, packs and unpacks to the same.
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Kw/Res/KwNrv2b.h"

namespace {

constexpr std::size_t kRoom = 1u << 20;
constexpr std::size_t kPage = 4096;

// The end of a block of kRoom bytes with a page behind it that cannot be touched.
unsigned char* MakeEnd() {
    void* block = mmap(nullptr, kRoom + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) std::abort();
    unsigned char* end = static_cast<unsigned char*>(block) + kRoom;
    if (mprotect(end, kPage, PROT_NONE) != 0) std::abort();
    return end;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static unsigned char* const inEnd = MakeEnd();
    static unsigned char* const outEnd = MakeEnd();
    if (size < 2 || size - 2 > kRoom) return 0;
    const unsigned int outSize = data[0] + 256u * data[1];
    const unsigned int packedSize = static_cast<unsigned int>(size - 2);
    std::memcpy(inEnd - packedSize, data + 2, packedSize);
    const bool unpacked = KwNrv2bUnpack(inEnd - packedSize, packedSize, outEnd - outSize, outSize);
    // The same with the slack that is asked for.
    if (packedSize != 0 && packedSize < kRoom) {
        std::memcpy(inEnd - packedSize - 1, data + 2, packedSize);
        if (unpacked != KwNrv2bUnpack(inEnd - packedSize - 1, packedSize, outEnd - outSize, outSize, true))
            std::abort();
    }
    if (!unpacked || outSize == 0) return 0;
    std::vector<unsigned char> packed;
    if (!KwNrv2bPack(outEnd - outSize, outSize, packed, 3)) std::abort();
    std::vector<unsigned char> again(outSize);
    if (!KwNrv2bUnpack(packed.data(), static_cast<unsigned int>(packed.size()), again.data(), outSize)) std::abort();
    if (std::memcmp(again.data(), outEnd - outSize, outSize) != 0) std::abort();
    return 0;
}
