// The file seam's part that is the same on every system: path text.
#include "Kw/Platform/KwPlatformFile.h"

#include <cerrno>
#include <cstring>

namespace KwPlatform {

namespace {

// The lead of a UTF-8 sequence carries its length in its top bits, each byte behind it six bits.
std::size_t PutUTF8(unsigned int code, char* out) {
    std::size_t count = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    if (count == 1) {
        out[0] = static_cast<char>(code);
        return 1;
    }
    for (std::size_t i = count - 1; i > 0; --i) {
        out[i] = static_cast<char>(0x80 | (code & 0x3F));
        code >>= 6;
    }
    out[0] = static_cast<char>((0xF00 >> count & 0xFF) | code);
    return count;
}

}  // namespace

bool PathWithSeparator(const char* path, char* out, std::size_t size, char from, char to) {
    if (size == 0) return false;
    out[0] = '\0';
    if (path == nullptr) return false;
    const std::size_t length = std::strlen(path);
    if (length >= size) return false;
    std::memcpy(out, path, length + 1);
    for (char* p = out; (p = std::strchr(p, from)) != nullptr; ++p) *p = to;
    return true;
}

bool PathFromNative(const char* path, char* out, std::size_t size) {
    return PathWithSeparator(path, out, size, '/', '\\');
}

bool PathFromWide(const KwWChar* path, char* out, std::size_t size) {
    if (size == 0) return false;
    out[0] = '\0';
    if (path == nullptr) return false;
    std::size_t used = 0;
    for (; *path != 0; ++path) {
        unsigned int code = *path;
        if (code >= 0xD800 && code < 0xE000) {
            const unsigned int low = path[1];
            if (code >= 0xDC00 || low < 0xDC00 || low >= 0xE000) break;
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            ++path;
        }
        char bytes[4];
        const std::size_t count = PutUTF8(code, bytes);
        if (used + count >= size) break;
        std::memcpy(out + used, bytes, count);
        used += count;
    }
    if (*path != 0) used = 0;
    out[used] = '\0';
    return *path == 0;
}

std::FILE* FileOpen(const char* path, const char* mode) {
    std::uint64_t length;
    return FileOpen(path, mode, length);
}

std::FILE* FileOpen(const KwWChar* path, const char* mode) {
    char narrow[kPathSize];
    if (!PathFromWide(path, narrow, sizeof(narrow))) {
        errno = ENOENT;
        return nullptr;
    }
    return FileOpen(narrow, mode);
}

}  // namespace KwPlatform
