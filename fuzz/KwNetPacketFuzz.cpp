// Command packets: any bytes through KwNetPacket::RecvPacket and the view, which must agree; what was read is built
// again and must be the same bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwBuffer.h"
#include "Kw/Net/KwNetPacket.h"
#include "Kw/Net/KwNetPacketView.h"

namespace {

bool HasZero(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

void Check(std::vector<unsigned char> bytes) {
    static KwNetPacket packet(70000), again(70000), small(20);
    const auto size = static_cast<unsigned int>(bytes.size());
    KwNetPacketView view;
    const bool read = view.Read(bytes.data(), size);
    small.RecvPacket(bytes.data(), size);
    if (packet.RecvPacket(bytes.data(), size) && !read) std::abort();
    if (!read || HasZero(view.GetCommand())) return;
    if (packet.GetCommand() != view.GetCommand() || packet.GetParams().size() != view.GetCount()) std::abort();
    again.CreateCommand(view.GetType(), packet.GetCommand().c_str());
    unsigned int i = 0;
    for (const std::string& param : packet.GetParams()) {
        if (HasZero(view.GetParam(i))) return;
        if (param != view.GetParam(i++)) std::abort();
        again.PushCommandParam(param.c_str());
    }
    KwBuffer* const built = again.MakePacket();
    if (built == nullptr || built->GetUsed() != size || std::memcmp(built->GetData(), bytes.data(), size) != 0)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 65535) return 0;
    std::vector<unsigned char> bytes(data, data + size);
    Check(bytes);
    if (size < 3) return 0;
    // The length is right more often than chance has it.
    bytes[1] = static_cast<unsigned char>(size);
    bytes[2] = static_cast<unsigned char>(size >> 8);
    Check(std::move(bytes));
    return 0;
}
