#include "Kw/Platform/KwPlatformInput.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "Kw/Platform/KwPlatformInputPosix.h"
#include "Kw/Platform/KwPlatformReadAhead.h"
#include "Kw/Platform/KwPlatformTerminalPosix.h"

namespace KwPlatform {

namespace {

constexpr int kBackgroundMs = 250;  // how often a reader in the background looks again

// Standard input, shared by the key and the line readers.
struct Input {
    std::mutex mutex;
    dev_t device = 0;  // what standard input was at the last look
    ino_t inode = 0;
    bool looked = false;   // at what it is
    int claims = 0;        // of the keys; line readers wait meanwhile
    bool keyMode = false;  // the terminal was in key mode at the first claim
    ReadAhead ahead;
};

Input g_input;
std::atomic<bool> g_ended{false};  // nothing more can come: the shortcut of every poll

long long NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool IsTerminal() {
    if (!g_input.looked) {
        g_input.looked = true;
        struct stat now {};
        if (fstat(STDIN_FILENO, &now) == 0) {
            g_input.device = now.st_dev;
            g_input.inode = now.st_ino;
        }
        g_input.ahead.terminal = isatty(STDIN_FILENO) != 0;
    }
    return g_input.ahead.terminal;
}

bool IsReadable(int timeoutMs) {
    pollfd waiting{STDIN_FILENO, POLLIN, 0};
    return poll(&waiting, 1, timeoutMs) > 0;
}

// Reads what is there; to be called when the system says that reading will not block.
void Fill() {
    ReadAhead& ahead = g_input.ahead;
    int room = 0;
    unsigned char* data = ahead.Room(room);
    const ssize_t count = read(STDIN_FILENO, data, static_cast<std::size_t>(room));
    if (count > 0) {
        ahead.Added(static_cast<int>(count));
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) {
        ahead.ended = true;
    }
}

int NextKey(bool take) {
    static_cast<void>(IsTerminal());
    const int key = g_input.ahead.NextKey(take, NowMs());
    if (key < 0 && g_input.ahead.ended) g_ended.store(true, std::memory_order_release);
    return key;
}

// Whether reading may be tried: a terminal has to be in key mode and ours.
bool CanPollKeys() {
    return !IsTerminal() || TerminalEnterKeyMode();
}

// Waits until standard input is readable or `stop` is signalled, or for `timeoutMs`; -1 for ever.
void WaitForInput(int fd, int stopFd, int timeoutMs) {
    pollfd waiting[2] = {{fd, POLLIN, 0}, {stopFd, POLLIN, 0}};
    poll(waiting, 2, timeoutMs);
}

}  // namespace

struct LineStop {
    std::atomic<bool> stopped{false};
    int fd = -1;  // -1: the system has none left, the wait looks at the flag instead
};

bool InputIsTerminal() {
    const std::lock_guard<std::mutex> guard(g_input.mutex);
    return IsTerminal();
}

bool InputEnded() {
    return g_ended.load(std::memory_order_acquire);
}

void InputRefresh() {
    const std::lock_guard<std::mutex> guard(g_input.mutex);
    Input& input = g_input;
    struct stat now {};
    if (fstat(STDIN_FILENO, &now) != 0) now = {};
    if (now.st_dev == input.device && now.st_ino == input.inode) return;
    input.device = now.st_dev;
    input.inode = now.st_ino;
    input.looked = true;
    input.ahead.Reset();
    input.ahead.terminal = isatty(STDIN_FILENO) != 0;
    g_ended.store(false, std::memory_order_release);
}

void InputRestore() {
    TerminalRestore();
}

void InputFlushTyped() {
    if (InputEnded()) return;
    const std::lock_guard<std::mutex> guard(g_input.mutex);
    if (!IsTerminal() || !TerminalIsForeground()) return;
    tcflush(STDIN_FILENO, TCIFLUSH);
    g_input.ahead.DropTyped();
}

void InputAnswered() {
    const std::lock_guard<std::mutex> guard(g_input.mutex);
    g_input.ahead.answered = true;
}

void KeysClaim(bool on) {
    const std::lock_guard<std::mutex> guard(g_input.mutex);
    if (on) {
        if (g_input.claims++ == 0) g_input.keyMode = TerminalInKeyMode();
    } else if (--g_input.claims == 0 && !g_input.keyMode) {
        TerminalRestore();
    }
}

bool KeyWaiting() {
    if (InputEnded()) return false;
    const std::lock_guard<std::mutex> guard(g_input.mutex);
    if (!CanPollKeys()) return false;
    if (NextKey(false) >= 0) return true;
    if (InputEnded() || !IsReadable(0)) return false;
    if (IsTerminal() && !TerminalIsForeground()) return false;
    Fill();
    return NextKey(false) >= 0;
}

int KeyRead() {
    while (!InputEnded()) {
        int timeout = -1;
        {
            const std::lock_guard<std::mutex> guard(g_input.mutex);
            if (!CanPollKeys()) {
                timeout = kBackgroundMs;
            } else {
                const int key = NextKey(true);
                if (key >= 0) return key;
                if (InputEnded()) return -1;
                if (IsReadable(0)) {
                    Fill();
                    continue;
                }
                if (g_input.ahead.partialSince != 0) timeout = ReadAhead::kKeyGapMs;
            }
        }
        WaitForInput(timeout == kBackgroundMs ? -1 : STDIN_FILENO, -1, timeout);
    }
    return -1;
}

LineStop* LineStopCreate() {
    void* memory = std::malloc(sizeof(LineStop));
    if (memory == nullptr) return nullptr;
    LineStop* stop = new (memory) LineStop;
    stop->fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return stop;
}

void LineStopDestroy(LineStop* stop) {
    if (stop == nullptr) return;
    if (stop->fd >= 0) close(stop->fd);
    stop->~LineStop();
    std::free(stop);
}

void LineStopSignal(LineStop* stop) {
    if (stop == nullptr) return;
    stop->stopped.store(true);
    const std::uint64_t one = 1;
    if (stop->fd >= 0 && write(stop->fd, &one, sizeof(one)) < 0) return;  // full: it wakes as it stands
}

void LineStopRearm(LineStop* stop) {
    if (stop == nullptr) return;
    std::uint64_t count = 0;
    if (stop->fd >= 0 && read(stop->fd, &count, sizeof(count)) < 0) count = 0;  // it was not signalled
    stop->stopped.store(false);
}

bool InputWait(LineStop* stop) {
    const int stopFd = stop == nullptr ? -1 : stop->fd;
    const bool isTimed = stop != nullptr && stop->fd < 0;
    while (!InputEnded() && (stop == nullptr || !stop->stopped.load())) {
        int timeout = isTimed ? ReadAhead::kKeyGapMs : -1;
        int fd = STDIN_FILENO;
        {
            const std::lock_guard<std::mutex> guard(g_input.mutex);
            if (NextKey(false) >= 0) return true;
            // Nobody may read a terminal that belongs to another program.
            if (IsTerminal() && !TerminalIsForeground()) {
                fd = -1;
                timeout = kBackgroundMs;
            } else if (IsReadable(0)) {
                return true;
            }
        }
        WaitForInput(fd, stopFd, timeout);
    }
    return false;
}

LineStatus LineRead(char* buffer, int size, LineStop* stop) {
    const int stopFd = stop == nullptr ? -1 : stop->fd;
    for (;;) {
        if (stop != nullptr && stop->stopped.load()) return LineStatus::Stopped;
        int timeout = stop != nullptr && stop->fd < 0 ? ReadAhead::kKeyGapMs : -1;
        int fd = STDIN_FILENO;
        {
            const std::lock_guard<std::mutex> guard(g_input.mutex);
            if (g_input.claims != 0) {
                fd = -1;
                timeout = ReadAhead::kKeyGapMs;
            } else {
                if (IsTerminal()) TerminalRestore();  // the terminal's own line editing
                const ReadAhead::Take taken = g_input.ahead.TakeLine(buffer, size);
                if (taken == ReadAhead::Take::Line) return LineStatus::Line;
                if (taken == ReadAhead::Take::TooLong) return LineStatus::TooLong;
                if (g_input.ahead.ended) {
                    g_ended.store(true, std::memory_order_release);
                    return LineStatus::End;
                }
                if (IsTerminal() && !TerminalIsForeground()) {
                    fd = -1;
                    timeout = kBackgroundMs;
                } else if (IsReadable(0)) {
                    Fill();
                    continue;
                }
            }
        }
        WaitForInput(fd, stopFd, timeout);
    }
}

}  // namespace KwPlatform
