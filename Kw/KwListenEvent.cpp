#include "Kw/KwListenEvent.h"

#include <atomic>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwEventBase.h"
#include "Kw/KwGuardedCall.h"
#include "Kw/KwOS.h"
#include "Kw/Platform/KwPlatformClock.h"

KwEvent_Base::~KwEvent_Base() = default;

bool SKwEventCall::Run() const {
    switch (kind) {
        case Kind::kMember: return (target->*member)(param);
        case Kind::kObject: return object->OnEvent(param);
        case Kind::kFunction: break;
    }
    return function(param);
}

void SKwEventCall::LetGo() const {
    if (kind == Kind::kMember) target->Release();
}

KwListenEvent::~KwListenEvent() {
    while (SKwListenEvent* node = static_cast<SKwListenEvent*>(queue_.RemoveHead())) {
        node->call.LetGo();
        delete node;
    }
    while (KwNode* node = spare_.RemoveHead()) delete node;
}

bool KwListenEvent::SetThreads(int count) {
    for (int i = threadCount_; i < count; ++i) {
        void* thread = KwOS::NewThread(this, &KwListenEvent::_OnListen, nullptr);
        if (thread == nullptr) {
            KwLogSystem::Push("OpenListenService error");
            continue;
        }
        threads_.push_back(thread);
        ++threadCount_;
    }
    while (threadCount_ > count) {
        void* thread = threads_.front();
        threads_.erase(threads_.begin());
        --threadCount_;
        KwOS::CloseService(thread);
    }
    return threadCount_ == count;
}

void KwListenEvent::Close() {
    {
        const Guard guard(this);
        closing_ = true;
    }
    SetThreads(0);
}

bool KwListenEvent::Post(const SKwEventCall& call) {
    // Before the lock: a target may hold its own lock while it posts.
    const bool counted = call.kind == SKwEventCall::Kind::kMember;
    // The count has 16 bits: one that turned negative would reach 0 while events are still queued.
    if (counted && call.target->AddRef() <= 0) {
        call.target->Release();
        return KwLogSystem::PushRes("new listen event node error");
    }
    SKwListenEvent* node = nullptr;
    bool closing = false;
    {
        const Guard guard(this);
        closing = closing_;
        if (!closing) {
            node = static_cast<SKwListenEvent*>(spare_.RemoveHead());
            if (node == nullptr) node = new SKwListenEvent;
        }
        if (node != nullptr) {
            node->call = call;
            node->removed = false;
            if (call.delay != 0) {
                node->call.startTick = KwPlatform::TickCount();
                node->call.polls = 0;
                node->call.pollLimit = call.delay / 5;
            }
            queue_.AddTail(node);
        }
    }
    if (node != nullptr) return true;
    if (counted) call.target->Release();
    if (!closing) KwLogSystem::Push("new listen event node error");
    return false;
}

void KwListenEvent::Remove(KwInf* target) {
    const auto isFor = [target](const SKwListenEvent* node) {
        return node->call.kind == SKwEventCall::Kind::kMember && node->call.target == target;
    };
    KwList removed;
    {
        const Guard guard(this);
        for (SKwNode* link = queue_.head.next; link != &queue_.tail;) {
            SKwListenEvent* node = static_cast<SKwListenEvent*>(link);
            link = link->next;
            if (isFor(node)) removed.AddTail(node);
        }
        for (SKwNode* link = active_.head.next; link != &active_.tail; link = link->next) {
            SKwListenEvent* node = static_cast<SKwListenEvent*>(link);
            if (isFor(node)) node->removed = true;
        }
    }
    // Outside the lock: the last reference destroys the target.
    while (SKwListenEvent* node = static_cast<SKwListenEvent*>(removed.RemoveHead())) {
        node->call.LetGo();
        Recycle(node);
    }
}

void KwListenEvent::_OnListen(bool& run, void*) {
    const std::atomic_ref<bool> running(run);
    for (;;) {
        SKwListenEvent* node = TakeFirst();
        if (node == nullptr) {
            if (!running.load(std::memory_order_acquire)) return;
            KwPlatform::SleepMs(1);
            continue;
        }
        if (!IsDue(node->call)) {
            node->call.LetGo();
            const Guard guard(this);
            delete node;
            continue;
        }
        bool again = false;
        KwGuardedCall("an event", nullptr, [&] { again = node->call.Run(); });
        if (again && running.load(std::memory_order_acquire) && PutBack(node)) continue;
        node->call.LetGo();
        Recycle(node);
    }
}

SKwListenEvent* KwListenEvent::TakeFirst() {
    const Guard guard(this);
    SKwListenEvent* node = static_cast<SKwListenEvent*>(queue_.RemoveHead());
    if (node != nullptr) active_.AddTail(node);
    return node;
}

// Queues an event again that wants to be repeated. False when it was removed while it ran.
bool KwListenEvent::PutBack(SKwListenEvent* node) {
    const Guard guard(this);
    if (node->removed) return false;
    if (node->call.delay != 0) node->call.startTick = KwPlatform::TickCount();
    queue_.AddTail(node);
    return true;
}

// A delayed event whose turn comes too early leaves the queue for good instead of waiting: with a delay
// of 5 ms or more that is its first turn. Hosts were written against this, so it stays.
bool KwListenEvent::IsDue(SKwEventCall& call) {
    if (call.delay == 0) return true;
    if (++call.polls <= call.pollLimit) return false;
    call.polls = 0;
    return KwPlatform::TickCount() - call.startTick >= call.delay;
}

void KwListenEvent::Recycle(SKwListenEvent* node) {
    const Guard guard(this);
    if (spare_.count < kSpareLimit) {
        spare_.AddTail(node);
    } else {
        delete node;
    }
}
