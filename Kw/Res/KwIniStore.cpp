#include "Kw/Res/KwIniStore.h"

#include <algorithm>

#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformMemory.h"

namespace {

constexpr char kSource[] = "Res/KwBuildIni";
constexpr std::size_t kFirstBlock = 1024;
constexpr std::size_t kLargestBlock = 8u << 20;

void* NewBlock(std::size_t size) {
    return KwMemory::Malloc(static_cast<unsigned int>(size), nullptr, 0);
}

}  // namespace

struct alignas(8) KwIniStore::Block {
    Block* older;
};

KwIniStore::KwIniStore()
    : seed_((reinterpret_cast<std::uintptr_t>(this) ^ static_cast<std::uint64_t>(KwPlatform::CounterNow())) *
            0xD6E8FEB86659FD93u) {}

void KwIniStore::Clear() {
    while (blocks_ != nullptr) {
        Block* older = blocks_->older;
        KwMemory::Free(blocks_, kSource, 0);
        blocks_ = older;
    }
    KwMemory::Free(text_, kSource, 0);
    next_ = end_ = nullptr;
    blockSize_ = 0;
    text_ = parts_ = nullptr;
    size_ = 0;
    FreeTable(sections);
    edited = loading = false;
    complete = true;
    error = KwParseError();
}

bool KwIniStore::KeepText(const char* data, std::size_t size) {
    const std::size_t each = size + 1;
    char* block = each <= (UINT32_MAX - 64) / 2 ? static_cast<char*>(NewBlock(2 * each)) : nullptr;
    if (block == nullptr) return false;
    KwPlatform::MemoryPreferLargePages(block, 2 * each);
    for (char* copy : {block, block + each}) {
        if (size != 0) std::memcpy(copy, data, size);
        copy[size] = '\0';
    }
    text_ = block;
    parts_ = block + each;
    size_ = size;
    blockSize_ = std::clamp(2 * size, kFirstBlock, kLargestBlock);
    return true;
}

bool KwIniStore::Refill(std::size_t whole) {
    const std::size_t size = std::max(std::max(blockSize_, kFirstBlock), whole + sizeof(Block));
    if (size > UINT32_MAX - 64) return false;
    void* block = NewBlock(size);
    if (block == nullptr) return false;
    KwPlatform::MemoryPreferLargePages(block, size);
    blocks_ = new (block) Block{blocks_};
    next_ = static_cast<unsigned char*>(block) + sizeof(Block);
    end_ = static_cast<unsigned char*>(block) + size;
    blockSize_ = std::min(size * 2, kLargestBlock);
    return true;
}

KwIniTable KwIniStore::NewTable(unsigned int capacity) {
    KwIniTable table;
    const std::size_t bytes = capacity * sizeof(void*);
    table.slots = static_cast<void**>(loading ? Cut(bytes) : NewBlock(bytes));
    if (table.slots == nullptr) return table;
    std::memset(table.slots, 0, bytes);
    table.capacity = capacity;
    table.owned = !loading;
    return table;
}

void KwIniStore::FreeTable(KwIniTable& table) {
    if (table.owned) KwMemory::Free(table.slots, kSource, 0);
    table = KwIniTable();
}

char* KwIniStore::NewText(const char* text, int len) {
    const auto size = static_cast<std::size_t>(len);
    char* copy = static_cast<char*>(NewBlock(size + 1));
    if (copy == nullptr) return nullptr;
    if (size != 0) std::memcpy(copy, text, size);
    copy[size] = '\0';
    return copy;
}

void KwIniStore::FreeText(char* text) {
    KwMemory::Free(text, kSource, 0);
}
