#include "Kw/Platform/KwPlatformSignal.h"

#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "Kw/Platform/KwPlatformTerminalPosix.h"

namespace KwPlatform {

namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM};
// What else ends or stops a process while the terminal is in another mode.
constexpr int kGuardedSignals[] = {SIGINT,  SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2,
                                   SIGABRT, SIGSEGV, SIGBUS, SIGILL,  SIGFPE,  SIGSYS,  SIGXCPU, SIGXFSZ};

std::atomic<bool> g_catching{false};
std::atomic<bool> g_requested{false};
std::mutex g_mutex;

bool IsStop(int number) {
    return number == SIGINT || number == SIGTERM;
}

void OnSignal(int number);

void SetHandler(int number, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

// Lets the default effect happen once this handler has returned or the signal is let through.
void Redeliver(int number) {
    SetHandler(number, SIG_DFL);
    raise(number);
}

void OnSignal(int number) {
    const int error = errno;
    if (IsStop(number) && g_catching.load() && !g_requested.exchange(true)) {
        errno = error;
        return;
    }
    TerminalRestore();
    if (number == SIGTSTP) {
        // Stop here, as the default would; on continuing the handler has to be in place again.
        SetHandler(SIGTSTP, SIG_DFL);
        sigset_t set;
        sigset_t old;
        sigemptyset(&set);
        sigaddset(&set, SIGTSTP);
        raise(SIGTSTP);
        pthread_sigmask(SIG_UNBLOCK, &set, &old);
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        SetHandler(SIGTSTP, OnSignal);
    } else {
        Redeliver(number);
    }
    errno = error;
}

// At exit and when the library is unloaded: no handler may stay that points into it.
void GiveBack() {
    for (const int number : kGuardedSignals) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == OnSignal) SetHandler(number, SIG_DFL);
    }
}

// Takes a signal over only from its default effect: what the host or its parent set stays.
void Take(int number) {
    static bool prepared = false;  // under g_mutex
    if (!prepared) prepared = std::atexit(GiveBack) == 0;
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
        action.sa_handler == SIG_DFL) {
        SetHandler(number, OnSignal);
    }
}

}  // namespace

void SignalCatchStop(bool on) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    g_requested.store(false);
    g_catching.store(on);
    // A handler that stays behind when catching ends does what the default does.
    if (on) {
        for (const int number : kStopSignals) Take(number);
    }
}

bool SignalStopRequested() {
    return g_requested.load(std::memory_order_relaxed);
}

void SignalGuardTerminal() {
    const std::lock_guard<std::mutex> guard(g_mutex);
    for (const int number : kGuardedSignals) Take(number);
}

}  // namespace KwPlatform
