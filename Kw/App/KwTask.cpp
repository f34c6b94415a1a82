#include "Kw/App/KwTask.h"

#include <climits>

#include "Kw/KwGuardedCall.h"
#include "Kw/KwOS.h"
#include "Kw/Platform/KwPlatformClock.h"

namespace {

// Holds a lock, if there is one, for a scope.
class Hold {
public:
    explicit Hold(void* lock) : lock_(lock) { Kw_LockWork(3, lock_); }
    ~Hold() { Kw_LockWork(4, lock_); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

private:
    void* lock_;
};

constinit thread_local const KwTask* t_worker = nullptr;  // whose worker this thread is

}  // namespace

// A node that is off the queue while it runs.
struct KwTask::Step {
    KwTaskNode* node = nullptr;  // null when it was freed meanwhile
    Step* next = nullptr;
};

KwTask::KwTask(bool withLock) {
    if (withLock) Kw_LockWork(1, queueLock_);
}

KwTask::~KwTask() {
    StopThreads(INT_MAX);
    for (KwTaskNode* node : queue_) node->Abandon();
    Kw_LockWork(2, queueLock_);
    Kw_LockWork(2, threadLock_);
}

void KwTask::Post(KwTaskNode* node) {
    if (node == nullptr) return;
    std::list<KwTaskNode*> entry(1, node);
    const Hold hold(queueLock_);
    if (closing_) return;
    KwTask* none = nullptr;
    if (!node->owner_.compare_exchange_strong(none, this)) return;
    queue_.splice(queue_.end(), entry);
    node->AddTask();
    ++taskCount_;
    KwGuardedCall("OnAddTask of a task queue", nullptr, [&] { OnAddTask(node, taskCount_); });
}

void KwTask::Run() {
    std::list<KwTaskNode*> entry;
    Step step;
    {
        const Hold hold(queueLock_);
        if (queue_.empty()) return;
        entry.splice(entry.end(), queue_, queue_.begin());
        step.node = entry.front();
        step.next = steps_;
        steps_ = &step;
    }
    const bool stays = entry.front()->RunTask();
    const Hold hold(queueLock_);
    Step** link = &steps_;
    while (*link != &step) link = &(*link)->next;
    *link = step.next;
    KwTaskNode* node = step.node;
    if (node == nullptr) return;
    if (stays) {
        queue_.splice(queue_.end(), entry);
        return;
    }
    --taskCount_;
    KwGuardedCall("OnRemoveTask of a task queue", nullptr, [&] { OnRemoveTask(node, taskCount_); });
    node->End();
}

void KwTask::Close() {
    StopThreads(INT_MAX);
    // A worker that closes its own queue waits for nobody: the one that stops it may be waiting for this step.
    while (t_worker != this) {
        {
            const Hold hold(threadLock_);
            if (stopping_ == 0) break;
        }
        KwPlatform::SleepMs(1);
    }
    const Hold hold(queueLock_);
    if (closing_) return;
    // What the hooks post meanwhile would be destroyed as well, and post itself again.
    closing_ = true;
    while (!queue_.empty()) {
        KwTaskNode* node = queue_.front();
        queue_.pop_front();
        --taskCount_;
        node->End();
    }
    closing_ = false;
}

void KwTask::Forget(KwTaskNode* node) {
    const Hold hold(queueLock_);
    --taskCount_;
    for (Step* step = steps_; step != nullptr; step = step->next) {
        if (step->node != node) continue;
        step->node = nullptr;
        return;
    }
    queue_.remove(node);
}

bool KwTask::CreateLocks() {
    const Guard guard(this);
    if (threadLock_ == nullptr) Kw_LockWork(1, threadLock_);
    if (queueLock_ == nullptr) Kw_LockWork(1, queueLock_);
    return threadLock_ != nullptr && queueLock_ != nullptr;
}

int KwTask::NewThread(int count) {
    if (!CreateLocks()) return 0;
    const Hold hold(threadLock_);
    for (int i = 0; i < count; ++i) {
        threads_.push_back(nullptr);
        threads_.back() = KwOS::NewThread(_OnThread, this);
        if (threads_.back() != nullptr) continue;
        threads_.pop_back();
        return i;
    }
    return count < 0 ? 0 : count;
}

void KwTask::RemoveThread(int count) {
    StopThreads(count);
}

// The first worker, which counts as stopping from now on; null when there is none.
void* KwTask::TakeThread() {
    const Hold hold(threadLock_);
    if (threads_.empty()) return nullptr;
    void* thread = threads_.front();
    threads_.pop_front();
    ++stopping_;
    return thread;
}

// The lock is not held while a worker ends, which may need it for its step.
void KwTask::StopThreads(int count) {
    for (int i = 0; i < count; ++i) {
        void* thread = TakeThread();
        if (thread == nullptr) return;
        KwOS::CloseService(thread);
        const Hold hold(threadLock_);
        --stopping_;
    }
}

int KwTask::GetThreadCount() {
    const Hold hold(threadLock_);
    return static_cast<int>(threads_.size());
}

void KwTask::_OnThread(bool& run, void* self) {
    auto* task = static_cast<KwTask*>(self);
    t_worker = task;
    task->OnThread(run);
}

void KwTask::OnThread(bool& run) {
    const std::atomic_ref<bool> running(run);
    while (running.load(std::memory_order_acquire)) {
        KwPlatform::SleepMs(1);
        KwGuardedCall("Run of a task queue", nullptr, [this] { Run(); });
    }
}

void KwTask::OnAddTask(KwTaskNode*, int) {}
void KwTask::OnRemoveTask(KwTaskNode*, int) {}
