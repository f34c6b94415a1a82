#include "Kw/KwTestProssTime.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "Kw/KwTime.h"

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class Watch : public CTestProssTime {
public:
    using CTestProssTime::CTestProssTime;
    void OnUpdateTime(const std::string& step, int tick) override {
        lastStep = step;
        lastTick = tick;
    }
    void OnEndTime(int elapsed) override { total = elapsed; }
    const auto& Steps() const { return steps_; }

    std::string lastStep;
    int lastTick = 0;
    int total = -1;
};
#pragma GCC diagnostic pop

// Retries until a tick is not crossed, since the text depends on it.
TEST(CTestProssTimeTest, AStepWithoutTimeIsRecordedButNotLogged) {
    for (int attempt = 0;; ++attempt) {
        Watch watch("load", true);
        testing::internal::CaptureStdout();
        watch.Update("quick");
        const std::string text = testing::internal::GetCapturedStdout();
        ASSERT_EQ(watch.Steps().size(), 1u);
        EXPECT_EQ(watch.lastStep, "quick");
        if (watch.Steps()[0].second != 0 && attempt < 100) continue;
        EXPECT_EQ(text, "");
        EXPECT_NEAR(watch.lastTick, static_cast<int>(KwTime::GetTime()), 1000) << "the tick, not the time that passed";
        break;
    }
}

TEST(CTestProssTimeTest, StepsAndTheEndAreLogged) {
    testing::internal::CaptureStdout();
    Watch watch("load", true);
    KwTime::Wait(40);  // Windows counts its ticks in steps of up to 16 ms
    watch.Update("slow");
    watch.End();
    const std::string text = testing::internal::GetCapturedStdout();
    char expected[100];
    std::snprintf(expected, sizeof(expected), "[load][slow]time=%d\n[load]end time=%d\n", watch.Steps()[0].second,
                  watch.total);
    EXPECT_EQ(text, expected);
    EXPECT_GE(watch.total, watch.Steps()[0].second);

    testing::internal::CaptureStdout();
    Watch silent("load", false);
    KwTime::Wait(40);
    silent.Update("slow");
    silent.End();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_GE(silent.total, 4);
}

}  // namespace
