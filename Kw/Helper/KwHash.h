// KwHash: the string hash and the payload scrambler of the library's file formats.
//
// Both are fixed for good: pack directories store the hash and journals store scrambled payloads. The
// definitions below are complete, so a tool in any language can write and read these files.
// Thread-safety: everything may be called from any thread; RoundData needs its buffer alone.
#pragma once

#include "Kw/KwDefine.h"

class KW_API KwHash {
public:
    // The 32-bit hash of `length` bytes of `text`, of all up to the terminating zero when `length` is
    // negative. Null hashes as the empty text. No defence against chosen collisions.
    //
    // Definition: XXH32 with seed 0, all sums and products modulo 2^32, words little-endian, rotl a rotation
    // to the left. P1 = 2654435761, P2 = 2246822519, P3 = 3266489917, P4 = 668265263, P5 = 374761393.
    //   1. At 16 bytes or more: four lanes v1 = P1 + P2, v2 = P2, v3 = 0, v4 = -P1. From the front, while 16
    //      bytes are left, each lane takes the next word w: v = rotl(v + w * P2, 13) * P1.
    //      h = rotl(v1, 1) + rotl(v2, 7) + rotl(v3, 12) + rotl(v4, 18). Below 16 bytes: h = P5.
    //   2. h += length. For each whole word w left: h = rotl(h + w * P3, 17) * P4.
    //      For each byte b left then: h = rotl(h + b * P5, 11) * P1.
    //   3. h ^= h >> 15, h *= P2, h ^= h >> 13, h *= P3, h ^= h >> 16.
    // Vectors: "" 02CC5D05, "a" 550D7456, "abc" 32D153FF, "\data\item.ds" 254D68CE.
    static unsigned int HashString2(const char* text, int length = -1);

    // Scrambles `length` bytes in place; the same call with the same `key` brings them back. It keeps
    // payloads from being read or searched by accident and is no encryption. Nothing for null or length 0.
    //
    // Definition: byte i is xored with byte i % 8, counted from the lowest, of the 64-bit number
    // S(i / 8), all arithmetic modulo 2^64 (the SplitMix64 sequence seeded with the key):
    //   z = key + (n + 1) * 0x9E3779B97F4A7C15
    //   z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9
    //   z = (z ^ z >> 27) * 0x94D049BB133111EB
    //   S(n) = z ^ z >> 31
    // Vectors: 16 zero bytes with key 0 become AF CD 1D 7B 39 A8 20 E2 F4 65 B9 A1 6A 9E 78 6E.
    static void RoundData(void* data, unsigned int length, unsigned int key);
};
