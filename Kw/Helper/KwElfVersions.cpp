// The versions of an image's symbols.
#include <algorithm>
#include <cstring>

#include "Kw/Helper/KwElfFormat.h"
#include "Kw/Helper/KwElfImage.h"

using namespace KwElf;

namespace {

constexpr std::uint64_t kNeedSize = 16;  // of a library, and of a version of it
constexpr std::uint64_t kDefinitionSize = 20;
constexpr std::uint64_t kNameSize = 8;

std::uint32_t HashOf(const char* text) {
    std::uint32_t hash = 0;
    for (; *text != '\0'; ++text) {
        hash = (hash << 4) + static_cast<unsigned char>(*text);
        hash = (hash ^ ((hash & 0xF0000000) >> 24)) & 0x0FFFFFFF;
    }
    return hash;
}

}  // namespace

bool KwElfImage::CheckVersions() {
    versions_.assign(0x8000, false);
    versions_[0] = versions_[1] = true;
    std::uint64_t highest = 0;
    if (HasTag(kTagNeeds) != HasTag(kTagNeedCount) || HasTag(kTagDefinitions) != HasTag(kTagDefinitionCount)) {
        return false;
    }
    if (!ReadNeeds(highest) || !ReadDefinitions(highest)) return false;
    if (!HasTag(kTagVersions)) return highest == 0;
    // The loader takes the version of each symbol from a list that it makes of the tables.
    const std::uint64_t at = Tag(kTagVersions);
    const unsigned char* const p = At(at, 2 * symbolCount_);
    if (highest == 0 || p == nullptr) return false;
    tables_.push_back({at, 2 * symbolCount_});
    for (std::uint64_t i = 0; i < symbolCount_; ++i) {
        if (!versions_[Get16(p + 2 * i) & 0x7FFF]) return false;
    }
    return true;
}

bool KwElfImage::TakeVersion(std::uint32_t hash, std::uint32_t name, std::uint32_t index, std::uint64_t& highest) {
    const char* const text = Text(name);
    if (text == nullptr || std::strlen(text) > 65535 || HashOf(text) != hash) return false;
    index &= 0x7FFF;
    if (index == 0) return false;
    versions_[index] = true;
    highest = std::max<std::uint64_t>(highest, index);
    return true;
}

// What it needs of other libraries: a chain of libraries, each with a chain of versions.
bool KwElfImage::ReadNeeds(std::uint64_t& highest) {
    if (!HasTag(kTagNeeds)) return true;
    std::uint64_t at = Tag(kTagNeeds);
    for (std::uint64_t left = Tag(kTagNeedCount);; --left) {
        const unsigned char* const p = At(at, kNeedSize);
        if (left == 0 || p == nullptr || Get16(p) != 1) return false;
        tables_.push_back({at, kNeedSize});
        const char* const file = Text(Get32(p + 4));
        const auto isFile = [&](std::uint64_t offset) { return std::strcmp(Text(offset), file) == 0; };
        if (file == nullptr || !std::any_of(needed_.begin(), needed_.end(), isFile)) return false;
        std::uint64_t versionAt = at + Get32(p + 8);
        for (std::uint32_t versions = Get16(p + 2);; --versions) {
            const unsigned char* const v = At(versionAt, kNeedSize);
            if (versions == 0 || v == nullptr || tables_.size() > 65536) return false;
            tables_.push_back({versionAt, kNeedSize});
            if ((Get16(v + 6) & 0x7FFF) < 2) return false;
            if (!TakeVersion(Get32(v), Get32(v + 8), Get16(v + 6), highest)) return false;
            if (Get32(v + 12) == 0) {
                if (versions != 1) return false;
                break;
            }
            versionAt += Get32(v + 12);
        }
        if (Get32(p + 12) == 0) return left == 1;
        at += Get32(p + 12);
    }
}

bool KwElfImage::ReadDefinitions(std::uint64_t& highest) {
    if (!HasTag(kTagDefinitions)) return true;
    std::uint64_t at = Tag(kTagDefinitions);
    for (std::uint64_t left = Tag(kTagDefinitionCount);; --left) {
        const unsigned char* const p = At(at, kDefinitionSize);
        if (left == 0 || p == nullptr || Get16(p) != 1 || tables_.size() > 65536) return false;
        const std::uint64_t nameAt = at + Get32(p + 12);
        const unsigned char* const name = At(nameAt, kNameSize);
        if (name == nullptr || !TakeVersion(Get32(p + 8), Get32(name), Get16(p + 4), highest)) return false;
        tables_.push_back({at, kDefinitionSize});
        tables_.push_back({nameAt, kNameSize});
        if (Get32(p + 16) == 0) return left == 1;
        at += Get32(p + 16);
    }
}
