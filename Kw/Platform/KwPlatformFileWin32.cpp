#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "Kw/Platform/KwPlatformPathWin32.h"

namespace KwPlatform {

static_assert(sizeof(wchar_t) == sizeof(KwWChar));

namespace {

constexpr DWORD kNone = INVALID_FILE_ATTRIBUTES;

// What an fopen mode asks CreateFileW and the C library for.
struct Mode {
    explicit Mode(const char* text) {
        const char kind = text == nullptr ? '\0' : text[0];
        const bool update = kind != '\0' && std::strchr(text, '+') != nullptr;
        const bool fresh = kind == 'w' && std::strchr(text, 'x') != nullptr;
        if (kind == 'r') {
            access = GENERIC_READ | (update ? GENERIC_WRITE : 0u);
            flags = update ? _O_RDWR : _O_RDONLY;
            stream = update ? "r+b" : "rb";
        } else if (kind == 'w') {
            access = GENERIC_WRITE | (update ? GENERIC_READ : 0u);
            disposition = fresh ? CREATE_NEW : OPEN_ALWAYS;
            flags = update ? _O_RDWR : _O_WRONLY;
            stream = update ? "w+b" : "wb";
            empties = true;
        } else if (kind == 'a') {
            // Without the right to write elsewhere each write goes to the end in one step, whoever else appends.
            access = FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES | SYNCHRONIZE | READ_CONTROL |
                     (update ? GENERIC_READ : 0u);
            disposition = OPEN_ALWAYS;
            flags = (update ? _O_RDWR : _O_WRONLY) | _O_APPEND;
            stream = update ? "a+b" : "ab";
            appends = true;
        }
    }

    DWORD access = 0;
    DWORD disposition = OPEN_EXISTING;
    int flags = 0;
    const char* stream = nullptr;  // null for what is no mode
    bool empties = false;
    bool appends = false;
};

// The attributes, behind links; kNone when there is nothing.
DWORD Attributes(const char* path) {
    const WidePath native(path);
    if (!native) return kNone;
    const DWORD attributes = GetFileAttributesW(native.Get());
    if (attributes == kNone || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return attributes;
    const OwnHandle file(OpenForProperties(native.Get(), 0));
    BY_HANDLE_FILE_INFORMATION info;
    return file && GetFileInformationByHandle(file.Get(), &info) ? info.dwFileAttributes : kNone;
}

bool SetEnd(HANDLE file, std::uint64_t length) {
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = static_cast<LONGLONG>(length);
    return SetFileInformationByHandle(file, FileEndOfFileInfo, &end, sizeof(end)) != 0;
}

HANDLE Handle(std::FILE* stream) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}

int ErrnoOf(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_NAME:
        case ERROR_BAD_PATHNAME: return ENOENT;
        case ERROR_FILE_EXISTS:
        case ERROR_ALREADY_EXISTS: return EEXIST;
        case ERROR_TOO_MANY_OPEN_FILES: return EMFILE;
        case ERROR_DISK_FULL: return ENOSPC;
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION: return EACCES;
        default: return EIO;
    }
}

}  // namespace

bool PathToNative(const char* path, char* out, std::size_t size) {
    return PathFromNative(path, out, size);
}

bool PathIsRooted(const char*) {
    return false;
}

std::FILE* FileOpen(const char* path, const char* mode, std::uint64_t& length) {
    length = 0;
    const Mode wanted(mode);
    if (wanted.stream == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const WidePath native(path);
    if (!native) return nullptr;
    const HANDLE file = CreateFileW(native.Get(), wanted.access, kShareAll, nullptr, wanted.disposition,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        errno = ErrnoOf(GetLastError());
        return nullptr;
    }
    const bool disk = GetFileType(file) == FILE_TYPE_DISK;
    LARGE_INTEGER size = {};
    // Emptied here and not by CREATE_ALWAYS, which refuses hidden files and forgets when the file was made.
    bool ok = !disk || (wanted.empties ? SetEnd(file, 0) : GetFileSizeEx(file, &size) != 0);
    if (!ok) errno = ErrnoOf(GetLastError());
    const int descriptor =
        ok ? _open_osfhandle(reinterpret_cast<std::intptr_t>(file), wanted.flags | _O_BINARY | _O_NOINHERIT) : -1;
    std::FILE* stream = descriptor < 0 ? nullptr : _fdopen(descriptor, wanted.stream);
    if (stream == nullptr) {
        const int error = errno;
        if (descriptor < 0) {
            CloseHandle(file);
        } else {
            _close(descriptor);
        }
        errno = error;
        return nullptr;
    }
    if (wanted.appends && disk) FileSeek(stream, 0, SEEK_END);
    length = static_cast<std::uint64_t>(size.QuadPart);
    return stream;
}

bool FileSeek(std::FILE* stream, std::int64_t offset, int whence) {
    return _fseeki64(stream, offset, whence) == 0;
}

std::int64_t FileTell(std::FILE* stream) {
    return _ftelli64(stream);
}

std::int64_t FileLength(std::FILE* stream) {
    const HANDLE file = Handle(stream);
    if (file == INVALID_HANDLE_VALUE) return -1;
    if (GetFileType(file) != FILE_TYPE_DISK) return 0;
    LARGE_INTEGER size;
    return GetFileSizeEx(file, &size) ? size.QuadPart : -1;
}

std::size_t FileReadDirect(std::FILE* stream, void* out, std::size_t size) {
    const HANDLE file = Handle(stream);
    std::size_t done = 0;
    while (done < size) {
        const DWORD part = static_cast<DWORD>(std::min<std::size_t>(size - done, 1u << 30));
        DWORD count = 0;
        if (!ReadFile(file, static_cast<char*>(out) + done, part, &count, nullptr) || count == 0) break;
        done += count;
    }
    return done;
}

std::size_t FileReadAt(std::FILE* stream, std::uint64_t offset, void* out, std::size_t size) {
    const HANDLE file = Handle(stream);
    std::size_t done = 0;
    while (done < size) {
        const DWORD part = static_cast<DWORD>(std::min<std::size_t>(size - done, 1u << 30));
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(offset + done);
        place.OffsetHigh = static_cast<DWORD>((offset + done) >> 32);
        DWORD count = 0;
        if (!ReadFile(file, static_cast<char*>(out) + done, part, &count, &place) || count == 0) break;
        done += count;
    }
    return done;
}

bool FileTruncate(std::FILE* stream, std::uint64_t length) {
    const HANDLE file = Handle(stream);
    if (SetEnd(file, length)) return true;
    // A stream that appends may not write elsewhere.
    const OwnHandle whole(ReOpenFile(file, GENERIC_WRITE, kShareAll, 0));
    return whole && SetEnd(whole.Get(), length);
}

void FileStartSync(std::FILE*) {}

bool FileReserve(std::FILE*, std::uint64_t) {
    return false;
}

bool FileSync(std::FILE* stream) {
    return std::fflush(stream) == 0 && FlushFileBuffers(Handle(stream)) != 0;
}

bool FileExists(const char* path) {
    const DWORD attributes = Attributes(path);
    return attributes != kNone && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool FileReadable(const char* path) {
    const WidePath native(path);
    if (!native) return false;
    // Folders cannot be opened like this.
    return static_cast<bool>(OwnHandle(
        CreateFileW(native.Get(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)));
}

bool FolderExists(const char* path) {
    const DWORD attributes = Attributes(path);
    return attributes != kNone && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool LinkExists(const char* path) {
    const WidePath native(path);
    if (!native) return false;
    // The call takes patterns, which no file's name is.
    const wchar_t* text = native.Get();
    if (std::wcspbrk(std::wcsncmp(text, L"\\\\?\\", 4) == 0 ? text + 4 : text, L"*?") != nullptr) return false;
    WIN32_FIND_DATAW entry;
    const HANDLE search = FindFirstFileW(text, &entry);
    if (search == INVALID_HANDLE_VALUE) return false;
    FindClose(search);
    return IsLink(entry);
}

bool FileHasArchive(const char* path) {
    const DWORD attributes = Attributes(path);
    return attributes != kNone && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 &&
           (attributes & FILE_ATTRIBUTE_ARCHIVE) != 0;
}

bool FolderCreate(const char* path) {
    const WidePath native(path);
    return native && CreateDirectoryW(native.Get(), nullptr) != 0;
}

bool FolderRemove(const char* path) {
    const WidePath native(path);
    return native && RemoveDirectoryW(native.Get()) != 0;
}

bool FolderSync(const char* path) {
    return FolderExists(path);
}

bool FileRemove(const char* path) {
    const WidePath native(path);
    if (!native) return false;
    if (DeleteFileW(native.Get())) return true;
    // A link to a folder is removed like one, and what it leads to stays.
    return LinkExists(path) && RemoveDirectoryW(native.Get()) != 0;
}

bool FileRename(const char* from, const char* to, bool replace) {
    const WidePath source(from);
    const WidePath target(to);
    if (!source || !target) return false;
    if (replace) {
        if (PutInPlace(source.Get(), target.Get())) return true;
    } else {
        // Windows finds nothing wrong with a file that takes its own name, but that name is not free.
        if (std::wcscmp(source.Get(), target.Get()) == 0) return false;
        if (MoveFileExW(source.Get(), target.Get(), 0)) return true;
    }
    if (GetLastError() != ERROR_NOT_SAME_DEVICE) return false;
    if (!replace && GetFileAttributesW(target.Get()) != kNone) return false;
    return !FolderExists(from) && !LinkExists(from) && FileCopy(from, to) && DeleteFileW(source.Get()) != 0;
}

bool CurrentFolder(char* out, std::size_t size) {
    if (size > 0) out[0] = '\0';
    wchar_t native[kPathSize];
    const DWORD length = GetCurrentDirectoryW(kPathSize, native);
    return length > 0 && length < kPathSize && PathFromWide(native, out, size);
}

struct FileLock {
    HANDLE file;
};

FileLock* FileLockAcquire(const char* path) {
    const WidePath native(path);
    if (!native) return nullptr;
    // Others may look into it; without the sharing of deletion it keeps its name while it is held.
    OwnHandle file(CreateFileW(native.Get(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return nullptr;
    // A locked range keeps others from reading it, so it lies where no byte ever does.
    OVERLAPPED range = {};
    range.OffsetHigh = 0x7FFFFFFF;
    if (!LockFileEx(file.Get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &range)) return nullptr;
    void* memory = SetEnd(file.Get(), 0) ? std::malloc(sizeof(FileLock)) : nullptr;
    if (memory == nullptr) return nullptr;
    return new (memory) FileLock{file.Forget()};
}

void FileLockRelease(FileLock* lock) {
    if (lock == nullptr) return;
    CloseHandle(lock->file);
    std::free(lock);
}

}  // namespace KwPlatform
