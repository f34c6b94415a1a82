// KwStaticLock: a constant-initialised lock for process-wide state. Internal.
//
// std::mutex has a constructor that runs on some platforms, which a lock used by static objects of a host
// cannot wait for. Waiters give their time slice away: for short sections that are rarely fought over.
// Thread-safety: from any thread; not re-entrant. For std::lock_guard.
#pragma once

#include <atomic>

#include "Kw/Platform/KwPlatformThread.h"

class KwStaticLock {
public:
    constexpr KwStaticLock() = default;
    KwStaticLock(const KwStaticLock&) = delete;
    KwStaticLock& operator=(const KwStaticLock&) = delete;

    void lock() {
        while (held_.exchange(true, std::memory_order_acquire)) KwPlatform::ThreadYield();
    }
    void unlock() { held_.store(false, std::memory_order_release); }

private:
    std::atomic<bool> held_{false};
};
