// KwSQL: one connection to a database: statements with parameters, result rows, transactions.
//
//     sql->Prepare("INSERT INTO item (id, name) VALUES (?, ?)");
//     sql->BindInt(1, 7);
//     sql->BindText(2, "sword");
//     if (!sql->Execute()) Complain(sql->GetError().message);
//
//     if (sql->Execute("SELECT id, name FROM item")) {
//         while (sql->Fetch()) Use(sql->GetInt("id", 0), sql->GetString("name", nullptr, ""));
//     }
// Parameters and columns count from 1. Narrow text is UTF-8 everywhere, wide text UTF-16; neither loses characters.
// Failure is false, with the reason in GetError until the next operation; the log gets the back end's numbered
// message and the driver's state and text, never statements, values or passwords. A connection that breaks is reported
// once; every further operation fails with `lost` set until Reconnect succeeds.
// Thread-safety: none; used by one thread at a time.
#pragma once

#include <memory>
#include <vector>

#include "Kw/DB/KwSQLTypes.h"
#include "Kw/KwInf.h"

class KW_API KwSQL : public KwInfLock {
public:
    KwSQL();
    KwSQL(const KwSQL&) = delete;
    KwSQL& operator=(const KwSQL&) = delete;
    // A back end calls Disconnect in its own destructor.
    ~KwSQL() override;

    // Opens the connection. Each value that begins with "@" is Base64 text behind the "@" and is decoded first; null
    // counts as empty. Blocks for the connect time-out at most. The settings are kept for Reconnect.
    virtual bool Connect(const char* server, const char* account, const char* password, const char* database);
    // Takes the same settings without connecting, which Reconnect then does. False, with one line logged, for what is
    // no Base64.
    bool SetTarget(const char* server, const char* account, const char* password, const char* database);
    // Closes the connection; an open transaction is rolled back. Nothing when there is none.
    virtual void Disconnect();

    // Opens the connection of the last Connect or SetTarget; one line is logged when that succeeds, and one for the
    // first failure of a connection that has not stood yet.
    bool Reconnect();
    bool IsOpen() const;
    // How often the connection was opened; what a session has of its own, such as temporary tables, is new each time.
    unsigned int GetOpenCount() const;
    // The connection was open and broke.
    bool IsLost() const;
    // Asks the server, unless it answered within the last `freshMs` milliseconds. False when the connection is lost.
    bool Check(unsigned int freshMs);
    // Before Connect. Seconds that connecting (5 unless set) and one statement (300 unless set; 0 for no limit) may
    // take; a statement beyond it fails, and the connection may be lost with it.
    void SetTimeouts(unsigned int connectSeconds, unsigned int querySeconds);

    // A statement with a `?` for each parameter. `length` is in characters, to the terminator when negative. Drops
    // what was bound and the rows of the last statement.
    bool Prepare(const char* text, int length = -1);
    bool Prepare(const KwWChar* text, int length = -1);

    // Bind one parameter; the value is copied and stays for further Executes. A fault (index outside 1 to 65,535) is
    // reported by Execute. Null text and null blobs are NULL.
    void BindInt(int index, std::int64_t value);
    void BindDouble(int index, double value);
    void BindText(int index, const char* text, int length = -1);
    void BindText(int index, const KwWChar* text, int length = -1);
    void BindBlob(int index, const void* data, std::size_t size);
    void BindNull(int index);

    // Runs the prepared statement; every parameter must be bound. Afterwards the first result is current.
    bool Execute();
    // Runs a statement without parameters, or several (`;` between them) where the server takes them.
    bool Execute(const char* text, int length = -1);
    bool Execute(const KwWChar* text, int length = -1);

    // The current result: the columns, 0 of them for a statement that gives no rows.
    int GetColumnCount() const;
    // Null outside 1 to GetColumnCount.
    const char* GetColumnName(int column) const;
    // The first column of that name, without regard to the case of ASCII letters; 0 when there is none.
    int FindColumn(const char* name) const;
    // Rows that the statement changed; -1 when that is not known. For a result with rows it means nothing.
    std::int64_t GetAffectedRows() const;

    // Moves to the next row. False behind the last one (GetError's state is empty then) and on failure.
    bool Fetch();
    // Moves to the next result of the statement, whatever is left of this one. False as for Fetch.
    bool NextResult();

    // A value of the current row; `def` for NULL, for a column that does not exist and for what does not convert.
    // Numbers are read from text, too; a number with a fraction is truncated to an integer.
    bool IsNull(int column) const;
    int GetInt(int column, int def) const;
    std::int64_t GetInt64(int column, std::int64_t def) const;
    double GetDouble(int column, double def) const;
    // Text, numbers as text; terminated, valid until the next Fetch, with its length through `length` unless null.
    const char* GetString(int column, int* length, const char* def);
    const KwWChar* GetWString(int column, int* length, const KwWChar* def);
    // The bytes of a blob or text, valid until the next Fetch; null for NULL and for numbers.
    const void* GetBlob(int column, std::size_t* size) const;
    bool IsNull(const char* name) const { return IsNull(FindColumn(name)); }
    int GetInt(const char* name, int def) const { return GetInt(FindColumn(name), def); }
    std::int64_t GetInt64(const char* name, std::int64_t def) const { return GetInt64(FindColumn(name), def); }
    double GetDouble(const char* name, double def) const { return GetDouble(FindColumn(name), def); }
    const char* GetString(const char* name, int* length, const char* def) {
        return GetString(FindColumn(name), length, def);
    }
    const KwWChar* GetWString(const char* name, int* length, const KwWChar* def) {
        return GetWString(FindColumn(name), length, def);
    }
    const void* GetBlob(const char* name, std::size_t* size) const { return GetBlob(FindColumn(name), size); }

    // A transaction; without one each statement is committed by itself. Begin inside a transaction fails. When the
    // connection breaks the server rolls back; a Commit that fails with `lost` may have taken effect.
    bool Begin();
    bool Commit();
    bool Rollback();
    bool IsInTransaction() const;

    // Drops rows, statement and parameters, and rolls back a transaction that was left open. What the service does
    // behind each query.
    void EndStatement();

    const KwSQLError& GetError() const;

    // The calling thread begins or ends its use of the connection.
    virtual void OnThread(bool begin);

protected:
    enum class Stage { kPrepare, kRun, kResult, kRead };
    enum class Transaction { kBegin, kCommit, kRollback };

    // What a back end does; each returns false after Fail. OnOpen releases everything when it fails.
    virtual bool OnOpen(const KwSQLSettings& settings) = 0;
    virtual void OnClose() = 0;
    // Behind each successful connect and reconnect.
    virtual void OnConnected();
    virtual bool OnPrepare(const std::string& text) = 0;
    // Runs `text` (empty: the prepared statement with `params`) and, where it gives rows, sets the columns.
    virtual bool OnExecute(const std::string& text, const std::vector<KwSQLParam>& params) = 0;
    // Sets the cells of the next row. False without Fail behind the last one.
    virtual bool OnFetch() = 0;
    virtual bool OnNextResult() = 0;
    virtual bool OnTransaction(Transaction step) = 0;
    // Drops rows, the prepared statement too if asked.
    virtual void OnEnd(bool statement) = 0;
    // The server answers.
    virtual bool OnPing();
    // Logs one failure of a statement; `state` and `message` hold no quoted text and no password.
    virtual void OnLog(Stage stage, const char* state, const char* message);

    // For the operations above.
    bool Fail(Stage stage, const char* state, int code, const std::string& message, bool lost = false);
    void SetColumns(std::vector<std::string> names);
    void SetAffectedRows(std::int64_t rows);
    KwSQLCell& Cell(std::size_t index);  // from 0

private:
    struct State;

    bool Open();
    bool LogRefusal();
    bool Ready(bool keepRows);
    bool Run(const std::string& text);
    bool Transact(Transaction step);
    KwSQLParam* Param(int index);
    const KwSQLCell* Column(int column) const;

    std::unique_ptr<State> state_;
};
