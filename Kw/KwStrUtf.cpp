#include <cstddef>
#include <cstring>

#include "Kw/KwStr.h"
#include "Kw/KwUtf.h"

int KwStr::GetUTF8Len(const char* text, int len) {
    if (text == nullptr) return 0;
    return static_cast<int>(KwUtf::CountUtf8(text, len < 0 ? std::strlen(text) : static_cast<std::size_t>(len)));
}

int KwStr::UTF8ToUTF16(void* dst, int dstBytes, const void* src, int srcLen) {
    if (dst == nullptr || dstBytes < 2) return 0;
    const std::size_t room = static_cast<std::size_t>(dstBytes) / 2;
    std::size_t length = 0;
    if (src != nullptr)
        length = srcLen < 0 ? std::strlen(static_cast<const char*>(src)) : static_cast<std::size_t>(srcLen);
    const std::size_t written = KwUtf::Utf8ToUtf16(dst, room, src, length).written;
    if (written < room) std::memset(static_cast<unsigned char*>(dst) + 2 * written, 0, 2);
    return static_cast<int>(2 * written);
}

int KwStr::UTF16ToUTF8(void* dst, int dstBytes, const void* src, int srcBytes) {
    if (dst == nullptr || dstBytes < 1) return 0;
    const std::size_t room = static_cast<std::size_t>(dstBytes);
    std::size_t length = 0;
    if (src != nullptr) length = srcBytes < 0 ? KwUtf::Length16(src) : static_cast<std::size_t>(srcBytes) / 2;
    const std::size_t written = KwUtf::Utf16ToUtf8(dst, room, src, length).written;
    if (written < room) static_cast<unsigned char*>(dst)[written] = 0;
    return static_cast<int>(written);
}

int KwStr::UTF32ToUTF16(const char* src, int srcLen, KwWChar* dst, int dstLen) {
    if (dst == nullptr || dstLen < 1) return 0;
    const std::size_t room = static_cast<std::size_t>(dstLen);
    std::size_t length = 0;
    if (src != nullptr) length = srcLen < 0 ? KwUtf::Length32(src) : static_cast<std::size_t>(srcLen);
    const std::size_t written = KwUtf::Utf32ToUtf16(dst, room, src, length).written;
    if (written < room) std::memset(dst + written, 0, sizeof(*dst));
    return static_cast<int>(written);
}
