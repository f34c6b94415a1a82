// Text for the wide calls of Windows and back. Internal to the Win32 half of the seam; include it first,
// for it brings <windows.h> with the right settings.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <string>

namespace KwPlatform {

// UTF-8 to UTF-16; null counts as empty, and what is no UTF-8 becomes U+FFFD.
std::wstring WideText(const char* text);
std::wstring WideText(const char* text, std::size_t length);

// UTF-16 to UTF-8; a lone half of a pair becomes U+FFFD.
std::string NarrowText(const wchar_t* text, std::size_t length);

}  // namespace KwPlatform
