// From the bytes of a terminal or a pipe to key codes. Internal to the seam.
#pragma once

namespace KwPlatform {

constexpr int kKeyEnter = 13;
constexpr int kKeyBackspace = 8;

struct KeyDecoded {
    int used;         // bytes of the key; 0: more have to arrive to tell
    int first = -1;   // see KeyRead; -1: the bytes are no key
    int second = -1;  // the key behind a prefix, or -1
};

// Decodes the key at `bytes` (`count` is at least 1). `last`: nothing more belongs to it.
KeyDecoded DecodeKey(const unsigned char* bytes, int count, bool terminal, bool last);

}  // namespace KwPlatform
