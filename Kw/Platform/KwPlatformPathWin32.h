// WidePath: a path of the library as the wide Windows calls take it. For the sources of the seam only.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "Kw/Platform/KwPlatformFile.h"

namespace KwPlatform {

// Paths that Windows would find too long get their full form behind `\\?\`, which lifts its limit of 260
// characters.
class WidePath {
public:
    explicit WidePath(const char* path);

    // False sets errno and the thread's last error as a missing file would.
    explicit operator bool() const;
    const wchar_t* Get() const { return text_; }
    // The same with one wildcard behind it that stands for all names in the folder.
    const wchar_t* AllNames();

private:
    void Lengthen(std::size_t length);

    wchar_t text_[kPathSize + 16];
    bool ok_ = false;
};

// A handle that is closed at the end of its scope.
class OwnHandle {
public:
    explicit OwnHandle(HANDLE handle) : handle_(handle) {}
    ~OwnHandle() { Close(); }
    OwnHandle(const OwnHandle&) = delete;
    OwnHandle& operator=(const OwnHandle&) = delete;

    explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return handle_; }
    HANDLE Forget() {
        const HANDLE handle = handle_;
        handle_ = INVALID_HANDLE_VALUE;
        return handle;
    }
    void Set(HANDLE handle) {
        Close();
        handle_ = handle;
    }
    bool Close() {
        const bool ok = handle_ == INVALID_HANDLE_VALUE || CloseHandle(handle_) != 0;
        handle_ = INVALID_HANDLE_VALUE;
        return ok;
    }

private:
    HANDLE handle_;
};

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Opens a file or folder, behind links, with rights that no other opener can be in the way of: 0 for its
// properties, FILE_WRITE_ATTRIBUTES to set them.
inline HANDLE OpenForProperties(const wchar_t* path, DWORD access) {
    return CreateFileW(path, access, kShareAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

// Not every reparse point is a link: files that a cloud service holds back are files.
inline bool IsLink(const WIN32_FIND_DATAW& entry) {
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsReparseTagNameSurrogate(entry.dwReserved0);
}

// Puts the file `from` in the place of the file `to` in one step, also while others have that open with sharing.
bool PutInPlace(const wchar_t* from, const wchar_t* to);

}  // namespace KwPlatform
