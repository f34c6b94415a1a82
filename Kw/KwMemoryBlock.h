// KwMemoryBlock: the layout of a tracked block. Internal to the allocator.
//
// header | data (requested size) | trailer guard (4 bytes). The caller's pointer is the data; the
// header guard stands in the two bytes right before it.
#pragma once

#include <cstdint>
#include <cstring>

#include "Kw/KwLink.h"

struct KwMemoryBlock : SKwNode {
    static constexpr std::uint16_t kGuard = 0x5B7D;
    static constexpr std::uint32_t kTrailer = 0x00005B7D;
    // What one block costs beyond its data, in the numbers that pools and counters use on every build.
    static constexpr unsigned int kOverhead = 32;
    static constexpr std::uint8_t kAllocated = 1;
    static constexpr std::uint8_t kAutoFree = 2;

    std::uint32_t size;  // requested bytes
    const char* file;    // the caller's source, may be null
    std::int32_t line;
    std::uint8_t flags;
    std::uint8_t pool;  // 0: taken from the system by itself; else the 1-based pool
    std::uint16_t guard;

    static KwMemoryBlock* FromData(void* data) {
        return reinterpret_cast<KwMemoryBlock*>(static_cast<unsigned char*>(data) - sizeof(KwMemoryBlock));
    }
    unsigned char* Data() { return reinterpret_cast<unsigned char*>(this) + sizeof(KwMemoryBlock); }

    void SetTrailer() { std::memcpy(Data() + size, &kTrailer, sizeof(kTrailer)); }
    bool TrailerIntact() { return std::memcmp(Data() + size, &kTrailer, sizeof(kTrailer)) == 0; }

    // Bytes to take from the system for `dataSize` bytes of data.
    static std::size_t SystemSize(std::size_t dataSize) { return sizeof(KwMemoryBlock) + dataSize + sizeof(kTrailer); }
};

static_assert(sizeof(void*) != 4 || sizeof(KwMemoryBlock) == 28, "the header of a 32-bit build");
static_assert(sizeof(void*) != 8 || sizeof(KwMemoryBlock) == 48, "keeps the data 16-byte aligned");
