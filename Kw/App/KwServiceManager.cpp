#include "Kw/App/KwServiceManager.h"

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwGuardedCall.h"
#include "Kw/KwOS.h"

KwServiceManager::~KwServiceManager() {
    if (inHook_.load() != 0) {
        KwLogSystem::Push("service manager destroyed in OnServiceWork, CloseAll belongs into the derived destructor");
    }
    CloseAll();
}

// Appends the thread that `start` gives.
template <class Start>
bool KwServiceManager::Add(Start start) {
    threads_.push_back(nullptr);
    threads_.back() = start();
    if (threads_.back() != nullptr) return true;
    threads_.pop_back();
    return false;
}

bool KwServiceManager::AddWork() {
    return Add([this] { return KwOS::NewThread(_OnServiceWork, this); });
}

bool KwServiceManager::AddWork(void (*work)(bool& run, void* param), void* param) {
    return Add([=] { return KwOS::NewThread(work, param); });
}

bool KwServiceManager::AddWork(KwInf* target, KwInfThreadBody work, void* param) {
    return Add([=] { return KwOS::NewThread(target, work, param); });
}

void KwServiceManager::CloseAll() {
    while (!threads_.empty()) {
        void* thread = threads_.front();
        threads_.pop_front();
        KwOS::CloseService(thread);
    }
}

void KwServiceManager::_OnServiceWork(bool& run, void* self) {
    auto* manager = static_cast<KwServiceManager*>(self);
    ++manager->inHook_;
    KwGuardedCall("OnServiceWork", nullptr, [&] { manager->OnServiceWork(run, manager); });
    --manager->inHook_;
}

void KwServiceManager::OnServiceWork(bool&, void*) {}
