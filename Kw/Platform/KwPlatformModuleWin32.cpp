#include "Kw/Platform/KwPlatformModule.h"

#include "Kw/Platform/KwPlatformPathWin32.h"

namespace KwPlatform {

namespace {

// No box on the screen for a library that is not there: nobody sits before a server.
class QuietErrors {
public:
    QuietErrors() { SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &before_); }
    ~QuietErrors() { SetThreadErrorMode(before_, nullptr); }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;

private:
    DWORD before_ = 0;
};

}  // namespace

void* ModuleOpenFile(const char* path) {
    const WidePath wide(path);
    if (!wide) return nullptr;
    // Without a folder the name would be looked for where the system likes.
    wchar_t full[kPathSize + 16];
    const DWORD length = GetFullPathNameW(wide.Get(), kPathSize + 16, full, nullptr);
    if (length == 0 || length >= kPathSize + 16) return nullptr;
    const QuietErrors quiet;
    return LoadLibraryW(full);
}

void* ModuleOpenSystem(const char* name) {
    const QuietErrors quiet;
    return name[0] == '\0' ? nullptr : LoadLibraryA(name);
}

bool ModuleShare(void* module) {
    HMODULE same = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, static_cast<const wchar_t*>(module), &same) != 0;
}

void ModuleClose(void* module) {
    FreeLibrary(static_cast<HMODULE>(module));
}

void* ModuleFunction(void* module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

}  // namespace KwPlatform
