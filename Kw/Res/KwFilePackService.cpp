// KwFilePackList: what its service does, and the cache's settings.
#include <algorithm>
#include <atomic>

#include "Kw/KwGuardedCall.h"
#include "Kw/KwOS.h"
#include "Kw/Res/KwPackCache.h"
#include "Kw/Res/KwPackRequests.h"

bool KwFilePackList::Queue(const char* name, const KwPackRequest& request) {
    unsigned int hash = 0;
    if (!KwPackSource::GetKeyHash(name, hash)) return false;
    KwPackGuard guard(cache_->GetLock());
    if (!opened_) return false;
    if (request.target != nullptr && request.target->AddRef() <= 0) {
        // The count has wrapped: this reference is not one.
        request.target->Release();
        return false;
    }
    requests_->waiting.push_back(request);
    requests_->waiting.back().name = name;
    guard.TellAsked();
    return true;
}

bool KwFilePackList::RequestLoad(const char* name, KwPackLoaded callback, void* a, void* b) {
    return callback != nullptr && Queue(name, {{}, callback, nullptr, nullptr, a, b});
}

bool KwFilePackList::RequestLoad(const char* name, KwInf* target, KwPackLoadedMember callback, void* a, void* b) {
    return target != nullptr && callback != nullptr && Queue(name, {{}, nullptr, target, callback, a, b});
}

void KwFilePackList::OnRequestLoad(const KwPackRequest& request, bool load) {
    KwFile file;
    KwFile* opened = load && file.Open(request.name.c_str(), cache_) ? &file : nullptr;
    KwGuardedCall("a load request for", request.name.c_str(), [&] {
        if (request.target == nullptr) {
            request.callback(request.name, request.a, request.b, opened);
        } else {
            (request.target->*request.member)(request.name, request.a, request.b, opened);
        }
    });
    file.Close();
    if (request.target != nullptr) request.target->Release();
}

bool KwFilePackList::Working() {
    bool served = false;
    KwPackGuard guard(cache_->GetLock());
    // What the callbacks ask for anew is left to the next pass.
    for (std::size_t left = requests_->waiting.size(); left > 0 && !requests_->waiting.empty(); --left) {
        const KwPackRequest request = std::move(requests_->waiting.front());
        requests_->waiting.pop_front();
        guard.Unlock();
        OnRequestLoad(request, true);
        served = true;
        guard.Lock();
    }
    CheckCache();
    return served;
}

void KwFilePackList::OnService(bool& run, void* list) {
    constexpr unsigned int kShortest = 10;  // ms
    KwFilePackList& self = *static_cast<KwFilePackList*>(list);
    const std::atomic_ref<bool> running(run);
    KwPackGuard guard(self.cache_->GetLock());
    self.serviceId_ = KwOS::GetCurrentThreadId();
    while (running && !self.stopping_) {
        if (self.requests_->waiting.empty()) guard.WaitForAsked(std::max(self.cache_->period, kShortest));
        guard.Unlock();
        self.Working();
        guard.Lock();
    }
    self.serviceId_ = 0;
}

// Under the lock.
void KwFilePackList::CheckCache() {
    cache_->Trim();
}

// Under the lock.
void KwFilePackList::DeleteCache() {
    cache_->Clear();
}

void KwFilePackList::UsedCache(bool use) {
    const KwPackGuard guard(cache_->GetLock());
    cache_->keep = use;
    CheckCache();
}

void KwFilePackList::SetTimeCheckCache(unsigned int ms) {
    KwPackGuard guard(cache_->GetLock());
    cache_->period = ms;
    CheckCache();
    guard.TellAsked();
}

void KwFilePackList::SetLimitCache(unsigned int bytes) {
    const KwPackGuard guard(cache_->GetLock());
    cache_->limit = bytes;
    CheckCache();
}

void KwFilePackList::SetUnpackLimit(unsigned int bytes) {
    const KwPackGuard guard(cache_->GetLock());
    unpackLimit_ = bytes;
    for (const auto& pack : packs_) pack->SetUnpackLimit(bytes);
}

unsigned int KwFilePackList::GetCacheCount() {
    const KwPackGuard guard(cache_->GetLock());
    return cache_->GetCount();
}

unsigned int KwFilePackList::GetCacheSize() {
    const KwPackGuard guard(cache_->GetLock());
    return static_cast<unsigned int>(std::min<std::uint64_t>(cache_->GetBytes(), 0xFFFFFFFFu));
}
