#include "Kw/Platform/KwPlatformPathWin32.h"

#include <cerrno>
#include <cstring>
#include <cwchar>

namespace KwPlatform {

namespace {

// CreateDirectoryW wants room for a short file name in a new folder.
constexpr std::size_t kShortPath = MAX_PATH - 12;

bool IsFull(const wchar_t* path) {
    return (path[0] != 0 && path[1] == L':' && path[2] == L'\\') || (path[0] == L'\\' && path[1] == L'\\');
}

// Whether everybody who has the file open lets others rename and remove it.
bool IsSharedByAll(const wchar_t* path) {
    return static_cast<bool>(
        OwnHandle(CreateFileW(path, GENERIC_READ | DELETE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr)));
}

}  // namespace

WidePath::WidePath(const char* path) {
    text_[0] = 0;
    if (path == nullptr || path[0] == '\0' || std::strlen(path) >= kPathSize) return;
    const int count = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, -1, text_, kPathSize);
    if (count <= 1) return;
    for (wchar_t* p = text_; (p = std::wcschr(p, L'/')) != nullptr; ++p) *p = L'\\';
    ok_ = true;
    Lengthen(static_cast<std::size_t>(count) - 1);
}

void WidePath::Lengthen(std::size_t length) {
    if (text_[0] == L'\\' && text_[1] == L'\\' && (text_[2] == L'?' || text_[2] == L'.')) return;
    if (length < kShortPath && IsFull(text_)) return;
    wchar_t full[kPathSize];
    const DWORD size = GetFullPathNameW(text_, kPathSize, full, nullptr);
    if (size == 0 || size < kShortPath) return;
    // Its result begins with a drive or with `\\server`; what begins with `\\.\` is a device.
    if (size >= kPathSize || std::wcsncmp(full, L"\\\\.\\", 4) == 0) {
        ok_ = size < kPathSize;
        return;
    }
    if (full[0] == L'\\') {
        std::wcscpy(text_, L"\\\\?\\UNC");
        std::wcscat(text_, full + 1);
    } else {
        std::wcscpy(text_, L"\\\\?\\");
        std::wcscat(text_, full);
    }
}

WidePath::operator bool() const {
    if (!ok_) {
        errno = ENOENT;
        SetLastError(ERROR_FILE_NOT_FOUND);
    }
    return ok_;
}

const wchar_t* WidePath::AllNames() {
    const std::size_t length = std::wcslen(text_);
    std::wcscpy(text_ + length, text_[length - 1] == L'\\' || text_[length - 1] == L':' ? L"*" : L"\\*");
    return text_;
}

bool PutInPlace(const wchar_t* from, const wchar_t* to) {
    for (DWORD pause = 1;; pause *= 2) {
        if (MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return true;
        const DWORD error = GetLastError();
        const DWORD attributes = GetFileAttributesW(to);
        const bool blocked = error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION;
        const bool file = attributes != INVALID_FILE_ATTRIBUTES &&
                          (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) == 0;
        // An open file cannot be replaced, but it can be renamed out of the way, which this call does.
        if (blocked && file && IsSharedByAll(to) &&
            ReplaceFileW(to, from, nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr)) {
            return true;
        }
        // Virus scanners and indexers look into new files, and are done in a moment.
        if (!blocked || !file || pause > 64) {
            SetLastError(error);
            return false;
        }
        Sleep(pause);
    }
}

}  // namespace KwPlatform
