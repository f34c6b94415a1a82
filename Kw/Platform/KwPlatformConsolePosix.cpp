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
#include "Kw/Platform/KwPlatformKeyPosix.h"
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

// A missing standard stream is given to the terminal, else to nothing, so that no file opened later
// takes its number.
void FillStandardStream(int fd, int mode) {
    if (fcntl(fd, F_GETFD) != -1 || errno != EBADF) return;
    int opened = open("/dev/tty", mode);
    if (opened < 0) opened = open("/dev/null", mode);
    if (opened >= 0 && opened != fd) {
        dup2(opened, fd);
        close(opened);
    }
}

// Columns of the terminal that a character covers: East Asian wide forms two, combining marks none.
int Columns(unsigned int code) {
    if (code >= 0x300 && code < 0x370) return 0;
    const bool wide = (code >= 0x1100 && code < 0x1160) || (code >= 0x2E80 && code < 0xA4D0) ||
                      (code >= 0xAC00 && code < 0xD7A4) || (code >= 0xF900 && code < 0xFB00) ||
                      (code >= 0xFE30 && code < 0xFE70) || (code >= 0xFF00 && code < 0xFF61) ||
                      (code >= 0x1F300 && code < 0x1F650) || (code >= 0x20000 && code < 0x40000);
    return wide ? 2 : 1;
}

// The code point of one well-formed UTF-8 character.
unsigned int CodePoint(const char* text, int length) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (length < 2 || length > 4) return lead;
    unsigned int code = lead & (0x7Fu >> length);
    for (int i = 1; i < length; ++i) code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
    return code;
}

// A text as far as it can be shown in a title or a question: without control characters.
std::string Plain(const char* text) {
    std::string plain;
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= 32 && byte != 127) plain += *text;
    }
    return plain;
}

}  // namespace

void ConsoleOpen(const char* title) {
    FillStandardStream(STDIN_FILENO, O_RDWR);
    FillStandardStream(STDOUT_FILENO, O_RDWR);
    std::fflush(stdout);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    InputRefresh();
    ConsoleSetTitle(title);
}

void ConsoleSetTitle(const char* title) {
    if (title == nullptr || *title == '\0' || !UnderstandsEscapes()) return;
    WriteTerminal("\033]0;" + Plain(title) + "\007");
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
    for (int i = Columns(CodePoint(text, length)); i > 0; --i) wipe += "\b \b";
    if (!wipe.empty()) WriteTerminal(wipe);
}

bool ConsoleAsk(const char* caption, const char* text) {
    if (!InputIsTerminal() || InputEnded() || !TerminalIsForeground()) return true;
    KeysClaim(true);
    const std::string question = Plain(caption) + ": " + Plain(text) + " [y/n] ";
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
