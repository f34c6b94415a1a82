// What the sources of the string toolkit share. Internal.
#pragma once

#include <climits>
#include <string>
#include <type_traits>

#include "Kw/KwDefine.h"

namespace KwStrText {

template <typename Char>
bool IsBlank(Char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// The length of a source: as given, or up to the terminator when negative; 0 for null.
template <typename Char>
int Length(const Char* text, int length = -1) {
    if (text == nullptr) return 0;
    if (length >= 0) return length;
    const std::size_t measured = std::char_traits<Char>::length(text);
    return measured < INT_MAX ? static_cast<int>(measured) : INT_MAX;
}

// A character as the number by which it is compared.
template <typename Char>
int Value(Char c) {
    return static_cast<std::make_unsigned_t<std::conditional_t<sizeof(Char) == 1, char, short>>>(c);
}

}  // namespace KwStrText
