#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes first.
#include "Kw/Platform/KwPlatformLock.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace KwPlatform {

namespace {

// A held section of this library lasts tens of nanoseconds, a sleep and its wake-up some microseconds.
constexpr DWORD kSpins = 2000;

}  // namespace

struct Lock {
    CRITICAL_SECTION section;
    std::atomic<std::uint32_t> sharers{1};
};

Lock* LockCreate(LockPlace) {
    void* memory = std::malloc(sizeof(Lock));
    if (memory == nullptr) return nullptr;
    Lock* lock = new (memory) Lock;
    InitializeCriticalSectionAndSpinCount(&lock->section, kSpins);  // cannot fail since Windows Vista
    return lock;
}

void LockAddSharer(Lock* lock) {
    lock->sharers.fetch_add(1, std::memory_order_relaxed);
}

void LockRelease(Lock* lock) {
    if (lock->sharers.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    DeleteCriticalSection(&lock->section);
    lock->~Lock();
    std::free(lock);
}

void LockEnter(Lock* lock) {
    EnterCriticalSection(&lock->section);
}

void LockLeave(Lock* lock) {
    LeaveCriticalSection(&lock->section);
}

}  // namespace KwPlatform
