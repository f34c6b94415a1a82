// KwSQLText: text on its way to and from a database. Internal.
#pragma once

#include "Kw/DB/KwSQLTypes.h"

namespace KwSQLText {

// UTF-8 of a text of `length` characters, to its terminator when negative; empty for null.
std::string Narrow(const char* text, int length);
std::string Narrow(const KwWChar* text, int length);
KwWString Wide(std::string_view text);
bool IsAscii(std::string_view text);

// A number as text that reads back as the same number, a text as it is.
std::string FromCell(const KwSQLCell& cell);
std::string FromDouble(double value);

// The plain value of a setting, which is Base64 behind an "@". False for malformed Base64 and for a zero byte in it.
bool DecodeSetting(const char* text, std::string& value);

// A driver's message without what it quotes of statements and values, in one line.
KW_API std::string ForLog(std::string_view message, const std::string& password);

}  // namespace KwSQLText
