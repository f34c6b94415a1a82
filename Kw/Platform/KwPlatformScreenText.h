// Text on a screen: what can be shown and how wide it is. Internal to the seam.
#pragma once

#include <string>

namespace KwPlatform {

// Columns that one well-formed UTF-8 character covers: East Asian wide forms two, combining marks none.
int ScreenColumns(const char* text, int length);

// A text as far as it can be shown in a title or a question: without control characters.
std::string ScreenPlain(const char* text);

}  // namespace KwPlatform
