#include "Kw/App/KwTaskNode.h"

#include <mutex>

#include "Kw/App/KwTask.h"
#include "Kw/KwGuardedCall.h"
#include "Kw/KwStaticLock.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformThread.h"

namespace {

// A node may be gone when its OnDestroyTask returns, so whoever waits for that looks at records instead, which live on
// the stacks of those who destroy and those who wait. They are few, and so is their use.
struct Ending {
    const KwTaskNode* node;
    unsigned int thread;  // that destroys it
    Ending* next;
};
struct Waiter {
    const KwTaskNode* node;
    const Ending* ending;  // the one that it waits for; null before it has begun
    bool done;
    Waiter* next;
};

constinit KwStaticLock g_lock;  // guards the two lists, and the change of a node's state with them
constinit Ending* g_endings = nullptr;
constinit Waiter* g_waiters = nullptr;

constinit thread_local const KwTaskNode* t_running = nullptr;  // whose OnRunTask or OnAddTask this thread is in

template <class Record>
void Unlink(Record*& list, Record* record) {
    Record** link = &list;
    while (*link != nullptr && *link != record) link = &(*link)->next;
    if (*link != nullptr) *link = record->next;
}

Ending* FindEnding(const KwTaskNode* node) {
    Ending* ending = g_endings;
    while (ending != nullptr && ending->node != node) ending = ending->next;
    return ending;
}

}  // namespace

KwTaskNode::~KwTaskNode() {
    if (KwTask* owner = GetOwner()) owner->Forget(this);
    Abandon();
}

void KwTaskNode::Abandon() {
    const std::lock_guard<KwStaticLock> guard(g_lock);
    state_.store(kIdle, std::memory_order_release);
    owner_.store(nullptr, std::memory_order_release);
    for (Waiter* waiter = g_waiters; waiter != nullptr; waiter = waiter->next) {
        if (waiter->node == this && waiter->ending == nullptr) waiter->done = true;
    }
}

bool KwTaskNode::RunTask() {
    if (GetState() == kClosing) return false;
    const KwTaskNode* outer = t_running;
    t_running = this;
    bool stays = false;
    KwGuardedCall("OnRunTask of a task", nullptr, [&] { stays = OnRunTask(); });
    t_running = outer;
    return stays;
}

void KwTaskNode::AddTask() {
    {
        const std::lock_guard<KwStaticLock> guard(g_lock);
        if (GetState() != kIdle) return;
        state_.store(kActive, std::memory_order_release);
    }
    const KwTaskNode* outer = t_running;
    t_running = this;
    KwGuardedCall("OnAddTask of a task", nullptr, [this] { OnAddTask(); });
    t_running = outer;
}

void KwTaskNode::DestroyTask() {
    if (KwTask* owner = GetOwner()) owner->Forget(this);
    End();
}

void KwTaskNode::End() {
    Ending ending{this, KwPlatform::ThreadCurrentId(), nullptr};
    {
        const std::lock_guard<KwStaticLock> guard(g_lock);
        state_.store(kIdle, std::memory_order_release);
        owner_.store(nullptr, std::memory_order_release);
        ending.next = g_endings;
        g_endings = &ending;
        for (Waiter* waiter = g_waiters; waiter != nullptr; waiter = waiter->next) {
            if (waiter->node == this && waiter->ending == nullptr) waiter->ending = &ending;
        }
    }
    KwGuardedCall("OnDestroyTask of a task", nullptr, [this] { OnDestroyTask(); });
    // From here on there may be no node.
    const std::lock_guard<KwStaticLock> guard(g_lock);
    Unlink(g_endings, &ending);
    for (Waiter* waiter = g_waiters; waiter != nullptr; waiter = waiter->next) {
        if (waiter->ending == &ending) waiter->done = true;
    }
}

void KwTaskNode::WaitCloseTask(unsigned int milliseconds) {
    Waiter waiter{this, nullptr, false, nullptr};
    {
        const std::lock_guard<KwStaticLock> guard(g_lock);
        const int state = GetState();
        if (state == kActive) state_.store(kClosing, std::memory_order_release);
        if (state == kIdle) {
            // It may just be in its hook.
            waiter.ending = FindEnding(this);
            if (waiter.ending == nullptr || waiter.ending->thread == KwPlatform::ThreadCurrentId()) return;
        }
        if (milliseconds == 0 || t_running == this) return;
        waiter.next = g_waiters;
        g_waiters = &waiter;
    }
    const unsigned int start = KwPlatform::TickCount();
    for (;;) {
        {
            const std::lock_guard<KwStaticLock> guard(g_lock);
            // By the time that has passed: a deadline would not outlive the wrap of the tick.
            const bool isOver = milliseconds != 0xFFFFFFFFu && KwPlatform::TickCount() - start >= milliseconds;
            if (waiter.done || isOver) {
                Unlink(g_waiters, &waiter);
                return;
            }
        }
        KwPlatform::SleepMs(1);
    }
}

bool KwTaskNode::OnRunTask() {
    return false;
}
void KwTaskNode::OnDestroyTask() {}
void KwTaskNode::OnAddTask() {}
