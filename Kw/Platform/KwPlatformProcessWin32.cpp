#include "Kw/Platform/KwPlatformTextWin32.h"
// The Windows header comes first.
#include "Kw/Platform/KwPlatformProcess.h"

#include <shellapi.h>

#include <cstring>
#include <cwchar>

#include "Kw/Platform/KwPlatformConsoleWin32.h"

namespace KwPlatform {

namespace {

constexpr std::size_t kLongestPath = 32768;  // units, the system's own limit

void WriteError(const char* text) {
    DWORD written;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), text, static_cast<DWORD>(std::strlen(text)), &written, nullptr);
}

}  // namespace

bool DesktopIsVisible() {
    USEROBJECTFLAGS flags{};
    const HWINSTA station = GetProcessWindowStation();
    return station != nullptr && GetUserObjectInformationW(station, UOI_FLAGS, &flags, sizeof(flags), nullptr) != 0 &&
           (flags.dwFlags & WSF_VISIBLE) != 0;
}

std::string ExecutablePath() {
    for (std::wstring path(MAX_PATH, L'\0'); path.size() <= kLongestPath; path.resize(path.size() * 2)) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) break;
        // A path that fills the buffer was cut.
        if (length < path.size()) return NarrowText(path.data(), length);
    }
    return std::string();
}

bool EnvironmentVariable(const char* name, std::string& value) {
    value.clear();
    if (name == nullptr) return false;
    const std::wstring wideName = WideText(name);
    std::wstring text;
    DWORD length = 256;
    // It may grow between two calls.
    while (length > text.size()) {
        text.resize(length);
        SetLastError(ERROR_SUCCESS);
        length = GetEnvironmentVariableW(wideName.c_str(), text.data(), static_cast<DWORD>(text.size()));
        if (length == 0 && GetLastError() != ERROR_SUCCESS) return false;
    }
    value = NarrowText(text.data(), length);
    return true;
}

std::vector<std::string> Arguments(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; wide != nullptr && i < count; ++i) arguments.push_back(NarrowText(wide[i], std::wcslen(wide[i])));
    for (int i = 1; wide == nullptr && i < argc; ++i) arguments.emplace_back(argv[i]);
    LocalFree(wide);
    return arguments;
}

unsigned int ProcessId() {
    return GetCurrentProcessId();
}

void ErrorBox(const char* text, const char* caption) {
    if (text == nullptr) text = "";
    if (caption == nullptr) caption = "";
    if (DesktopIsVisible() && MessageBoxA(nullptr, text, caption, MB_OK | MB_ICONERROR) > 0) return;
    // Nobody saw a box: a service, or no desktop at all.
    if (*caption != '\0') {
        WriteError(caption);
        WriteError(": ");
    }
    WriteError(text);
    WriteError("\r\n");
}

}  // namespace KwPlatform
