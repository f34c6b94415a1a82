// Whole files: written beside and put in place, so that a cut write leaves the old one.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Platform/KwPlatformPathPosix.h"

namespace KwPlatform {

namespace {

bool WriteAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t count = write(fd, data, size);
        if (count < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

// A new version of one file. Ends in Commit, or leaves the old version as it was (where it could be
// written beside it).
class NewVersion {
public:
    explicit NewVersion(const char* path) {
        const NativePath native(path);
        if (!native) return;
        // The file that a link names, so that the link stays.
        char resolved[PATH_MAX];
        const char* target = realpath(native.Get(), resolved);
        if (target == nullptr) {
            if (errno != ENOENT) return;
            target = native.Get();
        }
        if (std::strlen(target) >= sizeof(target_)) return;
        std::strcpy(target_, target);
        exists_ = stat(target_, &old_) == 0;
        if (exists_ && S_ISDIR(old_.st_mode)) return;
        if (!exists_ || S_ISREG(old_.st_mode)) OpenBeside();
        if (fd_ < 0 && exists_) fd_ = open(target_, O_WRONLY | O_TRUNC | O_CLOEXEC);
    }
    ~NewVersion() {
        if (fd_ < 0) return;
        close(fd_);
        if (beside_[0] != '\0') unlink(beside_);
    }
    NewVersion(const NewVersion&) = delete;
    NewVersion& operator=(const NewVersion&) = delete;

    int GetFd() const { return fd_; }
    // Not the old file itself, which is written in place, and no device.
    bool IsNewFile() const { return beside_[0] != '\0'; }

    bool Commit() {
        // To the disk before the name changes hands: a crash must find one of the two versions whole.
        // What is no disk file refuses to be flushed.
        if (fdatasync(fd_) != 0 && errno != EINVAL && errno != ENOTSUP) return false;
        const bool closed = close(fd_) == 0;
        fd_ = -1;
        if (beside_[0] == '\0') return closed;
        if (closed && rename(beside_, target_) == 0) return true;
        unlink(beside_);
        return false;
    }

private:
    void OpenBeside() {
        static std::atomic<unsigned int> serial{0};
        for (int tries = 0; tries < 100; ++tries) {
            const int length = std::snprintf(beside_, sizeof(beside_), "%s.%d.%u.tmp", target_,
                                             static_cast<int>(getpid()), serial.fetch_add(1));
            if (length < 0 || static_cast<std::size_t>(length) >= sizeof(beside_)) break;
            fd_ = open(beside_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (fd_ >= 0) {
                // The owner first: changing it clears bits of the mode. Only root may, so it may fail.
                if (exists_ && fchown(fd_, old_.st_uid, old_.st_gid) != 0) errno = 0;
                if (exists_) fchmod(fd_, old_.st_mode & 07777);
                return;
            }
            if (errno != EEXIST) break;
        }
        beside_[0] = '\0';
    }

    char target_[kPathSize] = "";
    char beside_[kPathSize + 40] = "";  // empty: written in place
    struct stat old_ {};
    bool exists_ = false;
    int fd_ = -1;
};

bool CopyBytes(int from, int to) {
    // In the kernel where both file systems can, else through a buffer.
    for (;;) {
        const ssize_t count = copy_file_range(from, nullptr, to, nullptr, std::size_t{1} << 30, 0);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
    }
    char buffer[65536];
    for (;;) {
        const ssize_t count = read(from, buffer, sizeof(buffer));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return count == 0;
        if (!WriteAll(to, buffer, static_cast<std::size_t>(count))) return false;
    }
}

}  // namespace

FileSaved FileSave(const char* path, const void* data, std::size_t size) {
    NewVersion version(path);
    if (version.GetFd() < 0) return FileSaved::kNotCreated;
    const bool ok = WriteAll(version.GetFd(), static_cast<const char*>(data), size) && version.Commit();
    return ok ? FileSaved::kOk : FileSaved::kNotWritten;
}

bool FileCopy(const char* from, const char* to) {
    const NativePath source(from);
    const int fd = source ? open(source.Get(), O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0) return false;
    struct stat info;
    struct stat target;
    const NativePath native(to);
    bool ok = native && fstat(fd, &info) == 0 && !S_ISDIR(info.st_mode);
    if (ok && stat(native.Get(), &target) == 0 && target.st_dev == info.st_dev && target.st_ino == info.st_ino) {
        close(fd);
        return true;
    }
    if (ok) {
        NewVersion version(to);
        ok = version.GetFd() >= 0 && CopyBytes(fd, version.GetFd());
        // Permissions and times follow as far as the target's file system takes them.
        const timespec times[2] = {info.st_atim, info.st_mtim};
        if (ok && version.IsNewFile() &&
            (fchmod(version.GetFd(), info.st_mode & 0777) != 0 || futimens(version.GetFd(), times) != 0)) {
            errno = 0;
        }
        ok = ok && version.Commit();
    }
    close(fd);
    return ok;
}

}  // namespace KwPlatform
