#include "Kw/Res/KwDataSearchBlocks.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t kLine = 64;      // a cache line
constexpr std::size_t kFewBlocks = 8;  // an index of so many pages takes them one by one
constexpr std::size_t kLeastChunk = 4;
constexpr std::size_t kGrowth = 160;  // then a chunk is this part of what there is
constexpr std::size_t kLargestChunk = 16u << 20;

std::size_t Rounded(std::size_t bytes) {
    return (bytes + (kLine - 1)) / kLine * kLine;
}

}  // namespace

// Stands at the start of its memory.
class KwDataSearchBlocks::Chunk : public KwNode {
public:
    Chunk(unsigned char* first, std::size_t count) : next_(first), fresh_(count) {}

    bool IsFull() const { return free_ == nullptr && fresh_ == 0; }
    bool IsEmpty() const { return used_ == 0; }
    std::size_t Count() const { return count_; }

    void* Take(std::size_t size) {
        ++used_;
        if (free_ != nullptr) {
            void* block = free_;
            std::memcpy(&free_, block, sizeof(free_));
            return block;
        }
        void* block = next_;
        next_ += size;
        --fresh_;
        return block;
    }
    void Give(void* block) {
        std::memcpy(block, &free_, sizeof(free_));
        free_ = block;
        --used_;
    }

private:
    unsigned char* next_;  // the first block that was never taken
    std::size_t fresh_;    // how many of those are left
    std::size_t count_ = fresh_;
    std::size_t used_ = 0;
    void* free_ = nullptr;  // blocks that came back, each begins with a pointer to the next
};

KwDataSearchBlocks::KwDataSearchBlocks(std::size_t bytes) : blockSize_(Rounded(bytes + sizeof(void*))) {}

KwDataSearchBlocks::~KwDataSearchBlocks() {
    for (KwList* list : {&open_, &full_}) {
        while (KwNode* chunk = list->RemoveHead()) KwMemory::Free(static_cast<Chunk*>(chunk), nullptr, 0);
    }
}

bool KwDataSearchBlocks::Fits(unsigned long long bytes) {
    return bytes <= INT_MAX - 4 * kLine - sizeof(Chunk);
}

KwDataSearchBlocks::Chunk*& KwDataSearchBlocks::Owner(void* block) const {
    return *reinterpret_cast<Chunk**>(static_cast<unsigned char*>(block) + blockSize_ - sizeof(void*));
}

KwDataSearchBlocks::Chunk* KwDataSearchBlocks::NewChunk() {
    const std::size_t most = std::max<std::size_t>(1, kLargestChunk / blockSize_);
    const std::size_t count = blocks_ < kFewBlocks ? 1 : std::min(std::max(kLeastChunk, blocks_ / kGrowth), most);
    const std::size_t size = sizeof(Chunk) + kLine + count * blockSize_;
    void* memory = KwMemory::Malloc(static_cast<unsigned int>(size), nullptr, 0);
    if (memory == nullptr) return nullptr;
    auto* bytes = static_cast<unsigned char*>(memory);
    const std::size_t past = reinterpret_cast<std::uintptr_t>(bytes + sizeof(Chunk)) % kLine;
    auto* chunk = new (memory) Chunk(bytes + sizeof(Chunk) + (kLine - past) % kLine, count);
    blocks_ += count;
    open_.AddTail(chunk);
    return chunk;
}

void* KwDataSearchBlocks::Take() {
    auto* chunk = open_.count != 0 ? static_cast<Chunk*>(static_cast<KwNode*>(open_.head.next)) : NewChunk();
    if (chunk == nullptr) return nullptr;
    void* block = chunk->Take(blockSize_);
    Owner(block) = chunk;
    if (chunk->IsFull()) full_.AddTail(chunk);
    return block;
}

void KwDataSearchBlocks::Give(void* block) {
    Chunk* chunk = Owner(block);
    const bool wasFull = chunk->IsFull();
    chunk->Give(block);
    if (chunk->IsEmpty()) {
        blocks_ -= chunk->Count();
        chunk->RemoveNode();
        KwMemory::Free(chunk, nullptr, 0);
    } else if (wasFull) {
        open_.AddHead(chunk);
    }
}
