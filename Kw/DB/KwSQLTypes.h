// KwSQLTypes: the plain structures between the callers of KwSQL and its back ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Kw/KwDefine.h"

// Why the last operation failed.
struct KwSQLError {
    std::string state;    // SQLSTATE, five characters; empty when nothing failed
    std::string message;  // the server's or driver's text, UTF-8
    int code = 0;         // its own number, 0 for faults found on this side
    bool lost = false;    // the connection broke: whether the statement took effect is not known
};

// Where a connection leads and how long it waits; plain text.
struct KwSQLSettings {
    std::string server;
    std::string account;
    std::string password;
    std::string database;
    unsigned int connectSeconds = 5;
    unsigned int querySeconds = 300;  // 0: without limit
};

// One bound parameter.
struct KwSQLParam {
    enum class Kind { kUnset, kNull, kInteger, kDouble, kText, kBlob };
    Kind kind = Kind::kUnset;
    std::int64_t integer = 0;
    double number = 0;
    std::string bytes;  // a text in UTF-8, or a blob
};

// One value of the current row.
struct KwSQLCell {
    enum class Kind { kNull, kInteger, kDouble, kBytes };
    Kind kind = Kind::kNull;
    std::int64_t integer = 0;
    double number = 0;
    std::string_view bytes;  // a text in UTF-8, or a blob, with a zero byte behind it; valid until the next row
};
