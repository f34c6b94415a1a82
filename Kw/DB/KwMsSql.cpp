#include "Kw/DB/KwMsSql.h"

#if defined(KW_WITH_ODBC)

#include <cstring>

#include "Kw/DB/KwMsSqlHandles.h"
#include "Kw/DB/KwMsSqlText.h"
#include "Kw/DB/KwSQLText.h"
#include "Kw/Helper/KwLogSystem.h"

namespace {

// Whether text outside of the first 256 characters passes through to the driver and back.
bool TakesWide(SQLHDBC connection) {
    KwWString text = KW_W("SELECT '\u1EC7 \U0001F600'");
    SQLWCHAR back[64] = {};
    SQLINTEGER length = 0;
    const SQLRETURN result =
        SQLNativeSqlW(connection, KwOdbcWide(text), static_cast<SQLINTEGER>(text.size()), back, 64, &length);
    return !KwOdbcDone(result) || std::memcmp(back, text.data(), text.size() * sizeof(KwWChar)) == 0;
}

}  // namespace

CMTMSSQL::CMTMSSQL() : handles_(std::make_unique<Handles>()) {}

CMTMSSQL::~CMTMSSQL() {
    Disconnect();
}

bool CMTMSSQL::OnOpen(const KwSQLSettings& settings) {
    Handles& h = *handles_;
    if (!KwOdbcDone(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &h.environment))) {
        h.environment = SQL_NULL_HENV;
        return Fail(Stage::kPrepare, "HY000", 0, "ODBC gives no environment");
    }
    SQLSetEnvAttr(h.environment, SQL_ATTR_ODBC_VERSION, KwOdbcNumber(SQL_OV_ODBC3), 0);
    if (!KwOdbcDone(SQLAllocHandle(SQL_HANDLE_DBC, h.environment, &h.connection))) {
        h.connection = SQL_NULL_HDBC;
        OnClose();
        return Fail(Stage::kPrepare, "HY000", 0, "ODBC gives no connection handle");
    }
    SQLSetConnectAttr(h.connection, SQL_ATTR_LOGIN_TIMEOUT, KwOdbcNumber(settings.connectSeconds), 0);
    // Few drivers have it; where the server is silent it ends what the statement's own limit does not.
    if (settings.querySeconds != 0) {
        SQLSetConnectAttr(h.connection, SQL_ATTR_CONNECTION_TIMEOUT, KwOdbcNumber(settings.querySeconds), 0);
    }
    // The default of the connection's statements, and for drivers that know no such default again below.
    SQLSetConnectAttr(h.connection, SQL_ATTR_CURSOR_TYPE, KwOdbcNumber(SQL_CURSOR_STATIC), 0);

    // Wide, so that driver managers pass wide statements and values on to the driver as they are.
    KwWString text = KwSQLText::Wide(KwMsSqlText::ConnectionString(settings));
    SQLWCHAR out[1024 / sizeof(SQLWCHAR)];
    SQLSMALLINT length = 0;
    const SQLRETURN result = SQLDriverConnectW(h.connection, nullptr, KwOdbcWide(text), SQL_NTS, out,
                                               1024 / sizeof(SQLWCHAR), &length, SQL_DRIVER_NOPROMPT);
    const bool connected = KwOdbcDone(result);
    const bool ready = connected && KwOdbcDone(SQLAllocHandle(SQL_HANDLE_STMT, h.connection, &h.statement));
    if (!ready) {
        FailDriver(Stage::kPrepare, true);
        OnClose();
        return false;
    }
    h.wide = TakesWide(h.connection);
    SQLSetStmtAttr(h.statement, SQL_ATTR_CURSOR_TYPE, KwOdbcNumber(SQL_CURSOR_STATIC), 0);
    if (settings.querySeconds != 0) {
        SQLSetStmtAttr(h.statement, SQL_ATTR_QUERY_TIMEOUT, KwOdbcNumber(settings.querySeconds), 0);
    }
    return true;
}

void CMTMSSQL::OnClose() {
    Handles& h = *handles_;
    if (h.statement != SQL_NULL_HSTMT) SQLFreeHandle(SQL_HANDLE_STMT, h.statement);
    if (h.connection != SQL_NULL_HDBC) {
        // Refused inside a transaction, which breaks leave behind; and for one that never was connected.
        if (!KwOdbcDone(SQLDisconnect(h.connection))) {
            SQLEndTran(SQL_HANDLE_DBC, h.connection, SQL_ROLLBACK);
            SQLDisconnect(h.connection);
        }
        SQLFreeHandle(SQL_HANDLE_DBC, h.connection);
    }
    if (h.environment != SQL_NULL_HENV) SQLFreeHandle(SQL_HANDLE_ENV, h.environment);
    h = {};
}

bool CMTMSSQL::FailDriver(Stage stage, bool connecting) {
    Handles& h = *handles_;
    const bool ofStatement = h.statement != SQL_NULL_HSTMT;
    SQLCHAR state[8] = "HY000";
    SQLINTEGER code = 0;
    std::string text;
    bool lost = false;
    for (SQLSMALLINT i = 1; i <= 4; ++i) {
        SQLCHAR nextState[8] = "", message[1024] = "";
        SQLINTEGER nextCode = 0;
        SQLSMALLINT length = 0;
        const SQLRETURN result =
            SQLGetDiagRec(ofStatement ? SQL_HANDLE_STMT : SQL_HANDLE_DBC, ofStatement ? h.statement : h.connection, i,
                          nextState, &nextCode, message, sizeof(message), &length);
        if (!KwOdbcDone(result)) break;
        const char* const named = reinterpret_cast<const char*>(nextState);
        if (i == 1) {
            std::memcpy(state, nextState, sizeof(state));
            code = nextCode;
        }
        // Connection exceptions; a shutdown by the operator (57P01 and its like); lost and gone, by the numbers of
        // servers whose drivers give a general state.
        lost = lost || std::strncmp(named, "08", 2) == 0 || std::strncmp(named, "57P0", 4) == 0 ||
               std::strcmp(named, "HYT01") == 0 || nextCode == 2006 || nextCode == 2013;
        text += (text.empty() ? "" : "; ") + std::string(reinterpret_cast<const char*>(message));
    }
    if (text.empty()) text = "the driver tells no reason";
    if (!connecting && !lost) {
        SQLUINTEGER dead = SQL_CD_FALSE;
        lost = KwOdbcDone(SQLGetConnectAttr(h.connection, SQL_ATTR_CONNECTION_DEAD, &dead, SQL_IS_UINTEGER, nullptr)) &&
               dead == SQL_CD_TRUE;
    }
    return Fail(stage, reinterpret_cast<const char*>(state), code, text, lost && !connecting);
}

void CMTMSSQL::OnLog(Stage stage, const char* state, const char* message) {
    if (stage == Stage::kPrepare) KwLogSystem::Push("error query sql 1");
    if (stage == Stage::kResult || stage == Stage::kRead) KwLogSystem::Push("error query sql 3");
    KwLogSystem::Push("error query sql 2=%s\t%s", state, message);
}

bool CMTMSSQL::OnPrepare(const std::string& text) {
    if (text.empty()) return Fail(Stage::kPrepare, "42000", 0, "the statement is empty");
    Handles& h = *handles_;
    SQLRETURN result;
    if (!h.wide || KwSQLText::IsAscii(text)) {
        result = SQLPrepare(h.statement, KwOdbcNarrow(text), static_cast<SQLINTEGER>(text.size()));
    } else {
        KwWString wide = KwSQLText::Wide(text);
        result = SQLPrepareW(h.statement, KwOdbcWide(wide), static_cast<SQLINTEGER>(wide.size()));
    }
    return KwOdbcDone(result) || FailDriver(Stage::kPrepare);
}

bool CMTMSSQL::OnExecute(const std::string& text, const std::vector<KwSQLParam>& params) {
    Handles& h = *handles_;
    SQLRETURN result;
    if (!text.empty()) {
        if (!h.wide || KwSQLText::IsAscii(text)) {
            result = SQLExecDirect(h.statement, KwOdbcNarrow(text), static_cast<SQLINTEGER>(text.size()));
        } else {
            KwWString wide = KwSQLText::Wide(text);
            result = SQLExecDirectW(h.statement, KwOdbcWide(wide), static_cast<SQLINTEGER>(wide.size()));
        }
    } else {
        if (!BindAll(params)) return false;
        result = SQLExecute(h.statement);
        int sent = result;
        if (result == SQL_NEED_DATA && !Send(sent)) return false;
        result = static_cast<SQLRETURN>(sent);
    }
    // A statement that changed no row.
    if (result == SQL_NO_DATA) {
        SetAffectedRows(0);
        return true;
    }
    return KwOdbcDone(result) ? DescribeResult() : FailDriver(Stage::kRun);
}

bool CMTMSSQL::DescribeResult() {
    Handles& h = *handles_;
    SQLSMALLINT count = 0;
    if (!KwOdbcDone(SQLNumResultCols(h.statement, &count))) return FailDriver(Stage::kResult);
    SQLLEN rows = -1;
    if (!KwOdbcDone(SQLRowCount(h.statement, &rows))) rows = -1;
    std::vector<std::string> names;
    h.columns.resize(static_cast<std::size_t>(count));
    for (SQLSMALLINT i = 0; i < count; ++i) {
        SQLWCHAR name[256] = {};
        SQLSMALLINT length = 0, type = 0, digits = 0, nullable = 0;
        SQLULEN size = 0;
        const auto at = static_cast<SQLUSMALLINT>(i + 1);
        if (!KwOdbcDone(SQLDescribeColW(h.statement, at, name, 256, &length, &type, &size, &digits, &nullable))) {
            return FailDriver(Stage::kResult);
        }
        names.push_back(KwSQLText::Narrow(reinterpret_cast<const KwWChar*>(name), length < 255 ? length : 255));
        SQLSMALLINT& target = h.columns[static_cast<std::size_t>(i)].target;
        target = h.wide ? SQL_C_WCHAR : SQL_C_CHAR;
        SQLLEN isUnsigned = SQL_FALSE;
        switch (type) {
            case SQL_BIT:
            case SQL_TINYINT:
            case SQL_SMALLINT:
            case SQL_INTEGER: target = SQL_C_SBIGINT; break;
            case SQL_BIGINT:
                // The upper half of the unsigned ones comes as text.
                SQLColAttribute(h.statement, at, SQL_DESC_UNSIGNED, nullptr, 0, nullptr, &isUnsigned);
                if (isUnsigned != SQL_TRUE) target = SQL_C_SBIGINT;
                break;
            case SQL_REAL:
            case SQL_FLOAT:
            case SQL_DOUBLE: target = SQL_C_DOUBLE; break;
            case SQL_BINARY:
            case SQL_VARBINARY:
            case SQL_LONGVARBINARY: target = SQL_C_BINARY; break;
            default: break;
        }
    }
    SetColumns(std::move(names));
    SetAffectedRows(count == 0 ? static_cast<std::int64_t>(rows) : -1);
    return true;
}

bool CMTMSSQL::OnFetch() {
    Handles& h = *handles_;
    const SQLRETURN result = SQLFetch(h.statement);
    if (result == SQL_NO_DATA) return false;
    if (!KwOdbcDone(result)) return FailDriver(Stage::kRead);
    // In the order of the columns: not every driver gives them in another one.
    for (std::size_t i = 0; i < h.columns.size(); ++i) {
        Handles::Column& column = h.columns[i];
        KwSQLCell& cell = Cell(i);
        const auto at = static_cast<SQLUSMALLINT>(i + 1);
        bool isNull = false;
        if (column.target == SQL_C_SBIGINT || column.target == SQL_C_DOUBLE) {
            const bool integer = column.target == SQL_C_SBIGINT;
            SQLLEN indicator = 0;
            void* const to = integer ? static_cast<void*>(&cell.integer) : static_cast<void*>(&cell.number);
            if (!KwOdbcDone(SQLGetData(h.statement, at, column.target, to, 8, &indicator))) {
                return FailDriver(Stage::kRead);
            }
            isNull = indicator == SQL_NULL_DATA;
            cell.kind = integer ? KwSQLCell::Kind::kInteger : KwSQLCell::Kind::kDouble;
        } else {
            if (!ReadInto(at, column.target, column.bytes, isNull)) return false;
            cell.kind = KwSQLCell::Kind::kBytes;
            cell.bytes = column.bytes;
        }
        if (isNull) cell.kind = KwSQLCell::Kind::kNull;
    }
    return true;
}

// Reads a text or blob of any length, in pieces.
bool CMTMSSQL::ReadInto(int column, int type, std::string& out, bool& isNull) {
    Handles& h = *handles_;
    const bool wide = type == SQL_C_WCHAR;
    const std::size_t terminator = wide ? sizeof(SQLWCHAR) : type == SQL_C_CHAR ? 1 : 0;
    std::size_t filled = 0;
    if (h.piece.size() < 4096) h.piece.resize(4096);
    for (;;) {
        const std::size_t room = h.piece.size() - filled;
        SQLLEN indicator = 0;
        const SQLRETURN result =
            SQLGetData(h.statement, static_cast<SQLUSMALLINT>(column), static_cast<SQLSMALLINT>(type),
                       h.piece.data() + filled, static_cast<SQLLEN>(room), &indicator);
        if (result == SQL_NO_DATA) break;
        if (!KwOdbcDone(result)) return FailDriver(Stage::kRead);
        isNull = indicator == SQL_NULL_DATA;
        if (isNull) return true;
        const bool whole = indicator != SQL_NO_TOTAL && static_cast<std::size_t>(indicator) <= room - terminator;
        if (whole) {
            filled += static_cast<std::size_t>(indicator);
            break;
        }
        filled += room - terminator;
        const std::size_t rest = indicator == SQL_NO_TOTAL
                                     ? h.piece.size()
                                     : static_cast<std::size_t>(indicator) - (room - terminator) + sizeof(SQLWCHAR);
        h.piece.resize(filled + (rest > 4096 ? rest : 4096));
    }
    if (wide) {
        // The pieces are bytes at the start of an allocation, aligned for anything.
        out = KwSQLText::Narrow(static_cast<const KwWChar*>(static_cast<const void*>(h.piece.data())),
                                static_cast<int>(filled / sizeof(KwWChar)));
    } else {
        out.assign(h.piece.data(), filled);
    }
    return true;
}

bool CMTMSSQL::OnNextResult() {
    Handles& h = *handles_;
    const SQLRETURN result = SQLMoreResults(h.statement);
    if (result == SQL_NO_DATA) return false;
    return KwOdbcDone(result) ? DescribeResult() : FailDriver(Stage::kResult);
}

bool CMTMSSQL::OnTransaction(Transaction step) {
    Handles& h = *handles_;
    const auto commitEach = [&h](bool on) {
        return KwOdbcDone(SQLSetConnectAttr(h.connection, SQL_ATTR_AUTOCOMMIT,
                                            KwOdbcNumber(on ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF), 0));
    };
    bool done = true;
    if (step == Transaction::kBegin) {
        done = commitEach(false);
    } else {
        done = KwOdbcDone(
            SQLEndTran(SQL_HANDLE_DBC, h.connection, step == Transaction::kCommit ? SQL_COMMIT : SQL_ROLLBACK));
        done = done && commitEach(true);
    }
    if (done) return true;
    // The diagnostics are the connection's, not the statement's.
    SQLHSTMT const statement = h.statement;
    h.statement = SQL_NULL_HSTMT;
    FailDriver(Stage::kRun);
    h.statement = statement;
    return false;
}

void CMTMSSQL::OnEnd(bool statement) {
    Handles& h = *handles_;
    SQLFreeStmt(h.statement, SQL_CLOSE);
    if (statement) SQLFreeStmt(h.statement, SQL_RESET_PARAMS);
    h.columns.clear();
    // A blob of megabytes must not stay for good.
    if (h.piece.size() > 65536) h.piece = {};
}

#endif
