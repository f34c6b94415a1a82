// The times of files.
#include "Kw/Platform/KwPlatformPathWin32.h"

namespace KwPlatform {

namespace {

std::uint64_t ToUnits(const FILETIME& time) {
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

// A time as the call takes it: null for one that is left alone.
class SystemTime {
public:
    explicit SystemTime(const std::uint64_t* units) : given_(units != nullptr) {
        if (!given_) return;
        time_.dwLowDateTime = static_cast<DWORD>(*units);
        time_.dwHighDateTime = static_cast<DWORD>(*units >> 32);
    }
    const FILETIME* Get() const { return given_ ? &time_ : nullptr; }

private:
    FILETIME time_{};
    bool given_;
};

}  // namespace

bool FileGetTimes(const char* path, FileTimes& times) {
    const WidePath native(path);
    const OwnHandle file(native ? OpenForProperties(native.Get(), FILE_READ_ATTRIBUTES) : INVALID_HANDLE_VALUE);
    FILETIME created, accessed, written;
    if (!file || !GetFileTime(file.Get(), &created, &accessed, &written)) return false;
    times.created = ToUnits(created);
    times.accessed = ToUnits(accessed);
    times.written = ToUnits(written);
    return true;
}

bool FileSetTimes(const char* path, const std::uint64_t* created, const std::uint64_t* accessed,
                  const std::uint64_t* written) {
    const WidePath native(path);
    const OwnHandle file(native ? OpenForProperties(native.Get(), FILE_WRITE_ATTRIBUTES) : INVALID_HANDLE_VALUE);
    return file && FileSetTimes(file.Get(), created, accessed, written);
}

bool FileSetTimes(void* handle, const std::uint64_t* created, const std::uint64_t* accessed,
                  const std::uint64_t* written) {
    return SetFileTime(handle, SystemTime(created).Get(), SystemTime(accessed).Get(), SystemTime(written).Get()) != 0;
}

void* FileNoHandle() {
    return INVALID_HANDLE_VALUE;
}

}  // namespace KwPlatform
