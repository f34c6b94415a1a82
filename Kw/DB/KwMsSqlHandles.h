// CMTMSSQL's ODBC handles and buffers. Internal.
#pragma once

#include <vector>

#include "Kw/DB/KwMsSql.h"
#include "Kw/Platform/KwPlatformOdbc.h"

struct CMTMSSQL::Handles {
    SQLHENV environment = SQL_NULL_HENV;
    SQLHDBC connection = SQL_NULL_HDBC;
    SQLHSTMT statement = SQL_NULL_HSTMT;

    // The driver takes UTF-16. One that does not gets UTF-8 as it is, since driver managers lose characters on the way.
    bool wide = true;

    // Of the current result, one for each column.
    struct Column {
        SQLSMALLINT target = SQL_C_WCHAR;  // what it is read as
        std::string bytes;
    };
    std::vector<Column> columns;
    std::vector<char> piece;  // what one SQLGetData takes

    // What parameters of an execution are bound to.
    struct Bound {
        SQLINTEGER number = 0;
        SQLLEN indicator = 0;
        KwWString wide;
    };
    std::vector<Bound> bound;
};

inline bool KwOdbcDone(SQLRETURN result) {
    return result == SQL_SUCCESS || result == SQL_SUCCESS_WITH_INFO;
}

// A text as the W functions take it, which change nothing.
inline SQLWCHAR* KwOdbcWide(KwWString& text) {
    static_assert(sizeof(SQLWCHAR) == sizeof(KwWChar));
    return reinterpret_cast<SQLWCHAR*>(text.data());
}
inline SQLCHAR* KwOdbcNarrow(const std::string& text) {
    return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.data()));
}
inline SQLPOINTER KwOdbcPointer(const void* data) {
    return const_cast<void*>(data);
}
inline SQLPOINTER KwOdbcNumber(std::size_t value) {
    return reinterpret_cast<SQLPOINTER>(value);
}
