// The section headers of an image, which no loader needs, say the same a second time: where they are there, both agree.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "Kw/Helper/KwElfFormat.h"
#include "Kw/Helper/KwElfImage.h"

using namespace KwElf;

bool KwElfImage::ReadSections() {
    sections_.reserve(sectionCount_);
    for (std::uint32_t i = 0; i < sectionCount_; ++i) {
        const unsigned char* const p = data_ + sectionTable_ + std::uint64_t{64} * i;
        const Section section{Get32(p),      Get32(p + 4),  Get64(p + 8), Get64(p + 16),
                              Get64(p + 24), Get64(p + 32), Get32(p + 40)};
        sections_.push_back(section);
        if (section.type != 0 && section.type != kNoBytes && !InFile(section.offset, section.size)) return false;
        if (section.link >= sectionCount_) return false;
    }
    if (sections_.empty()) return true;
    const Section& names = sections_[sectionNames_];
    return names.type == kStringTable && names.size != 0 && data_[names.offset + names.size - 1] == '\0';
}

bool KwElfImage::CheckSections() const {
    for (const Section& section : sections_) {
        if (section.type != 0 && (section.flags & kSectionAlloc) != 0 && !CheckSection(section)) return false;
    }
    return true;
}

bool KwElfImage::CheckSection(const Section& section) const {
    const std::string_view name = NameOf(section);
    const bool inThreads = section.type == kNoBytes && (section.flags & kSectionThread) != 0;
    if (section.size != 0 && !inThreads) {
        std::uint32_t rights = kRead;
        if ((section.flags & kSectionWrite) != 0) rights |= kWrite;
        if ((section.flags & kSectionExecute) != 0) rights |= kExecute;
        if (!Has(section.address, section.size, rights)) return false;
        if (section.type != kNoBytes && At(section.address, section.size) != data_ + section.offset) return false;
    }
    if (name == ".init" && !IsTable(section, kTagInit, 0) && !IsFunction(Tag(kTagInit))) return false;
    if (name == ".fini" && !IsTable(section, kTagFini, 0) && !IsFunction(Tag(kTagFini))) return false;
    const bool isData = name == ".bss" || name == ".data" || name == ".ldata" || name == ".lbss";
    const Segment* const later = Part(kReadOnlyLater);
    if (later != nullptr && section.size != 0 && !inThreads && isData) {
        // What the code writes to must not become read-only.
        const std::uint64_t first = later->address / page_ * page_;
        const std::uint64_t last = (later->address + later->size) / page_ * page_;
        if (section.address < last && section.address + section.size > first) return false;
    }
    const Segment* const dynamic = Part(kDynamic);
    switch (section.type) {
        case kDynamicTable: return section.address == dynamic->address && section.size == dynamic->size;
        case kDynamicSymbols:
            return IsTable(section, kTagSymbols, 0) && section.size == symbolCount_ * kSymbolSize &&
                   IsTable(sections_[section.link], kTagStrings, kTagStringsSize);
        case kHashTable: return IsTable(section, kTagHash, 0);
        case kGnuHashTable: return IsTable(section, kTagGnuHash, 0);
        case kInitArray: return IsTable(section, kTagInitArray, kTagInitSize);
        case kFiniArray: return IsTable(section, kTagFiniArray, kTagFiniSize);
        case kVersionTable: return IsTable(section, kTagVersions, 0);
        case kNeedTable: return IsTable(section, kTagNeeds, 0);
        case kDefinitionTable: return IsTable(section, kTagDefinitions, 0);
        case kRelocationTable: {
            // One of the two tables, or a part of them.
            const bool first =
                HasTag(kTagRela) && Within(section.address, section.size, Tag(kTagRela), Tag(kTagRelaSize));
            return first ||
                   (HasTag(kTagJump) && Within(section.address, section.size, Tag(kTagJump), Tag(kTagJumpSize)));
        }
        default: return true;
    }
}

bool KwElfImage::IsTable(const Section& section, std::uint64_t tag, std::uint64_t sizeTag) const {
    if (section.size == 0) return true;
    return HasTag(tag) && Tag(tag) == section.address && (sizeTag == 0 || Tag(sizeTag) == section.size);
}

std::string_view KwElfImage::NameOf(const Section& section) const {
    const Section& names = sections_[sectionNames_];
    if (section.name >= names.size) return {};
    return reinterpret_cast<const char*>(data_ + names.offset + section.name);
}

// Whether a function begins there, by the table that unwinding uses.
bool KwElfImage::IsFunction(std::uint64_t address) const {
    const Segment* const frames = Part(kFrames);
    if (frames == nullptr || frames->fileSize < 12) return false;
    const unsigned char* const p = data_ + frames->offset;
    static constexpr unsigned char kForm[4] = {1, 0x1B, 3, 0x3B};  // offsets of 32 bits from the table's start
    if (std::memcmp(p, kForm, sizeof(kForm)) != 0) return false;
    const std::uint64_t count = std::min<std::uint64_t>(Get32(p + 8), (frames->fileSize - 12) / 8);
    const auto wanted = static_cast<std::uint32_t>(address - frames->address);
    for (std::uint64_t i = 0; i < count; ++i) {
        if (Get32(p + 12 + 8 * i) == wanted) return true;
    }
    return false;
}
