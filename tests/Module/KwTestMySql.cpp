// A MySQL client library without a server, for the calls that the back end makes: it takes the password "secret" and
// answers each statement with one row: the statement, NULL, and a bit field of two bytes. KW_TEST_HALF leaves one
// function out.
#include <cstring>
#include <string>

#include "Kw/DB/KwMySqlCalls.h"

#define KW_STUB extern "C" KW_API_STUB
#if defined(_WIN32)
#define KW_API_STUB __attribute__((dllexport))
#else
#define KW_API_STUB __attribute__((visibility("default")))
#endif

struct KwMySqlHandle {
    std::string statement;
    bool refused = false;
    bool asked = false;
};
struct KwMySqlResult {
    char bits[3] = {1, 2, 0};
    char* row[3] = {};
    KwMySqlLong lengths[3] = {};
    KwMySqlField fields[3] = {};
    bool done = false;
};

namespace {
char g_names[3][10] = {"statement", "none", "bits"};
}

KW_STUB KwMySqlHandle* KW_MYSQL_CALL mysql_init(KwMySqlHandle*) {
    return new KwMySqlHandle;
}
KW_STUB int KW_MYSQL_CALL mysql_options(KwMySqlHandle*, int, const void*) {
    return 0;
}
KW_STUB KwMySqlHandle* KW_MYSQL_CALL mysql_real_connect(KwMySqlHandle* handle, const char*, const char*,
                                                        const char* password, const char*, unsigned int port,
                                                        const char*, KwMySqlLong) {
    handle->refused = std::strcmp(password, "secret") != 0 || port != 3307;
    return handle->refused ? nullptr : handle;
}
KW_STUB int KW_MYSQL_CALL mysql_select_db(KwMySqlHandle*, const char* name) {
    return std::strcmp(name, "appdb");
}
KW_STUB void KW_MYSQL_CALL mysql_close(KwMySqlHandle* handle) {
    delete handle;
}
KW_STUB void KW_MYSQL_CALL mysql_free_result(KwMySqlResult* result) {
    delete result;
}
KW_STUB int KW_MYSQL_CALL mysql_real_query(KwMySqlHandle* handle, const char* text, KwMySqlLong length) {
    handle->statement.assign(text, length);
    handle->asked = handle->statement.rfind("SET NAMES", 0) != 0;
    return 0;
}
KW_STUB KwMySqlResult* KW_MYSQL_CALL mysql_store_result(KwMySqlHandle* handle) {
    if (!handle->asked) return nullptr;
    auto* result = new KwMySqlResult;
    for (int i = 0; i < 3; ++i) result->fields[i].name = g_names[i];
    result->fields[2].type = 16;
    result->row[0] = handle->statement.data();
    result->row[2] = result->bits;
    result->lengths[0] = static_cast<KwMySqlLong>(handle->statement.size());
    result->lengths[2] = 2;
    return result;
}
KW_STUB unsigned int KW_MYSQL_CALL mysql_num_fields(KwMySqlResult*) {
    return 3;
}
KW_STUB KwMySqlField* KW_MYSQL_CALL mysql_fetch_fields(KwMySqlResult* result) {
    return result->fields;
}
KW_STUB KwMySqlLong KW_MYSQL_CALL mysql_real_escape_string(KwMySqlHandle*, char* to, const char* from,
                                                           KwMySqlLong length) {
    const char* const start = to;
    for (KwMySqlLong i = 0; i < length; ++i) {
        if (from[i] == '\'') *to++ = '\\';
        *to++ = from[i];
    }
    *to = '\0';
    return static_cast<KwMySqlLong>(to - start);
}
KW_STUB KwMySqlLong* KW_MYSQL_CALL mysql_fetch_lengths(KwMySqlResult* result) {
    return result->lengths;
}
KW_STUB char** KW_MYSQL_CALL mysql_fetch_row(KwMySqlResult* result) {
    if (result->done) return nullptr;
    result->done = true;
    return result->row;
}
#if !defined(KW_TEST_HALF)
KW_STUB unsigned long long KW_MYSQL_CALL mysql_num_rows(KwMySqlResult*) {
    return 1;
}
#endif
KW_STUB unsigned int KW_MYSQL_CALL mysql_errno(KwMySqlHandle* handle) {
    return handle->refused ? 1045 : 0;
}
KW_STUB const char* KW_MYSQL_CALL mysql_error(KwMySqlHandle* handle) {
    return handle->refused ? "Access denied for user 'app' (using password: YES)" : "";
}
KW_STUB const char* KW_MYSQL_CALL mysql_sqlstate(KwMySqlHandle* handle) {
    return handle->refused ? "28000" : "00000";
}
