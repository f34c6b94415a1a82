#include "Kw/KwGLBValue.h"

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "Kw/KwInf.h"
#include "Kw/KwModuleEngine.h"
#include "Kw/KwStaticLock.h"

namespace {

class CKwGLBValue : public KwInfLock {
public:
    void Set(const char* name, unsigned int value) {
        const Guard guard(this);
        const auto found = values_.find(name);
        if (found != values_.end()) {
            found->second = value;
        } else {
            values_.emplace(name, value);
        }
    }

    unsigned int Get(const char* name) const {
        const Guard guard(this);
        const auto found = values_.find(name);
        return found == values_.end() ? 0 : found->second;
    }

private:
    std::map<std::string, unsigned int, std::less<>> values_;
};

constinit std::atomic<CKwGLBValue*> g_store{nullptr};
constinit KwStaticLock g_creation;

class StoreModule : public KwModuleEngine {
public:
    KW_TRACKED_NEW

    void EndRelease() override {
        if (CKwGLBValue* store = g_store.exchange(nullptr)) store->Release();
        delete this;
    }
};

// Null when memory is out.
CKwGLBValue* GetOrCreate() {
    CKwGLBValue* store = g_store.load(std::memory_order_acquire);
    if (store != nullptr) return store;
    const std::lock_guard<KwStaticLock> guard(g_creation);
    store = g_store.load(std::memory_order_relaxed);
    if (store != nullptr) return store;
    store = new CKwGLBValue;
    if (store == nullptr) return nullptr;
    g_store.store(store, std::memory_order_release);
    PostModuleEngine(new StoreModule);
    return store;
}

}  // namespace

void g_KwSetGLBValue(const char* name, unsigned int value) {
    CKwGLBValue* store = name == nullptr ? nullptr : GetOrCreate();
    if (store != nullptr) store->Set(name, value);
}

unsigned int g_KwGetGLBValue(const char* name) {
    const CKwGLBValue* store = g_store.load(std::memory_order_acquire);
    return store == nullptr || name == nullptr ? 0 : store->Get(name);
}
