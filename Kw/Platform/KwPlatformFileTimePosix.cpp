// The times of files.
#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>

#include "Kw/Platform/KwPlatformFile.h"
#include "Kw/Platform/KwPlatformFileTimePosix.h"
#include "Kw/Platform/KwPlatformPathPosix.h"

namespace KwPlatform {

namespace {

timespec ToTimespec(const std::uint64_t* time) {
    timespec result{};
    if (time == nullptr) {
        result.tv_nsec = UTIME_OMIT;
        return result;
    }
    result.tv_sec = static_cast<std::int64_t>(*time / kUnits) - kSecondsTo1970;
    result.tv_nsec = static_cast<std::int64_t>(*time % kUnits) * 100;
    return result;
}

}  // namespace

bool FileGetTimes(const char* path, FileTimes& times) {
    const NativePath native(path);
    struct statx info;
    if (!native || statx(AT_FDCWD, native.Get(), 0, STATX_BASIC_STATS | STATX_BTIME, &info) != 0) return false;
    times.accessed = FileTimeFromUnix(info.stx_atime.tv_sec, info.stx_atime.tv_nsec);
    times.written = FileTimeFromUnix(info.stx_mtime.tv_sec, info.stx_mtime.tv_nsec);
    if ((info.stx_mask & STATX_BTIME) != 0) {
        times.created = FileTimeFromUnix(info.stx_btime.tv_sec, info.stx_btime.tv_nsec);
    } else {
        const std::uint64_t changed = FileTimeFromUnix(info.stx_ctime.tv_sec, info.stx_ctime.tv_nsec);
        times.created = changed < times.written ? changed : times.written;
    }
    return true;
}

bool FileSetTimes(const char* path, const std::uint64_t*, const std::uint64_t* accessed, const std::uint64_t* written) {
    const NativePath native(path);
    const timespec times[2] = {ToTimespec(accessed), ToTimespec(written)};
    return native && utimensat(AT_FDCWD, native.Get(), times, 0) == 0;
}

bool FileSetTimes(void* handle, const std::uint64_t*, const std::uint64_t* accessed, const std::uint64_t* written) {
    const timespec times[2] = {ToTimespec(accessed), ToTimespec(written)};
    return futimens(static_cast<int>(reinterpret_cast<std::intptr_t>(handle)), times) == 0;
}

void* FileNoHandle() {
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(-1));
}

}  // namespace KwPlatform
