// KwNetPacketView: reads a command packet in place.
//
// Checks the whole packet once; name and parameters are then views of the packet's own bytes, zero bytes included.
// Thread-safety: an object belongs to one thread at a time. The packet must stay as long as the views are used.
#pragma once

#include <string_view>

#include "Kw/KwDefine.h"

class KW_API KwNetPacketView {
public:
    // False, with no command and no parameters, for what KwNetPacket::RecvPacket refuses.
    bool Read(const void* packet, unsigned int len);

    unsigned char GetType() const { return type_; }
    std::string_view GetCommand() const { return command_; }
    unsigned int GetCount() const { return count_; }
    // An empty view behind the last one.
    std::string_view GetParam(unsigned int index) const {
        if (index >= count_) return {};
        const char* const text = packet_ + offsets_[index];
        return {text, static_cast<unsigned char>(text[-1])};
    }

private:
    const char* packet_ = nullptr;
    std::string_view command_;
    unsigned int count_ = 0;
    unsigned char type_ = 0;
    unsigned short offsets_[255];  // of the parameters' texts
};
