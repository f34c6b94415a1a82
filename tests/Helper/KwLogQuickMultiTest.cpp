#include "Kw/Helper/KwLogQuickMulti.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

TEST(KwLogQuickMultiTest, PostedLinesReachTheFileWithTheNextRun) {
    const fs::path folder = fs::path(testing::TempDir()) / ("kwquick" + std::to_string(std::random_device{}()));
    KwLogQuickMulti log;
    EXPECT_TRUE(log.PostLog("before"));
    EXPECT_EQ(log.RunLog(1), 0);
    ASSERT_TRUE(log.InitLog(folder.string().c_str(), "quick", 100, 600));
    EXPECT_TRUE(log.PostLog(KW_W("Vi\u1EC7t")));
    EXPECT_TRUE(log.PostLog("cut here", 3));
    EXPECT_EQ(log.RunLog(1), 3);

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&log] {
            for (int i = 0; i < 1000; ++i) log.PostLog("0123456789");
        });
    }
    int written = 0;
    while (written < 4000) written += log.RunLog(1);
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(log.PostLog("last"));
    EXPECT_FALSE(log.PostLog(std::string(17 << 20, 'x').c_str()));
    log.CloseLog();

    std::ostringstream text;
    text << std::ifstream(fs::directory_iterator(folder)->path(), std::ios::binary).rdbuf();
    EXPECT_EQ(text.str().substr(0, 19), "before\nVi\xE1\xBB\x87t\ncut\n0");
    EXPECT_EQ(text.str().size(), 18u + 4000 * 11 + 5 + 17);
    EXPECT_EQ(text.str().substr(text.str().size() - 22), "last\n1 log lines lost\n");
    fs::remove_all(folder);
}

}  // namespace
