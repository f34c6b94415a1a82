// TCVN3 conversions between buffers of any size and alignment; what converts must convert back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Kw/KwStr.h"

namespace {

void Check(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

// The first byte chooses the room, the rest is the source.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > 4096) return 0;
    const int room = data[0];
    const std::vector<unsigned char> source(data + 1, data + size);
    const int length = static_cast<int>(source.size());

    std::vector<unsigned char> units(static_cast<std::size_t>(room));
    std::vector<unsigned char> bytes(source.size() + 1);
    const int wrote = KwStr::TCVN3ToUTF16(units.data(), room, source.data(), length);
    Check(wrote % 2 == 0 && (wrote == 0 || wrote + 2 <= room) && wrote / 2 <= length);
    Check(KwStr::UTF16ToTCVN3(bytes.data(), length + 1, units.data(), wrote) == wrote / 2);
    Check(std::memcmp(bytes.data(), source.data(), static_cast<std::size_t>(wrote / 2)) == 0);

    // The source as UTF-16 at an odd address.
    std::vector<unsigned char> narrow(static_cast<std::size_t>(room));
    const int count = KwStr::UTF16ToTCVN3(narrow.data(), room, source.data() + 1, length - 1);
    Check(count == 0 || (count < room && count <= (length - 1) / 2 && narrow[static_cast<std::size_t>(count)] == 0));
    return 0;
}
