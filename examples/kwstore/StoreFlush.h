// StoreFlush: brings a file to the disk once in a while, on a thread of its own.
//
// For a store that is not durable: a crash of the system then takes no more than the changes of that time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include <Kw/Kw.h>

class StoreFlush : public KwInfLock {
public:
    StoreFlush() = default;
    StoreFlush(const StoreFlush&) = delete;
    StoreFlush& operator=(const StoreFlush&) = delete;
    ~StoreFlush() override { Stop(); }

    // Flushes `path` each `period` milliseconds in which the count has changed. False, logged, without a thread.
    bool Start(const std::string& path, unsigned int period);
    // Once more if there is something to flush, and ends.
    void Stop();
    // Each pass: how much has been written to the file.
    void SetCount(unsigned long long count) { count_.store(count, std::memory_order_release); }

private:
    void OnThread(bool& run, void* param);
    void Flush();

    std::string path_;
    unsigned int period_ = 0;
    std::atomic<unsigned long long> count_{0};
    unsigned long long flushed_ = 0;  // of the thread
    bool failed_ = false;
    void* thread_ = nullptr;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
};
