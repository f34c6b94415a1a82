#include "Kw/Helper/KwLog.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwTime.h"

namespace {

namespace fs = std::filesystem;

// A log whose file name the test chooses, as a new day would.
class TestLog : public KwLog {
public:
    std::string file;
    int stamp = 0;
    bool framed = false;

protected:
    void GetNewFile(char* out, const char* directory, const char* name) override {
        if (file.empty()) {
            KwLog::GetNewFile(out, directory, name);
        } else {
            std::strcpy(out, file.c_str());
        }
    }
    int GetTimeWrite() override { return stamp; }
    void OnBeginWrite(KwFile* target) override {
        if (framed) target->Write("<", 1);
    }
    void OnEndWrite(KwFile* target) override {
        if (framed) target->Write(">", 1);
    }
};

class KwLogTest : public testing::Test {
protected:
    KwLogTest() {
        fs::remove_all(folder);
        log.file = Path("a.log");
    }
    ~KwLogTest() override {
        log.Close();
        fs::remove_all(folder.parent_path());
    }
    std::string Path(const char* name) const { return (folder / name).string(); }
    bool Init(int lines, unsigned int seconds, bool withLock = false) {
        return log.Init(folder.string().c_str(), "server", withLock, lines, seconds);
    }
    static std::string Read(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    fs::path folder = fs::path(testing::TempDir()) / ("kwlog" + std::to_string(std::random_device{}())) / "logs";
    TestLog log;
};

TEST_F(KwLogTest, InitMakesTheFolderAndTheFileCarriesTheDay) {
    log.file.clear();
    STime day = {};
    KwTime::GetCurTime(&day);
    ASSERT_TRUE(Init(100, 600));
    char name[64];
    std::snprintf(name, sizeof(name), "server_%02d_%02d_%d.log", day.day, day.month, day.year);
    EXPECT_TRUE(fs::exists(folder / name));
}

TEST_F(KwLogTest, InitFailsWhereNoFileCanBe) {
    log.file = Path("missing/x.log");
    testing::internal::CaptureStdout();
    EXPECT_FALSE(Init(100, 600));
    log.Write("ignored", -1);
    log.WriteF("ignored");
    log.Run(5);
    testing::internal::GetCapturedStdout();
}

TEST_F(KwLogTest, LinesCarryStampHooksAndText) {
    ASSERT_TRUE(Init(100, 600));
    log.Write("plain", -1);
    log.Write("cut here", 3);
    log.WriteF("%d %s", 5, std::string(3000, 'y').c_str());
    log.framed = true;
    log.Write("framed", -1);
    log.framed = false;
    log.Close();
    log.Write("ignored", -1);
    EXPECT_EQ(Read(log.file), "plain\ncut\n5 " + std::string(3000, 'y') + "\n<framed>\n");

    ASSERT_TRUE(Init(100, 600));
    fs::resize_file(log.file, 0);
    for (log.stamp = 0; log.stamp < 4; ++log.stamp) log.Write("x", 1);
    log.Close();
    std::string shape = Read(log.file);
    for (char& ch : shape) ch = ch >= '0' && ch <= '9' ? '9' : ch;
    EXPECT_EQ(shape, "x\n[99_99_99]x\n[99_99_99/99/99/9999]x\nx\n");
}

TEST_F(KwLogTest, AFormatThatFailsLeavesAnEmptyLineAndAMessage) {
    ASSERT_TRUE(Init(100, 600));
    const char* broken = "half %";
    testing::internal::CaptureStdout();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    log.WriteF(broken);
#pragma GCC diagnostic pop
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "writefilev error\n");
    log.Close();
    EXPECT_EQ(Read(log.file), "\n");
}

// Run changes over to a new file name when lines or time ask for it, and only after something was written.
TEST_F(KwLogTest, RunChecksTheFileByLinesAndByTime) {
    ASSERT_TRUE(Init(0, 1));  // one line a check
    log.file = Path("b.log");
    log.Run(1000);
    EXPECT_FALSE(fs::exists(log.file)) << "nothing was written";
    log.Write("1", -1);
    log.Run(1000);  // the first check is due at once
    EXPECT_TRUE(fs::exists(log.file));
    log.file = Path("c.log");
    log.Write("2", -1);
    log.Run(2000);
    EXPECT_FALSE(fs::exists(log.file)) << "a second is not over and one line is not more than one";
    log.Run(2001);
    EXPECT_TRUE(fs::exists(log.file));
    log.file = Path("d.log");
    log.Write("3", -1);
    log.Write("4", -1);
    log.Run(2001);
    EXPECT_TRUE(fs::exists(log.file));
    log.Close();
    EXPECT_EQ(Read(Path("a.log")) + Read(Path("b.log")) + Read(Path("c.log")), "1\n2\n3\n4\n");
}

TEST_F(KwLogTest, TheCheckOutlivesTheWrapOfTheTick) {
    ASSERT_TRUE(Init(100, 10));
    log.Write("1", -1);
    log.Run(0xFFFFFF00u);
    log.file = Path("b.log");
    log.Write("2", -1);
    log.Run(0xFFFFFFF0u);
    log.Run(100);
    EXPECT_FALSE(fs::exists(log.file));
    log.Run(0xFFFFFF00u + 10001u);
    EXPECT_TRUE(fs::exists(log.file));
    log.file = Path("c.log");
    log.Write("3", -1);
    log.Run(0xC0000000u);
    EXPECT_TRUE(fs::exists(log.file)) << "nothing was written for 37 days";
}

TEST_F(KwLogTest, ACheckThatIsDueAtTickZeroWaitsForIt) {
    ASSERT_TRUE(Init(100, 10));
    log.Write("1", -1);
    log.Run(0u - 10000u);
    log.file = Path("b.log");
    log.Write("2", -1);
    log.Run(0u - 1u);
    log.Run(0);
    EXPECT_FALSE(fs::exists(log.file));
    log.Run(1);
    EXPECT_TRUE(fs::exists(log.file));
}

TEST_F(KwLogTest, ChecksOnWriteNeedNoRun) {
    log.SetCheckOnWrite(true);
    ASSERT_TRUE(Init(4, 3600));
    log.Write("1", -1);
    log.Write("2", -1);
    log.file = Path("b.log");
    log.Write("3", -1);  // more than half of the lines, and the first check is due
    EXPECT_TRUE(fs::exists(log.file));
    log.file = Path("c.log");
    for (int i = 0; i < 4; ++i) log.Write("x", -1);
    EXPECT_FALSE(fs::exists(log.file));
    log.Write("y", -1);
    EXPECT_TRUE(fs::exists(log.file));
    log.Close();
    EXPECT_EQ(Read(Path("b.log")), "x\nx\nx\nx\ny\n");
}

TEST_F(KwLogTest, ALostFileIsTakenUpAgain) {
    ASSERT_TRUE(Init(1, 1));
    log.file = Path("sub/x.log");
    log.Write("1", -1);
    testing::internal::CaptureStdout();
    log.Run(1);
    log.Write("lost", -1);
    testing::internal::GetCapturedStdout();
    fs::create_directories(folder / "sub");
    log.Run(2000);
    log.Write("2", -1);
    log.Close();
    EXPECT_EQ(Read(log.file), "2\n");
}

TEST_F(KwLogTest, WritersWithTheLockDoNotMix) {
    ASSERT_TRUE(Init(50, 1, true));
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([this, t] {
            const std::string text(40, static_cast<char>('a' + t));
            for (int i = 0; i < 1000; ++i) log.WriteF("%s", text.c_str());
        });
    }
    for (unsigned int tick = 1; tick < 200; ++tick) log.Run(tick);
    for (std::thread& thread : threads) thread.join();
    log.Close();
    std::istringstream lines(Read(log.file));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_EQ(line, std::string(40, line.empty() ? '?' : line[0]));
    }
    EXPECT_EQ(count, 3000);
}

TEST_F(KwLogTest, ACopyIsClosedAndHasItsOwnLock) {
    ASSERT_TRUE(Init(1, 1, true));
    {
        TestLog copy(log);
        copy.Write("ignored", -1);
        EXPECT_TRUE(copy.Init(folder.string().c_str(), "copy", true, 1, 1));
        copy.Write("copy", -1);
    }
    log.Write("original", -1);
    log.Close();
    EXPECT_EQ(Read(log.file), "copy\noriginal\n");
}

// Rotation ----------------------------------------------------------------------------------------------------

TEST_F(KwLogTest, ALargeFileMovesUpTheRowAndTheOldestGoes) {
    log.SetRotation(10, 0, 2);
    ASSERT_TRUE(Init(100, 600));
    for (const char* line : {"first", "123", "second", "123", "third", "123", "fourth", "12", "last"})
        log.Write(line, -1);
    log.Close();
    EXPECT_EQ(Read(log.file), "last\n");
    EXPECT_EQ(Read(log.file + ".1"), "fourth\n12\n");
    EXPECT_EQ(Read(log.file + ".2"), "third\n123\n");
    EXPECT_FALSE(fs::exists(log.file + ".3"));
    // A shorter row leaves nothing behind its end.
    log.SetRotation(5, 0, 1);
    ASSERT_TRUE(Init(100, 600));
    log.Write("newest", -1);
    log.Close();
    EXPECT_EQ(Read(log.file + ".1"), "last\nnewest\n");
    EXPECT_FALSE(fs::exists(log.file + ".2"));
}

TEST_F(KwLogTest, AnOldFileGivesWayAtTheNextLine) {
    log.SetRotation(0, 1, 3);
    ASSERT_TRUE(Init(100, 600));
    log.Write("old", -1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    log.Run(1);
    log.Write("new", -1);
    log.Close();
    EXPECT_EQ(Read(log.file), "new\n");
    EXPECT_EQ(Read(log.file + ".1"), "old\n");
}

TEST_F(KwLogTest, WhatCannotBeRenamedIsReportedOnceAndGrows) {
    log.SetRotation(4, 0, 1);
    fs::create_directories(log.file + ".1/x");
    ASSERT_TRUE(Init(100, 600));
    testing::internal::CaptureStdout();
    for (int i = 0; i < 3; ++i) log.Write("line", -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "rotate log file " + log.file + " error\n");
    log.Close();
    EXPECT_EQ(Read(log.file), "line\nline\nline\n");
}

TEST_F(KwLogTest, FilesOfOtherDaysCountAndFilesOfOthersStay) {
    log.file.clear();
    fs::create_directories(folder);
    int age = 0;
    for (const char* name : {"server_03_01_2024.log", "server_02_01_2024.log", "server_02_01_2024.log.1",
                             "server_01_01_2024.log", "server_x_01_01_2024.log", "server_01_01_2024.log.bak"}) {
        std::ofstream(folder / name) << name;
        fs::last_write_time(folder / name, fs::file_time_type::clock::now() - std::chrono::hours(++age));
    }
    log.SetRotation(1000, 0, 2);
    ASSERT_TRUE(Init(100, 600));
    log.Close();
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(folder)) left.push_back(entry.path().filename().string());
    EXPECT_EQ(left.size(), 5u);  // today's, two old ones, two that are not the log's
    EXPECT_TRUE(fs::exists(folder / "server_02_01_2024.log"));
    EXPECT_FALSE(fs::exists(folder / "server_02_01_2024.log.1"));
}

}  // namespace
