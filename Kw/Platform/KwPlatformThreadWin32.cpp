#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes first.
#include <process.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "Kw/Platform/KwPlatformThread.h"

namespace KwPlatform {

struct Thread {
    HANDLE handle;
};

namespace {

constexpr DWORD kKilledExitCode = 1;
// While the library is unloaded the system lets no other thread end, so a wait for that must not be for ever.
constexpr DWORD kLastInstructionsMs = 100;

struct Start {
    unsigned int (*entry)(void* param);
    void* param;
};

// Windows aligns a new thread's stack to 4 bytes only.
[[gnu::force_align_arg_pointer]] unsigned int __stdcall RunThread(void* raw) {
    const Start start = *static_cast<Start*>(raw);
    std::free(raw);
    return start.entry(start.param);
}

void Free(Thread* thread) {
    CloseHandle(thread->handle);
    std::free(thread);
}

}  // namespace

Thread* ThreadStart(unsigned int (*entry)(void* param), void* param) {
    Start* start = static_cast<Start*>(std::malloc(sizeof(Start)));
    Thread* thread = static_cast<Thread*>(std::malloc(sizeof(Thread)));
    if (start != nullptr && thread != nullptr) {
        *start = {entry, param};
        const std::uintptr_t handle = _beginthreadex(nullptr, 0, RunThread, start, 0, nullptr);
        if (handle != 0) {
            thread->handle = reinterpret_cast<HANDLE>(handle);
            return thread;
        }
    }
    std::free(start);
    std::free(thread);
    return nullptr;
}

void ThreadKill(Thread* thread) {
    TerminateThread(thread->handle, kKilledExitCode);
}

bool ThreadHasEnded(Thread* thread) {
    return WaitForSingleObject(thread->handle, 0) == WAIT_OBJECT_0;
}

void ThreadClose(Thread* thread) {
    WaitForSingleObject(thread->handle, kLastInstructionsMs);
    Free(thread);
}

void ThreadDetach(Thread* thread) {
    Free(thread);
}

unsigned int ThreadCurrentId() {
    return GetCurrentThreadId();
}

void ThreadYield() {
    SwitchToThread();
}

int ProcessorCount() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return std::max(1, static_cast<int>(info.dwNumberOfProcessors));
}

}  // namespace KwPlatform
