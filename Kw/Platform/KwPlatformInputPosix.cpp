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
#include "Kw/Platform/KwPlatformKeyPosix.h"
#include "Kw/Platform/KwPlatformTerminalPosix.h"

namespace KwPlatform {

namespace {

constexpr int kCapacity = 8192;
constexpr int kKeyGapMs = 50;       // the bytes of one key arrive closer together than this
constexpr int kBackgroundMs = 250;  // how often a reader in the background looks again

// The read-ahead of standard input, shared by the key and the line readers.
struct Input {
    std::mutex mutex;
    int begin = 0;
    int end = 0;
    dev_t device = 0;  // what standard input was at the last look
    ino_t inode = 0;
    int terminal = -1;           // -1: not looked yet
    bool ended = false;          // the system reported the end; bytes may still be here
    bool skipLine = false;       // inside a line that is too long
    bool skipLineFeed = false;   // behind a CR
    bool lineOpen = false;       // keys were handed out since the last Enter
    int claims = 0;              // of the keys; line readers wait meanwhile
    bool keyMode = false;        // the terminal was in key mode at the first claim
    bool answered = false;       // a question took its key; an Enter right behind it belongs to the answer
    int secondKey = -1;          // the key behind an extended key's prefix
    long long partialSince = 0;  // since when the bytes here are the beginning of a key; 0: they are not
    unsigned char data[kCapacity] = {};
};

Input g_input;
std::atomic<bool> g_ended{false};  // nothing more can come: the shortcut of every poll

long long NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool IsTerminal() {
    if (g_input.terminal < 0) {
        struct stat now {};
        if (fstat(STDIN_FILENO, &now) == 0) {
            g_input.device = now.st_dev;
            g_input.inode = now.st_ino;
        }
        g_input.terminal = isatty(STDIN_FILENO);
    }
    return g_input.terminal == 1;
}

bool IsReadable(int timeoutMs) {
    pollfd waiting{STDIN_FILENO, POLLIN, 0};
    return poll(&waiting, 1, timeoutMs) > 0;
}

// Reads what is there; to be called when the system says that reading will not block.
void Fill() {
    Input& input = g_input;
    if (input.begin != 0) {
        std::memmove(input.data, input.data + input.begin, static_cast<std::size_t>(input.end - input.begin));
        input.end -= input.begin;
        input.begin = 0;
    }
    const ssize_t count = read(STDIN_FILENO, input.data + input.end, static_cast<std::size_t>(kCapacity - input.end));
    if (count > 0) {
        input.end += static_cast<int>(count);
        input.partialSince = 0;
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) {
        input.ended = true;
    }
}

// Drops the rest of a line that was too long; true once its end was seen.
bool SkipLine() {
    Input& input = g_input;
    const void* found = std::memchr(input.data + input.begin, '\n', static_cast<std::size_t>(input.end - input.begin));
    if (found == nullptr) {
        input.begin = input.end = 0;
        if (!input.ended) return false;
    } else {
        input.begin = static_cast<int>(static_cast<const unsigned char*>(found) - input.data) + 1;
    }
    input.skipLine = false;
    return true;
}

// The next key of the read-ahead, -1 when it holds none; `take` removes it.
int NextKey(bool take) {
    Input& input = g_input;
    if (input.secondKey >= 0) {
        const int key = input.secondKey;
        if (take) input.secondKey = -1;
        return key;
    }
    if (input.skipLine) SkipLine();
    while (input.begin != input.end) {
        if (input.skipLineFeed) {
            input.skipLineFeed = false;
            if (input.data[input.begin] == '\n') {
                ++input.begin;
                continue;
            }
        }
        const bool last = input.ended || (input.partialSince != 0 && NowMs() - input.partialSince > kKeyGapMs);
        const KeyDecoded key = DecodeKey(input.data + input.begin, input.end - input.begin, IsTerminal(), last);
        if (key.used == 0) {
            if (input.partialSince == 0) input.partialSince = NowMs();
            return -1;
        }
        const bool dropped = key.first < 0 || (key.first == kKeyEnter && input.answered);
        if (!dropped && !take) return key.first;
        input.skipLineFeed = input.data[input.begin] == '\r';
        input.begin += key.used;
        input.partialSince = 0;
        if (key.first >= 0) input.answered = false;
        if (dropped) continue;
        input.secondKey = key.second;
        input.lineOpen = key.first != kKeyEnter;
        return key.first;
    }
    // What a person had only begun to type when the terminal went away is not run.
    if (input.ended && input.lineOpen && !IsTerminal()) {
        if (take) input.lineOpen = false;
        return kKeyEnter;
    }
    if (input.ended) g_ended.store(true, std::memory_order_release);
    return -1;
}

// Whether reading may be tried: a terminal has to be in key mode and ours.
bool CanPollKeys() {
    return !IsTerminal() || TerminalEnterKeyMode();
}

enum class Take { None, Line, TooLong };

// The next line of the read-ahead.
Take TakeLine(char* buffer, int size) {
    Input& input = g_input;
    if (input.skipLine) return SkipLine() ? Take::TooLong : Take::None;
    if (input.begin == input.end) return Take::None;
    const unsigned char* start = input.data + input.begin;
    int length = input.end - input.begin;
    const void* found = std::memchr(start, '\n', static_cast<std::size_t>(length));
    if (found != nullptr) {
        length = static_cast<int>(static_cast<const unsigned char*>(found) - start);
    } else if (length > size) {
        // Even if the last byte is the CR of its end, this line does not fit.
        input.skipLine = true;
        return SkipLine() ? Take::TooLong : Take::None;
    } else if (!input.ended) {
        return Take::None;
    }
    input.begin += length + (found != nullptr ? 1 : 0);
    if (length > 0 && start[length - 1] == '\r') --length;
    const bool answer = input.answered && length == 0;
    input.answered = false;
    if (answer) return TakeLine(buffer, size);
    if (length >= size) return Take::TooLong;
    std::memcpy(buffer, start, static_cast<std::size_t>(length));
    buffer[length] = '\0';
    return Take::Line;
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
    input.begin = input.end = 0;
    input.terminal = isatty(STDIN_FILENO);
    input.secondKey = -1;
    input.ended = input.skipLine = input.skipLineFeed = input.lineOpen = input.answered = false;
    input.partialSince = 0;
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
    g_input.begin = g_input.end = 0;
    g_input.secondKey = -1;
}

void InputAnswered() {
    const std::lock_guard<std::mutex> guard(g_input.mutex);
    g_input.answered = true;
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
                if (g_input.partialSince != 0) timeout = kKeyGapMs;
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

LineStatus LineRead(char* buffer, int size, LineStop* stop) {
    const int stopFd = stop == nullptr ? -1 : stop->fd;
    for (;;) {
        if (stop != nullptr && stop->stopped.load()) return LineStatus::Stopped;
        int timeout = stop != nullptr && stop->fd < 0 ? kKeyGapMs : -1;
        int fd = STDIN_FILENO;
        {
            const std::lock_guard<std::mutex> guard(g_input.mutex);
            if (g_input.claims != 0) {
                fd = -1;
                timeout = kKeyGapMs;
            } else {
                if (IsTerminal()) TerminalRestore();  // the terminal's own line editing
                const Take taken = TakeLine(buffer, size);
                if (taken == Take::Line) return LineStatus::Line;
                if (taken == Take::TooLong) return LineStatus::TooLong;
                if (g_input.ended) {
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
