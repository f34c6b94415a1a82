#include "Kw/Res/KwNrv2b.h"

#ifdef KW_WITH_UCL

#include <ucl/ucl.h>

#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr unsigned char kLastByte = 0xFF;  // of the end mark, which is the end of every stream

bool Unpack(const unsigned char* packed, unsigned int packedSize, unsigned char* out, unsigned int outSize) {
    ucl_uint produced = outSize;
    return ucl_nrv2b_decompress_safe_8(packed, packedSize, out, &produced, nullptr) == UCL_E_OK && produced == outSize;
}

}  // namespace

bool KwNrv2bAvailable() {
    static const bool available = ucl_init() == UCL_E_OK;
    return available;
}

bool KwNrv2bUnpack(const void* packed, unsigned int packedSize, void* out, unsigned int outSize, bool slack) {
    if (packed == nullptr || packedSize == 0 || packedSize > kNrv2bMaxSize) return false;
    // Beyond the limit the decoder's own sums could wrap and its checks would pass.
    if (outSize > kNrv2bMaxSize || (out == nullptr && outSize != 0)) return false;
    const unsigned char* in = static_cast<const unsigned char*>(packed);
    if (in[packedSize - 1] != kLastByte) return false;
    unsigned char* to = static_cast<unsigned char*>(out);
    if (slack) return Unpack(in, packedSize, to, outSize);
    // The decoder checks for the end after it has fetched a byte of bits, so a damaged stream makes it look
    // one byte too far.
    unsigned char local[4096];
    if (packedSize < sizeof(local)) {
        std::memcpy(local, in, packedSize);
        local[packedSize] = 0;
        return Unpack(local, packedSize, to, outSize);
    }
    const std::unique_ptr<unsigned char[]> copy(new (std::nothrow) unsigned char[packedSize + 1]);
    if (copy == nullptr) return false;
    std::memcpy(copy.get(), in, packedSize);
    copy[packedSize] = 0;
    return Unpack(copy.get(), packedSize, to, outSize);
}

bool KwNrv2bPack(const void* data, unsigned int size, std::vector<unsigned char>& out, int level) {
    out.clear();
    if (!KwNrv2bAvailable() || data == nullptr || size == 0 || size > kNrv2bMaxSize || level < 1 || level > 10) {
        return false;
    }
    const unsigned int room = size / 8 + 256;  // the most that a stream grows
    if (size > kNrv2bMaxSize - room) return false;
    try {
        out.resize(size + room);
    } catch (const std::bad_alloc&) {
        return false;
    }
    ucl_uint packed = 0;
    if (ucl_nrv2b_99_compress(static_cast<const unsigned char*>(data), size, out.data(), &packed, nullptr, level,
                              nullptr, nullptr) != UCL_E_OK) {
        packed = 0;
    }
    out.resize(packed);
    return packed != 0;
}

#else

bool KwNrv2bAvailable() {
    return false;
}

bool KwNrv2bUnpack(const void*, unsigned int, void*, unsigned int, bool) {
    return false;
}

bool KwNrv2bPack(const void*, unsigned int, std::vector<unsigned char>& out, int) {
    out.clear();
    return false;
}

#endif
