#include "Kw/Helper/KwLogService.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwTime.h"

namespace {

namespace fs = std::filesystem;

class KwLogServiceTest : public testing::Test {
protected:
    KwLogServiceTest() {
        EXPECT_TRUE(service.SetLogPath(folder.string().c_str()));
        EXPECT_TRUE(SetFile(1, "a"));
        EXPECT_TRUE(SetFile(2, "b"));
    }
    ~KwLogServiceTest() override {
        service.Close();
        fs::remove_all(folder);
    }
    bool SetFile(int id, const char* name, int lines = 100) {
        return service.SetLogFile(id, "sub", name, SLogTimeCheck(), SLogTimeCheck(), lines, 1);
    }
    std::vector<std::string> Lines(const char* name) const {
        std::vector<std::string> lines;
        std::ifstream in(folder / "sub" / name, std::ios::binary);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    fs::path folder = fs::path(testing::TempDir()) / ("kwlogservice" + std::to_string(std::random_device{}()));
    KwLogService service{"test"};
};

TEST_F(KwLogServiceTest, SetUpEndsWithStartAndUnknownFilesAreRefused) {
    EXPECT_FALSE(SetFile(0, "console"));
    EXPECT_TRUE(service.Write(1, "early", -1));
    ASSERT_TRUE(service.Start(0));
    EXPECT_FALSE(service.Start(0));
    EXPECT_FALSE(SetFile(3, "late"));
    EXPECT_FALSE(service.SetLogPath("."));
    EXPECT_FALSE(service.Write(3, "late", -1));
    EXPECT_FALSE(service.Write(1, nullptr, 4));
    service.Close();
    EXPECT_EQ(Lines("a.log"), std::vector<std::string>{"early"});
    EXPECT_FALSE(service.Write(1, "refused", -1));
}

TEST_F(KwLogServiceTest, TheLastReleaseWritesWhatWaits) {
    auto* own = new KwLogService("own");
    ASSERT_TRUE(own->SetLogPath(folder.string().c_str()));
    ASSERT_TRUE(own->SetLogFile(1, "sub", "own", SLogTimeCheck(), SLogTimeCheck(), 1, 1));
    ASSERT_TRUE(own->Start(0));
    own->Write(1, "line", -1);
    EXPECT_EQ(own->Release(), 0);
    EXPECT_EQ(Lines("own.log"), std::vector<std::string>{"line"});
}

TEST_F(KwLogServiceTest, TheSettledPaceIsOneLineAPass) {
    for (int i = 0; i < 60; ++i) service.WriteF(1, "%d", i);
    ASSERT_TRUE(service.Start(0));
    const unsigned int start = KwTime::GetTime();
    while (service.GetQueuedCount() != 0) std::this_thread::yield();
    EXPECT_GE(KwTime::GetTime() - start, 30u);  // a sleep of 1 ms for each, by a clock and a timer that are coarse
}

TEST_F(KwLogServiceTest, LinesOfManyThreadsArriveWholeInOrderAndWithoutLoss) {
    constexpr int kThreads = 4;
    constexpr int kLines = 5000;
    service.SetLinesPerPass(0);
    service.SetQueueLimit(500);
    service.SetWaitWhenFull(true);
    ASSERT_TRUE(service.Start(256));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kLines; ++i) EXPECT_TRUE(service.WriteF(1 + t % 2, "%d %d %s", t, i, "text"));
        });
    }
    for (std::thread& thread : threads) thread.join();
    service.Close();
    int next[kThreads] = {};
    for (const char* name : {"a.log", "b.log"}) {
        for (const std::string& line : Lines(name)) {
            int thread = -1, number = -1;
            char word[8] = "";
            ASSERT_EQ(std::sscanf(line.c_str(), "%d %d %7s", &thread, &number, word), 3) << line;
            ASSERT_STREQ(word, "text");
            ASSERT_EQ(number, next[thread]++);
        }
    }
    for (const int count : next) EXPECT_EQ(count, kLines);
    EXPECT_EQ(service.GetWrittenCount(), static_cast<unsigned>(kThreads * kLines));
    EXPECT_EQ(service.GetDroppedCount(), 0u);
}

TEST_F(KwLogServiceTest, AFullQueueDropsCountsAndReports) {
    service.SetQueueLimit(10);
    int queued = 0;
    for (int i = 0; i < 25; ++i) queued += service.WriteF(1, "%d", i) ? 1 : 0;
    EXPECT_EQ(queued, 10);
    EXPECT_EQ(service.GetDroppedCount(), 15u);
    testing::internal::CaptureStdout();
    ASSERT_TRUE(service.Start(0));
    service.Close();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "log service test dropped 15 lines\n");
    EXPECT_EQ(Lines("a.log").size(), 10u);
}

TEST_F(KwLogServiceTest, FormattedLinesAreCutToTheBufferAndReadyTextIsNot) {
    const std::string text(3000, 'x');
    testing::internal::CaptureStdout();
    ASSERT_TRUE(service.Start(1));
    service.WriteF(1, "%s", text.c_str());
    service.Write(1, text.c_str(), -1);
    service.Write(0, "console", 3);
    service.Close();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "con\n");
    ASSERT_EQ(Lines("a.log").size(), 2u);
    EXPECT_EQ(Lines("a.log")[0].size(), 127u);
    EXPECT_EQ(Lines("a.log")[1], text);
    // Buffers of the first size must not serve the second.
    ASSERT_TRUE(service.Start(1000));
    service.WriteF(1, "%s", text.c_str());
    service.Close();
    EXPECT_EQ(Lines("a.log")[2].size(), 999u);
}

TEST_F(KwLogServiceTest, AFileThatCannotBeOpenedLosesItsOwnLinesOnly) {
    fs::create_directories(folder / "sub" / "a.log");
    testing::internal::CaptureStdout();
    service.Write(1, "lost", -1);
    service.Write(2, "kept", -1);
    ASSERT_TRUE(service.Start(0));
    service.Close();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("log service test dropped 1 lines"), std::string::npos);
    EXPECT_EQ(Lines("b.log"), std::vector<std::string>{"kept"});
}

}  // namespace
