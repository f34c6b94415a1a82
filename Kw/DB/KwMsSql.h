// CMTMSSQL: the SQL Server back end of KwSQL, over the ODBC driver that is registered as "SQL Server".
//
// The server is put into the connection string as it is written, so driver keys may follow it: "10.0.0.7;PORT=1433". An
// empty account selects the trusted form of connection. An account, password or database with characters that mean
// something in a connection string is put into braces.
// Built with KW_WITH_ODBC=OFF, Connect fails and says so.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kw/DB/KwSQL.h"

class KW_API CMTMSSQL : public KwSQL {
public:
    CMTMSSQL();
    ~CMTMSSQL() override;

protected:
    bool OnOpen(const KwSQLSettings& settings) override;
    void OnClose() override;
    bool OnPrepare(const std::string& text) override;
    bool OnExecute(const std::string& text, const std::vector<KwSQLParam>& params) override;
    bool OnFetch() override;
    bool OnNextResult() override;
    bool OnTransaction(Transaction step) override;
    void OnEnd(bool statement) override;
    void OnLog(Stage stage, const char* state, const char* message) override;

private:
    struct Handles;

    bool FailDriver(Stage stage, bool connecting = false);
    bool BindAll(const std::vector<KwSQLParam>& params);
    bool Send(int& result);
    bool DescribeResult();
    bool ReadInto(int column, int type, std::string& out, bool& isNull);

    std::unique_ptr<Handles> handles_;
};
