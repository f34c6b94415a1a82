// KwLogSystem: the capture of lines for a host object. It stands above KwInf, the rest of the log below it.
#include <atomic>
#include <cstdio>
#include <mutex>

#include "Kw/Helper/KwLogData.h"
#include "Kw/Helper/KwLogToBuffer.h"
#include "Kw/KwGuardedCall.h"

void CBLogToBuffer::OnLost(unsigned int lines) {
    char text[64];
    const int length = std::snprintf(text, sizeof(text), "%u log lines lost", lines);
    OnLog(text, static_cast<unsigned int>(length));
}

void KwLogSystem::Hook(CBLogToBuffer* object) {
    CLogData& state = CLogData::Get();
    const std::lock_guard<KwLock> reader(state.GetHookLock());
    UnHook();
    if (object == nullptr) return;
    object->AddRef();
    state.SetHook(object);
}

void KwLogSystem::UnHook() {
    CLogData& state = CLogData::Get();
    const std::lock_guard<KwLock> reader(state.GetHookLock());
    CBLogToBuffer* const object = state.GetHook();
    if (object == nullptr) return;
    // The second call hands over what the object pushed during the first.
    CallHook();
    CallHook();
    state.SetHook(nullptr);
    object->Release();
}

int KwLogSystem::CallHook() {
    CLogData& state = CLogData::Get();
    // Held while the object is called, so that UnHook by another thread waits for the call to end.
    const std::lock_guard<KwLock> reader(state.GetHookLock());
    CBLogToBuffer* const object = state.GetHook();
    unsigned int lost = 0;
    const KwLogQueue::Lines* const lines = object == nullptr ? nullptr : state.BeginHookCall(lost);
    if (lines == nullptr) return 0;
    object->AddRef();  // it may unhook itself
    const int count = lines->ForEach([object](const char* text, std::uint32_t size) {
        KwGuardedCall("OnLog of a log hook", nullptr, [&] { object->OnLog(text, size); });
    });
    if (lost != 0) KwGuardedCall("OnLost of a log hook", nullptr, [&] { object->OnLost(lost); });
    state.EndHookCall();
    object->Release();
    return count;
}
