// The SQL Server back end of a build without ODBC.
#include "Kw/DB/KwMsSql.h"

#if !defined(KW_WITH_ODBC)

#include "Kw/Helper/KwLogSystem.h"

struct CMTMSSQL::Handles {};

CMTMSSQL::CMTMSSQL() = default;
CMTMSSQL::~CMTMSSQL() = default;

bool CMTMSSQL::OnOpen(const KwSQLSettings&) {
    return Fail(Stage::kPrepare, "IM002", 0, "this library was built without ODBC (KW_WITH_ODBC)");
}

void CMTMSSQL::OnClose() {}
bool CMTMSSQL::OnPrepare(const std::string&) {
    return false;
}
bool CMTMSSQL::OnExecute(const std::string&, const std::vector<KwSQLParam>&) {
    return false;
}
bool CMTMSSQL::OnFetch() {
    return false;
}
bool CMTMSSQL::OnNextResult() {
    return false;
}
bool CMTMSSQL::OnTransaction(Transaction) {
    return false;
}
void CMTMSSQL::OnEnd(bool) {}
void CMTMSSQL::OnLog(Stage stage, const char* state, const char* message) {
    KwSQL::OnLog(stage, state, message);
}

#endif
