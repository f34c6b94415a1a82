#include "Kw/Helper/KwConvertString.h"

#include <climits>
#include <cstdint>

#include "Kw/KwStr.h"
#include "Kw/KwStrText.h"

namespace {

using KwStrText::Length;

// Room for `count` characters and the terminator; null when that is too much or memory is out.
template <typename Char>
Char* Allocate(std::int64_t count) {
    const auto bytes = (count + 1) * static_cast<std::int64_t>(sizeof(Char));
    if (bytes > INT_MAX) return nullptr;
    return static_cast<Char*>(KwMemory::Malloc(static_cast<unsigned int>(bytes), nullptr, 0));
}

// Puts `made` with `length` characters in the place of `text`.
template <typename Char>
bool Replace(Char*& text, int& length, Char* made, int madeLength) {
    made[madeLength] = 0;
    if (text != nullptr) KwMemory::Free(text, nullptr, 0);
    text = made;
    length = madeLength;
    return true;
}

template <typename Char>
bool Copy(Char*& text, int& length, const Char* source, int len) {
    len = Length(source, len);
    Char* made = Allocate<Char>(len);
    if (made == nullptr) return false;
    KwMem::Copy(made, source, static_cast<unsigned int>(len) * static_cast<unsigned int>(sizeof(Char)));
    return Replace(text, length, made, len);
}

}  // namespace

KwConvertToUTF8& KwConvertToUTF8::operator=(const KwConvertToUTF8& other) {
    Set(other.text_, other.length_);
    return *this;
}

KwConvertToUTF8::~KwConvertToUTF8() {
    if (text_ != nullptr) KwMemory::Free(text_, nullptr, 0);
}

bool KwConvertToUTF8::Set(const char* text, int len) {
    return Copy(text_, length_, text, len);
}

bool KwConvertToUTF8::Set(const KwWChar* text, int len) {
    len = Length(text, len);
    // A unit takes at most three bytes; a pair of surrogates takes four.
    const std::int64_t most = std::int64_t{len} * 3;
    char* made = Allocate<char>(most);
    if (made == nullptr) return false;
    return Replace(text_, length_, made, KwStr::UTF16ToUTF8(made, static_cast<int>(most), text, len * 2));
}

KwConvertToUnicode& KwConvertToUnicode::operator=(const KwConvertToUnicode& other) {
    Set(other.text_, other.length_);
    return *this;
}

KwConvertToUnicode::~KwConvertToUnicode() {
    if (text_ != nullptr) KwMemory::Free(text_, nullptr, 0);
}

bool KwConvertToUnicode::Set(const KwWChar* text, int len) {
    return Copy(text_, length_, text, len);
}

bool KwConvertToUnicode::Set(const char* text, int len) {
    len = Length(text, len);
    // A byte makes at most one unit.
    KwWChar* made = Allocate<KwWChar>(len);
    if (made == nullptr) return false;
    return Replace(text_, length_, made, KwStr::UTF8ToUTF16(made, len * 2, text, len) / 2);
}
