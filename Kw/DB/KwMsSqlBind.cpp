// CMTMSSQL: parameters on their way to the driver.
#include "Kw/DB/KwMsSql.h"

#if defined(KW_WITH_ODBC)

#include <algorithm>

#include "Kw/DB/KwMsSqlHandles.h"
#include "Kw/DB/KwSQLText.h"

namespace {

constexpr std::size_t kPiece = 64 * 1024;  // bytes a SQLPutData
constexpr std::size_t kLargest = 4000;     // characters of the types that are not LONG
constexpr std::size_t kLargestBinary = 8000;

// The type that a parameter has at the server, for a value that tells none.
SQLSMALLINT TypeOf(SQLHSTMT statement, SQLUSMALLINT index) {
    SQLSMALLINT type = 0, digits = 0, nullable = 0;
    SQLULEN size = 0;
    const bool known = KwOdbcDone(SQLDescribeParam(statement, index, &type, &size, &digits, &nullable));
    return known && type != SQL_UNKNOWN_TYPE ? type : static_cast<SQLSMALLINT>(SQL_VARCHAR);
}

}  // namespace

bool CMTMSSQL::BindAll(const std::vector<KwSQLParam>& params) {
    Handles& h = *handles_;
    SQLSMALLINT wanted = 0;
    if (KwOdbcDone(SQLNumParams(h.statement, &wanted)) && static_cast<std::size_t>(wanted) != params.size()) {
        return Fail(Stage::kPrepare, "07002", 0,
                    "the statement has " + std::to_string(wanted) + " parameters, " + std::to_string(params.size()) +
                        " are bound");
    }
    SQLFreeStmt(h.statement, SQL_RESET_PARAMS);
    h.bound.clear();
    h.bound.resize(params.size());
    for (std::size_t i = 0; i < params.size(); ++i) {
        const KwSQLParam& param = params[i];
        Handles::Bound& bound = h.bound[i];
        const auto index = static_cast<SQLUSMALLINT>(i + 1);
        const auto bind = [&](SQLSMALLINT from, SQLSMALLINT to, std::size_t size, const void* data, std::size_t bytes) {
            return KwOdbcDone(SQLBindParameter(h.statement, index, SQL_PARAM_INPUT, from, to,
                                               static_cast<SQLULEN>(std::max<std::size_t>(size, 1)), 0,
                                               KwOdbcPointer(data), static_cast<SQLLEN>(bytes), &bound.indicator));
        };
        bool done = false;
        switch (param.kind) {
            case KwSQLParam::Kind::kInteger:
                bound.number = static_cast<SQLINTEGER>(param.integer);
                // The narrower type where it does: some servers take no 64-bit number for a 32-bit argument.
                done = bound.number == param.integer ? bind(SQL_C_SLONG, SQL_INTEGER, 10, &bound.number, 0)
                                                     : bind(SQL_C_SBIGINT, SQL_BIGINT, 19, &param.integer, 0);
                break;
            case KwSQLParam::Kind::kDouble: done = bind(SQL_C_DOUBLE, SQL_DOUBLE, 15, &param.number, 0); break;
            case KwSQLParam::Kind::kText:
                if (!h.wide || KwSQLText::IsAscii(param.bytes)) {
                    const std::size_t size = param.bytes.size();
                    bound.indicator = static_cast<SQLLEN>(size);
                    done = bind(SQL_C_CHAR, size > kLargest ? SQL_LONGVARCHAR : SQL_VARCHAR, size, param.bytes.data(),
                                size);
                } else {
                    bound.wide = KwSQLText::Wide(param.bytes);
                    const std::size_t size = bound.wide.size();
                    bound.indicator = static_cast<SQLLEN>(size * sizeof(KwWChar));
                    done = bind(SQL_C_WCHAR, size > kLargest ? SQL_WLONGVARCHAR : SQL_WVARCHAR, size, bound.wide.data(),
                                size * sizeof(KwWChar));
                }
                break;
            case KwSQLParam::Kind::kBlob: {
                const std::size_t size = param.bytes.size();
                if (size > kLargestBinary) {
                    // Sent in pieces by Send, which gets the address back.
                    bound.indicator = SQL_LEN_DATA_AT_EXEC(static_cast<SQLLEN>(size));
                    done = bind(SQL_C_BINARY, SQL_LONGVARBINARY, size, &param, 0);
                } else {
                    bound.indicator = static_cast<SQLLEN>(size);
                    done = bind(SQL_C_BINARY, SQL_VARBINARY, size, param.bytes.data(), size);
                }
                break;
            }
            default:
                bound.indicator = SQL_NULL_DATA;
                done = bind(SQL_C_CHAR, TypeOf(h.statement, index), 1, "", 0);
                break;
        }
        if (!done) return FailDriver(Stage::kPrepare);
    }
    return true;
}

// Gives the driver the large blobs that it asks for. `result` is that of the execution in the end.
bool CMTMSSQL::Send(int& result) {
    Handles& h = *handles_;
    for (;;) {
        SQLPOINTER token = nullptr;
        const SQLRETURN asked = SQLParamData(h.statement, &token);
        result = asked;
        if (asked != SQL_NEED_DATA) return true;
        const std::string& bytes = static_cast<const KwSQLParam*>(token)->bytes;
        for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
            const std::size_t count = std::min(kPiece, bytes.size() - at);
            if (!KwOdbcDone(SQLPutData(h.statement, KwOdbcPointer(bytes.data() + at), static_cast<SQLLEN>(count)))) {
                FailDriver(Stage::kRun);
                SQLCancel(h.statement);
                return false;
            }
        }
    }
}

#endif
