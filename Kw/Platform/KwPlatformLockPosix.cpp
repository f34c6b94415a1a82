#include "Kw/Platform/KwPlatformLock.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/single_threaded.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace KwPlatform {

namespace {

// States of the lock word, after U. Drepper, "Futexes are tricky", mutex 3.
constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 1;
constexpr std::uint32_t kHeldWithSleepers = 2;

// A waiter looks again after 32, 64, 128 ... pauses before it sleeps. A held section of this library lasts tens
// of nanoseconds, a sleep and its wake-up some microseconds; and a waiter that looks rarely leaves the lock's
// cache line, and all that it guards, with the thread that is at work: two threads that allocate at once get
// twice as much done as with a first look after one pause.
constexpr int kLooks = 8;
constexpr int kFirstPauses = 32;
constexpr int kMostPauses = 512;

// The address of a thread-local object is a cheaper name of the thread than its kernel id.
[[gnu::tls_model("initial-exec")]] thread_local char g_self;

void FutexWait(std::atomic<std::uint32_t>* word, std::uint32_t expected) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

void FutexWakeOne(std::atomic<std::uint32_t>* word) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace

struct Lock {
    std::atomic<std::uint32_t> word{kFree};
    std::uint32_t depth = 0;  // entries of the holder beyond the first
    std::atomic<const void*> owner{nullptr};
    std::atomic<std::uint32_t> sharers{1};
};

namespace {

[[gnu::noinline]] void EnterContended(Lock* lock) {
    int pauses = kFirstPauses;
    for (int look = 0; look < kLooks; ++look) {
        for (int i = 0; i < pauses; ++i) CpuRelax();
        if (pauses < kMostPauses) pauses *= 2;
        std::uint32_t seen = lock->word.load(std::memory_order_relaxed);
        if (seen == kFree &&
            lock->word.compare_exchange_weak(seen, kHeld, std::memory_order_acquire, std::memory_order_relaxed)) {
            return;
        }
    }
    while (lock->word.exchange(kHeldWithSleepers, std::memory_order_acquire) != kFree) {
        FutexWait(&lock->word, kHeldWithSleepers);
    }
}

}  // namespace

Lock* LockCreate(LockPlace place) {
    constexpr std::size_t kLine = 64;
    static_assert(sizeof(Lock) <= kLine);
    void* memory = place == LockPlace::kOwnLine ? std::aligned_alloc(kLine, kLine) : std::malloc(sizeof(Lock));
    return memory == nullptr ? nullptr : new (memory) Lock;
}

void LockAddSharer(Lock* lock) {
    lock->sharers.fetch_add(1, std::memory_order_relaxed);
}

void LockRelease(Lock* lock) {
    if (lock->sharers.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    lock->~Lock();
    std::free(lock);
}

void LockEnter(Lock* lock) {
    std::uint32_t expected = kFree;
    if (__libc_single_threaded != 0) {
        // Nobody else runs: the same states without the bus-locked instruction.
        if (lock->word.load(std::memory_order_relaxed) == kFree) {
            lock->word.store(kHeld, std::memory_order_relaxed);
            lock->owner.store(&g_self, std::memory_order_relaxed);
            return;
        }
    } else if (lock->word.compare_exchange_strong(expected, kHeld, std::memory_order_acquire,
                                                  std::memory_order_relaxed)) {
        lock->owner.store(&g_self, std::memory_order_relaxed);
        return;
    }
    // Only this thread can have written its own name there, so a relaxed read decides.
    if (lock->owner.load(std::memory_order_relaxed) == &g_self) {
        ++lock->depth;
        return;
    }
    EnterContended(lock);
    lock->owner.store(&g_self, std::memory_order_relaxed);
}

void LockLeave(Lock* lock) {
    if (lock->depth != 0) {
        --lock->depth;
        return;
    }
    lock->owner.store(nullptr, std::memory_order_relaxed);
    if (__libc_single_threaded != 0) {
        lock->word.store(kFree, std::memory_order_relaxed);
    } else if (lock->word.exchange(kFree, std::memory_order_release) == kHeldWithSleepers) {
        FutexWakeOne(&lock->word);
    }
}

}  // namespace KwPlatform
