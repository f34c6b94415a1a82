#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Kw/Platform/KwPlatformConsole.h"
#include "Kw/Platform/KwPlatformInput.h"
#include "Kw/Platform/KwPlatformInputPosix.h"
#include "Kw/Platform/KwPlatformScreenText.h"
#include "Kw/Platform/KwPlatformSignal.h"
#include "Kw/Platform/KwPlatformTerminalPosix.h"

namespace KwPlatform {

namespace {

bool UnderstandsEscapes() {
    if (isatty(STDOUT_FILENO) == 0) return false;
    const char* terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && std::strcmp(terminal, "dumb") != 0;
}

void WriteAll(int fd, const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t count = write(fd, text, length);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;
        text += count;
        length -= static_cast<std::size_t>(count);
    }
}

// To the terminal, in order with what standard output was given.
void WriteTerminal(const std::string& text) {
    std::fflush(stdout);
    WriteAll(isatty(STDOUT_FILENO) != 0 ? STDOUT_FILENO : STDIN_FILENO, text.data(), text.size());
}

// A missing standard stream is given to the device, else to nothing.
void FillStandardStream(int fd, const char* device) {
    if (fcntl(fd, F_GETFD) != -1 || errno != EBADF) return;
    int opened = open(device, O_RDWR);
    if (opened < 0) opened = open("/dev/null", O_RDWR);
    if (opened >= 0 && opened != fd) {
        dup2(opened, fd);
        close(opened);
    }
}

}  // namespace

void ConsoleOpen(const char* title) {
    FillStandardStream(STDIN_FILENO, "/dev/tty");
    FillStandardStream(STDOUT_FILENO, "/dev/tty");
    std::fflush(stdout);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    InputRefresh();
    ConsoleSetTitle(title);
}

void ConsoleKeepStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) FillStandardStream(fd, "/dev/null");
}

void ConsoleSetTitle(const char* title) {
    if (title == nullptr || *title == '\0' || !UnderstandsEscapes()) return;
    WriteTerminal("\033]0;" + ScreenPlain(title) + "\007");
}

void ConsoleDisableClose() {}

void ConsoleClear() {
    if (UnderstandsEscapes()) WriteTerminal("\033[H\033[2J\033[3J");
}

void ConsoleEcho(const char* text, int length) {
    if (length > 0 && InputIsTerminal()) WriteTerminal(std::string(text, static_cast<std::size_t>(length)));
}

void ConsoleErase(const char* text, int length) {
    if (length <= 0 || !InputIsTerminal()) return;
    std::string wipe;
    for (int i = ScreenColumns(text, length); i > 0; --i) wipe += "\b \b";
    if (!wipe.empty()) WriteTerminal(wipe);
}

bool ConsoleAsk(const char* caption, const char* text) {
    if (!InputIsTerminal() || InputEnded() || !TerminalIsForeground()) return true;
    KeysClaim(true);
    const std::string question = ScreenPlain(caption) + ": " + ScreenPlain(text) + " [y/n] ";
    WriteTerminal("\n" + question);
    bool yes = true;
    // Without a person left, or with a request to stop from outside, the answer is yes.
    while (!InputEnded() && !SignalStopRequested()) {
        if (!KeyWaiting()) {
            poll(nullptr, 0, 20);
            continue;
        }
        const int key = KeyRead();
        if (key == 'y' || key == 'Y') break;
        if (key == 'n' || key == 'N') {
            yes = false;
            break;
        }
    }
    WriteTerminal(yes ? "y\n" : "n\n");
    InputAnswered();
    KeysClaim(false);
    return yes;
}

}  // namespace KwPlatform
