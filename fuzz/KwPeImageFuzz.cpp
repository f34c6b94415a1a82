// Windows images: all that the loader does with one short of running it. The bytes stand alone in their block, so
// that a read behind them is seen; a checksum is taken out, for no change would pass it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Kw/Helper/KwPeImage.h"

namespace {

class Binder : public KwPeBinder {
public:
    bool OnLibrary(const char* library) override { return library[0] != '\0' && library[0] != '!'; }
    bool OnImport(const char* name, unsigned int ordinal, std::uint32_t& out) override {
        out = name != nullptr ? static_cast<std::uint32_t>(std::strlen(name)) : ordinal;
        return out != 0xFFFF;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> bytes(data, data + size);
    if (size >= 64) {
        const std::size_t at = bytes[60] + 256u * bytes[61] + 88;
        if (at + 4 <= size) std::memset(bytes.data() + at, 0, 4);
    }
    KwPeImage image;
    if (!image.Open(bytes.data(), bytes.size()) || image.GetSize() > (1u << 22)) return 0;
    std::vector<unsigned char> block(image.GetSize());
    image.Lay(block.data());
    bytes.clear();
    bytes.shrink_to_fit();
    std::vector<std::uint32_t> callbacks;
    Binder binder;
    const std::uint32_t base = image.GetBase() + (size % 2 != 0 ? 0x30000 : 0);
    if (!image.Move(base) || !image.ReadCallbacks(callbacks) || !image.Bind(nullptr)) return 0;
    if (!image.Bind(&binder) || !image.ReadExports()) return 0;
    for (const char* name : {"TinyState", "TinyForward", "", "a"}) {
        const KwPeImage::Export found = image.FindExport(name);
        if (found.address >= image.GetSize()) std::abort();
        if (found.forwarder != nullptr && std::strlen(found.forwarder) >= image.GetSize()) std::abort();
    }
    return 0;
}
