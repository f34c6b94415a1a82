// The cutter of streams: whatever the stream and however it is cut, it gives the packets that the whole stream holds.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Kw/Net/KwNetFrame.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) return 0;
    const unsigned int maxPacket = 3 + (data[0] | data[1] << 8) % (KwNetFrame::kMaxPacket - 2);
    unsigned int step = data[2];
    data += 3;
    size -= 3;
    KwNetFrame frames(maxPacket);
    std::size_t fed = 0, at = 0;  // of the stream
    while (true) {
        const unsigned char* packet = nullptr;
        unsigned int length = 0;
        const bool has = frames.HasPacket();
        const KwNetFrame::Cut cut = frames.Next(packet, length);
        if (has != (cut != KwNetFrame::Cut::kMore)) std::abort();
        const unsigned int told = at + 3 <= size ? data[at + 1] | data[at + 2] << 8 : 0;
        if (cut == KwNetFrame::Cut::kBad) {
            if (told >= 3 && told <= maxPacket) std::abort();
            return 0;
        }
        if (cut == KwNetFrame::Cut::kPacket) {
            if (length != told || length < 3 || length > maxPacket || at + length > fed) std::abort();
            if (std::memcmp(packet, data + at, length) != 0) std::abort();
            at += length;
            continue;
        }
        if (frames.GetRest() != fed - at) std::abort();
        if (fed >= at + 3 && (told < 3 || fed >= at + told)) std::abort();
        if (fed == size) return 0;
        std::size_t room = 0;
        unsigned char* const to = frames.Room(room);
        if (room == 0) std::abort();
        step = step * 31 + 7;
        const std::size_t part = std::min({room, size - fed, std::size_t{1} + step % 5000});
        std::memcpy(to, data + fed, part);
        frames.Filled(part);
        fed += part;
    }
}
