#include "Kw/KwBufferList.h"

#include <atomic>

namespace {
constexpr unsigned int kTag = 0x00B8F48F;
}  // namespace

// What a buffer that is out knows of its pool: counted by the pool and by every buffer that is out, so
// that a buffer can ask whether its pool still lives without touching the pool's memory.
// Lock order: this lock, then the list's; nothing takes it while it holds the list's lock.
struct KwBufferList::Life {
    KW_TRACKED_NEW
    KwLock lock;                   // held while a buffer returns and while the pool dies
    KwBufferList* list = nullptr;  // null once the pool is dead
    std::atomic<int> holders{1};

    void Drop() {
        if (holders.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }
};

int KwBufferNode::Release() {
    bool returns = false;
    {
        // Asked and counted in one step: of two users who release at once, one must find two references.
        const Guard guard(this);
        returns = life_ != nullptr && refCount_ == 2;
        if (!returns && refCount_ > 1) return --refCount_;
    }
    if (!returns) return KwBuffer::Release();
    auto* life = static_cast<KwBufferList::Life*>(life_);
    bool kept = false;
    life->lock.Enter();
    KwBufferList* list = life->list;
    // Before the list has the node back: from then on it may be another user's.
    const bool holdsList = holdsList_;
    life_ = nullptr;
    owner_ = nullptr;
    holdsList_ = false;
    if (list != nullptr) {
        kept = list->TakeBack(this);
        // Maybe its last reference: the destructor then runs here, under the lock of `life`, which this
        // node's holding keeps alive.
        if (holdsList) list->Release();
    }
    life->lock.Leave();
    life->Drop();
    if (kept) return 1;
    KwBuffer::Release();         // the reference of the pool, which does not want the node back
    return KwBuffer::Release();  // the user's
}

KwBufferList::KwBufferList() : tag_(kTag), life_(new Life) {
    // Threads meet at this lock: it gets a cache line of its own.
    Kw_LockWork(2, lock_);
    Kw_LockWork(1, lock_);
    if (life_ != nullptr) life_->list = this;
}

KwBufferList::~KwBufferList() {
    Clear();
    if (life_ == nullptr) return;
    life_->lock.Enter();
    life_->list = nullptr;
    tag_ = 0;
    // What came back between the two steps above.
    ReleaseAll(&free_);
    life_->lock.Leave();
    life_->Drop();
}

void KwBufferList::Init(unsigned int size) {
    Clear();
    const Guard guard(this);
    bufferSize_ = size;
}

KwBufferNode* KwBufferList::PopFree() {
    const Guard guard(this);
    if (life_ == nullptr) return nullptr;
    auto* node = static_cast<KwBufferNode*>(free_.RemoveHead());
    if (node == nullptr) {
        if (bufferSize_ == 0) return nullptr;
        node = new KwBufferNode;
        if (node == nullptr) return nullptr;
        if (!node->Alloc(bufferSize_)) {
            node->Release();
            return nullptr;
        }
    }
    life_->holders.fetch_add(1, std::memory_order_relaxed);
    node->owner_ = this;
    node->life_ = life_;
    // A count of 16 bits bears only so many: beyond them a buffer is out without holding its pool.
    node->holdsList_ = AddRef() > 0;
    if (!node->holdsList_) --refCount_;
    node->AddRef();
    node->SetUsed(0);
    return node;
}

// Puts a returning node among the idle ones, its references back to one. False when there are enough.
bool KwBufferList::TakeBack(KwBufferNode* node) {
    const Guard guard(this);
    if (tag_ != kTag || free_.count >= freeLimit_) return false;
    free_.AddTail(node);
    // Under the list's lock: a user that pops the node at once must find one reference.
    node->KwBuffer::Release();
    return true;
}

KwBufferNode* KwBufferList::PopUsed() {
    const Guard guard(this);
    return static_cast<KwBufferNode*>(used_.RemoveHead());
}

void KwBufferList::PushUsedBack(KwBufferNode* node) {
    const Guard guard(this);
    used_.AddTail(node);
}

void KwBufferList::PushUsedFront(KwBufferNode* node) {
    const Guard guard(this);
    used_.AddHead(node);
}

bool KwBufferList::Empty(bool used) {
    return GetItemCount(used) == 0;
}

int KwBufferList::GetItemCount(bool used) {
    const Guard guard(this);
    return (used ? used_ : free_).count;
}

void KwBufferList::Clear() {
    ReleaseAll(&used_);
    ReleaseAll(&free_);
}

// Without the list's lock around Release: a node on its way back takes the locks in the other order.
void KwBufferList::ReleaseAll(KwList* list) {
    for (;;) {
        KwBufferNode* node = nullptr;
        {
            const Guard guard(this);
            node = static_cast<KwBufferNode*>(list->RemoveHead());
        }
        if (node == nullptr) return;
        node->Release();
    }
}
