#include "Kw/KwBufferTrunk.h"

#include <atomic>

#include "Kw/KwModuleEngine.h"

namespace {

class SBufferTrunkMnr : public KwModuleEngine {
public:
    KW_TRACKED_NEW
    void EndRelease() override;
    KwBufferTrunk trunk;
};

std::atomic<SBufferTrunkMnr*> g_root{nullptr};

void SBufferTrunkMnr::EndRelease() {
    g_root.store(nullptr, std::memory_order_release);
    delete this;
}

}  // namespace

KwBufferTrunk::~KwBufferTrunk() {
    Clear();
}

KwBufferList* KwBufferTrunk::SelectBufferList(unsigned int size) {
    if (size == 0) return nullptr;
    const Guard guard(this);
    for (KwBufferList* list : lists_) {
        if (list->GetBufferSize() == size) return list;
    }
    auto* list = new KwBufferList;
    if (list == nullptr) return nullptr;
    list->Init(size);
    lists_.push_back(list);
    return list;
}

KwBuffer* KwBufferTrunk::SelectBuffer(unsigned int size) {
    const Guard guard(this);  // keeps the pool from a Clear meanwhile
    KwBufferList* list = SelectBufferList(size);
    KwBufferNode* node = list == nullptr ? nullptr : list->PopFree();
    if (node == nullptr) return nullptr;
    // The trunk keeps its pools alive, so the node's reference is given back at once; the node knows,
    // and does not give it back a second time.
    node->holdsList_ = false;
    list->Release();
    return node;
}

void KwBufferTrunk::Clear() {
    const Guard guard(this);
    for (KwBufferList* list : lists_) list->Release();
    lists_.clear();
}

KwBufferTrunk* QueryTrunkRoot() {
    if (!Kw_IsInitialised()) return nullptr;
    SBufferTrunkMnr* root = g_root.load(std::memory_order_acquire);
    if (root != nullptr) return &root->trunk;
    auto* made = new SBufferTrunkMnr;
    if (made == nullptr) return nullptr;
    if (g_root.compare_exchange_strong(root, made, std::memory_order_acq_rel)) {
        PostModuleEngine(made);
        return &made->trunk;
    }
    delete made;
    return &root->trunk;
}
