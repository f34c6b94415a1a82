// KwMySqlCalls: the part of the MySQL client's interface that the back end uses, declared by hand: the library is found
// at run time, and a build needs none of its headers. Internal.
#pragma once

#include "Kw/Platform/KwPlatformMySql.h"

struct KwMySqlHandle;  // MYSQL
struct KwMySqlResult;  // MYSQL_RES

// The client states these as `unsigned long`, which is as wide as the system has it.
using KwMySqlLong = unsigned long;  // NOLINT(google-runtime-int)

// MYSQL_FIELD, the same in all clients since 5.1.
struct KwMySqlField {
    char* name;
    char* orgName;
    char* table;
    char* orgTable;
    char* db;
    char* catalog;
    char* def;
    KwMySqlLong length;
    KwMySqlLong maxLength;
    unsigned int nameLength;
    unsigned int orgNameLength;
    unsigned int tableLength;
    unsigned int orgTableLength;
    unsigned int dbLength;
    unsigned int catalogLength;
    unsigned int defLength;
    unsigned int flags;
    unsigned int decimals;
    unsigned int charset;
    int type;
    void* extension;
};

struct KwMySqlCalls {
    template <class F>
    struct Fn;
    template <class R, class... A>
    struct Fn<R(A...)> {
        using Type = R(KW_MYSQL_CALL*)(A...);
    };
    template <class F>
    using Call = typename Fn<F>::Type;

    Call<KwMySqlHandle*(KwMySqlHandle*)> init = nullptr;
    Call<int(KwMySqlHandle*, int, const void*)> options = nullptr;
    Call<KwMySqlHandle*(KwMySqlHandle*, const char*, const char*, const char*, const char*, unsigned int, const char*,
                        KwMySqlLong)>
        realConnect = nullptr;
    Call<int(KwMySqlHandle*, const char*)> selectDb = nullptr;
    Call<void(KwMySqlHandle*)> close = nullptr;
    Call<void(KwMySqlResult*)> freeResult = nullptr;
    Call<int(KwMySqlHandle*, const char*, KwMySqlLong)> realQuery = nullptr;
    Call<KwMySqlResult*(KwMySqlHandle*)> storeResult = nullptr;
    Call<unsigned int(KwMySqlResult*)> numFields = nullptr;
    Call<KwMySqlField*(KwMySqlResult*)> fetchFields = nullptr;
    Call<KwMySqlLong(KwMySqlHandle*, char*, const char*, KwMySqlLong)> realEscapeString = nullptr;
    Call<KwMySqlLong*(KwMySqlResult*)> fetchLengths = nullptr;
    Call<char**(KwMySqlResult*)> fetchRow = nullptr;
    Call<unsigned long long(KwMySqlResult*)> numRows = nullptr;

    // Not every client must have these: without them errors have no text, several results are not taken, and affected
    // rows are not known.
    Call<const char*(KwMySqlHandle*)> error = nullptr;
    Call<unsigned int(KwMySqlHandle*)> errorCode = nullptr;
    Call<const char*(KwMySqlHandle*)> state = nullptr;
    Call<unsigned long long(KwMySqlHandle*)> affectedRows = nullptr;
    Call<unsigned int(KwMySqlHandle*)> fieldCount = nullptr;
    Call<int(KwMySqlHandle*)> nextResult = nullptr;
    Call<void()> threadEnd = nullptr;
};
