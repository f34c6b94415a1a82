// KwFileWriter: the bytes that a KwFile holds back from its stream. Internal.
//
// The stream itself is unbuffered: a C library's buffer loses what a full disk refuses.
#pragma once

#include <cstdio>

#include "Kw/KwMemory.h"

class KwFileWriter {
public:
    KW_TRACKED_NEW

    static constexpr unsigned int kSize = 8000;

    unsigned int GetHeld() const { return used_; }
    // Where the next bytes go, and how many fit; Add counts them in.
    char* GetRoom(unsigned int& room) {
        room = kSize - used_;
        return bytes_ + used_;
    }
    void Add(unsigned int count) { used_ += count; }

    // Hands everything to the system. False when it took not all: the rest stays, in order.
    bool Flush(std::FILE* stream);

private:
    unsigned int used_ = 0;
    char bytes_[kSize];
};
