#include "Kw/App/KwCommandThread.h"

#include <atomic>

#include "Kw/KwOS.h"

KwCommandThread::~KwCommandThread() {
    CloseComandThread();
}

bool KwCommandThread::InitCommandThread() {
    if (thread_ != nullptr) return true;
    RearmWait();
    thread_ = KwOS::NewThread(_OnThreadCommand, this);
    return thread_ != nullptr;
}

void KwCommandThread::CloseComandThread() {
    if (thread_ == nullptr) return;
    StopWait();
    KwOS::CloseService(thread_);
    thread_ = nullptr;
}

void KwCommandThread::_OnThreadCommand(bool& run, void* self) {
    auto* registry = static_cast<KwCommandThread*>(self);
    const std::atomic_ref<bool> running(run);
    char line[kLineCapacity];
    while (running.load() && registry->ReadLine(line)) registry->PushLine(line);
}
