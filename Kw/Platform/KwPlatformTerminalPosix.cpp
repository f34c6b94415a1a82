#include "Kw/Platform/KwPlatformTerminalPosix.h"

#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

namespace KwPlatform {

namespace {

// Written before g_inKeyMode turns true and not while it is true: a signal handler reads it then.
termios g_savedModes;
std::atomic<bool> g_inKeyMode{false};
std::mutex g_mutex;
std::atomic<long long> g_nextTry{0};  // milliseconds

long long NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

bool TerminalIsForeground() {
    const pid_t group = tcgetpgrp(STDIN_FILENO);
    // A terminal that is not the controlling one has no foreground to ask for and never stops a reader.
    return group == getpgrp() || (group == -1 && errno == ENOTTY && isatty(STDIN_FILENO) != 0);
}

bool TerminalEnterKeyMode() {
    if (g_inKeyMode.load(std::memory_order_acquire)) return true;
    const long long now = NowMs();
    if (now < g_nextTry.load(std::memory_order_relaxed)) return false;
    g_nextTry.store(now + 250, std::memory_order_relaxed);

    const std::lock_guard<std::mutex> guard(g_mutex);
    if (g_inKeyMode.load(std::memory_order_acquire)) return true;
    if (!TerminalIsForeground() || tcgetattr(STDIN_FILENO, &g_savedModes) != 0) return false;

    static std::atomic<bool> prepared{false};
    if (!prepared.exchange(true)) {
        std::atexit(TerminalRestore);
        SignalGuardTerminal();
    }
    termios modes = g_savedModes;
    // Signals from keys and the translation of output stay on.
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ECHONL | IEXTEN);
    modes.c_cc[VMIN] = 1;
    modes.c_cc[VTIME] = 0;
    g_inKeyMode.store(true, std::memory_order_release);
    // Without waiting for output: a terminal that is held by Ctrl+S must not hold the main loop.
    if (tcsetattr(STDIN_FILENO, TCSANOW, &modes) != 0) {
        g_inKeyMode.store(false, std::memory_order_release);
        return false;
    }
    g_nextTry.store(0, std::memory_order_relaxed);
    return true;
}

bool TerminalInKeyMode() {
    return g_inKeyMode.load(std::memory_order_acquire);
}

void TerminalRestore() {
    if (!g_inKeyMode.exchange(false, std::memory_order_acq_rel)) return;
    const int error = errno;
    // From the background this would stop the process, and the shell has set its own modes anyway.
    if (TerminalIsForeground()) tcsetattr(STDIN_FILENO, TCSANOW, &g_savedModes);
    errno = error;
}

}  // namespace KwPlatform
