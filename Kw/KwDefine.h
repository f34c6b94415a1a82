// KwDefine: the export macro, the UTF-16 character type and compiler attributes.
//
// Every other header of the library includes this one first.
#pragma once

#include <string>

#if defined(_WIN32)
#if defined(KW_BUILDING)
#define KW_API [[gnu::dllexport]]
#else
#define KW_API [[gnu::dllimport]]
#endif
#else
#define KW_API [[gnu::visibility("default")]]
#endif

// What a plug-in exports: `extern "C" KW_PLUGIN void Start(void* host) { ... }`.
#if defined(_WIN32)
#define KW_PLUGIN [[gnu::dllexport]]
#else
#define KW_PLUGIN [[gnu::visibility("default")]]
#endif

// A UTF-16 unit, its string, and the literal of it: KW_W("text").
#if defined(_WIN32)
using KwWChar = wchar_t;
#define KW_W(text) L##text
#else
using KwWChar = char16_t;
#define KW_W(text) u##text
#endif
using KwWString = std::basic_string<KwWChar>;
static_assert(sizeof(KwWChar) == 2, "a wide character of the library is one UTF-16 unit");

// A printf-like function: the format is parameter `at`, the first variable argument is
// parameter `first` (0 for a va_list). Both count from 1; `this` counts as one.
#if defined(__MINGW32__)
#define KW_PRINTF(at, first) __attribute__((format(gnu_printf, at, first)))
#else
#define KW_PRINTF(at, first) __attribute__((format(printf, at, first)))
#endif
