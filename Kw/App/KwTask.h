// KwTask: a queue of tasks that worker threads serve in turn.
//
// Each pass takes the first node, runs one step of it and puts it back at the end unless it is finished. Workers sleep
// 1 ms and run one step a pass, so throughput grows with their number. Without workers the host calls Run itself.
// Neither Close nor RemoveThread may be called where a hook runs under the queue's lock: a worker may wait for it.
// Call Close before the object goes, in a derived class at the latest in its destructor: only Close ends the nodes
// with their hooks, and workers call hooks of the derived part.
// Thread-safety: with a queue lock Post and Run from any thread; one worker at a time runs a node. NewThread,
// RemoveThread, Close and GetThreadCount from any thread once NewThread has been called, in a task too. Without lock
// and workers one thread.
#pragma once

#include <list>

#include "Kw/App/KwTaskNode.h"
#include "Kw/KwInf.h"

class KW_API KwTask : public KwInfLock {
public:
    // With `withLock` the queue may be shared between threads before NewThread, which makes the lock too.
    explicit KwTask(bool withLock);
    KwTask(const KwTask&) = delete;
    KwTask& operator=(const KwTask&) = delete;
    // What Close was not called for: workers are stopped, and nodes that are still queued become idle and ownerless
    // without their hooks.
    ~KwTask() override;

    // Queues a node. Nothing for null, for a node that has an owner, and for one that a hook posts during Close.
    virtual void Post(KwTaskNode* node);
    // One step of the first node. A node that is finished or closing is destroyed instead of put back.
    virtual void Run();
    // Stops every worker behind its step, then destroys every node that is queued, without OnRemoveTask.
    virtual void Close();
    // Starts workers; returns how many. Fewer than `count` when the system gives no more (which is logged).
    virtual int NewThread(int count);
    // Stops up to `count` workers, oldest first, each behind its step. A worker that stops itself is not waited for.
    virtual void RemoveThread(int count);

    int GetThreadCount();

private:
    // Behind the change of the node's owner and the count; both run under the queue's lock.
    virtual void OnAddTask(KwTaskNode* node, int taskCount);
    virtual void OnRemoveTask(KwTaskNode* node, int taskCount);

    friend class KwTaskNode;
    struct Step;

    static void _OnThread(bool& run, void* self);
    void OnThread(bool& run);
    bool CreateLocks();
    void* TakeThread();
    void StopThreads(int count);
    // A node is being freed.
    void Forget(KwTaskNode* node);

    std::list<KwTaskNode*> queue_;
    void* queueLock_ = nullptr;   // see Kw_LockWork; guards the queue and the task count
    void* threadLock_ = nullptr;  // guards the thread list
    std::list<void*> threads_;    // see KwOS::NewThread
    int taskCount_ = 0;           // nodes owned, the running ones too
    Step* steps_ = nullptr;       // that run at this moment
    int stopping_ = 0;            // workers that are out of the list and have not ended
    bool closing_ = false;        // nodes are being destroyed
};
