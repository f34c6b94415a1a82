// CMTMYSQL: the MySQL back end of KwSQL, over a client library that is found at run time (see CMySqlLib).
//
// The server is "host", "host:port", "[::1]:port" or, where there are sockets in the file system, a path that begins
// with "/". Statements and texts travel as utf8mb4: servers refuse "utf16" as a connection's character set.
// Parameters are written into the statement by the client's own escaping. `?` in quotes and comments is text. Several
// statements in one text are taken.
#pragma once

#include <memory>

#include "Kw/DB/KwMySqlLib.h"
#include "Kw/DB/KwSQL.h"

struct KwMySqlHandle;
struct KwMySqlResult;
struct KwMySqlField;

class KW_API CMTMYSQL : public KwSQL {
public:
    CMTMYSQL();
    ~CMTMYSQL() override;

    void OnThread(bool begin) override;

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
    bool FailServer(Stage stage);
    bool Query(const std::string& text);
    bool TakeResult();
    bool Assemble(const std::vector<KwSQLParam>& params, std::string& out);
    void AppendText(std::string& out, const std::string& value);
    void FreeResult();

    CMySqlLib lib_;
    KwMySqlHandle* handle_ = nullptr;
    KwMySqlResult* result_ = nullptr;
    KwMySqlField* fields_ = nullptr;  // of the result
    bool more_ = false;               // the statement may have further results
    // The prepared statement: the pieces between its parameters.
    std::vector<std::string> pieces_;
};

// A MySQL back end with one reference for the caller; null when memory is out.
KW_API KwSQL* g_CreateMySql();
