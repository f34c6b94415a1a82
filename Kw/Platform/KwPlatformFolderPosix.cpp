#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "Kw/Platform/KwPlatformFileTimePosix.h"
#include "Kw/Platform/KwPlatformFolder.h"

namespace KwPlatform {

namespace {

// A path that is too long for one call is opened piece by piece, each from the folder before.
int OpenFolder(const char* path, bool follow) {
    std::string native(path != nullptr ? path : "");
    std::replace(native.begin(), native.end(), '\\', '/');
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW);
    const char* rest = native.c_str();
    std::size_t left = native.size();
    int at = AT_FDCWD;
    while (left >= PATH_MAX) {
        std::size_t piece = PATH_MAX - 2;
        while (piece > 0 && rest[piece] != '/') --piece;
        const std::string part(rest, piece);
        const int next = piece > 0 ? openat(at, part.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1;
        if (at != AT_FDCWD) close(at);
        if (next < 0) return -1;
        at = next;
        while (rest[piece] == '/') ++piece;
        rest += piece;
        left -= piece;
    }
    const int fd = openat(at, rest, flags);
    if (at != AT_FDCWD) close(at);
    return fd;
}

void Describe(int folder, const char* name, unsigned char type, unsigned int options, FolderEntry& entry) {
    struct stat info;
    entry.isFolder = type == DT_DIR;
    entry.isLink = type == DT_LNK;
    bool known = false;
    if (type == DT_UNKNOWN || ((options & kFolderDetails) != 0 && type != DT_LNK)) {
        known = fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) == 0;
        if (known) {
            entry.isFolder = S_ISDIR(info.st_mode);
            entry.isLink = S_ISLNK(info.st_mode);
        }
    }
    if (entry.isLink && options != 0) {
        // One that leads nowhere stays a link.
        const bool follow = (options & kFolderFollow) != 0 && fstatat(folder, name, &info, 0) == 0;
        known = follow || fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) == 0;
        entry.isFolder = follow && S_ISDIR(info.st_mode);
    }
    if (!known || (options & kFolderDetails) == 0) return;
    entry.size = S_ISREG(info.st_mode) ? static_cast<std::uint64_t>(info.st_size) : 0;
    entry.written = FileTimeFromUnix(info.st_mtim.tv_sec, info.st_mtim.tv_nsec);
}

}  // namespace

FolderScanned FolderScan(const char* path, unsigned int options, FolderId* id,
                         bool (*each)(void* context, const FolderEntry& entry), void* context) {
    const int fd = OpenFolder(path, (options & kFolderNoLink) == 0);
    DIR* folder = fd >= 0 ? fdopendir(fd) : nullptr;
    if (folder == nullptr) {
        if (fd >= 0) close(fd);
        return FolderScanned::kFailed;
    }
    struct stat info;
    if (id != nullptr && fstat(fd, &info) == 0) *id = {info.st_dev, info.st_ino};
    FolderScanned result = FolderScanned::kOk;
    const unsigned int wanted = options & (kFolderDetails | kFolderFollow);
    while (result == FolderScanned::kOk) {
        errno = 0;
        const dirent* found = readdir(folder);
        if (found == nullptr) {
            if (errno != 0) result = FolderScanned::kFailed;
            break;
        }
        const char* name = found->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        FolderEntry entry{name, false, false, 0, 0};
        Describe(fd, name, found->d_type, wanted, entry);
        if (!each(context, entry)) result = FolderScanned::kStopped;
    }
    closedir(folder);
    return result;
}

}  // namespace KwPlatform
