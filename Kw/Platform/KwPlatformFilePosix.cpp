#include "Kw/Platform/KwPlatformFile.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Kw/Platform/KwPlatformPathPosix.h"

namespace KwPlatform {

static_assert(sizeof(off_t) == 8, "files may be larger than 2 GiB");

namespace {

bool Stat(const char* path, struct stat& info) {
    const NativePath native(path);
    return native && stat(native.Get(), &info) == 0;
}

}  // namespace

bool PathToNative(const char* path, char* out, std::size_t size) {
    return PathWithSeparator(path, out, size, '\\', '/');
}

bool PathIsRooted(const char* path) {
    if (path == nullptr) return false;
    if (path[0] == '/') return true;
    if (path[0] != '\\') return false;
    char first[256];
    std::size_t length = 1;
    while (path[length] != '\0' && path[length] != '\\' && path[length] != '/') ++length;
    if (length == 1 || length >= sizeof(first)) return false;
    std::memcpy(first, path, length);
    first[length] = '\0';
    return FolderExists(first);
}

std::FILE* FileOpen(const char* path, const char* mode, std::uint64_t& length) {
    length = 0;
    char modes[8];
    const std::size_t count = mode == nullptr ? 0 : std::strlen(mode);
    if (count == 0 || count + 2 > sizeof(modes)) {
        errno = EINVAL;
        return nullptr;
    }
    std::memcpy(modes, mode, count);
    modes[count] = 'e';  // closed in programs that are started from here
    modes[count + 1] = '\0';

    const NativePath native(path);
    if (!native) return nullptr;
    std::FILE* stream = std::fopen(native.Get(), modes);
    if (stream == nullptr) return nullptr;
    struct stat info;
    if (fstat(fileno(stream), &info) != 0 || S_ISDIR(info.st_mode)) {
        std::fclose(stream);
        errno = EISDIR;
        return nullptr;
    }
    if (S_ISREG(info.st_mode)) length = static_cast<std::uint64_t>(info.st_size);
    return stream;
}

bool FileSeek(std::FILE* stream, std::int64_t offset, int whence) {
    return fseeko(stream, offset, whence) == 0;
}

std::int64_t FileTell(std::FILE* stream) {
    return ftello(stream);
}

std::int64_t FileLength(std::FILE* stream) {
    struct stat info;
    if (fstat(fileno(stream), &info) != 0) return -1;
    return S_ISREG(info.st_mode) ? info.st_size : 0;
}

std::size_t FileReadDirect(std::FILE* stream, void* out, std::size_t size) {
    const int fd = fileno(stream);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = read(fd, static_cast<char*>(out) + done, size - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

std::size_t FileReadAt(std::FILE* stream, std::uint64_t offset, void* out, std::size_t size) {
    const int fd = fileno(stream);
    std::size_t done = 0;
    while (done < size) {
        const off_t place = static_cast<off_t>(offset + done);
        const ssize_t count = pread(fd, static_cast<char*>(out) + done, size - done, place);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

bool FileTruncate(std::FILE* stream, std::uint64_t length) {
    return ftruncate(fileno(stream), static_cast<off_t>(length)) == 0;
}

void FileStartSync([[maybe_unused]] std::FILE* stream) {
#if defined(SYNC_FILE_RANGE_WRITE)
    sync_file_range(fileno(stream), 0, 0, SYNC_FILE_RANGE_WRITE);
#endif
}

bool FileReserve([[maybe_unused]] std::FILE* stream, [[maybe_unused]] std::uint64_t length) {
#if defined(FALLOC_FL_KEEP_SIZE)
    const int fd = fileno(stream);
    struct stat info;
    struct rlimit limit;
    // Some file systems send the signal of the limit for room that no byte stands in yet.
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur < length || fstat(fd, &info) != 0) return false;
    const auto size = static_cast<std::uint64_t>(info.st_size);
    if (size >= length) return true;
    if (fallocate(fd, FALLOC_FL_KEEP_SIZE, info.st_size, static_cast<off_t>(length - size)) == 0) return true;
    // A full disk may have given a part, which others need more. True then where it cannot be taken back.
    return errno == ENOSPC && ftruncate(fd, info.st_size) != 0;
#else
    return false;
#endif
}

bool FileSync(std::FILE* stream) {
    return std::fflush(stream) == 0 && fdatasync(fileno(stream)) == 0;
}

bool FileExists(const char* path) {
    struct stat info;
    return Stat(path, info) && !S_ISDIR(info.st_mode);
}

bool FileReadable(const char* path) {
    const NativePath native(path);
    struct stat info;
    return native && stat(native.Get(), &info) == 0 && !S_ISDIR(info.st_mode) && access(native.Get(), R_OK) == 0;
}

bool FolderExists(const char* path) {
    struct stat info;
    return Stat(path, info) && S_ISDIR(info.st_mode);
}

bool LinkExists(const char* path) {
    const NativePath native(path);
    struct stat info;
    return native && lstat(native.Get(), &info) == 0 && S_ISLNK(info.st_mode);
}

bool FileHasArchive(const char* path) {
    struct stat info;
    return Stat(path, info) && S_ISREG(info.st_mode);
}

bool FolderCreate(const char* path) {
    const NativePath native(path);
    return native && mkdir(native.Get(), 0777) == 0;
}

bool FolderRemove(const char* path) {
    const NativePath native(path);
    return native && rmdir(native.Get()) == 0;
}

bool FolderSync(const char* path) {
    const NativePath native(path);
    const int fd = native ? open(native.Get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1;
    if (fd < 0) return false;
    // Some file systems know no flushing of folders.
    const bool ok = fsync(fd) == 0 || errno == EINVAL;
    close(fd);
    return ok;
}

bool FileRemove(const char* path) {
    const NativePath native(path);
    return native && unlink(native.Get()) == 0;
}

bool FileRename(const char* from, const char* to, bool replace) {
    const NativePath source(from);
    const NativePath target(to);
    if (!source || !target) return false;
    if (replace) {
        if (rename(source.Get(), target.Get()) == 0) return true;
    } else {
        if (renameat2(AT_FDCWD, source.Get(), AT_FDCWD, target.Get(), RENAME_NOREPLACE) == 0) return true;
        if (errno == EINVAL || errno == ENOSYS) {
            // A file system without the flag. A file gets its second name only if that is free.
            struct stat info;
            if (link(source.Get(), target.Get()) == 0) return unlink(source.Get()) == 0;
            if (errno == EEXIST || lstat(target.Get(), &info) == 0) return false;
            return rename(source.Get(), target.Get()) == 0;
        }
    }
    if (errno != EXDEV) return false;
    struct stat info;
    if (!replace && lstat(target.Get(), &info) == 0) return false;
    if (lstat(source.Get(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    return FileCopy(from, to) && unlink(source.Get()) == 0;
}

bool CurrentFolder(char* out, std::size_t size) {
    char native[kPathSize];
    if (size > 0) out[0] = '\0';
    return getcwd(native, sizeof(native)) != nullptr && PathFromNative(native, out, size);
}

struct FileLock {
    int fd;
};

FileLock* FileLockAcquire(const char* path) {
    const NativePath native(path);
    if (!native) return nullptr;
    for (;;) {
        const int fd = open(native.Get(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (fd < 0) return nullptr;
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
            struct stat held;
            struct stat named;
            if (fstat(fd, &held) != 0 || stat(native.Get(), &named) != 0 || held.st_ino != named.st_ino ||
                held.st_dev != named.st_dev) {
                // Somebody removed the file before we had the lock: the next comer would make a new one.
                close(fd);
                continue;
            }
            void* memory = ftruncate(fd, 0) == 0 ? std::malloc(sizeof(FileLock)) : nullptr;
            if (memory != nullptr) return new (memory) FileLock{fd};
        }
        close(fd);
        return nullptr;
    }
}

void FileLockRelease(FileLock* lock) {
    if (lock == nullptr) return;
    close(lock->fd);
    std::free(lock);
}

}  // namespace KwPlatform
