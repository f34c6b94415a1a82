#include "Kw/Net/KwNetPacketView.h"

bool KwNetPacketView::Read(const void* packet, unsigned int len) {
    count_ = 0;
    command_ = {};
    packet_ = static_cast<const char*>(packet);
    const auto* const bytes = static_cast<const unsigned char*>(packet);
    if (packet == nullptr || len < 5 || (bytes[1] | bytes[2] << 8) != static_cast<int>(len)) return false;
    const unsigned int nameSize = bytes[3];
    unsigned int at = 4 + nameSize;
    if (nameSize == 0 || at >= len) return false;
    const unsigned int count = bytes[at++];
    for (unsigned int i = 0; i < count; ++i) {
        if (at >= len) return false;
        offsets_[i] = static_cast<unsigned short>(at + 1);
        at += 1 + bytes[at];
    }
    if (at != len) return false;
    type_ = bytes[0];
    command_ = {packet_ + 4, nameSize};
    count_ = count;
    return true;
}
