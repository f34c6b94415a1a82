// NativePath: a path of the library as the POSIX calls take it. For the sources of the seam only.
#pragma once

#include <cerrno>

#include "Kw/Platform/KwPlatformFile.h"

namespace KwPlatform {

class NativePath {
public:
    explicit NativePath(const char* path) { ok_ = PathToNative(path, text_, sizeof(text_)) && text_[0] != '\0'; }

    // False sets errno as a missing file would.
    explicit operator bool() const {
        if (!ok_) errno = ENOENT;
        return ok_;
    }
    const char* Get() const { return text_; }

private:
    char text_[kPathSize];
    bool ok_;
};

}  // namespace KwPlatform
