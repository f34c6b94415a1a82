// KwPackLock: the lock of a pack list, which a list for one thread does without. Internal.
//
// Its condition is told of every load that ended, every request that came and of the service's end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

struct KwPackLock {
    std::mutex mutex;
    std::condition_variable changed;
};

// Holds the lock for a scope; null: does nothing at all.
class KwPackGuard {
public:
    explicit KwPackGuard(KwPackLock* lock) : lock_(lock) {
        if (lock_ != nullptr) held_ = std::unique_lock(lock_->mutex);
    }

    void Lock() {
        if (lock_ != nullptr) held_.lock();
    }
    void Unlock() {
        if (lock_ != nullptr) held_.unlock();
    }
    // Waits with the lock given up. A list for one thread has nothing to wait for.
    void Wait() {
        if (lock_ != nullptr) lock_->changed.wait(held_);
    }
    void WaitFor(unsigned int ms) {
        if (lock_ != nullptr) lock_->changed.wait_for(held_, std::chrono::milliseconds(ms));
    }
    void Tell() {
        if (lock_ != nullptr) lock_->changed.notify_all();
    }

private:
    KwPackLock* lock_;
    std::unique_lock<std::mutex> held_;
};
