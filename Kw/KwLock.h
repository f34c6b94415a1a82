// KwLock: a re-entrant lock behind one handle.
//
// A null handle makes every operation a no-op, so an object whose lock could not be allocated
// works unlocked. A copy shares its source's lock; the lock itself goes with its last sharer.
// Thread-safety: Enter and Leave from any thread; Create, Destroy and copying from one at a time.
#pragma once

#include "Kw/KwDefine.h"

// The lock primitive behind KwLock and KwInfLock.
// op 1: sets `handle` to a new lock, or to null when memory is out. op 2: gives up this handle's
// share of the lock (the last share frees it) and sets `handle` to null. op 3: enters. op 4: leaves.
// Any other op, and a null handle with op 2 to 4, does nothing. The lock comes from malloc.
KW_API void Kw_LockWork(int op, void*& handle);

// Adds a sharer to the lock behind `handle` and returns it: what copying an owner of a handle does.
// Each share is given up by op 2.
KW_API void* Kw_LockShare(void* handle);

class KW_API KwLock {
public:
    KwLock() { Create(); }
    KwLock(const KwLock& other) : handle_(Kw_LockShare(other.handle_)) {}
    KwLock& operator=(const KwLock& other);
    ~KwLock() { Destroy(); }

    // Makes the lock if there is none.
    void Create();
    // Gives the lock up; afterwards every operation is a no-op until Create.
    void Destroy() { Kw_LockWork(2, handle_); }
    // Blocks until this thread holds the lock. The holder may enter again.
    void Enter() { Kw_LockWork(3, handle_); }
    // Leaves once; the holder leaves as often as it entered.
    void Leave() { Kw_LockWork(4, handle_); }

    // For std::lock_guard.
    void lock() { Enter(); }
    void unlock() { Leave(); }

private:
    void* handle_ = nullptr;
};
