#include "Kw/Res/KwDataSlab.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "Kw/KwMemory.h"

namespace {

constexpr std::size_t kAlign = 8;  // of every part: what a pointer, a double and a map node need
constexpr std::size_t kFirstSlab = 512;
constexpr std::size_t kLargestSlab = 1u << 20;
// The count of a slab that is being cut: far above the parts it can hold, so that it cannot reach 0.
constexpr std::uint32_t kOpenCount = 1u << 31;

struct Slab {
    std::atomic<std::uint32_t> live;
};

// Stands in front of every part.
struct alignas(kAlign) PartHead {
    Slab* slab;  // null: the head begins a block of its own
};
static_assert(sizeof(PartHead) == kAlign);
constexpr std::size_t kSlabHead = kAlign;
static_assert(sizeof(Slab) <= kSlabHead);

constinit thread_local KwDataSlab::Scope* t_scope = nullptr;

std::size_t Rounded(std::size_t bytes) {
    return (bytes + (kAlign - 1)) & ~(kAlign - 1);
}

void Drop(Slab* slab, std::uint32_t count) {
    if (slab->live.fetch_sub(count, std::memory_order_acq_rel) == count) KwMemory::Free(slab, nullptr, 0);
}

}  // namespace

KwDataSlab::Scope::Scope(std::size_t expected)
    : outer_(t_scope), slabSize_(std::clamp(expected, kFirstSlab, kLargestSlab / 16)) {
    t_scope = this;
}

KwDataSlab::Scope::~Scope() {
    Close();
    t_scope = outer_;
}

void KwDataSlab::Scope::Close() {
    if (slab_ != nullptr) Drop(static_cast<Slab*>(slab_), kOpenCount - taken_);
    slab_ = nullptr;
    taken_ = 0;
    next_ = end_ = nullptr;
}

void* KwDataSlab::Scope::Cut(std::size_t bytes) {
    const std::size_t whole = Rounded(bytes) + sizeof(PartHead);
    if (static_cast<std::size_t>(end_ - next_) < whole && !Refill(whole)) return nullptr;
    auto* head = new (next_) PartHead{static_cast<Slab*>(slab_)};
    next_ += whole;
    ++taken_;
    return head + 1;
}

bool KwDataSlab::Scope::Refill(std::size_t whole) {
    const std::size_t size = std::max(slabSize_, whole + kSlabHead);
    void* block = KwMemory::Malloc(static_cast<unsigned int>(size), nullptr, 0);
    if (block == nullptr) return false;
    Close();
    slab_ = new (block) Slab{kOpenCount};
    next_ = static_cast<unsigned char*>(block) + kSlabHead;
    end_ = static_cast<unsigned char*>(block) + size;
    slabSize_ = std::min(slabSize_ * 2, kLargestSlab);
    return true;
}

void* KwDataSlab::TakeInScope(std::size_t bytes) {
    Scope* scope = t_scope;
    return scope != nullptr ? scope->Cut(bytes) : nullptr;
}

void* KwDataSlab::Take(std::size_t bytes) {
    if (Scope* scope = t_scope; scope != nullptr) return scope->Cut(bytes);
    void* block = KwMemory::Malloc(static_cast<unsigned int>(bytes + sizeof(PartHead)), nullptr, 0);
    return block != nullptr ? new (block) PartHead{nullptr} + 1 : nullptr;
}

void KwDataSlab::Give(void* part) {
    PartHead* head = static_cast<PartHead*>(part) - 1;
    if (head->slab != nullptr) {
        Drop(head->slab, 1);
    } else {
        KwMemory::Free(head, nullptr, 0);
    }
}
