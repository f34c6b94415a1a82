// A server that accepts and never answers.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>

#include "Kw/DB/KwMsSql.h"
#include "Kw/DB/KwMySql.h"
#include "KwSQLFixture.h"

namespace {

class KwSQLTimeoutTest : public testing::Test {
protected:
    void SetUp() override {
        listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto* const at = static_cast<sockaddr*>(static_cast<void*>(&address));
        ASSERT_EQ(bind(listener, at, size), 0);
        ASSERT_EQ(listen(listener, 4), 0);
        ASSERT_EQ(getsockname(listener, at, &size), 0);
        port = std::to_string(ntohs(address.sin_port));
    }
    void TearDown() override { close(listener); }
    // Long time-outs of statements do not count while it connects.
    void ExpectEnd(KwSQL& sql, const std::string& server, const char* account) {
        LogLines log;
        sql.SetTimeouts(1, 300);
        const Stopwatch watch;
        EXPECT_FALSE(sql.Connect(server.c_str(), account, "secret", "appdb"));
        EXPECT_LT(watch.Ms(), 15000);
        EXPECT_FALSE(sql.GetError().message.empty());
        EXPECT_EQ(log.Count("sql connect: "), 1);
        EXPECT_EQ(log.Count("secret"), 0);
    }
    int listener = -1;
    std::string port;
};

TEST_F(KwSQLTimeoutTest, ConnectingByMysqlEnds) {
    CMySqlLib lib;
    if (!lib.Load()) GTEST_SKIP() << "skipped: " << lib.GetError();
    CMTMYSQL sql;
    ExpectEnd(sql, "127.0.0.1:" + port, "app");
}

TEST_F(KwSQLTimeoutTest, ConnectingByOdbcEnds) {
    const char* const set = std::getenv("KW_TEST_ODBC_KIND");
    const std::string kind = set != nullptr ? set : "";
    if (kind != "mariadb" && kind != "postgres") GTEST_SKIP() << "skipped: no driver of a server is registered";
    CMTMSSQL sql;
    if (kind == "mariadb") {
        // It does not ask for ODBC's own time-out.
        ExpectEnd(sql, "127.0.0.1;CONN_TIMEOUT=1;READ_TIMEOUT=300;PORT=" + port, "app");
    } else {
        ExpectEnd(sql, "x;SERVER=127.0.0.1;PORT=" + port + ";UID=app;PWD=secret;DATABASE=appdb", "");
    }
}

}  // namespace
