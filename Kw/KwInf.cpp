#include "Kw/KwInf.h"

#include <atomic>
#include <map>
#include <mutex>

#include "Kw/KwModuleEngine.h"
#include "Kw/Platform/KwPlatformLock.h"

namespace {

// The registry of live callback targets, by address.
class CMTInf : public KwModuleEngine {
public:
    KW_TRACKED_NEW

    void Set(KwInf* target) {
        const std::lock_guard<KwLock> guard(lock_);
        serials_[target] = ++lastSerial_;
    }
    void Remove(KwInf* target) {
        const std::lock_guard<KwLock> guard(lock_);
        serials_.erase(target);
    }
    unsigned int Serial(KwInf* target) {
        const std::lock_guard<KwLock> guard(lock_);
        const auto found = serials_.find(target);
        return found == serials_.end() ? 0 : found->second;
    }

    void EndRelease() override;

private:
    KwLock lock_;
    unsigned int lastSerial_ = 0;
    std::map<KwInf*, unsigned int> serials_;
};

std::atomic<CMTInf*> g_registry{nullptr};

void CMTInf::EndRelease() {
    g_registry.store(nullptr, std::memory_order_release);
    // Targets that outlive the library keep their flag; their destructors find no registry and go on.
    serials_.clear();
    delete this;
}

CMTInf* Registry(bool create) {
    CMTInf* registry = g_registry.load(std::memory_order_acquire);
    if (registry != nullptr || !create || !Kw_IsInitialised()) return registry;
    auto* made = new CMTInf;
    if (made == nullptr) return nullptr;
    if (g_registry.compare_exchange_strong(registry, made, std::memory_order_acq_rel)) {
        PostModuleEngine(made);
        return made;
    }
    delete made;
    return registry;
}

}  // namespace

void Kw_InfAttack(KwInf* target, bool attach) {
    if (target == nullptr) return;
    CMTInf* registry = Registry(attach);
    if (registry == nullptr) return;
    if (attach) {
        registry->Set(target);
    } else {
        registry->Remove(target);
    }
}

unsigned int Kw_InfSerial(KwInf* target) {
    CMTInf* registry = Registry(false);
    return registry == nullptr ? 0 : registry->Serial(target);
}

KwInf::~KwInf() {
    if (attached_ == 0) return;
    attached_ = 0;
    Kw_InfAttack(this, false);
}

int KwInf::AddRef() {
    return ++refCount_;
}

int KwInf::Release() {
    const int left = --refCount_;
    if (left != 0) return left;
    delete this;
    return 0;
}

int KwInf::GetRef() {
    return refCount_;
}

void KwInf::Attack() {
    if (attached_ != 0) return;
    attached_ = 1;
    Kw_InfAttack(this, true);
}

// There may be millions of them, each locked for a moment.
KwInfLock::KwInfLock() : lock_(KwPlatform::LockCreate(KwPlatform::LockPlace::kAmongOthers)) {}

KwInfLock::KwInfLock(const KwInfLock& other) : KwInf(other), lock_(Kw_LockShare(other.lock_)) {}

KwInfLock& KwInfLock::operator=(const KwInfLock& other) {
    void* shared = Kw_LockShare(other.lock_);  // first, so that assigning to itself keeps the lock
    KwInf::operator=(other);
    Kw_LockWork(2, lock_);
    lock_ = shared;
    return *this;
}

KwInfLock::~KwInfLock() {
    Kw_LockWork(2, lock_);
}

int KwInfLock::AddRef() {
    const Guard guard(this);
    return ++refCount_;
}

int KwInfLock::Release() {
    int left = 0;
    {
        const Guard guard(this);
        left = --refCount_;
    }
    if (left != 0) return left;
    delete this;
    return 0;
}

int KwInfLock::GetRef() {
    const Guard guard(this);
    return refCount_;
}

void KwInfLock::Attack() {
    const Guard guard(this);
    KwInf::Attack();
}
