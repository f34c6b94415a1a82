// KwModuleChain: the chain of process-wide modules behind PostModuleEngine. Internal.
#pragma once

#include <atomic>
#include <mutex>

#include "Kw/KwModuleEngine.h"
#include "Kw/KwStaticLock.h"

class KwModuleChain {
public:
    static KwModuleChain& Get();
    void Post(KwModuleEngine* module);
    // Adds a module that ends after all others, the allocator too: it must not use tracked memory.
    void PostOldest(KwModuleEngine* module);
    bool Open();
    // Both release rounds, newest module first; then the library counts as released.
    void ReleaseAll();
    bool IsOpen() const { return initialised_.load(std::memory_order_acquire); }

private:
    // Constant-initialised: the chain is used before and after the constructors of this library run.
    KwStaticLock mutex_;
    KwModuleEngine* newest_ = nullptr;
    std::atomic<bool> initialised_{false};
};
