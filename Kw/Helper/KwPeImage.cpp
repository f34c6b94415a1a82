#include "Kw/Helper/KwPeImage.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

constexpr std::uint32_t kPage = 4096;
constexpr std::uint32_t kLargest = 0x7FFF0000;  // bytes of address space that a library may have
constexpr unsigned int kMaxSections = 96;

// Headers.
constexpr std::uint32_t kDosSize = 64;
constexpr std::uint32_t kFileHeader = 4;     // behind the signature
constexpr std::uint32_t kOptional = 24;      // behind the signature
constexpr std::uint32_t kOptionalSize = 96;  // without its directories
constexpr std::uint32_t kChecksum = kOptional + 64;
constexpr std::uint32_t kSectionSize = 40;
constexpr std::uint32_t kSymbolSize = 18;
constexpr std::uint32_t kMachine386 = 0x14C;
constexpr std::uint32_t kMagic32 = 0x10B;
enum FileFlags : std::uint32_t { kStripped = 1, kExecutableImage = 2, kLibrary = 0x2000 };
enum SectionFlags : std::uint32_t { kExecute = 0x20000000, kRead = 0x40000000, kWrite = 0x80000000 };

// Kinds of a correction.
enum Move { kMoveNone, kMoveHigh, kMoveLow, kMoveWord };

std::uint32_t Read16(const unsigned char* at) {
    return at[0] | (static_cast<std::uint32_t>(at[1]) << 8);
}
std::uint32_t Read32(const unsigned char* at) {
    return Read16(at) | (Read16(at + 2) << 16);
}
bool IsPowerOfTwo(std::uint32_t value) {
    return value != 0 && (value & (value - 1)) == 0;
}
std::uint64_t RoundUp(std::uint64_t value, std::uint32_t unit) {
    return (value + unit - 1) / unit * unit;
}

}  // namespace

KwPeBinder::~KwPeBinder() = default;

// Headers -------------------------------------------------------------------------------------------------------

bool KwPeImage::Open(const void* data, std::size_t size) {
    *this = KwPeImage();
    if (data == nullptr) return false;
    data_ = static_cast<const unsigned char*>(data);
    limitKnown_ = size != 0;
    // No read passes the end of the address space.
    const std::uint64_t toEnd = std::numeric_limits<std::uintptr_t>::max() - reinterpret_cast<std::uintptr_t>(data);
    limit_ = std::min<std::uint64_t>({limitKnown_ ? size : toEnd, toEnd, 0xFFFFFFFFu});
    if (limit_ < kDosSize || data_[0] != 'M' || data_[1] != 'Z') return false;
    const std::uint32_t at = Read32(data_ + 60);
    return at >= kDosSize && at % 4 == 0 && at + std::uint64_t{kOptional} + kOptionalSize <= limit_ && ReadHeaders(at);
}

bool KwPeImage::ReadHeaders(std::uint32_t at) {
    const unsigned char* const file = data_ + at + kFileHeader;
    const unsigned char* const optional = data_ + at + kOptional;
    if (std::memcmp(data_ + at, "PE\0\0", 4) != 0 || Read16(file) != kMachine386) return false;
    const std::uint32_t optionalSize = Read16(file + 16);
    const std::uint32_t flags = Read16(file + 18);
    if ((flags & kExecutableImage) == 0 || (flags & kLibrary) == 0 || Read16(optional) != kMagic32) return false;
    movable_ = (flags & kStripped) == 0;

    entry_ = Read32(optional + 16);
    base_ = Read32(optional + 28);
    const std::uint32_t memoryUnit = Read32(optional + 32);
    const std::uint32_t fileUnit = Read32(optional + 36);
    size_ = Read32(optional + 56);
    headerSize_ = Read32(optional + 60);
    const std::uint32_t directories = Read32(optional + 92);
    // Sections that share a page could not be protected one by one.
    if (!IsPowerOfTwo(memoryUnit) || memoryUnit < kPage || memoryUnit > kLargest) return false;
    if (!IsPowerOfTwo(fileUnit) || fileUnit < 512 || fileUnit > 65536) return false;
    if (base_ % 65536 != 0 || size_ > kLargest || directories > kDirectories) return false;
    if (optionalSize < kOptionalSize + 8 * directories) return false;

    const unsigned int count = Read16(file + 2);
    const std::uint64_t table = at + std::uint64_t{kOptional} + optionalSize;
    if (count == 0 || count > kMaxSections || table + std::uint64_t{count} * kSectionSize > headerSize_) return false;
    if (headerSize_ > limit_ || headerSize_ > size_) return false;
    for (unsigned int i = 0; i < directories; ++i) {
        const unsigned char* const entry = optional + kOptionalSize + std::size_t{8} * i;
        directories_[i] = {Read32(entry), Read32(entry + 4)};
        // Half a table would leave the image without what its code relies on.
        const bool isUsed = i == kExports || i == kImports || i == kMoves || i == kThread;
        if (isUsed && (directories_[i].address == 0) != (directories_[i].size == 0)) return false;
        if (directories_[i].address == 0) directories_[i].size = 0;
        if (i != kCertificates && !Has(directories_[i].address, directories_[i].size)) return false;
    }
    // Code that the system would have to compile.
    if (directories_[kManaged].address != 0) return false;
    if (!ReadSections(static_cast<std::uint32_t>(table), count)) return false;
    std::uint64_t end = RoundUp(headerSize_, memoryUnit);
    std::uint64_t fileEnd = headerSize_;
    for (Section& section : sections_) {
        if (section.address != end || section.address % memoryUnit != 0) return false;
        end = RoundUp(std::uint64_t{section.address} + section.size, memoryUnit);
        if (end > size_) return false;
        if (section.stored == 0) continue;
        if (section.offset % fileUnit != 0 || section.offset < fileEnd) return false;
        fileEnd = std::uint64_t{section.offset} + section.stored;
        if (fileEnd > limit_) return false;
        section.stored = static_cast<std::uint32_t>(std::min<std::uint64_t>(section.stored, end - section.address));
    }
    if (end != size_ || (entry_ != 0 && !IsExecutable(entry_))) return false;
    if (!CheckFileTail(Read32(file + 8), Read32(file + 12), directories_[kCertificates])) return false;
    const std::uint32_t checksum = Read32(data_ + at + kChecksum);
    return !limitKnown_ || checksum == 0 || HasChecksum(at + kChecksum, checksum);
}

bool KwPeImage::ReadSections(std::uint32_t at, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned char* const entry = data_ + at + std::size_t{kSectionSize} * i;
        Section section{};
        section.address = Read32(entry + 12);
        section.stored = Read32(entry + 16);
        section.size = Read32(entry + 8) != 0 ? Read32(entry + 8) : section.stored;
        section.offset = Read32(entry + 20);
        const std::uint32_t flags = Read32(entry + 36);
        section.writable = (flags & kWrite) != 0;
        section.executable = (flags & kExecute) != 0;
        // Tables and texts may be in any of them.
        if (section.size == 0 || (flags & kRead) == 0) return false;
        sections_.push_back(section);
    }
    return true;
}

// What no loader maps still shows that the end was cut off.
bool KwPeImage::CheckFileTail(std::uint32_t symbols, std::uint32_t symbolCount, const Range& certificates) const {
    if (std::uint64_t{certificates.address} + certificates.size > limit_) return false;
    if (symbols == 0 || symbolCount == 0 || !limitKnown_) return true;
    // The texts stand behind the symbols and begin with their own size.
    const std::uint64_t texts = symbols + std::uint64_t{symbolCount} * kSymbolSize;
    return texts + 4 <= limit_ && texts + Read32(data_ + texts) <= limit_;
}

bool KwPeImage::HasChecksum(std::uint32_t at, std::uint32_t expected) const {
    std::uint64_t sum = 0;
    std::uint64_t i = 0;
    for (; i + 1 < limit_; i += 2) {
        if (i != at && i != at + 2) sum += Read16(data_ + i);
    }
    if (i < limit_) sum += data_[i];
    while ((sum >> 16) != 0) sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<std::uint32_t>(sum + limit_) == expected;
}

bool KwPeImage::IsExecutable(std::uint32_t address) const {
    return std::any_of(sections_.begin(), sections_.end(), [&](const Section& section) {
        return section.executable && address >= section.address && address - section.address < section.size;
    });
}

// The block -----------------------------------------------------------------------------------------------------

void KwPeImage::Lay(unsigned char* block) {
    std::memcpy(block, data_, headerSize_);
    for (const Section& section : sections_) {
        if (section.stored != 0) std::memcpy(block + section.address, data_ + section.offset, section.stored);
    }
    block_ = block;
    data_ = nullptr;
}

bool KwPeImage::Move(std::uint32_t base) {
    const std::uint32_t delta = base - base_;
    const Range& moves = directories_[kMoves];
    if (delta != 0 && !movable_) return false;
    base_ = base;
    std::uint32_t at = moves.address;
    std::uint32_t left = moves.size;
    while (left >= 8) {
        const std::uint32_t size = Get32(at + 4);
        if (size < 8 || size > left || size % 2 != 0) return false;
        if (!MovePage(Get32(at), at + 8, (size - 8) / 2, delta)) return false;
        at += size;
        left -= size;
    }
    return left == 0;
}

bool KwPeImage::MovePage(std::uint32_t page, std::uint32_t entries, std::uint32_t count, std::uint32_t delta) {
    if (page >= size_ || page % kPage != 0) return false;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t entry = Get16(entries + 2 * i);
        const std::uint32_t at = page + (entry & 0xFFF);
        switch (entry >> 12) {
            case kMoveNone: break;
            case kMoveHigh:
            case kMoveLow: {
                if (!Has(at, 2)) return false;
                const std::uint32_t half = (entry >> 12) == kMoveHigh ? delta >> 16 : delta;
                const std::uint32_t value = Get16(at) + half;
                block_[at] = static_cast<unsigned char>(value);
                block_[at + 1] = static_cast<unsigned char>(value >> 8);
                break;
            }
            case kMoveWord:
                if (!Has(at, 4)) return false;
                Put32(at, Get32(at) + delta);
                break;
            default: return false;
        }
    }
    return true;
}

std::uint32_t KwPeImage::Get16(std::uint32_t address) const {
    return Read16(block_ + address);
}

std::uint32_t KwPeImage::Get32(std::uint32_t address) const {
    return Read32(block_ + address);
}

void KwPeImage::Put32(std::uint32_t address, std::uint32_t value) {
    for (unsigned int i = 0; i < 4; ++i) block_[address + i] = static_cast<unsigned char>(value >> (8 * i));
}

const char* KwPeImage::Text(std::uint32_t address, std::uint64_t& budget) const {
    if (address == 0 || address >= size_) return nullptr;
    const auto most = static_cast<std::size_t>(std::min<std::uint64_t>(size_ - address, budget));
    const void* const end = std::memchr(block_ + address, 0, most);
    if (end == nullptr) return nullptr;
    budget -= static_cast<std::uint64_t>(static_cast<const unsigned char*>(end) - (block_ + address)) + 1;
    return reinterpret_cast<const char*>(block_ + address);
}
