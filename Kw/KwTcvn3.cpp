// TCVN3, the Vietnamese 8-bit code, to and from UTF-16.
#include <array>
#include <cstdint>
#include <cstring>

#include "Kw/KwStr.h"

namespace {

using Unit = std::uint16_t;

// The UTF-16 unit of each byte. The code puts accented capitals in place of twelve control characters and on
// 80 to 9F; 00 has no unit.
constexpr std::array<Unit, 256> kToUnit = [] {
    constexpr Unit kLow[24] = {
        0x0000, 0x00DA, 0x1EE4, 0x0003, 0x1EEA, 0x1EEC, 0x1EEE, 0x0007, 0x0008, 0x0009, 0x000A, 0x000B,
        0x000C, 0x000D, 0x000E, 0x000F, 0x0010, 0x1EE8, 0x1EF0, 0x1EF2, 0x1EF6, 0x1EF8, 0x00DD, 0x1EF4,
    };
    constexpr Unit kHigh[128] = {
        // clang-format off
        /* 80 */ 0x00C0, 0x1EA2, 0x00C3, 0x00C1, 0x1EA0, 0x1EB6, 0x1EAC, 0x00C8,
        /* 88 */ 0x1EBA, 0x1EBC, 0x00C9, 0x1EB8, 0x1EC6, 0x00CC, 0x1EC8, 0x0128,
        /* 90 */ 0x00CD, 0x1ECA, 0x00D2, 0x1ECE, 0x00D5, 0x00D3, 0x1ECC, 0x1ED8,
        /* 98 */ 0x1EDC, 0x1EDE, 0x1EE0, 0x1EDA, 0x1EE2, 0x00D9, 0x1EE6, 0x0168,
        /* A0 */ 0x00A0, 0x0102, 0x00C2, 0x00CA, 0x00D4, 0x01A0, 0x01AF, 0x0110,
        /* A8 */ 0x0103, 0x00E2, 0x00EA, 0x00F4, 0x01A1, 0x01B0, 0x0111, 0x1EB0,
        /* B0 */ 0x0300, 0x0309, 0x0303, 0x0301, 0x0323, 0x00E0, 0x1EA3, 0x00E3,
        /* B8 */ 0x00E1, 0x1EA1, 0x1EB2, 0x1EB1, 0x1EB3, 0x1EB5, 0x1EAF, 0x1EB4,
        /* C0 */ 0x1EAE, 0x1EA6, 0x1EA8, 0x1EAA, 0x1EA4, 0x1EC0, 0x1EB7, 0x1EA7,
        /* C8 */ 0x1EA9, 0x1EAB, 0x1EA5, 0x1EAD, 0x00E8, 0x1EC2, 0x1EBB, 0x1EBD,
        /* D0 */ 0x00E9, 0x1EB9, 0x1EC1, 0x1EC3, 0x1EC5, 0x1EBF, 0x1EC7, 0x00EC,
        /* D8 */ 0x1EC9, 0x1EC4, 0x1EBE, 0x1ED2, 0x0129, 0x00ED, 0x1ECB, 0x00F2,
        /* E0 */ 0x1ED4, 0x1ECF, 0x00F5, 0x00F3, 0x1ECD, 0x1ED3, 0x1ED5, 0x1ED7,
        /* E8 */ 0x1ED1, 0x1ED9, 0x1EDD, 0x1EDF, 0x1EE1, 0x1EDB, 0x1EE3, 0x00F9,
        /* F0 */ 0x1ED6, 0x1EE7, 0x0169, 0x00FA, 0x1EE5, 0x1EEB, 0x1EED, 0x1EEF,
        /* F8 */ 0x1EE9, 0x1EF1, 0x1EF3, 0x1EF7, 0x1EF9, 0x00FD, 0x1EF5, 0x1ED0,
        // clang-format on
    };
    std::array<Unit, 256> table{};
    for (unsigned int i = 0; i < 256; ++i) {
        table[i] = i < 24 ? kLow[i] : i < 128 ? static_cast<Unit>(i) : kHigh[i - 128];
    }
    return table;
}();

// The byte of each unit, 0 for none: by the unit's high byte one of a few pages, and there by its low byte.
// All of it takes 2 KB instead of the 64 KB of a flat table, so it stays in the cache.
struct ReverseTable {
    std::array<unsigned char, 256> page{};
    std::array<std::array<unsigned char, 256>, 6> bytes{};

    constexpr unsigned char Find(unsigned int unit) const { return bytes[page[unit >> 8]][unit & 0xFF]; }
};

constexpr ReverseTable kToByte = [] {
    ReverseTable table;
    unsigned char used = 1;  // page 0 is the empty one
    for (unsigned int i = 1; i < 256; ++i) {
        unsigned char& page = table.page[kToUnit[i] >> 8];
        if (page == 0) page = used++;
        table.bytes[page][kToUnit[i] & 0xFF] = static_cast<unsigned char>(i);
    }
    return table;
}();

Unit LoadUnit(const unsigned char* from) {
    Unit unit = 0;
    std::memcpy(&unit, from, sizeof(unit));
    return unit;
}

void StoreUnit(unsigned char* to, Unit unit) {
    std::memcpy(to, &unit, sizeof(unit));
}

}  // namespace

int KwStr::TCVN3ToUTF16(void* dst, int dstBytes, const void* src, int srcLen) {
    if (dst == nullptr || dstBytes < 2) return 0;
    auto* out = static_cast<unsigned char*>(dst);
    const auto* in = static_cast<const unsigned char*>(src);
    const int room = dstBytes / 2 - 1;
    // Without a length the zero at the source's end stops the loop.
    const int limit = src == nullptr ? 0 : srcLen < 0 || srcLen > room ? room : srcLen;
    int count = 0;
    for (; count < limit; ++count, out += 2) {
        const Unit unit = kToUnit[in[count]];
        if (unit == 0) break;
        StoreUnit(out, unit);
    }
    StoreUnit(out, 0);
    return count * 2;
}

int KwStr::UTF16ToTCVN3(void* dst, int dstSize, const void* src, int srcBytes) {
    if (dst == nullptr || dstSize < 1) return 0;
    auto* out = static_cast<unsigned char*>(dst);
    const auto* in = static_cast<const unsigned char*>(src);
    const int room = dstSize - 1;
    const int limit = src == nullptr ? 0 : srcBytes < 0 || srcBytes / 2 > room ? room : srcBytes / 2;
    int count = 0;
    for (; count < limit; ++count, in += 2) {
        const unsigned char byte = kToByte.Find(LoadUnit(in));
        if (byte == 0) break;
        out[count] = byte;
    }
    out[count] = 0;
    return count;
}

int KwStr::GetUTF16CharacterExist(unsigned char* exist, int from, int to) {
    if (exist == nullptr || from > to) return 0;
    int found = 0;
    for (std::int64_t unit = from; unit <= to; ++unit) {
        const bool has = unit >= 0 && unit <= 0xFFFF && kToByte.Find(static_cast<unsigned int>(unit)) != 0;
        *exist++ = has ? 1 : 0;
        found += has ? 1 : 0;
    }
    return found;
}
