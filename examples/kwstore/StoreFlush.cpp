#include "StoreFlush.h"

#include <chrono>

bool StoreFlush::Start(const std::string& path, unsigned int period) {
    path_ = path;
    period_ = period;
    stop_ = failed_ = false;
    flushed_ = 0;
    thread_ = KwOS::NewThread(this, &StoreFlush::OnThread, nullptr);
    return thread_ != nullptr;
}

void StoreFlush::Stop() {
    if (thread_ == nullptr) return;
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    KwOS::CloseService(thread_);
    thread_ = nullptr;
}

void StoreFlush::OnThread(bool&, void*) {
    bool stop = false;
    while (!stop) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            stop = wake_.wait_for(lock, std::chrono::milliseconds(period_), [this] { return stop_; });
        }
        Flush();
    }
}

void StoreFlush::Flush() {
    const unsigned long long count = count_.load(std::memory_order_acquire);
    if (count == flushed_) return;
    KwDBFiles& disk = *KwDBFiles::GetDisk();
    // A file that a snapshot has made needless is not there.
    const std::unique_ptr<KwDBFile> file = disk.Exists(path_) ? disk.Open(path_, true) : nullptr;
    const bool done = file != nullptr ? file->Sync() : !disk.Exists(path_);
    if (done) flushed_ = count;
    if (!done && !failed_) KwLogSystem::Push("flush file %s error; it is tried again", path_.c_str());
    failed_ = !done;
}
