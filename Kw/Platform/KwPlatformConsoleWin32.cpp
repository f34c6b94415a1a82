#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes first.
#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Kw/Platform/KwPlatformConsole.h"
#include "Kw/Platform/KwPlatformConsoleWin32.h"
#include "Kw/Platform/KwPlatformInput.h"
#include "Kw/Platform/KwPlatformScreenText.h"
#include "Kw/Platform/KwPlatformSignal.h"

namespace KwPlatform {

namespace {

constexpr UINT kQuestionStyle = MB_YESNO | MB_ICONQUESTION;

UINT g_oldOutputPage = 0;
SRWLOCK g_screenLock = SRWLOCK_INIT;
std::string* g_pending = nullptr;  // the beginning of a character; made on first use, never freed

bool IsConsole(HANDLE handle) {
    DWORD mode;
    return GetConsoleMode(handle, &mode) != 0;
}

// Asks about the handle alone: questions about its file wait for a reader that is at work on it.
bool IsMissing(DWORD which) {
    DWORD flags;
    const HANDLE handle = GetStdHandle(which);
    return handle == nullptr || handle == INVALID_HANDLE_VALUE || GetHandleInformation(handle, &flags) == 0;
}

// A program that was started without standard streams gets them from the console it opens, else from
// nothing, so that no file opened later takes their place.
void Reopen(FILE* stream, DWORD which, const char* console, const char* mode) {
    if (std::freopen(console, mode, stream) == nullptr && std::freopen("NUL", mode, stream) == nullptr) return;
    SetStdHandle(which, reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))));
}

void GiveBackOutputPage() {
    SetConsoleOutputCP(g_oldOutputPage);
}

// The library's text is UTF-8. The console belongs to whoever comes after us too.
void SpeakUtf8() {
    const UINT old = GetConsoleOutputCP();
    if (old == 0 || old == CP_UTF8 || !IsConsole(GetStdHandle(STD_OUTPUT_HANDLE)) || SetConsoleOutputCP(CP_UTF8) == 0)
        return;
    if (g_oldOutputPage == 0) std::atexit(GiveBackOutputPage);
    g_oldOutputPage = old;
}

// How many bytes of `text` are whole characters.
std::size_t WholeLength(const std::string& text) {
    for (std::size_t back = 1; back <= 3 && back <= text.size(); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if (byte < 0x80) break;
        if (byte < 0xC0) continue;
        const std::size_t expected = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : 2;
        return expected > back ? text.size() - back : text.size();
    }
    return text.size();
}

void WriteScreen(const std::string& text) {
    const std::wstring wide = WideText(text.data(), text.size());
    HANDLE screen = GetStdHandle(STD_OUTPUT_HANDLE);
    const bool redirected = !IsConsole(screen);
    if (redirected) {
        screen = CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                             OPEN_EXISTING, 0, nullptr);
        if (screen == INVALID_HANDLE_VALUE) return;
    }
    std::fflush(stdout);
    DWORD written;
    WriteConsoleW(screen, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
    if (redirected) CloseHandle(screen);
}

}  // namespace

void ScreenWrite(const char* text, int length) {
    if (length <= 0) return;
    AcquireSRWLockExclusive(&g_screenLock);
    if (g_pending == nullptr) g_pending = new std::string;
    g_pending->append(text, static_cast<std::size_t>(length));
    const std::size_t whole = WholeLength(*g_pending);
    if (whole != 0) WriteScreen(g_pending->substr(0, whole));
    g_pending->erase(0, whole);
    ReleaseSRWLockExclusive(&g_screenLock);
}

void ScreenErase(const char* text, int length) {
    if (length <= 0) return;
    for (int i = ScreenColumns(text, length); i > 0; --i) ScreenWrite("\b \b", 3);
}

void ConsoleOpen(const char* title) {
    const bool noInput = IsMissing(STD_INPUT_HANDLE);
    const bool noOutput = IsMissing(STD_OUTPUT_HANDLE);
    if (noInput || noOutput) {
        const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
        const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
        // One that the process has already but cannot be seen through its streams gives way to a new one.
        if (AllocConsole() == 0 && GetConsoleWindow() != nullptr && FreeConsole() != 0) AllocConsole();
        if (noInput) Reopen(stdin, STD_INPUT_HANDLE, "CONIN$", "r");
        if (noOutput) Reopen(stdout, STD_OUTPUT_HANDLE, "CONOUT$", "w");
        // The new console has replaced the other one, which was redirected.
        if (!noInput) SetStdHandle(STD_INPUT_HANDLE, input);
        if (!noOutput) SetStdHandle(STD_OUTPUT_HANDLE, output);
    }
    std::fflush(stdout);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    SpeakUtf8();
    InputRefresh();
    ConsoleSetTitle(title);
}

// A stream without a handle stays without one: numbers below 3 are not given to other files here.
void ConsoleKeepStreams() {}

void ConsoleSetTitle(const char* title) {
    if (title == nullptr || *title == '\0') return;
    SetConsoleTitleW(WideText(ScreenPlain(title).c_str()).c_str());
}

void ConsoleDisableClose() {
    const HWND window = GetConsoleWindow();
    const HMENU menu = window == nullptr ? nullptr : GetSystemMenu(window, FALSE);
    if (menu != nullptr) EnableMenuItem(menu, SC_CLOSE, MF_BYCOMMAND | MF_GRAYED);
}

void ConsoleClear() {
    const HANDLE screen = GetStdHandle(STD_OUTPUT_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (GetConsoleScreenBufferInfo(screen, &info) == 0) return;
    std::fflush(stdout);
    const DWORD cells = static_cast<DWORD>(info.dwSize.X) * static_cast<DWORD>(info.dwSize.Y);
    DWORD written;
    FillConsoleOutputCharacterW(screen, L' ', cells, COORD{0, 0}, &written);
    FillConsoleOutputAttribute(screen, info.wAttributes, cells, COORD{0, 0}, &written);
    SetConsoleCursorPosition(screen, COORD{0, 0});
}

void ConsoleEcho(const char* text, int length) {
    if (length > 0 && InputIsTerminal()) ScreenWrite(text, length);
}

void ConsoleErase(const char* text, int length) {
    if (length > 0 && InputIsTerminal()) ScreenErase(text, length);
}

bool ConsoleAsk(const char* caption, const char* text) {
    if (!InputIsTerminal() || InputEnded() || SignalStopRequested() || !DesktopIsVisible()) return true;
    const int answer = MessageBoxW(nullptr, WideText(text).c_str(), WideText(caption).c_str(), kQuestionStyle);
    // 0 or less: there was no box, so nobody could answer.
    return answer == IDYES || answer <= 0;
}

}  // namespace KwPlatform
