#include "Kw/Res/KwFilePack.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "Kw/KwBuffer.h"
#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Res/KwNrv2b.h"
#include "Kw/Res/KwPackIndex.h"
#include "Kw/Res/KwPackLayout.h"
#include "Kw/Res/KwPackScratch.h"
#include "Kw/Res/KwPackSource.h"
#include "Kw/Res/KwPackSpans.h"
#include "Kw/Res/KwRes.h"

namespace {

constexpr int kGrowth = 1000;  // items
constexpr std::size_t kMaxItems = std::size_t{INT32_MAX} / sizeof(SPackFileItem);

bool KnownMethod(unsigned int method) {
    return method == KwPackLayout::kMethodStored || method == KwPackLayout::kMethodNrv2b ||
           method == KwPackLayout::kMethodNrv2bOther;
}

bool UnpackEntry(unsigned int method, const void* stored, unsigned int storedSize, void* out, unsigned int outSize,
                 bool slack) {
    if (!KnownMethod(method)) return false;
    if (method != KwPackLayout::kMethodStored) return KwNrv2bUnpack(stored, storedSize, out, outSize, slack);
    if (storedSize != outSize) return false;
    if (outSize > 0) std::memcpy(out, stored, outSize);
    return true;
}

}  // namespace

// Windows hosts may take its address: without this line the DLL would not hold it.
constexpr unsigned int KwFilePack::kUnpackLimit;

KwFilePack::KwFilePack() : index_(std::make_unique<KwPackIndex>()) {}

KwFilePack::~KwFilePack() {
    Forget();
}

void KwFilePack::Close() {
    if (!fixed_) Forget();
}

void KwFilePack::Forget() {
    file_.Close();
    if (buffer_ != nullptr) buffer_->Release();
    KwMemory::Free(items_, __FILE__, __LINE__);
    buffer_ = nullptr;
    path_.clear();
    size_ = 0;
    items_ = nullptr;
    count_ = capacity_ = 0;
    index_->Clear();
    unpack_ = nullptr;
    bytes_ = nullptr;
    stream_ = nullptr;
}

bool KwFilePack::Open(const char* path, bool inMemory) {
    if (fixed_ || path == nullptr) return false;
    const std::string copy(path);  // which may be this pack's own
    Close();
    path_ = copy;
    try {
        if (OpenFile(inMemory) && ReadDirectory()) {
            unpack_ = UnpackEntry;
            return true;
        }
    } catch (const std::bad_alloc&) {
        // A directory may have any number of entries.
    }
    Close();
    return false;
}

bool KwFilePack::OpenFile(bool inMemory) {
    if (inMemory) {
        buffer_ = new KwBuffer;
        if (buffer_ == nullptr || !KwRes::ReadFileToBufferAndResize(path_.c_str(), buffer_, 0, 0) ||
            !file_.OpenFromBuffer(buffer_, true, false)) {
            return false;
        }
    } else if (!file_.Open(path_.c_str())) {
        return false;
    }
    size_ = file_.Size();
    if (file_.IsFileOut()) {
        stream_ = static_cast<std::FILE*>(file_.GetHandle());
    } else {
        // In memory, or itself a file in a pack.
        const KwBuffer* whole = file_.IsMemory() ? buffer_ : static_cast<const KwPackEntry*>(file_.GetHandle())->data;
        bytes_ = whole == nullptr ? nullptr : whole->GetData();
        if (bytes_ == nullptr) return false;
    }
    return size_ > KwPackLayout::kHeaderSize;
}

bool KwFilePack::ReadAt(unsigned int offset, void* out, unsigned int size) const {
    if (offset > size_ || size > size_ - offset) return false;
    if (size == 0) return true;
    if (stream_ != nullptr) return KwPlatform::FileReadAt(stream_, offset, out, size) == size;
    if (bytes_ == nullptr) return false;
    std::memcpy(out, bytes_ + offset, size);
    return true;
}

bool KwFilePack::ReadDirectory() {
    unsigned char bytes[KwPackLayout::kHeaderSize];
    KwPackLayout::Header header;
    if (!ReadAt(0, bytes, sizeof(bytes)) || !KwPackLayout::Decode(bytes, size_, header)) return false;
    if (header.count > kMaxItems || !Grow(static_cast<int>(header.count))) return false;

    // The entries are read into the end of the item array and turned into items from the front on: an item is larger
    // than an entry, but the last of both end at the same place, so none is overwritten before its turn.
    const unsigned int directorySize = header.count * KwPackLayout::kEntrySize;
    unsigned char* next = reinterpret_cast<unsigned char*>(items_ + header.count) - directorySize;
    if (!ReadAt(header.directory, next, directorySize)) return false;
    const int count = static_cast<int>(header.count);
    KwPackSpans spans(header.directory, header.count);
    for (int i = 0; i < count; ++i, next += KwPackLayout::kEntrySize) {
        const KwPackLayout::Entry entry = KwPackLayout::DecodeEntry(next);
        if (i > 0 && entry.hash <= items_[i - 1].hash) return false;
        SPackFileItem& item = items_[i];
        item.hash = entry.hash;
        item.storedSize = entry.word & ~KwPackLayout::kMethodMask;
        item.unpackedSize = entry.unpackedSize;
        item.method = entry.word & KwPackLayout::kMethodMask;
        item.word = static_cast<int>(entry.word);
        item.offset = entry.offset;
        item.pack = this;
        const bool inside = item.offset <= size_ && item.storedSize <= size_ - item.offset;
        if (inside && item.storedSize > 0) spans.Add(item.offset, item.storedSize);
    }
    count_ = count;
    index_->Build(header.count, [this](std::size_t at) { return items_[at].hash; });
    return !spans.Overlap();
}

bool KwFilePack::Grow(int capacity) {
    if (capacity <= capacity_) return true;
    if (static_cast<std::size_t>(capacity) > kMaxItems) return false;
    const unsigned int size = static_cast<unsigned int>(static_cast<std::size_t>(capacity) * sizeof(SPackFileItem));
    void* block = KwMemory::Realloc(items_, size, __FILE__, __LINE__);
    if (block == nullptr) return false;
    items_ = static_cast<SPackFileItem*>(block);
    capacity_ = capacity;
    return true;
}

bool KwFilePack::SetLimitSize(int n) {
    return !fixed_ && Grow(n);
}

bool KwFilePack::AddFile(unsigned int hash, unsigned int offset, unsigned int unpackedSize, unsigned int storedSize,
                         int method, int word) {
    if (fixed_) return false;
    index_->Clear();
    int index = SearchIndex(hash);
    if (index < 0) {
        index = -1 - index;
        if (count_ == capacity_ && !Grow(capacity_ + kGrowth)) return false;
        std::move_backward(items_ + index, items_ + count_, items_ + count_ + 1);
        ++count_;
    }
    const unsigned int methodBits = static_cast<unsigned int>(method) & KwPackLayout::kMethodMask;
    items_[index] = {hash, storedSize & KwPackLayout::kMaxStored, unpackedSize, methodBits, word, offset, this};
    return true;
}

int KwFilePack::SearchIndex(unsigned int hash) const {
    int low = 0;
    int high = count_ - 1;
    if (index_->IsBuilt()) {
        unsigned int first = 0;
        unsigned int behind = 0;
        index_->Narrow(hash, first, behind);
        low = static_cast<int>(first);
        high = static_cast<int>(behind) - 1;
    }
    while (low <= high) {
        const int middle = (low + high) / 2;
        if (items_[middle].hash == hash) return middle;
        if (items_[middle].hash < hash) {
            low = middle + 1;
        } else {
            high = middle - 1;
        }
    }
    return -1 - low;
}

SPackFileItem* KwFilePack::GetItem(int index) const {
    return index >= 0 && index < count_ ? items_ + index : nullptr;
}

SPackFileItem* KwFilePack::FindItem(unsigned int hash) const {
    return GetItem(SearchIndex(hash));
}

bool KwFilePack::UnpackAt(const SPackFileItem& item, unsigned int offset, unsigned int storedLen, void* out,
                          unsigned int outLen) const {
    if (unpack_ == nullptr || !KnownMethod(item.method)) return false;
    if (item.offset > size_ || item.storedSize > size_ - item.offset) return false;
    if (offset > item.storedSize || storedLen > item.storedSize - offset) return false;
    const unsigned int place = item.offset + offset;
    if (item.method == KwPackLayout::kMethodStored) return storedLen == outLen && ReadAt(place, out, outLen);
    if (bytes_ != nullptr) {
        return unpack_(item.method, bytes_ + place, storedLen, out, outLen, storedLen < size_ - place);
    }
    const KwPackScratch scratch(storedLen + 1);
    return scratch.GetData() != nullptr && ReadAt(place, scratch.GetData(), storedLen) &&
           unpack_(item.method, scratch.GetData(), storedLen, out, outLen, true);
}

bool KwFilePack::ReadData(const SPackFileItem* item, unsigned int offset, unsigned int storedLen, unsigned char* out,
                          unsigned int outLen, bool unpack) const {
    if (item == nullptr || item->pack != this || (out == nullptr && outLen > 0)) return false;
    unsigned char nothing = 0;
    if (out == nullptr) out = &nothing;
    if (unpack) return UnpackAt(*item, offset, storedLen, out, outLen);
    if (offset > item->storedSize || outLen > item->storedSize - offset) return false;
    return item->offset <= size_ && offset <= size_ - item->offset && ReadAt(item->offset + offset, out, outLen);
}

bool KwFilePack::ReadItem(const SPackFileItem* item, KwBuffer* out) const {
    if (out == nullptr) return false;
    out->SetUsed(0);
    if (item == nullptr || item->pack != this) return false;
    const unsigned int size = item->unpackedSize;
    // Before the block is made: a directory may claim any size.
    const bool stored = item->method == KwPackLayout::kMethodStored;
    if (size > unpackLimit_ || !KnownMethod(item->method) || (stored && size != item->storedSize)) return false;
    if (item->offset > size_ || item->storedSize > size_ - item->offset) return false;
    if (size == 0) return ReadData(item, 0, item->storedSize, nullptr, 0, true);
    const bool fits = out->GetData() != nullptr && out->GetSize() >= size;
    if (!fits && !out->Alloc(size)) return false;
    if (!UnpackAt(*item, 0, item->storedSize, out->GetData(), size)) return false;
    out->SetUsed(static_cast<int>(size));
    return true;
}
