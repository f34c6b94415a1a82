// KwPackLayout: the bytes of a pack file's header and directory entries, for its reader and its writer. Internal.
//
// All numbers are little-endian; docs/packs.md shows the tables.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace KwPackLayout {

static_assert(std::endian::native == std::endian::little, "numbers are copied as they are");

constexpr unsigned int kMagic = 0x4B434150u;  // "PACK"
constexpr unsigned int kHeaderSize = 32;
constexpr unsigned int kEntrySize = 16;
constexpr unsigned int kMaxStored = 0xFFFFFFu;  // bytes of the largest body

// The last word of an entry: the stored size below, the method above.
constexpr unsigned int kMethodMask = 0xFF000000u;
constexpr unsigned int kMethodStored = 0;
constexpr unsigned int kMethodNrv2b = 0x01000000u;
constexpr unsigned int kMethodNrv2bOther = 0x20000000u;  // the same to a reader

struct Header {
    bool split = false;
    unsigned int count = 0;      // entries, at least 1
    unsigned int directory = 0;  // offset of the first
    unsigned int further = 0;    // an offset inside the file that nobody uses
};

struct Entry {
    unsigned int hash = 0;
    unsigned int offset = 0;
    unsigned int unpackedSize = 0;
    unsigned int word = 0;  // storedSize | method
};

template <typename Number>
Number Get(const unsigned char* bytes) {
    Number value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

template <typename Number>
void Put(unsigned char* bytes, Number value) {
    std::memcpy(bytes, &value, sizeof(value));
}

// False for bytes that no file of `fileSize` bytes may begin with; then `header` is not changed.
inline bool Decode(const unsigned char* bytes, std::uint64_t fileSize, Header& header) {
    using Word = std::uint32_t;
    const bool split = bytes[20] == 1;
    std::uint64_t count = Get<Word>(bytes + 4);
    std::uint64_t directory = Get<Word>(bytes + 8);
    std::uint64_t further = Get<Word>(bytes + 12);
    if (split) {
        count = (count << 16) + Get<std::uint16_t>(bytes + 29);
        directory = (directory << 16) + Get<Word>(bytes + 25);
        further = Get<Word>(bytes + 21) / 6;
    }
    const auto inside = [fileSize](std::uint64_t offset) { return offset >= kHeaderSize && offset < fileSize; };
    if (Get<Word>(bytes) != kMagic || fileSize <= kHeaderSize || fileSize > UINT32_MAX) return false;
    if (count == 0 || !inside(directory) || !inside(further)) return false;
    if (count > (fileSize - directory) / kEntrySize) return false;
    header.split = split;
    header.count = static_cast<unsigned int>(count);
    header.directory = static_cast<unsigned int>(directory);
    header.further = static_cast<unsigned int>(further);
    return true;
}

// Writes kHeaderSize bytes. In the split layout `further` is below 2^32 / 6.
inline void Encode(const Header& header, unsigned char* bytes) {
    using Word = std::uint32_t;
    std::memset(bytes, 0, kHeaderSize);
    Put<Word>(bytes, kMagic);
    if (!header.split) {
        Put<Word>(bytes + 4, header.count);
        Put<Word>(bytes + 8, header.directory);
        Put<Word>(bytes + 12, header.further);
        return;
    }
    Put<Word>(bytes + 4, header.count >> 16);
    Put<Word>(bytes + 8, header.directory >> 16);
    bytes[20] = 1;
    Put<Word>(bytes + 21, header.further * 6);
    Put<Word>(bytes + 25, header.directory & 0xFFFF);
    Put<std::uint16_t>(bytes + 29, static_cast<std::uint16_t>(header.count & 0xFFFF));
}

inline Entry DecodeEntry(const unsigned char* bytes) {
    Entry entry;
    entry.hash = Get<std::uint32_t>(bytes);
    entry.offset = Get<std::uint32_t>(bytes + 4);
    entry.unpackedSize = Get<std::uint32_t>(bytes + 8);
    entry.word = Get<std::uint32_t>(bytes + 12);
    return entry;
}

// Writes kEntrySize bytes.
inline void EncodeEntry(const Entry& entry, unsigned char* bytes) {
    Put<std::uint32_t>(bytes, entry.hash);
    Put<std::uint32_t>(bytes + 4, entry.offset);
    Put<std::uint32_t>(bytes + 8, entry.unpackedSize);
    Put<std::uint32_t>(bytes + 12, entry.word);
}

}  // namespace KwPackLayout
