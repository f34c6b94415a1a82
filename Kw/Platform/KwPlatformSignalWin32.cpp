#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes first.
#include <signal.h>

#include <atomic>
#include <cstdlib>

#include "Kw/Platform/KwPlatformSignal.h"

namespace KwPlatform {

namespace {

std::atomic<bool> g_catching{false};
std::atomic<bool> g_requested{false};
std::atomic<bool> g_interruptIsHosts{false};  // the host has a handler of its own for Ctrl+C
SRWLOCK g_lock = SRWLOCK_INIT;
bool g_installed = false;

// Runs on a thread of the system. FALSE lets the next handler act, in the end the one that ends the process.
[[gnu::force_align_arg_pointer]] BOOL WINAPI OnControl(DWORD event) {
    if (!g_catching.load()) return FALSE;
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
        if (event == CTRL_C_EVENT && g_interruptIsHosts.load()) return FALSE;
        return g_requested.exchange(true) ? FALSE : TRUE;
    }
    // The window was closed, or the person logs off: the system ends the process when this returns, and a
    // few seconds later if it does not. They are the main loop's, for its way out.
    g_requested.store(true);
    Sleep(INFINITE);
    return TRUE;
}

bool HostHandlesInterrupt() {
    const auto old = signal(SIGINT, SIG_DFL);
    if (old == SIG_DFL || old == SIG_ERR) return false;
    signal(SIGINT, old);
    return true;
}

void OnTerminate(int) {
    if (g_catching.load() && !g_requested.exchange(true)) {
        // The C runtime took the handler away before it called it.
        signal(SIGTERM, OnTerminate);
        return;
    }
    signal(SIGTERM, SIG_DFL);
    raise(SIGTERM);
}

// SIGTERM exists within the process only, for whoever raises it.
void TakeTerminate() {
    const auto old = signal(SIGTERM, OnTerminate);
    if (old != SIG_DFL && old != SIG_ERR) signal(SIGTERM, old);
}

// At exit and when the library is unloaded: no handler may stay that points into it.
void GiveBack() {
    SetConsoleCtrlHandler(OnControl, FALSE);
    const auto old = signal(SIGTERM, SIG_DFL);
    if (old != OnTerminate && old != SIG_ERR) signal(SIGTERM, old);
}

}  // namespace

void SignalCatchStop(bool on) {
    AcquireSRWLockExclusive(&g_lock);
    g_requested.store(false);
    if (on) {
        g_interruptIsHosts.store(HostHandlesInterrupt());
        TakeTerminate();
        if (!g_installed) {
            g_installed = SetConsoleCtrlHandler(OnControl, TRUE) != 0;
            if (g_installed) std::atexit(GiveBack);
        }
    }
    // A handler that stays behind when catching ends does what the default does.
    g_catching.store(on);
    ReleaseSRWLockExclusive(&g_lock);
}

bool SignalStopRequested() {
    return g_requested.load(std::memory_order_relaxed);
}

}  // namespace KwPlatform
