// What a disk without room and the passing of time do to the log.
#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <random>
#include <string>

#include "Kw/Helper/KwLogSystem.h"

namespace {
std::atomic<int> g_secondsAhead{0};
}  // namespace

// The program's own comes before the system's, in the library too: a steady clock that a test can put forward.
[[gnu::visibility("default")]] int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_MONOTONIC) now->tv_sec += g_secondsAhead;
    return result;
}

// The clock is looked at after the 51st line.
TEST(KwLogSystemPosixTest, AFileIsReopenedWhenAMinuteHasPassed) {
    namespace fs = std::filesystem;
    const fs::path file = fs::path(testing::TempDir()) / ("kwminute" + std::to_string(std::random_device{}()));
    const fs::path moved = file.string() + ".1";
    const auto isReopenedBy = [&](int lines, int seconds) {
        KwLogSystem::SetOutputLogFile(file.c_str(), false);
        fs::rename(file, moved);
        g_secondsAhead += seconds;
        for (int i = 0; i < lines; ++i) KwLogSystem::Push("line");
        return fs::exists(file);
    };
    EXPECT_FALSE(isReopenedBy(51, 50));
    EXPECT_FALSE(isReopenedBy(50, 61));
    EXPECT_TRUE(isReopenedBy(51, 61));
    KwLogSystem::SetOutputLogConsole(false);
    g_secondsAhead = 0;
    fs::remove(file);
    fs::remove(moved);
}

TEST(KwLogSystemPosixTest, AFullDiskIsReportedOnce) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "this system has no device that is always full";
    testing::internal::CaptureStdout();
    KwLogSystem::SetOutputLogFile("/dev/full", false);
    for (int i = 0; i < 1000; ++i) {
        KwLogSystem::Push("line");
        KwLogSystem::Flush();
    }
    const std::string shown = testing::internal::GetCapturedStdout();
    KwLogSystem::SetOutputLogConsole(false);
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 1) << shown;
    EXPECT_EQ(shown.substr(0, 35), "Set Log file error not append file ");
}
