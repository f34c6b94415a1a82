// KwTaskNode: a long-lived task of a host, which a KwTask runs step by step.
//
// A host derives from it and posts it to a KwTask, which never deletes it: a node's owner in the host frees it when
// WaitCloseTask has returned, or the node deletes itself in OnDestroyTask. A node that is freed while it waits in a
// queue leaves it without its hooks.
// An exception that leaves a hook is logged and counted (KwOS::GetExceptionCount); one out of OnRunTask ends the task.
// Thread-safety: every operation from any thread. One step of a node runs at a time.
#pragma once

#include <atomic>
#include <cstdint>

#include "Kw/KwMemory.h"

class KwTask;

class KW_API KwTaskNode {
public:
    KW_TRACKED_NEW

    // What GetState tells.
    enum State : std::int32_t { kIdle = 0, kActive = 1, kClosing = 2 };

    KwTaskNode() = default;
    // A copy is in no queue, and an assignment leaves queue and state as they are: they belong to one object.
    KwTaskNode(const KwTaskNode&) noexcept {}
    KwTaskNode& operator=(const KwTaskNode&) noexcept { return *this; }
    virtual ~KwTaskNode();

    // One step: false when the node is closing, else what OnRunTask gives.
    bool RunTask();
    // Makes the node idle and ownerless, then calls OnDestroyTask. From outside its queue it takes the node out first.
    void DestroyTask();
    // Makes an idle node active and calls OnAddTask.
    void AddTask();

    // Asks an active node to close: at its next turn it is destroyed instead of run. Waits until OnDestroyTask has
    // returned, but at most `milliseconds`; 0 does not wait, 0xFFFFFFFF knows no end. The caller may free the node
    // behind a wait that was not cut short. A node that closes already is waited for as well; from inside the node's
    // own hooks nothing is. Must not wait under the queue's lock, that is in another node's OnAddTask or OnDestroyTask
    // and in the hooks of KwTask, nor on the only thread that runs the queue.
    void WaitCloseTask(unsigned int milliseconds);

    int GetState() const { return state_.load(std::memory_order_acquire); }
    // The queue that holds the node; null for none.
    KwTask* GetOwner() const { return owner_.load(std::memory_order_acquire); }

protected:
    // One step of work, true to stay queued. Runs without a lock.
    virtual bool OnRunTask();
    // The task is over, and the node idle: it may be posted again here, or delete itself.
    virtual void OnDestroyTask();
    // The task was queued. This and OnDestroyTask run under the queue's lock.
    virtual void OnAddTask();

private:
    friend class KwTask;

    void End();
    // The queue goes without ending its nodes.
    void Abandon();

    std::atomic<KwTask*> owner_{nullptr};
    std::atomic<std::int32_t> state_{kIdle};
};
