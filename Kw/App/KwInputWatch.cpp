#include "Kw/App/KwInputWatch.h"

#include <atomic>
#include <utility>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwOS.h"
#include "Kw/Platform/KwPlatformClock.h"
#include "Kw/Platform/KwPlatformInput.h"

KwInputWatch::~KwInputWatch() {
    Stop();
}

bool KwInputWatch::Start(std::function<void()> wake) {
    if (thread_ != nullptr) return KwLogSystem::PushRes("standard input is watched already");
    stop_ = KwPlatform::LineStopCreate();
    // A wait that nobody could end would hold up Stop for ever.
    if (stop_ == nullptr) return KwLogSystem::PushRes("watch standard input error: memory is out");
    wake_ = std::move(wake);
    thread_ = KwOS::NewThread(this, &KwInputWatch::OnThread, nullptr);
    if (thread_ == nullptr) Stop();
    return thread_ != nullptr;
}

void KwInputWatch::Stop() {
    KwPlatform::LineStopSignal(stop_);
    if (thread_ != nullptr) KwOS::CloseService(thread_);
    thread_ = nullptr;
    KwPlatform::LineStopDestroy(stop_);
    stop_ = nullptr;
}

void KwInputWatch::OnThread(bool& run, void*) {
    const std::atomic_ref<bool> running(run);
    while (running.load() && KwPlatform::InputWait(stop_)) {
        wake_();
        KwPlatform::SleepMs(1);  // the main loop needs a moment to take it
    }
}
