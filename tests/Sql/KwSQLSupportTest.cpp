// The service's own rules, over "NoSQL" and over a back end of this file that fails on request.
#include <memory>
#include <stdexcept>

#include "Kw/DB/KwMySqlText.h"
#include "Kw/DB/KwSQLText.h"
#include "Kw/Helper/KwMath.h"
#include "KwSQLFixture.h"

namespace {

// Gives rows (i, "row i") for "rows"; breaks the connection at "break"; refuses to open while `away`.
class FakeSQL final : public KwSQL {
public:
    ~FakeSQL() override { Disconnect(); }
    static inline std::atomic<bool> away{false}, pingFails{false};
    static inline std::atomic<int> opens{0}, executed{0};
    static inline KwSQLSettings seen;

protected:
    bool OnOpen(const KwSQLSettings& settings) override {
        ++opens;
        seen = settings;
        return !away || Fail(Stage::kPrepare, "08001", 7, "cannot reach 'it' with secret");
    }
    void OnClose() override {}
    bool OnPrepare(const std::string&) override { return true; }
    bool OnExecute(const std::string& text, const std::vector<KwSQLParam>&) override {
        if (text == "SELECT 1" && pingFails.exchange(false)) return Fail(Stage::kRun, "08S01", 2006, "gone", true);
        if (text == "SELECT 1") return true;
        ++executed;
        if (text == "break") return Fail(Stage::kRun, "08S01", 2013, "lost", true);
        if (text == "rows") SetColumns({"Id", "Text", "Real", "None"});
        next_ = 0;
        return true;
    }
    bool OnFetch() override {
        if (next_ == 2) return false;
        constexpr const char* kTexts[] = {"-12.75", "xin ch\xC3\xA0o \xF0\x9F\x98\x80"};
        Cell(0).kind = KwSQLCell::Kind::kInteger;
        Cell(0).integer = next_ == 0 ? 7 : INT64_MAX;
        Cell(1).kind = KwSQLCell::Kind::kBytes;
        Cell(1).bytes = kTexts[next_++];
        Cell(2).kind = KwSQLCell::Kind::kDouble;
        Cell(2).number = 0.1;
        return true;
    }
    bool OnNextResult() override { return false; }
    bool OnTransaction(Transaction) override { return true; }
    void OnEnd(bool) override {}

private:
    int next_ = 0;
};

class Service final : public KwSQLSupport {
public:
    ~Service() override { Close(); }

protected:
    KwSQL* CreateSQL(const char* service) override {
        return std::string(service) == "Fake" ? new FakeSQL : KwSQLSupport::CreateSQL(service);
    }
};

class KwSQLSupportTest : public testing::Test {
protected:
    void SetUp() override {
        Query::runs = Query::results = 0;
        FakeSQL::away = FakeSQL::pingFails = false;
        FakeSQL::opens = FakeSQL::executed = 0;
        service = std::make_unique<Service>();
        service->InitQueryType(2, 3);
    }
    void TearDown() override {
        service.reset();
        EXPECT_EQ(Query::alive, 0) << "queries that nobody freed";
    }
    bool Start(const std::string& body) {
        KwDS ds;
        return service->Init(&Config(ds, body), "Sql");
    }
    void Post(int type, std::function<bool(Query&)> work = nullptr) { service->PostQuery(new Query(type, work)); }
    bool Pump(int results) {
        return WaitUntil([&] { return service->DoWorking(), Query::results >= results; });
    }
    LogLines log;
    std::unique_ptr<Service> service;
};

TEST_F(KwSQLSupportTest, SettingsChooseTheBackEndAndBase64IsDecoded) {
    for (const char* body : {"", "Service=\"Oracle\"", "Service=7"}) {
        EXPECT_FALSE(Start(body)) << body;
        EXPECT_EQ(log.TakeAll(), "create sql handle error\n");
    }
    const std::string code = KwMath::EncodeBase64("p;w\xC3\xA4", 5);
    EXPECT_TRUE(Start("Service=\"Fake\" Address=\"db\" DB=7 Account=\"@YXBw\" Password=\"@" + code + "\""));
    EXPECT_EQ(log.TakeAll(), "Open Sql Query!\n");
    EXPECT_EQ(FakeSQL::seen.server, "db");
    EXPECT_EQ(FakeSQL::seen.database, "") << "a value of another type reads as empty";
    EXPECT_EQ(FakeSQL::seen.account, "app");
    EXPECT_EQ(FakeSQL::seen.password, "p;w\xC3\xA4");
    EXPECT_FALSE(Start("Service=\"nosql\"")) << "while running";
    service->Close();
    log.TakeAll();

    EXPECT_FALSE(Start("Service=\"Fake\" Password=\"@no base64\""));
    EXPECT_EQ(log.TakeAll(), "sql connect: the password is no Base64 text behind its @\nConnect to SQL Server error\n");
    FakeSQL::away = true;
    EXPECT_FALSE(Start("Service=\"Fake\" Password=\"secret\""));
    EXPECT_EQ(log.TakeAll(), "sql connect: 08001\tcannot reach '...' with ...\nConnect to SQL Server error\n");
    EXPECT_FALSE(Start("Service=\"mssql\" Address=\"x;DRIVER=none\" DB=\"/nonexistent/folder/f.db\""));
    EXPECT_EQ(log.Count("Connect to SQL Server error"), 1);
}

TEST_F(KwSQLSupportTest, FinishedQueriesGoIntoThePoolOfTheirType) {
    EXPECT_EQ(service->CreateQuery(1), nullptr);
    ASSERT_TRUE(Start("Service=\"NOsql\""));
    for (int i = 0; i < 5; ++i) Post(1, [](Query& query) { return query.GetSQL() == nullptr; });
    Post(2, [](Query&) { return false; });
    Post(9);
    ASSERT_TRUE(Pump(6)) << "the one that gave false has no result";
    EXPECT_EQ(Query::runs, 7);
    EXPECT_EQ(Query::alive, 4) << "three of type 1 and one of type 2 are idle";
    EXPECT_EQ(service->CreateQuery(0), nullptr);
    EXPECT_EQ(service->CreateQuery(3), nullptr);
    KwSQLRequestQuery* const idle = service->CreateQuery(2);
    ASSERT_NE(idle, nullptr);
    EXPECT_EQ(idle->GetType(), 2);
    EXPECT_EQ(idle->GetService(), service.get());
    EXPECT_EQ(service->CreateQuery(2), nullptr);
    service->PostResult(idle);
    ASSERT_TRUE(Pump(7));
}

TEST_F(KwSQLSupportTest, AnExceptionEndsTheLoopAndWhatWasFinishedStillComes) {
    ASSERT_TRUE(Start("Service=\"NoSQL\""));
    Post(1);
    Post(1, [](Query&) -> bool { throw std::runtime_error("no such table"); });
    Post(1);
    ASSERT_TRUE(WaitUntil([&] { return !service->IsWorking(); }));
    EXPECT_EQ(log.Count("exception KwSQLSupport::DoService"), 1);
    ASSERT_TRUE(Pump(1));
    EXPECT_EQ(service->GetPendingCount(), 1);
    service->Close();
    EXPECT_EQ(log.Count("1 queued queries were dropped"), 1);
    ASSERT_TRUE(Start("Service=\"NoSQL\""));
    Post(1);
    EXPECT_TRUE(Pump(2));
}

TEST_F(KwSQLSupportTest, CloseRunsWhatIsQueuedWithinItsLimit) {
    ASSERT_TRUE(Start("Service=\"NoSQL\""));
    for (int i = 0; i < 1000; ++i) Post(1);
    service->Close();
    EXPECT_EQ(Query::runs, 1000);
    EXPECT_EQ(Query::results, 1000) << "Close hands back what was finished";
    EXPECT_EQ(Query::alive, 0);

    ASSERT_TRUE(Start("Service=\"NoSQL\""));
    service->SetCloseLimit(0);
    std::atomic<bool> started{false};
    Post(1, [&](Query&) { return started = true, SleepMs(50), true; });
    ASSERT_TRUE(WaitUntil([&] { return started.load(); }));
    for (int i = 0; i < 1000; ++i) Post(1);
    service->Close();
    EXPECT_EQ(Query::runs, 1001);
    EXPECT_EQ(Query::results, 1001) << "the one that was running is finished";
    EXPECT_EQ(log.Count("1000 queued queries were dropped"), 1);
}

TEST_F(KwSQLSupportTest, ABrokenConnectionIsReportedOnceAndTheCutQueryIsNotRunAgain) {
    ASSERT_TRUE(Start("Service=\"Fake\""));
    std::atomic<int> told{0}, after{0};
    Post(1, [&](Query& query) {
        KwSQL& sql = *query.GetSQL();
        FakeSQL::away = true;
        EXPECT_FALSE(sql.Execute("break"));
        told += sql.GetError().lost ? 1 : 0;
        EXPECT_FALSE(sql.Execute("rows")) << "not in the same query";
        told += sql.GetError().lost ? 1 : 0;
        return true;
    });
    Post(1, [&](Query& query) { return after += query.GetSQL()->Execute("rows") ? 1 : 0, true; });
    ASSERT_TRUE(WaitUntil([] { return FakeSQL::opens >= 3; })) << "tries again while the server is away";
    EXPECT_EQ(told, 2);
    EXPECT_EQ(service->GetPendingCount(), 1) << "what is queued waits";
    EXPECT_FALSE(service->IsConnected());
    FakeSQL::away = false;
    ASSERT_TRUE(Pump(2));
    EXPECT_EQ(after, 1);
    EXPECT_EQ(FakeSQL::executed, 2);
    EXPECT_EQ(log.Count("sql connection is lost: 08S01\tlost"), 1);
    EXPECT_EQ(log.Count("sql connection is open again"), 1);

    // Broken while idle: noticed before the next query, which runs on the new connection.
    SleepMs(600);
    FakeSQL::pingFails = true;
    Post(1, [&](Query& query) { return after += query.GetSQL()->Execute("rows") ? 1 : 0, true; });
    ASSERT_TRUE(Pump(3));
    EXPECT_EQ(after, 2);

    // Close does not wait for a server that is away.
    FakeSQL::away = true;
    Post(1, [](Query& query) { return query.GetSQL()->Execute("break"); });
    Post(1);
    ASSERT_TRUE(WaitUntil([&] { return !service->IsConnected(); }));
    const Stopwatch watch;
    service->Close();
    EXPECT_LT(watch.Ms(), 5000);
    EXPECT_EQ(log.Count("1 queued queries were dropped"), 1);
}

TEST_F(KwSQLSupportTest, ConnectingCanBeLeftToTheThread) {
    service->SetConnectLater(true);
    EXPECT_FALSE(Start("Service=\"Fake\" Password=\"@no base64\""));
    FakeSQL::away = true;
    ASSERT_TRUE(Start("Service=\"Fake\" Password=\"secret\""));
    EXPECT_FALSE(service->IsConnected());
    unsigned int opened = 0;
    Post(1, [&](Query& query) { return opened = query.GetSQL()->GetOpenCount(), true; });
    ASSERT_TRUE(WaitUntil([] { return FakeSQL::opens >= 3; }));
    EXPECT_EQ(log.Count("sql connect: 08001\tcannot reach '...' with ..."), 1) << "the first failure is told";
    FakeSQL::away = false;
    ASSERT_TRUE(Pump(1));
    EXPECT_EQ(opened, 1u);
    EXPECT_TRUE(service->IsConnected());
}

TEST_F(KwSQLSupportTest, AFullResultListIsWorkedOffOneACall) {
    ASSERT_TRUE(Start("Service=\"NoSQL\""));
    for (int i = 0; i < 20000; ++i) Post(1);
    ASSERT_TRUE(WaitUntil([&] { return service->GetResultCount() == 20000; }));
    service->DoWorking();
    EXPECT_EQ(Query::results, 1);
    for (int i = 1; i < 20000; ++i) service->DoWorking();
    EXPECT_EQ(Query::results, 20000);
    EXPECT_EQ(Query::alive, 3);
}

TEST(KwSQLTest, ValuesConvertOrGiveTheDefault) {
    FakeSQL sql;
    EXPECT_FALSE(sql.Execute("rows")) << "not connected";
    ASSERT_TRUE(sql.Connect("s", nullptr, nullptr, nullptr));
    ASSERT_TRUE(sql.Execute(KW_W("rows")));
    EXPECT_EQ(sql.GetInt(1, -1), -1) << "no row yet";
    ASSERT_TRUE(sql.Fetch());
    EXPECT_EQ(sql.GetInt("ID", 0), 7);
    EXPECT_EQ(sql.GetInt("text", 0), -12);
    EXPECT_EQ(sql.GetDouble(2, 0), -12.75);
    EXPECT_STREQ(sql.GetString("Real", nullptr, ""), "0.1");
    EXPECT_TRUE(sql.IsNull("none"));
    EXPECT_EQ(sql.GetInt("none", 5), 5);
    EXPECT_EQ(sql.GetInt(0, 5) + sql.GetInt(5, 5) + sql.GetInt("missing", 5), 15);
    EXPECT_EQ(sql.GetBlob("Real", nullptr), nullptr);
    ASSERT_TRUE(sql.Fetch());
    EXPECT_EQ(sql.GetInt(1, -1), -1) << "does not fit";
    EXPECT_EQ(sql.GetInt64(1, -1), INT64_MAX);
    EXPECT_EQ(sql.GetInt(2, -1), -1);
    int length = 0;
    EXPECT_EQ(KwWString(sql.GetWString(2, &length, nullptr)), KW_W("xin ch\u00E0o \U0001F600"));
    EXPECT_EQ(length, 11);
    EXPECT_FALSE(sql.Fetch());
    EXPECT_EQ(sql.GetError().state, "");

    LogLines log;
    EXPECT_FALSE(sql.Execute()) << "nothing is prepared";
    ASSERT_TRUE(sql.Prepare("x ? ?"));
    sql.BindInt(2, 1);
    EXPECT_FALSE(sql.Execute());
    EXPECT_EQ(sql.GetError().message, "a parameter is not bound");
    sql.BindInt(0, 1);
    EXPECT_FALSE(sql.Execute());
    EXPECT_TRUE(sql.Begin());
    EXPECT_FALSE(sql.Begin());
    sql.EndStatement();
    EXPECT_FALSE(sql.IsInTransaction());
}

TEST(KwSQLTextTest, TheLogHidesWhatMessagesQuote) {
    const auto hidden = [](const char* text) { return KwSQLText::ForLog(text, "pw"); };
    EXPECT_EQ(hidden("Table 'a.b' doesn't exist"), "Table '...' doesn't exist");
    EXPECT_EQ(hidden("near 'it's me' at line 1"), "near '...' at line 1");
    EXPECT_EQ(hidden("Duplicate entry 'bob' for key \"x\""), "Duplicate entry '...\"");
    EXPECT_EQ(hidden("cut 'in the mid"), "cut '...");
    EXPECT_EQ(hidden("syntax error\nLINE 1: SELEC pw"), "syntax error");
    EXPECT_EQ(hidden("login pw failed"), "login ... failed");
}

TEST(KwMySqlTextTest, ParametersAreFoundOutsideQuotesAndComments) {
    using Pieces = std::vector<std::string>;
    EXPECT_EQ(KwMySqlText::Split("a ? b ?"), (Pieces{"a ", " b ", ""}));
    EXPECT_EQ(KwMySqlText::Split("'?' \"?\" `?` /* ? */ # ?\n -- ?\n 'it''s ?' '\\'?' ?").size(), 2u);
    EXPECT_EQ(KwMySqlText::Split("5--?").size(), 2u) << "no comment without a blank";
    for (const char* open : {"'?", "/*?", "--", "'\\", "# ?", ""}) EXPECT_EQ(KwMySqlText::Split(open), Pieces{open});
    EXPECT_EQ(KwMySqlText::Double(2), "2e0");

    KwMySqlText::Address address;
    EXPECT_TRUE(KwMySqlText::ParseAddress("db:3307", address));
    EXPECT_EQ(address.host + " " + std::to_string(address.port), "db 3307");
    EXPECT_TRUE(KwMySqlText::ParseAddress("[::1]:3307", address));
    EXPECT_EQ(address.host + " " + std::to_string(address.port), "::1 3307");
    EXPECT_TRUE(KwMySqlText::ParseAddress("fe80::1", address));
    EXPECT_EQ(address.host, "fe80::1");
    EXPECT_TRUE(KwMySqlText::ParseAddress("/run/s.sock", address));
    EXPECT_EQ(address.host + address.path, "/run/s.sock");
    for (const char* bad : {"db:", "db:0", "db:65536", "db:x", "[::1]3307"}) {
        EXPECT_FALSE(KwMySqlText::ParseAddress(bad, address)) << bad;
    }
}

}  // namespace
