// Both back ends against real databases; tests/Sql/run starts them and says in the environment where they are:
// KW_TEST_MYSQL and KW_TEST_ODBC are "address|account|password|database", KW_TEST_ODBC_KIND names the driver, and
// KW_TEST_MYSQL_SERVER is the command that ends and starts the server ("%" stands for the action).
#include <cstdlib>
#include <limits>
#include <memory>
#include <thread>

#include "Kw/DB/KwMsSql.h"
#include "Kw/DB/KwMySql.h"
#include "KwSQLFixture.h"
#include "KwTestSupport.h"

namespace {

std::string Variable(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    return value != nullptr ? value : "";
}

class KwSQLServerTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        name = std::string(GetParam()) == "Mysql" ? "KW_TEST_MYSQL" : "KW_TEST_ODBC";
        kind = mysql() ? "mysql" : Variable("KW_TEST_ODBC_KIND");
        std::string text = Variable(name);
        if (text.empty()) GTEST_SKIP() << "skipped: " << name << " is not set";
        for (std::string& part : parts) {
            const std::size_t bar = text.find('|');
            part = text.substr(0, bar);
            text = bar == std::string::npos ? "" : text.substr(bar + 1);
        }
        sql.reset(Make());
        LogLines log;
        const bool connected = Connect(*sql);
        if (sql->GetError().message.find("without ODBC") != std::string::npos) {
            EXPECT_NE(log.TakeAll().find("sql connect: IM002\t"), std::string::npos);
            GTEST_SKIP() << "skipped: " << sql->GetError().message;
        }
        ASSERT_TRUE(connected) << sql->GetError().message;
    }
    bool mysql() const { return name == "KW_TEST_MYSQL"; }
    KwSQL* Make() const { return mysql() ? g_CreateMySql() : new CMTMSSQL; }
    bool Connect(KwSQL& to) const {
        return to.Connect(parts[0].c_str(), parts[1].c_str(), parts[2].c_str(), parts[3].c_str());
    }
    bool Server(const char* action) const {
        std::string command = Variable(name + "_SERVER"), out;
        const std::size_t at = command.find('%');
        if (at == std::string::npos) return false;
        command.replace(at, 1, action);
        return RunProgram(command, ">/dev/null", true, out) == 0;
    }
    bool HasServer() const { return !Variable(name + "_SERVER").empty(); }
    void Table(const char* columns) {
        LogLines quiet;
        sql->Execute("DROP TABLE kw_t");
        ASSERT_TRUE(sql->Execute((std::string("CREATE TABLE kw_t (") + columns + ")").c_str()))
            << sql->GetError().message;
    }
    std::string Value(const char* statement) {
        if (!sql->Execute(statement) || !sql->Fetch()) return "none: " + sql->GetError().message;
        return sql->GetString(1, nullptr, "NULL");
    }
    const char* BlobType() const { return kind == "postgres" ? "bytea" : kind == "sqlite" ? "BLOB" : "LONGBLOB"; }

    std::string name, kind, parts[4];
    struct Release {
        void operator()(KwSQL* to) const { to->Release(); }
    };
    std::unique_ptr<KwSQL, Release> sql;
};

TEST_P(KwSQLServerTest, EveryTypeComesBackAsItWent) {
    const std::string text = "Ti\xE1\xBA\xBFng Vi\xE1\xBB\x87t \xF0\x9F\x98\x80 'quoted' \\ ? \"";
    const KwWString wide = KW_W("Ti\u1EBFng Vi\u1EC7t \U0001F600 'quoted' \\ ? \"");
    std::string blob(3 << 20, '\0');
    for (std::size_t i = 0; i < blob.size(); ++i) blob[i] = static_cast<char>(i * 31 >> 3);
    const std::string large(100000, 'x');
    Table((std::string("id BIGINT, amount DOUBLE PRECISION, narrow VARCHAR(80), wide VARCHAR(80), large ") +
           (kind == "mysql" || kind == "mariadb" ? "LONGTEXT" : "TEXT") + ", data " + BlobType())
              .c_str());
    ASSERT_TRUE(sql->Prepare("INSERT INTO kw_t (id, amount, narrow, wide, large, data) VALUES (?, ?, ?, ?, ?, ?)"))
        << sql->GetError().message;
    sql->BindInt(1, std::numeric_limits<std::int64_t>::max());
    sql->BindDouble(2, 0.1);
    sql->BindText(3, text.c_str());
    sql->BindText(4, wide.c_str());
    sql->BindText(5, large.c_str());
    sql->BindBlob(6, blob.data(), blob.size());
    ASSERT_TRUE(sql->Execute()) << sql->GetError().message;
    EXPECT_EQ(sql->GetAffectedRows(), 1);
    sql->BindInt(1, -5);
    sql->BindDouble(2, -1e300);
    sql->BindText(3, "");
    for (int i = 4; i <= 6; ++i) sql->BindNull(i);
    ASSERT_TRUE(sql->Execute()) << sql->GetError().message;

    ASSERT_TRUE(sql->Execute("SELECT id, amount, narrow, wide, large, data FROM kw_t ORDER BY id DESC"));
    EXPECT_EQ(sql->GetColumnCount(), 6);
    EXPECT_STREQ(sql->GetColumnName(6), "data");
    ASSERT_TRUE(sql->Fetch()) << sql->GetError().message;
    EXPECT_EQ(sql->GetInt64("id", 0), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(sql->GetDouble("amount", 0), 0.1);
    for (const char* column : {"narrow", "WIDE"}) {
        EXPECT_EQ(sql->GetString(column, nullptr, ""), text);
        EXPECT_EQ(KwWString(sql->GetWString(column, nullptr, KW_W(""))), wide);
    }
    EXPECT_EQ(sql->GetString("large", nullptr, ""), large);
    std::size_t size = 0;
    const void* const data = sql->GetBlob("data", &size);
    EXPECT_TRUE(std::string(static_cast<const char*>(data), size) == blob) << size;
    ASSERT_TRUE(sql->Fetch());
    EXPECT_EQ(sql->GetInt(1, 0), -5);
    EXPECT_EQ(sql->GetDouble(2, 0), -1e300);
    EXPECT_FALSE(sql->IsNull(3));
    EXPECT_EQ(sql->IsNull(4) + sql->IsNull(5) + sql->IsNull(6), 3);
    EXPECT_FALSE(sql->Fetch());
    EXPECT_EQ(sql->GetError().message, "");

    // Text in the statement itself, both ways.
    EXPECT_EQ(Value("SELECT narrow FROM kw_t WHERE narrow LIKE '%Vi\xE1\xBB\x87t \xF0\x9F\x98\x80%'"), text);
    ASSERT_TRUE(sql->Execute(KW_W("SELECT COUNT(*) FROM kw_t WHERE wide LIKE '%\u1EC7t \U0001F600%'")));
    ASSERT_TRUE(sql->Fetch());
    EXPECT_EQ(sql->GetInt(1, 0), 1);
}

TEST_P(KwSQLServerTest, FailuresTellStateAndMessageAndTheLogNoStatement) {
    Table("id INTEGER PRIMARY KEY, name VARCHAR(20)");
    LogLines log;
    EXPECT_FALSE(sql->Execute("SELEC hidden FROM kw_t"));
    EXPECT_EQ(sql->GetError().state.size(), 5u);
    EXPECT_FALSE(sql->GetError().message.empty());
    EXPECT_FALSE(sql->GetError().lost);
    const std::string lines = log.TakeAll();
    EXPECT_EQ(lines.find("hidden"), std::string::npos) << lines;
    EXPECT_NE(lines.find(mysql() ? "[CMTMYSQL::GetString]error 2\n" : "error query sql 2="), std::string::npos)
        << lines;
    ASSERT_TRUE(sql->Prepare("INSERT INTO kw_t VALUES (?, ?)"));
    sql->BindInt(1, 1);
    EXPECT_FALSE(sql->Execute());
    EXPECT_EQ(sql->GetError().message, "the statement has 2 parameters, 1 are bound");
    EXPECT_EQ(log.Count(mysql() ? "[CMTMYSQL::GetString]error 1" : "error query sql 1"), 1);
    sql->BindText(2, "bob");
    EXPECT_TRUE(sql->Execute()) << sql->GetError().message;
    EXPECT_FALSE(sql->Execute()) << "the key is taken";
    EXPECT_EQ(sql->GetError().state.substr(0, 2), kind == "sqlite" ? "HY" : "23") << sql->GetError().message;
    EXPECT_EQ(Value("SELECT COUNT(*) FROM kw_t"), "1");
}

TEST_P(KwSQLServerTest, TransactionsAndSeveralResults) {
    Table("id INTEGER");
    ASSERT_TRUE(sql->Begin());
    ASSERT_TRUE(sql->Execute("INSERT INTO kw_t VALUES (1)")) << sql->GetError().message;
    ASSERT_TRUE(sql->Rollback());
    EXPECT_EQ(Value("SELECT COUNT(*) FROM kw_t"), "0");
    ASSERT_TRUE(sql->Begin());
    ASSERT_TRUE(sql->Execute("INSERT INTO kw_t VALUES (1)"));
    ASSERT_TRUE(sql->Execute("INSERT INTO kw_t VALUES (2)"));
    ASSERT_TRUE(sql->Commit());
    ASSERT_TRUE(sql->Execute("UPDATE kw_t SET id = id + 10"));
    EXPECT_EQ(sql->GetAffectedRows(), 2);
    ASSERT_TRUE(sql->Execute("DELETE FROM kw_t WHERE id = 99")) << sql->GetError().message;
    EXPECT_EQ(sql->GetAffectedRows(), 0);
    ASSERT_TRUE(sql->Begin());
    ASSERT_TRUE(sql->Execute("INSERT INTO kw_t VALUES (3)"));
    sql->EndStatement();
    EXPECT_EQ(Value("SELECT COUNT(*) FROM kw_t"), "2") << "left open, rolled back";
    EXPECT_FALSE(sql->NextResult());
    EXPECT_EQ(sql->GetError().state, "");

    // Neither embedded SQLite nor MariaDB's driver as it is set up here takes several statements.
    if (kind == "sqlite" || kind == "mariadb") return;
    ASSERT_TRUE(sql->Execute("SELECT 1 AS a; UPDATE kw_t SET id = 0; SELECT 2 AS b, 3 AS c"))
        << sql->GetError().message;
    EXPECT_TRUE(sql->NextResult()) << "the rows of the first were not read";
    EXPECT_EQ(sql->GetAffectedRows(), 2);
    ASSERT_TRUE(sql->NextResult());
    ASSERT_TRUE(sql->Fetch());
    EXPECT_EQ(sql->GetInt("c", 0), 3);
    EXPECT_FALSE(sql->NextResult());
    ASSERT_TRUE(sql->Execute("SELECT 1; SELECT 2"));
    EXPECT_EQ(Value("SELECT 5"), "5") << "results that wait are dropped";
}

TEST_P(KwSQLServerTest, AWrongPasswordIsRefusedAndNotLogged) {
    if (parts[1].empty() && kind != "postgres") GTEST_SKIP() << "skipped: no account here";
    LogLines log;
    const std::size_t at = parts[0].find("secret");
    if (at != std::string::npos) parts[0].replace(at, 6, "wrongpw");
    parts[2] = "wrongpw";
    sql.reset(Make());
    EXPECT_FALSE(Connect(*sql));
    EXPECT_FALSE(sql->GetError().state.empty());
    const std::string lines = log.TakeAll();
    EXPECT_NE(lines.find("sql connect: "), std::string::npos);
    EXPECT_EQ(lines.find("wrongpw"), std::string::npos) << lines;
    EXPECT_FALSE(sql->Execute("SELECT 1"));
}

// The service over a server that is killed: while idle, and in the middle of a query.
TEST_P(KwSQLServerTest, AKilledServerCutsOneQueryAndTheNextRunsWhenItIsBack) {
    if (!HasServer()) GTEST_SKIP() << "skipped: no server to kill";
    Table("id INTEGER");
    sql.reset();
    LogLines log;
    KwSQLSupport service;
    KwDS ds;
    Config(ds, std::string("Service=\"") + (mysql() ? "MYSQL" : "MSSQL") + "\" Address=\"" + parts[0] +
                   "\" Account=\"" + parts[1] + "\" Password=\"" + parts[2] + "\" DB=\"" + parts[3] + "\"");
    ASSERT_TRUE(service.Init(&ds, "Sql")) << log.TakeAll();
    std::atomic<int> done{0}, cut{0}, inserted{0};
    std::atomic<bool> slow{false};
    const auto insert = [&](Query& query) {
        inserted += query.GetSQL()->Execute("INSERT INTO kw_t VALUES (1)") ? 1 : 0;
        return ++done, false;
    };
    service.PostQuery(new Query(1, insert));
    ASSERT_TRUE(WaitUntil([&] { return done == 1; }));
    ASSERT_TRUE(Server("kill"));
    ASSERT_TRUE(Server("start"));
    SleepMs(600);
    service.PostQuery(new Query(1, insert));
    ASSERT_TRUE(WaitUntil([&] { return done == 2; }));
    EXPECT_EQ(inserted, 2) << log.TakeAll();

    const char* const sleep = kind == "postgres" ? "SELECT pg_sleep(20)" : "SELECT SLEEP(20)";
    service.PostQuery(new Query(1, [&](Query& query) {
        slow = true;
        if (!query.GetSQL()->Execute(sleep)) cut += query.GetSQL()->GetError().lost ? 1 : 0;
        return ++done, false;
    }));
    service.PostQuery(new Query(1, insert));
    ASSERT_TRUE(WaitUntil([&] { return slow.load(); }));
    SleepMs(100);
    ASSERT_TRUE(Server("kill"));
    ASSERT_TRUE(WaitUntil([&] { return done == 3; }));
    EXPECT_EQ(cut, 1);
    ASSERT_TRUE(Server("start"));
    ASSERT_TRUE(WaitUntil([&] { return done == 4; }));
    EXPECT_EQ(inserted, 3);
    EXPECT_EQ(log.Count("sql connection is lost"), 2);
    EXPECT_EQ(log.Count("sql connection is open again"), 2);
    service.Close();
    EXPECT_EQ(Query::alive, 0);
}

TEST_P(KwSQLServerTest, AServerThatFreezesEndsTheStatementWithTheTimeout) {
    if (!HasServer()) GTEST_SKIP() << "skipped: no server to freeze";
    if (kind == "postgres") GTEST_SKIP() << "skipped: PostgreSQL's driver waits without limit";
    LogLines log;
    sql->SetTimeouts(2, 2);
    if (kind == "mariadb") parts[0] += ";CONN_TIMEOUT=2;READ_TIMEOUT=2";
    ASSERT_TRUE(Connect(*sql));
    ASSERT_TRUE(Server("freeze"));
    const Stopwatch watch;
    EXPECT_FALSE(sql->Execute("SELECT 1"));
    EXPECT_TRUE(sql->GetError().lost) << sql->GetError().message;
    EXPECT_FALSE(sql->Reconnect());
    EXPECT_LT(watch.Ms(), 20000);
    ASSERT_TRUE(Server("thaw"));
    EXPECT_TRUE(WaitUntil([&] { return sql->Reconnect(); }));
    EXPECT_EQ(Value("SELECT 1"), "1");
}

INSTANTIATE_TEST_SUITE_P(Of, KwSQLServerTest, testing::Values("Mysql", "Odbc"),
                         [](const auto& which) { return std::string(which.param); });

}  // namespace
