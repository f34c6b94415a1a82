#include "Kw/KwMemory.h"

#include <atomic>
#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "Kw/KwLock.h"
#include "Kw/KwMemoryBlock.h"
#include "Kw/KwMemoryState.h"
#include "Kw/KwModuleEngine.h"
#include "Kw/Platform/KwPlatformLock.h"
#include "Kw/Platform/KwPlatformProcess.h"

#if defined(__SANITIZE_ADDRESS__)
#define KW_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KW_ASAN 1
#endif
#endif
#if defined(KW_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace {

using Block = KwMemoryBlock;

// Free blocks of a pool are unreadable under the address sanitizer, although the pool keeps them.
void Poison([[maybe_unused]] void* data, [[maybe_unused]] std::size_t size) {
#if defined(KW_ASAN)
    ASAN_POISON_MEMORY_REGION(data, size);
#endif
}
void Unpoison([[maybe_unused]] void* data, [[maybe_unused]] std::size_t size) {
#if defined(KW_ASAN)
    ASAN_UNPOISON_MEMORY_REGION(data, size);
#endif
}

struct Pool {
    SKwList free;                // its count is the number of free blocks held
    unsigned int blockSize = 0;  // with the overhead
    int keep = 0;                // free blocks kept at most
    int index = 0;               // from 1

    std::size_t SpanOfData() const { return blockSize - Block::kOverhead + sizeof(Block::kTrailer); }
};

struct PoolSize {
    unsigned int blockSize;
    int keep;
};
constexpr PoolSize kDefaultPools[] = {{48, 1024},  {64, 1024},  {128, 1024}, {256, 1024}, {512, 1024}, {1024, 1024},
                                      {2048, 512}, {4096, 512}, {8192, 128}, {16384, 20}, {32768, 20}};

void PrintReport(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vprintf(format, args);
    va_end(args);
    std::putchar('\n');
}

std::atomic<KwMemory::LogFunction> g_reporter{PrintReport};
std::atomic<KwMemory::LogFunction> g_tracer{nullptr};

// A message prints the low 32 bits of an address on every build.
unsigned int Address32(const void* ptr) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(ptr));
}
const char* Text(const char* file) {
    return file == nullptr ? "(null)" : file;
}

template <typename... Args>
void Report(const char* format, Args... args) {
    if (const KwMemory::LogFunction reporter = g_reporter.load(std::memory_order_relaxed)) reporter(format, args...);
}

// The guards only, which the owner of the block may read without the lock.
int FirstDamage(Block* block) {
    if (block->guard != Block::kGuard) return 1;
    return block->TrailerIntact() ? 0 : 2;
}

void ReportDamage(const char* operation, int damage, const void* ptr, const char* file, int line) {
    Report(
        damage == 1 ? "Error %s:check header failed 1,ptr=%x,[%s:%d]" : "Error %s:check header failed 2,ptr=%x,[%s:%d]",
        operation, Address32(ptr), Text(file), line);
}

void FillHeader(Block* block, unsigned int size, const char* file, int line, int pool) {
    block->size = size;
    block->file = file;
    block->line = line;
    block->flags = Block::kAllocated;
    block->pool = static_cast<std::uint8_t>(pool);
    block->guard = Block::kGuard;
    block->SetTrailer();
}

// Under the lock, as every message of the allocator is while it has a state.
[[gnu::noinline, gnu::cold]] void TraceMalloc(Block* block, unsigned int size, const char* file, int line) {
    if (const KwMemory::LogFunction tracer = g_tracer.load(std::memory_order_relaxed)) {
        tracer("Malloc:Ptr=%x,Size=%d,[%s:%d]", Address32(block), static_cast<int>(size), Text(file), line);
    }
}
[[gnu::noinline, gnu::cold]] void TraceFree(Block* block, const char* file, int line) {
    if (const KwMemory::LogFunction tracer = g_tracer.load(std::memory_order_relaxed)) {
        tracer("Free:ptr=%x,size=%d,[%s:%d]", Address32(block->Data()), static_cast<int>(block->size), Text(file),
               line);
    }
}

// The allocator's state; one per process while the library is up.
class KwMemoryHlp : public KwMemory, public KwModuleEngine {
public:
    KwMemoryHlp() { Kw_LockWork(1, lock_); }
    ~KwMemoryHlp() override {
        std::free(pools_);
        Kw_LockWork(2, lock_);
    }

    void BeginRelease() override;
    void EndRelease() override;

    bool HasPools() const { return pools_ != nullptr; }
    bool InstallPools(int count, const PoolSize* sizes);
    int PoolCount() const { return poolCount_; }

    // The lock may be missing (memory was out when it was made); then the allocator works unlocked.
    void Enter() {
        if (lock_ != nullptr) KwPlatform::LockEnter(static_cast<KwPlatform::Lock*>(lock_));
    }
    void Leave() {
        if (lock_ != nullptr) KwPlatform::LockLeave(static_cast<KwPlatform::Lock*>(lock_));
    }

    // The pool for a block of `total` bytes with its overhead; null for none.
    Pool* PoolFor(unsigned int total) {
        if (!poolsEnabled_.load(std::memory_order_relaxed)) return nullptr;
        for (int i = firstPool_[std::bit_width(total - 1)]; i < poolCount_; ++i) {
            if (pools_[i].blockSize >= total) return &pools_[i];
        }
        return nullptr;
    }

    // Whether the block stands in a free list: somebody frees or resizes it a second time.
    bool IsFreeBlock(const Block* block) const {
        return block->pool != 0 && block->pool <= poolCount_ && block->owner == &pools_[block->pool - 1].free;
    }

    Block* Take(unsigned int size, const char* file, int line, bool* zeroed);
    Block* TakeFresh(Pool* pool, unsigned int size, const char* file, int line, bool* zeroed);
    void GiveBack(Block* block, const char* file, int line);
    void Query(double* held, double* allocated, double* third);

private:
    void FreePoolBlocks();
    void ReportLiveBlocks();

    void* lock_ = nullptr;
    SKwList live_;
    Pool* pools_ = nullptr;
    int poolCount_ = 0;
    std::atomic<bool> poolsEnabled_{false};
    double held_ = 0;
    double allocated_ = 0;
    double third_ = 0;
    // By bit width of (total - 1): the first pool that any total of that width could fit into.
    std::uint8_t firstPool_[33] = {};
};

std::atomic<KwMemoryHlp*> g_state{nullptr};

bool KwMemoryHlp::InstallPools(int count, const PoolSize* sizes) {
    void* memory = std::malloc(static_cast<std::size_t>(count) * sizeof(Pool));
    if (memory == nullptr) return false;
    pools_ = static_cast<Pool*>(memory);
    poolCount_ = count;
    for (int i = 0; i < count; ++i) {
        Pool* pool = new (&pools_[i]) Pool;
        pool->blockSize = sizes[i].blockSize < Block::kOverhead ? Block::kOverhead : sizes[i].blockSize;
        pool->keep = sizes[i].keep < 1 ? 1 : sizes[i].keep;
        pool->index = i + 1;
    }
    for (int width = 0; width <= 32; ++width) {
        int i = 0;
        const std::uint64_t smallest = width == 0 ? 1 : (std::uint64_t{1} << (width - 1)) + 1;
        while (i < count && pools_[i].blockSize < smallest) ++i;
        firstPool_[width] = static_cast<std::uint8_t>(i);
    }
    poolsEnabled_.store(true, std::memory_order_relaxed);
    return true;
}

// A linked block with its header filled and its data not; null when memory is out (reported).
inline Block* KwMemoryHlp::Take(unsigned int size, const char* file, int line, bool* zeroed) {
    const unsigned int total = size + Block::kOverhead;
    Pool* pool = total < size ? nullptr : PoolFor(total);
    if (pool == nullptr) [[unlikely]]
        return TakeFresh(nullptr, size, file, line, zeroed);
    *zeroed = false;
    Enter();
    if (pool->free.count == 0) [[unlikely]] {
        Leave();
        return TakeFresh(pool, size, file, line, zeroed);
    }
    auto* block = static_cast<Block*>(pool->free.head.next);
    Kw_Unlink(block);
    // The pool hands its blocks out in order: the next one's header will be wanted soon.
    __builtin_prefetch(pool->free.head.next, 1);
    Kw_LinkBefore(&live_.tail, block);
    allocated_ += pool->blockSize;
    if (g_tracer.load(std::memory_order_relaxed) != nullptr) [[unlikely]]
        TraceMalloc(block, size, file, line);
    Leave();
    Unpoison(block->Data(), pool->SpanOfData());
    FillHeader(block, size, file, line, pool->index);
    return block;
}

// The same with memory from the system, which is asked without the lock.
[[gnu::noinline]] Block* KwMemoryHlp::TakeFresh(Pool* pool, unsigned int size, const char* file, int line,
                                                bool* zeroed) {
    const unsigned int counted = pool != nullptr ? pool->blockSize : size + Block::kOverhead;
    void* memory = nullptr;
    if (size + Block::kOverhead >= size) {
        // Large blocks come zeroed from the system: a fresh mapping is not written a second time.
        const std::size_t bytes = Block::SystemSize(counted - Block::kOverhead);
        memory = pool != nullptr ? std::malloc(bytes) : std::calloc(1, bytes);
    }
    *zeroed = pool == nullptr;
    Enter();
    if (memory == nullptr) {
        Report("Error Malloc:size=%d,[%s:%d]", static_cast<int>(counted), Text(file), line);
        Leave();
        return nullptr;
    }
    auto* block = new (memory) Block;
    held_ += counted;
    Kw_LinkBefore(&live_.tail, block);
    allocated_ += counted;
    if (g_tracer.load(std::memory_order_relaxed) != nullptr) TraceMalloc(block, size, file, line);
    Leave();
    FillHeader(block, size, file, line, pool != nullptr ? pool->index : 0);
    return block;
}

// Takes back a block whose guards are intact.
inline void KwMemoryHlp::GiveBack(Block* block, const char* file, int line) {
    Pool* pool = block->pool >= 1 && block->pool <= poolCount_ ? &pools_[block->pool - 1] : nullptr;
    Enter();
    if (g_tracer.load(std::memory_order_relaxed) != nullptr) [[unlikely]]
        TraceFree(block, file, line);
    const bool wasCounted = Kw_Unlink(block) != nullptr;
    if (pool != nullptr && pool->free.count < pool->keep && poolsEnabled_.load(std::memory_order_relaxed)) [[likely]] {
        Poison(block->Data(), pool->SpanOfData());
        Kw_LinkBefore(&pool->free.tail, block);
        Leave();
        return;
    }
    if (wasCounted) held_ -= pool != nullptr ? pool->blockSize : static_cast<double>(block->size) + Block::kOverhead;
    Leave();
    std::free(block);
}

void KwMemoryHlp::Query(double* held, double* allocated, double* third) {
    Enter();
    if (held != nullptr) *held = held_;
    if (allocated != nullptr) *allocated = allocated_;
    if (third != nullptr) *third = third_;
    Leave();
}

void KwMemoryHlp::BeginRelease() {
    Enter();
    poolsEnabled_.store(false, std::memory_order_relaxed);
    Leave();
}

void KwMemoryHlp::FreePoolBlocks() {
    for (int i = 0; i < poolCount_; ++i) {
        Pool& pool = pools_[i];
        while (pool.free.count > 0) {
            auto* block = static_cast<Block*>(pool.free.head.next);
            Kw_Unlink(block);
            Unpoison(block->Data(), pool.SpanOfData());
            std::free(block);
        }
    }
}

void KwMemoryHlp::ReportLiveBlocks() {
    int leaks = 0;
    while (live_.count > 0) {
        auto* block = static_cast<Block*>(live_.head.next);
        Kw_Unlink(block);
        // A damaged block says that the list itself may be damaged: go no further.
        if (const int damage = FirstDamage(block)) {
            ReportDamage("CheckMem", damage, block->Data(), block->file, block->line);
            return;
        }
        if ((block->flags & Block::kAutoFree) == 0) {
            ++leaks;
            if (block->line != 0) {
                Report("Leak Mem %d:Ptr=%x,Size=%d,[%s:%d]", leaks, Address32(block->Data()),
                       static_cast<int>(block->size), Text(block->file), block->line);
            }
        }
        std::free(block);
    }
    if (leaks > 0) Report("Memory Leak %d Ptr", leaks);
}

void KwMemoryHlp::EndRelease() {
    Enter();
    FreePoolBlocks();
    ReportLiveBlocks();
    Leave();
    g_state.store(nullptr, std::memory_order_release);
    this->~KwMemoryHlp();
    KwMemory::Free(this, nullptr, 0);
}

KwMemoryHlp* State() {
    return g_state.load(std::memory_order_acquire);
}

// A block that no list knows, for the time in which there is no state.
Block* TakeWithoutState(unsigned int size, const char* file, int line) {
    const bool wraps = size + Block::kOverhead < size;
    void* memory = wraps ? nullptr : std::calloc(1, Block::SystemSize(size));
    if (memory == nullptr) {
        Report("Error Malloc:size=%d,[%s:%d]", static_cast<int>(size + Block::kOverhead), Text(file), line);
        return nullptr;
    }
    auto* block = new (memory) Block;
    FillHeader(block, size, file, line, 0);
    TraceMalloc(block, size, file, line);
    return block;
}

Block* TakeBlock(unsigned int size, const char* file, int line, bool* zeroed) {
    *zeroed = true;
    KwMemoryHlp* state = State();
    Block* block = state != nullptr ? state->Take(size, file, line, zeroed) : TakeWithoutState(size, file, line);
    if (block == nullptr) KwPlatform::ErrorBox("Error new memory", "System");
    return block;
}

[[gnu::noinline, gnu::cold]] bool RefusePointer(const char* operation, int damage, Block* block, const char* file,
                                                int line) {
    KwMemoryHlp* state = State();
    if (state != nullptr) state->Enter();
    ReportDamage(operation, damage, block->Data(), file, line);
    if (state != nullptr) state->Leave();
    return false;
}

inline bool CheckPointer(const char* operation, Block* block, const char* file, int line) {
    if (block->guard != Block::kGuard) [[unlikely]]
        return RefusePointer(operation, 1, block, file, line);
    // A block that stands in a free list is refused before its data, which may be poisoned, is looked at.
    const KwMemoryHlp* state = State();
    if (state != nullptr && state->IsFreeBlock(block)) [[unlikely]]
        return RefusePointer(operation, 1, block, file, line);
    if (!block->TrailerIntact()) [[unlikely]]
        return RefusePointer(operation, 2, block, file, line);
    return true;
}

}  // namespace

bool KwMemoryState_Create() {
    if (State() != nullptr) return true;
    // Two threads may both arrive here before the library is up: the second one's state is dropped.
    void* memory = KwMemory::Malloc(sizeof(KwMemoryHlp), nullptr, 0);
    if (memory == nullptr) return false;
    auto* state = new (memory) KwMemoryHlp;
    KwMemoryHlp* expected = nullptr;
    if (!state->InstallPools(static_cast<int>(std::size(kDefaultPools)), kDefaultPools) ||
        !g_state.compare_exchange_strong(expected, state, std::memory_order_acq_rel)) {
        state->~KwMemoryHlp();
        KwMemory::Free(memory, nullptr, 0);
        return expected != nullptr;
    }
    PostModuleEngine(state);
    return true;
}

void* KwMemory::Malloc(unsigned int size, const char* file, int line) {
    bool zeroed = false;
    Block* block = TakeBlock(size, file, line, &zeroed);
    if (block == nullptr) return nullptr;
    if (!zeroed) std::memset(block->Data(), 0, size);
    return block->Data();
}

void* KwMemory::Calloc(int count, unsigned int size, const char* file, int line) {
    return Malloc(static_cast<unsigned int>(count) * size, file, line);
}

void* KwMemory::Realloc(void* ptr, unsigned int size, const char* file, int line) {
    if (ptr == nullptr) return Malloc(size, file, line);
    Block* block = Block::FromData(ptr);
    KwMemoryHlp* state = State();
    int damage = 0;
    if (block->guard != Block::kGuard || (state != nullptr && state->IsFreeBlock(block))) {
        damage = 1;
    } else if (block->pool > (state != nullptr ? state->PoolCount() : 0)) {
        damage = 2;
    }
    if (damage != 0) {
        if (state != nullptr) state->Enter();
        Report(damage == 1 ? "Error Realloc:check header failed 1,ptr=%x,size=%u,[%s:%d]"
                           : "Error Realloc:check header failed 2,ptr=%x,size=%u,[%s:%d]",
               Address32(ptr), size, Text(file), line);
        if (state != nullptr) state->Leave();
        return nullptr;
    }
    const LogFunction tracer = g_tracer.load(std::memory_order_relaxed);
    const unsigned int oldSize = block->size;
    const unsigned int total = size + Block::kOverhead;
    if (block->pool != 0 && total >= size) {
        const Pool* pool = state->PoolFor(total);
        if (pool != nullptr && pool->index == block->pool) {
            block->size = size;
            if (size > oldSize) std::memset(block->Data() + oldSize, 0, size - oldSize);
            block->SetTrailer();
            if (tracer != nullptr) {
                state->Enter();
                tracer("Realloc ptr=%x,size=%d,size<size limit,not resize,[%s:%d]", Address32(ptr),
                       static_cast<int>(size), Text(file), line);
                state->Leave();
            }
            return ptr;
        }
    }
    bool zeroed = false;
    Block* moved = TakeBlock(size, file, line, &zeroed);
    if (moved == nullptr) return nullptr;
    const unsigned int kept = oldSize < size ? oldSize : size;
    std::memcpy(moved->Data(), ptr, kept);
    if (!zeroed) std::memset(moved->Data() + kept, 0, size - kept);
    if (tracer != nullptr) {
        if (state != nullptr) state->Enter();
        tracer("Realloc oldptr=%x,oldsize=%d,newptr=%x,newsize=%d,[%s:%d]", Address32(ptr), static_cast<int>(oldSize),
               Address32(moved->Data()), static_cast<int>(size), Text(file), line);
        if (state != nullptr) state->Leave();
    }
    Free(ptr, file, line);
    return moved->Data();
}

void KwMemory::Free(void* ptr, const char* file, int line) {
    if (ptr == nullptr) return;
    Block* block = Block::FromData(ptr);
    KwMemoryHlp* state = State();
    if (!CheckPointer("Free", block, file, line)) return;
    if (state != nullptr) {
        state->GiveBack(block, file, line);
    } else {
        TraceFree(block, file, line);
        block->guard = 0;
        std::free(block);
    }
}

void KwMemory::AttackLogError(LogFunction reporter) {
    g_reporter.store(reporter);
}
void KwMemory::AttackLogAction(LogFunction tracer) {
    g_tracer.store(tracer);
}

bool KwMemory::AutoFree(void* ptr) {
    KwMemoryHlp* state = State();
    if (state == nullptr || ptr == nullptr) return false;
    Block* block = Block::FromData(ptr);
    if (!CheckPointer("AutoFree", block, nullptr, 0)) return false;
    state->Enter();
    block->flags |= Block::kAutoFree;
    state->Leave();
    return true;
}

bool KwMemory::GetPtrInfo(void* ptr, unsigned int* size, const char** file, int* line) {
    if (ptr == nullptr) return false;
    Block* block = Block::FromData(ptr);
    if (!CheckPointer("GetPtrInfo", block, nullptr, 0)) return false;
    if (size != nullptr) *size = block->size;
    if (file != nullptr) *file = block->file;
    if (line != nullptr) *line = block->line;
    return true;
}

int KwMemory::QueryInfo(double* held, double* allocated, double* third) {
    KwMemoryHlp* state = State();
    if (state == nullptr) return 0;
    state->Query(held, allocated, third);
    return 1;
}

bool KwMemory::SetupBlock(int count, ...) {
    // Creating the state installs the default pools, so a table is there in every case.
    if (!KwMemoryState_Create() || State()->HasPools() || count < 1 || count > 255) return false;
    auto* sizes = static_cast<PoolSize*>(std::malloc(static_cast<std::size_t>(count) * sizeof(PoolSize)));
    if (sizes == nullptr) return false;
    va_list args;
    va_start(args, count);
    for (int i = 0; i < count; ++i) {
        sizes[i].blockSize = va_arg(args, unsigned int);
        sizes[i].keep = va_arg(args, int);
    }
    va_end(args);
    const bool installed = State()->InstallPools(count, sizes);
    std::free(sizes);
    return installed;
}
