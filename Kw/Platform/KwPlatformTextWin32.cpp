#include "Kw/Platform/KwPlatformTextWin32.h"

#include <cstring>

namespace KwPlatform {

std::wstring WideText(const char* text) {
    return text == nullptr ? std::wstring() : WideText(text, std::strlen(text));
}

std::wstring WideText(const char* text, std::size_t length) {
    const int size = static_cast<int>(length);
    const int units = size <= 0 ? 0 : MultiByteToWideChar(CP_UTF8, 0, text, size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    if (units > 0) MultiByteToWideChar(CP_UTF8, 0, text, size, wide.data(), units);
    return wide;
}

std::string NarrowText(const wchar_t* text, std::size_t length) {
    const int size = static_cast<int>(length);
    const int bytes = size <= 0 ? 0 : WideCharToMultiByte(CP_UTF8, 0, text, size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, text, size, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

}  // namespace KwPlatform
