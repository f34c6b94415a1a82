// A server that accepts and never answers.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Kw/DB/KwMySql.h"
#include "KwSQLFixture.h"

TEST(KwSQLTimeoutTest, AServerThatNeverAnswersEndsWithTheTimeout) {
    CMySqlLib lib;
    if (!lib.Load()) GTEST_SKIP() << "skipped: " << lib.GetError();
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    ASSERT_EQ(bind(listener, static_cast<sockaddr*>(static_cast<void*>(&address)), size), 0);
    ASSERT_EQ(listen(listener, 4), 0);
    ASSERT_EQ(getsockname(listener, static_cast<sockaddr*>(static_cast<void*>(&address)), &size), 0);

    LogLines log;
    CMTMYSQL sql;
    sql.SetTimeouts(1, 1);
    const Stopwatch watch;
    const std::string server = "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    EXPECT_FALSE(sql.Connect(server.c_str(), "app", "secret", "appdb"));
    EXPECT_LT(watch.Ms(), 15000);
    EXPECT_FALSE(sql.GetError().message.empty());
    EXPECT_EQ(log.Count("secret"), 0);
    close(listener);
}
