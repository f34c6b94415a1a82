// KwInputWatch: tells when something waits at standard input.
//
// For a host whose main loop waits elsewhere, for sockets say: the call ends that wait, and KwCommand::Listen in the
// next pass takes what is there. A thread of its own waits for standard input and takes nothing from it; it costs
// nothing while nothing comes, and ends with the input. Thread-safety: Start and Stop from one thread at a time.
#pragma once

#include <functional>

#include "Kw/KwInf.h"

namespace KwPlatform {
struct LineStop;
}

class KW_API KwInputWatch : public KwInfLock {
public:
    KwInputWatch() = default;
    KwInputWatch(const KwInputWatch&) = delete;
    KwInputWatch& operator=(const KwInputWatch&) = delete;
    ~KwInputWatch() override;

    // Calls `wake` on the watch's thread when keys or lines have come, and again once a millisecond until they are
    // taken. False when there is no thread for it (one line is logged), or it has begun already.
    bool Start(std::function<void()> wake);
    // Returns when the last call has; not from inside one.
    void Stop();

private:
    void OnThread(bool& run, void* param);

    std::function<void()> wake_;
    void* thread_ = nullptr;  // see KwOS::NewThread
    KwPlatform::LineStop* stop_ = nullptr;
};
