// What a disk without room does to the log.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "Kw/Helper/KwLogSystem.h"

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
