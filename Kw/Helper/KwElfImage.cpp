#include "Kw/Helper/KwElfImage.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "Kw/Helper/KwElfFormat.h"

using namespace KwElf;

namespace {

constexpr std::uint64_t kHeaderSize = 64;
constexpr std::uint64_t kSegmentSize = 56;
constexpr std::uint64_t kSectionSize = 64;
constexpr std::uint32_t kMaxSegments = 128;  // the loader copies their headers to its stack
constexpr std::uint64_t kMaxAddress = std::uint64_t{1} << 40;
constexpr std::uint64_t kMaxAlign = std::uint64_t{1} << 30;
constexpr std::uint64_t kMaxThread = std::uint64_t{1} << 26;  // bytes of thread variables: no memory ends the process
constexpr unsigned char kGnuSystem = 3;

bool IsPowerOfTwo(std::uint64_t value) {
    return value != 0 && (value & (value - 1)) == 0;
}

}  // namespace

bool KwElfImage::Check(const void* data, std::size_t size, unsigned int machine, unsigned int page) {
    *this = KwElfImage();
    if (data == nullptr) return false;
    data_ = static_cast<const unsigned char*>(data);
    page_ = page;
    // No read passes the end of the address space.
    const std::uint64_t toEnd = std::numeric_limits<std::uintptr_t>::max() - reinterpret_cast<std::uintptr_t>(data);
    limit_ = size == 0 ? toEnd : std::min<std::uint64_t>(size, toEnd);
    return ReadHeader(machine) && ReadSegments() && CheckLoads() && CheckParts() && ReadSections() && ReadDynamic() &&
           CheckTags() && CheckStrings() && ReadHash() && ReadGnuHash() && CheckGnuNames() && CheckSections() &&
           CheckSymbols() && CheckVersions() && CheckRelocations();
}

// Reads that begin at the file's start keep the size that the image has at least.
bool KwElfImage::InFile(std::uint64_t offset, std::uint64_t size) {
    if (!Within(offset, size, 0, limit_)) return false;
    fileSize_ = std::max(fileSize_, offset + size);
    return true;
}

bool KwElfImage::ReadHeader(unsigned int machine) {
    static constexpr unsigned char kIdent[7] = {0x7F, 'E', 'L', 'F', 2, 1, 1};
    static constexpr unsigned char kPad[8] = {};
    if (!InFile(0, kHeaderSize) || std::memcmp(data_, kIdent, sizeof(kIdent)) != 0) return false;
    if ((data_[7] != 0 && data_[7] != kGnuSystem) || std::memcmp(data_ + 8, kPad, sizeof(kPad)) != 0) return false;
    isGnu_ = data_[7] == kGnuSystem;
    machine_ = machine;
    if (Get16(data_ + 16) != 3 || Get16(data_ + 18) != machine || Get32(data_ + 20) != 1) return false;
    if (Get32(data_ + 48) != 0 || Get16(data_ + 52) != kHeaderSize || Get16(data_ + 54) != kSegmentSize) return false;
    headers_ = Get64(data_ + 32);
    headersSize_ = Get16(data_ + 56) * kSegmentSize;
    if (headersSize_ == 0 || headersSize_ > kMaxSegments * kSegmentSize) return false;
    if (headers_ < kHeaderSize || headers_ % 8 != 0 || !InFile(headers_, headersSize_)) return false;
    sectionTable_ = Get64(data_ + 40);
    sectionCount_ = Get16(data_ + 60);
    sectionNames_ = Get16(data_ + 62);
    if (sectionCount_ == 0) return sectionTable_ == 0;
    return Get16(data_ + 58) == kSectionSize && sectionNames_ < sectionCount_ && sectionTable_ >= kHeaderSize &&
           sectionTable_ % 8 == 0 && InFile(sectionTable_, sectionCount_ * kSectionSize);
}

// Segments ------------------------------------------------------------------------------------------------------

bool KwElfImage::ReadSegments() {
    for (std::uint64_t at = headers_; at < headers_ + headersSize_; at += kSegmentSize) {
        const unsigned char* const p = data_ + at;
        const Segment segment{Get32(p),      Get32(p + 4),  Get64(p + 8), Get64(p + 16),
                              Get64(p + 32), Get64(p + 40), Get64(p + 48)};
        if (!TakeSegment(segment)) return false;
    }
    const std::uint64_t entry = Get64(data_ + 24);
    return !loads_.empty() && (entry == 0 || Has(entry, 1, kExecute));
}

bool KwElfImage::TakeSegment(const Segment& segment) {
    switch (segment.type) {
        case kLoad: loads_.push_back(segment); break;
        case kDynamic:
        case kThread:
        case kFrames:
        case kProgramHeaders:
        case kReadOnlyLater:
            if (Part(segment.type) != nullptr) return false;
            parts_.push_back(segment);
            break;
        case kInterpreter:
        case kNote:
        case kProperty: parts_.push_back(segment); break;
        default: break;
    }
    // The loader maps the page in which one without bytes of the file begins, too.
    const bool mapped = segment.fileSize != 0 || (segment.type == kLoad && segment.address % page_ != 0);
    return !mapped || InFile(segment.offset, segment.fileSize);
}

bool KwElfImage::CheckLoads() const {
    std::uint64_t end = 0;
    std::uint64_t fileEnd = 0;
    for (const Segment& load : loads_) {
        if (!IsPowerOfTwo(load.align) || load.align < page_ || load.align > kMaxAlign) return false;
        if ((load.address - load.offset) % load.align != 0 || load.size == 0 || load.fileSize > load.size) return false;
        // Code and constants come from the file, all of them.
        if ((load.flags & kWrite) == 0 && load.fileSize != load.size) return false;
        if ((load.flags & kRead) == 0 || load.address > kMaxAddress || load.size > kMaxAddress) return false;
        // Two of them in one page would not both find their bytes in it.
        if (load.address / page_ * page_ < end) return false;
        end = (load.address + load.size + page_ - 1) / page_ * page_;
        if (load.fileSize == 0) continue;
        if (load.offset < fileEnd) return false;
        fileEnd = load.offset + load.fileSize;
    }
    return true;
}

bool KwElfImage::CheckParts() const {
    for (const Segment& part : parts_) {
        if (part.fileSize > part.size && part.type != kReadOnlyLater) return false;
        if (part.fileSize != 0) {
            const unsigned char* const bytes = At(part.address, part.fileSize);
            if (bytes == nullptr || bytes != data_ + part.offset) return false;
        }
        switch (part.type) {
            case kDynamic:
                // The loader writes to it.
                if ((part.flags & kWrite) == 0 || !Has(part.address, part.size, kWrite)) return false;
                if (part.size != part.fileSize) return false;
                break;
            case kThread:
                if (part.size > kMaxThread || part.align > page_) return false;
                if (part.align != 0 && !IsPowerOfTwo(part.align)) return false;
                break;
            case kReadOnlyLater: {
                const Segment* const load = LoadOf(part.address, 1);
                if (load == nullptr || (load->flags & kWrite) == 0) return false;
                const std::uint64_t end = (load->address + load->size + page_ - 1) / page_ * page_;
                if (part.size > end - part.address) return false;
                break;
            }
            case kProgramHeaders:
                if (part.offset != headers_ || part.fileSize != headersSize_) return false;
                break;
            case kNote:
            case kProperty:
                if (!CheckNotes(part)) return false;
                break;
            default: break;
        }
    }
    return Part(kDynamic) != nullptr;
}

bool KwElfImage::CheckNotes(const Segment& notes) const {
    const std::uint64_t align = notes.align <= 1 ? 4 : notes.align;
    if ((align != 4 && align != 8) || notes.size != notes.fileSize) return false;
    const unsigned char* const bytes = data_ + notes.offset;
    std::uint64_t at = 0;
    while (at < notes.size) {
        if (notes.size - at < 12) return false;
        const std::uint64_t body = at + 12 + Get32(bytes + at);
        const std::uint64_t description = (body + align - 1) / align * align;
        const std::uint64_t size = Get32(bytes + at + 4);
        if (!Within(description, size, 0, notes.size)) return false;
        at = (description + size + align - 1) / align * align;
    }
    return true;
}

const KwElfImage::Segment* KwElfImage::LoadOf(std::uint64_t address, std::uint64_t size) const {
    for (const Segment& load : loads_) {
        if (Within(address, size, load.address, load.size)) return &load;
    }
    return nullptr;
}

bool KwElfImage::Has(std::uint64_t address, std::uint64_t size, std::uint32_t rights) const {
    const Segment* const load = LoadOf(address, size);
    return load != nullptr && (load->flags & rights) == rights;
}

const unsigned char* KwElfImage::At(std::uint64_t address, std::uint64_t size) const {
    const Segment* const load = LoadOf(address, size);
    if (load == nullptr || !Within(address, size, load->address, load->fileSize)) return nullptr;
    return data_ + load->offset + (address - load->address);
}

const KwElfImage::Segment* KwElfImage::Part(std::uint32_t type) const {
    const auto found = std::find_if(parts_.begin(), parts_.end(), [&](const Segment& s) { return s.type == type; });
    return found == parts_.end() ? nullptr : &*found;
}
