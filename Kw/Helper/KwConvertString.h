// KwConvertToUTF8, KwConvertToUnicode: convert a text once and keep the result.
//
// `Set` takes `len` characters, up to the terminator when negative, and replaces the result; the text may be
// (part of) the present result. Null gives an empty result. It returns false, with the present result
// kept, when memory is out or the result would pass 2^31 - 1 bytes.
// Malformed text is replaced as KwStr::UTF8ToUTF16 and UTF16ToUTF8 do.
// Thread-safety: one user at a time.
#pragma once

#include "Kw/KwDefine.h"
#include "Kw/KwMemory.h"

class KW_API KwConvertToUTF8 {
public:
    KW_TRACKED_NEW

    KwConvertToUTF8() = default;
    KwConvertToUTF8(const KwConvertToUTF8& other) { Set(other.text_, other.length_); }
    KwConvertToUTF8& operator=(const KwConvertToUTF8& other);
    ~KwConvertToUTF8();

    bool Set(const char* text, int len);     // copies
    bool Set(const KwWChar* text, int len);  // UTF-16 to UTF-8

    // The result, terminated, until the next Set; the empty string before the first.
    const char* Get() const { return text_ != nullptr ? text_ : ""; }
    int GetLength() const { return length_; }  // bytes before the terminator

private:
    char* text_ = nullptr;
    int length_ = 0;
};

class KW_API KwConvertToUnicode {
public:
    KW_TRACKED_NEW

    KwConvertToUnicode() = default;
    KwConvertToUnicode(const KwConvertToUnicode& other) { Set(other.text_, other.length_); }
    KwConvertToUnicode& operator=(const KwConvertToUnicode& other);
    ~KwConvertToUnicode();

    bool Set(const char* text, int len);     // UTF-8 to UTF-16
    bool Set(const KwWChar* text, int len);  // copies

    // The result, terminated, until the next Set; the empty string before the first.
    const KwWChar* Get() const { return text_ != nullptr ? text_ : KW_W(""); }
    int GetLength() const { return length_; }  // units before the terminator

private:
    KwWChar* text_ = nullptr;
    int length_ = 0;
};
