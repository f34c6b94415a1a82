// KwPackLock: the lock of a pack list, which a list for one thread does without. Internal.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

struct KwPackLock {
    std::mutex mutex;
    std::condition_variable read;   // a thread has read from a pack
    int readWaiters = 0;            // few ever wait: nobody is told for nothing
    std::condition_variable asked;  // the service has something to do
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

    // The waits give the lock up meanwhile. A list for one thread has nothing to wait for.
    void WaitForRead() {
        if (lock_ == nullptr) return;
        ++lock_->readWaiters;
        lock_->read.wait(held_);
        --lock_->readWaiters;
    }
    void TellRead() {
        if (lock_ != nullptr && lock_->readWaiters > 0) lock_->read.notify_all();
    }
    void WaitForAsked(unsigned int ms) {
        if (lock_ != nullptr) lock_->asked.wait_for(held_, std::chrono::milliseconds(ms));
    }
    void TellAsked() {
        if (lock_ != nullptr) lock_->asked.notify_all();
    }

private:
    KwPackLock* lock_;
    std::unique_lock<std::mutex> held_;
};
