// KwHashMask: scrambles payloads as KwHash::RoundData does with their length as the key. Internal.
//
// What RoundData xors depends on the key alone. Records mostly follow others of the same length, so it is kept and
// not worked out once more.
// Thread-safety: belongs to one thread at a time.
#pragma once

class KwHashMask {
public:
    // KwHash::RoundData(data, length, length).
    void Round(void* data, unsigned int length);

private:
    static constexpr unsigned int kMost = 512;  // bytes of the longest payload that is done so

    unsigned int length_ = 0;      // for which mask_ is
    unsigned char mask_[kMost]{};  // what RoundData xors
};
