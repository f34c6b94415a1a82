// KwMySqlText: texts of the MySQL back end. Internal.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Kw/KwDefine.h"

namespace KwMySqlText {

struct Address {
    std::string host;  // empty for the path of a socket
    std::string path;
    unsigned int port = 0;  // 0: the usual one
};

// False for a port outside 1 to 65535.
KW_API bool ParseAddress(const std::string& server, Address& address);

// The pieces of a statement between its `?`, one more than it has parameters. A `?` in quotes and comments is text.
// A backslash escapes in quotes.
KW_API std::vector<std::string> Split(std::string_view text);

// A literal that the server reads as a double, not as a decimal.
KW_API std::string Double(double value);

}  // namespace KwMySqlText
