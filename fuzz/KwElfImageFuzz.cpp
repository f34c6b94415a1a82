// Linux images: the check alone, for what passes it may run. The bytes stand alone in their block, so that a
// read behind them is seen.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Kw/Helper/KwElfImage.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::vector<std::uint8_t> bytes(data, data + size);
    for (const unsigned int machine : {KwElfImage::kX64, KwElfImage::kArm64}) {
        KwElfImage image;
        if (image.Check(bytes.data(), bytes.size(), machine, 4096) && image.GetFileSize() > size) std::abort();
    }
    return 0;
}
