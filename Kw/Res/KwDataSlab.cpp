#include "Kw/Res/KwDataSlab.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "Kw/KwMemory.h"
#include "Kw/Platform/KwPlatformMemory.h"

namespace {

constexpr std::size_t kAlign = 8;  // of every part: what a pointer, a double and a map node need
constexpr std::size_t kFirstSlab = 512;
constexpr std::size_t kLargestSlab = 8u << 20;  // mostly large pages of the system
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

// Parts of one slab that were given back and are still in its count.
struct Given {
    bool active = false;
    Slab* slab = nullptr;
    std::uint32_t count = 0;
};

// Asked for with every part, so without a call where the system can do that for a library.
#if defined(__ELF__)
#define KW_FAST_TLS [[gnu::tls_model("initial-exec")]]
#else
#define KW_FAST_TLS
#endif
KW_FAST_TLS constinit thread_local KwDataSlab::Scope* t_scope = nullptr;
KW_FAST_TLS constinit thread_local Given t_given;

std::size_t Rounded(std::size_t bytes) {
    return (bytes + (kAlign - 1)) & ~(kAlign - 1);
}

void Drop(Slab* slab, std::uint32_t count) {
    if (slab->live.fetch_sub(count, std::memory_order_acq_rel) == count) KwMemory::Free(slab, nullptr, 0);
}

}  // namespace

KwDataSlab::Scope::Scope(std::size_t expected)
    : outer_(t_scope), slabSize_(std::clamp(expected, kFirstSlab, kLargestSlab)) {
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

KwDataSlab::GiveScope::GiveScope() : outermost_(!t_given.active) {
    t_given.active = true;
}

KwDataSlab::GiveScope::~GiveScope() {
    if (!outermost_) return;
    Given& given = t_given;
    if (given.count != 0) Drop(given.slab, given.count);
    given = Given();
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
    const std::size_t largePage = KwPlatform::MemoryPreferLargePages(block, size);
    Close();
    slab_ = new (block) Slab{kOpenCount};
    next_ = static_cast<unsigned char*>(block) + kSlabHead;
    end_ = static_cast<unsigned char*>(block) + size;
    if (largePage != 0) KeepToLargePages(largePage, whole);
    slabSize_ = std::min(slabSize_ * 2, kLargestSlab);
    return true;
}

// What lies in front of the first large page and behind the last one is not touched, and so takes no memory.
void KwDataSlab::Scope::KeepToLargePages(std::size_t largePage, std::size_t whole) {
    const auto place = reinterpret_cast<std::uintptr_t>(next_);
    const std::size_t skip = (largePage - place % largePage) % largePage;
    const std::size_t pages = (static_cast<std::size_t>(end_ - next_) - skip) / largePage;
    if (pages * largePage < whole) return;
    next_ += skip;
    end_ = next_ + pages * largePage;
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

void KwDataSlab::Give(void* part, unsigned int count) {
    PartHead* head = static_cast<PartHead*>(part) - 1;
    Slab* slab = head->slab;
    if (slab == nullptr) return KwMemory::Free(head, nullptr, 0);
    Given& given = t_given;
    if (!given.active) return Drop(slab, count);
    if (given.slab != slab) {
        if (given.count != 0) Drop(given.slab, given.count);
        given.slab = slab;
        given.count = 0;
    }
    given.count += count;
}
