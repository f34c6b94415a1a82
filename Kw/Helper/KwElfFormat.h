// The numbers of the ELF format that KwElfImage knows. Internal.
#pragma once

#include <cstdint>

namespace KwElf {

enum SegmentType : std::uint32_t {
    kLoad = 1,
    kDynamic = 2,
    kInterpreter = 3,
    kNote = 4,
    kProgramHeaders = 6,
    kThread = 7,
    kFrames = 0x6474E550,
    kReadOnlyLater = 0x6474E552,
    kProperty = 0x6474E553
};

enum SectionType : std::uint32_t {
    kStringTable = 3,
    kRelocationTable = 4,
    kHashTable = 5,
    kDynamicTable = 6,
    kNoBytes = 8,
    kDynamicSymbols = 11,
    kInitArray = 14,
    kFiniArray = 15,
    kGnuHashTable = 0x6FFFFFF6,
    kDefinitionTable = 0x6FFFFFFD,
    kNeedTable = 0x6FFFFFFE,
    kVersionTable = 0x6FFFFFFF
};
enum SectionFlag : std::uint64_t { kSectionWrite = 1, kSectionAlloc = 2, kSectionExecute = 4, kSectionThread = 0x400 };

enum Tag : std::uint64_t {
    kTagNeeded = 1,
    kTagJumpSize = 2,
    kTagGot = 3,
    kTagHash = 4,
    kTagStrings = 5,
    kTagSymbols = 6,
    kTagRela = 7,
    kTagRelaSize = 8,
    kTagRelaUnit = 9,
    kTagStringsSize = 10,
    kTagSymbolUnit = 11,
    kTagInit = 12,
    kTagFini = 13,
    kTagName = 14,
    kTagPath = 15,
    kTagRel = 17,
    kTagJumpKind = 20,
    kTagTextMoves = 22,
    kTagJump = 23,
    kTagInitArray = 25,
    kTagFiniArray = 26,
    kTagInitSize = 27,
    kTagFiniSize = 28,
    kTagRunPath = 29,
    kTagFlags = 30,
    kTagPackedSize = 35,
    kTagPacked = 36,
    kTagPackedUnit = 37,
    kTagGnuHash = 0x6FFFFEF5,
    kTagDepAudit = 0x6FFFFEFB,
    kTagAudit = 0x6FFFFEFC,
    kTagVersions = 0x6FFFFFF0,
    kTagRelaCount = 0x6FFFFFF9,
    kTagFlags1 = 0x6FFFFFFB,
    kTagDefinitions = 0x6FFFFFFC,
    kTagDefinitionCount = 0x6FFFFFFD,
    kTagNeeds = 0x6FFFFFFE,
    kTagNeedCount = 0x6FFFFFFF,
    kTagAuxiliary = 0x7FFFFFFD,
    kTagFilter = 0x7FFFFFFF
};

enum SymbolType : unsigned int { kFunction = 2, kThreadVariable = 6, kIndirect = 10 };
constexpr unsigned int kUndefined = 0;
constexpr unsigned int kAbsolute = 0xFFF1;

constexpr std::uint64_t kSymbolSize = 24;
constexpr std::uint64_t kRelocationSize = 24;

inline std::uint32_t Get16(const unsigned char* at) {
    return at[0] | (static_cast<std::uint32_t>(at[1]) << 8);
}
inline std::uint32_t Get32(const unsigned char* at) {
    return Get16(at) | (Get16(at + 2) << 16);
}
inline std::uint64_t Get64(const unsigned char* at) {
    return Get32(at) | (static_cast<std::uint64_t>(Get32(at + 4)) << 32);
}

// Whether [at, at + size) lies in [from, from + room).
inline bool Within(std::uint64_t at, std::uint64_t size, std::uint64_t from, std::uint64_t room) {
    return at >= from && at - from <= room && size <= room - (at - from);
}

}  // namespace KwElf
