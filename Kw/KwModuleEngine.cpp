#include "Kw/KwModuleEngine.h"

#include "Kw/KwModuleChain.h"

namespace {
constinit KwModuleChain g_chain;
}  // namespace

KwModuleChain& KwModuleChain::Get() {
    return g_chain;
}

void KwModuleChain::Post(KwModuleEngine* module) {
    if (module == nullptr) return;
    const std::lock_guard<KwStaticLock> guard(mutex_);
    module->older_ = newest_;
    newest_ = module;
}

void KwModuleChain::PostOldest(KwModuleEngine* module) {
    const std::lock_guard<KwStaticLock> guard(mutex_);
    KwModuleEngine** link = &newest_;
    while (*link != nullptr) link = &(*link)->older_;
    *link = module;
}

bool KwModuleChain::Open() {
    initialised_.store(true, std::memory_order_release);
    return true;
}

void KwModuleChain::ReleaseAll() {
    if (!initialised_.load(std::memory_order_acquire)) return;
    for (KwModuleEngine* module = newest_; module != nullptr; module = module->older_) module->BeginRelease();
    // A module may still post another one while it goes down: take them off one by one.
    while (KwModuleEngine* module = newest_) {
        newest_ = module->older_;
        module->EndRelease();
    }
    initialised_.store(false, std::memory_order_release);
}

KwModuleEngine::~KwModuleEngine() = default;
void KwModuleEngine::BeginRelease() {}

void PostModuleEngine(KwModuleEngine* module) {
    g_chain.Post(module);
}
bool Kw_IsInitialised() {
    return g_chain.IsOpen();
}
