#include "Kw/App/KwEventTime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kw/KwOS.h"

namespace {

// A clock on the wall and a tick that the test moves.
class TestClock : public KwClock {
public:
    unsigned int GetTick() override { return tick; }
    bool GetLocalTime(STime& time) override {
        if (isAvailable) time = now;
        return isAvailable;
    }
    void Set(int year, int month, int day, int hour, int minute, int second) {
        now.year = static_cast<std::uint16_t>(year);
        now.month = static_cast<std::uint8_t>(month);
        now.day = static_cast<std::uint8_t>(day);
        now.hour = static_cast<std::uint8_t>(hour);
        now.minute = static_cast<std::uint8_t>(minute);
        now.second = static_cast<std::uint8_t>(second);
    }
    void PassSecond() {
        tick += 1001;
        ++now.second;
        KwTime::CheckTime(now);
    }

    unsigned int tick = 5000;
    STime now = {};
    bool isAvailable = true;
};

std::string g_messages;
void Message(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    g_messages += std::string(text) + "\n";
}

// Notes "s1" for a second event with param 1, "h2" for an hour event with param 2 and so on.
class Target : public KwInf {
public:
    void OnTime(EVTIMETYPE type, unsigned int param) {
        calls += (calls.empty() ? "" : " ") + std::string(1, "smhdMy"[type]) + std::to_string(param);
        if (inside) inside(param);
    }
    void OnOther(EVTIMETYPE, unsigned int param) { calls += " other" + std::to_string(param); }

    std::string Take() { return std::move(calls); }
    std::string calls;
    std::function<void(unsigned int param)> inside;
};

class KwEventTimeTest : public testing::Test {
protected:
    KwEventTimeTest() {
        g_messages.clear();
        clock.Set(2019, 5, 6, 10, 0, 0);
    }
    void Add(EVTIMETYPE type, int interval, unsigned int param) {
        events.AddEventTime("name", type, interval, param, &target, &Target::OnTime);
    }
    void AddAll() {
        for (int type = EVTIME_YEAR; type >= EVTIME_MINUTE; --type) Add(static_cast<EVTIMETYPE>(type), 1, 0);
    }
    // The calls in `count` passes of the seconds alone.
    std::string Seconds(int count) {
        for (int i = 0; i < count; ++i) events.RunEventTime(EVTIME_SECOND);
        return target.Take();
    }
    // The calls while the loop runs for so many seconds; the first call starts the clock.
    std::string Loop(int seconds) {
        events.RunTime();
        for (int i = 0; i < seconds; ++i) {
            clock.PassSecond();
            events.RunTime();
        }
        return target.Take();
    }

    TestClock clock;
    Target target;
    KwEventTime events{clock};
};

// Registration ------------------------------------------------------------------------------------------------

TEST_F(KwEventTimeTest, EachUnitSaysWhatItAdds) {
    events.SetLog("srv", Message);
    for (int type = 0; type < 6; ++type) Add(static_cast<EVTIMETYPE>(type), type - 1, 0);
    EXPECT_EQ(g_messages,
              "[srv]Add [name] with event delay 1 second\n[srv]Add [name] with event delay 1 minute\n"
              "[srv]Add [name] with event delay 1 hour\n[srv]Add [name] with event delay 2 day\n"
              "[srv]Add [name] with event delay 3 month\n[srv]Add [name] with event delay 4 year\n");
    g_messages.clear();
    Add(EVTIME_DAY, 9, 0);
    Add(EVTIME_DAY, -999, 0);
    Add(EVTIME_DAY, -999, 0);
    EXPECT_EQ(g_messages, "[srv]exist [name] with event 3\n[srv]remove [name] with event 3\n");
}

TEST_F(KwEventTimeTest, MessagesWithoutALogFunctionGoNowhere) {
    Add(EVTIME_SECOND, 1, 0);
    Add(EVTIME_SECOND, 1, 0);
    EXPECT_EQ(Seconds(1), "s0");
    events.AddEventTime(nullptr, EVTIME_SECOND, KwEventTime::kRemove, 0, &target, &Target::OnTime);
    EXPECT_EQ(Seconds(1), "");
}

TEST_F(KwEventTimeTest, AnEventIsTargetHandlerAndParamWithinItsUnit) {
    Target second;
    Add(EVTIME_SECOND, 1, 1);
    Add(EVTIME_SECOND, 1, 2);
    Add(EVTIME_MINUTE, 1, 1);
    events.AddEventTime("o", EVTIME_SECOND, 1, 1, &target, &Target::OnOther);
    events.AddEventTime("2", EVTIME_SECOND, 1, 1, &second, &Target::OnTime);
    EXPECT_EQ(Seconds(1), "s1 s2 other1");
    EXPECT_EQ(second.Take(), "s1");
    events.AddEventTime("o", EVTIME_SECOND, -999, 1, &target, &Target::OnOther);
    EXPECT_EQ(Seconds(1), "s1 s2");
    events.RemoveEventTime(EVTIME_SECOND, &target);
    events.RunEventTime(EVTIME_MINUTE);
    EXPECT_EQ(Seconds(1), "m1");
    EXPECT_EQ(second.Take(), "s1 s1");
}

TEST_F(KwEventTimeTest, WhatNamesNothingIsIgnored) {
    events.SetLog("srv", Message);
    const auto handler = static_cast<KwInfEventTime>(&Target::OnTime);
    for (const int type : {6, -1, 1 << 30}) {
        events.AddEventTime("n", static_cast<EVTIMETYPE>(type), 1, 0, &target, handler);
        events.RemoveEventTime(static_cast<EVTIMETYPE>(type), &target);
        events.RunEventTime(static_cast<EVTIMETYPE>(type));
    }
    events.AddEventTime("n", EVTIME_SECOND, 1, 0, nullptr, handler);
    events.AddEventTime("n", EVTIME_SECOND, 1, 0, &target, nullptr);
    EXPECT_EQ(g_messages, "");
    using Unchecked = void (KwEventTime::*)(const char*, EVTIMETYPE, int, unsigned int, KwInf*, ...);
    (events.*static_cast<Unchecked>(&KwEventTime::AddEventTime))("n", EVTIME_SECOND, 1, 7, &target, handler);
    EXPECT_EQ(Seconds(1), "s7");
}

// Passes ------------------------------------------------------------------------------------------------------

TEST_F(KwEventTimeTest, AnIntervalCountsThePassesSinceRegistration) {
    Add(EVTIME_SECOND, 3, 3);
    EXPECT_EQ(Seconds(2), "");
    Add(EVTIME_SECOND, 0, 1);
    Add(EVTIME_SECOND, 2, 2);
    EXPECT_EQ(Seconds(4), "s3 s1 s1 s2 s1 s3 s1 s2");
    Add(EVTIME_SECOND, 0x7FFFFFFF, 9);
    EXPECT_EQ(Seconds(1), "s1");
}

// Against the walk of a plain list.
TEST_F(KwEventTimeTest, AnyMixOfIntervalsFiresAsAPlainWalkWould) {
    struct Plain {
        unsigned int param;
        int interval;
        int counter;
    };
    std::vector<Plain> plain;
    std::mt19937 random(7);
    for (int step = 0; step < 6000; ++step) {
        const auto param = static_cast<unsigned int>(random() % 60);
        const auto found = std::find_if(plain.begin(), plain.end(), [=](const Plain& p) { return p.param == param; });
        if (random() % 20 == 0) {
            const int interval = static_cast<int>(1 + random() % (random() % 2 == 0 ? 4 : 300));
            Add(EVTIME_SECOND, interval, param);
            if (found == plain.end()) plain.push_back({param, interval, 0});
        } else if (random() % 40 == 0) {
            Add(EVTIME_SECOND, KwEventTime::kRemove, param);
            if (found != plain.end()) plain.erase(found);
        }
        std::string expected;
        for (Plain& p : plain) {
            if (++p.counter != p.interval) continue;
            p.counter = 0;
            expected += (expected.empty() ? "s" : " s") + std::to_string(p.param);
        }
        ASSERT_EQ(Seconds(1), expected) << "step " << step;
    }
}

TEST_F(KwEventTimeTest, HandlersRemoveAndAddWhileTheWalkGoesOn) {
    for (unsigned int param = 1; param <= 4; ++param) Add(EVTIME_SECOND, 1, param);
    target.inside = [this](unsigned int param) {
        if (param == 1) Add(EVTIME_SECOND, KwEventTime::kRemove, 1);
        if (param == 1) Add(EVTIME_SECOND, 1, 5);
        if (param == 2) Add(EVTIME_SECOND, KwEventTime::kRemove, 3);  // the next one
        if (param == 5) Add(EVTIME_SECOND, 1, 6);                     // the last one
    };
    EXPECT_EQ(Seconds(1), "s1 s2 s4 s5");
    EXPECT_EQ(Seconds(1), "s2 s4 s5 s6");
    target.inside = [this](unsigned int) { events.RemoveEventTime(EVTIME_SECOND, &target); };
    EXPECT_EQ(Seconds(2), "s2");
}

TEST_F(KwEventTimeTest, HandlersThatRegisterThemselvesAnewDoNotKeepTheWalkGoing) {
    Add(EVTIME_SECOND, 1, 1);
    Add(EVTIME_SECOND, 1, 2);
    target.inside = [this](unsigned int param) {
        Add(EVTIME_SECOND, KwEventTime::kRemove, param);
        Add(EVTIME_SECOND, 1, param);
    };
    EXPECT_EQ(Seconds(1), "s1 s2 s1 s2");
    target.inside = nullptr;
    EXPECT_EQ(Seconds(1), "s1 s2");
}

TEST_F(KwEventTimeTest, APassInsideAPassCountsEveryEvent) {
    for (unsigned int param = 1; param <= 3; ++param) Add(EVTIME_SECOND, 2, param);
    Seconds(1);
    int depth = 0;
    target.inside = [&](unsigned int) {
        if (depth++ == 0) events.RunEventTime(EVTIME_SECOND);
    };
    EXPECT_EQ(Seconds(1), "s1 s2 s3") << "the inner pass fires 2 and 3, the outer one counts them on";
    EXPECT_EQ(Seconds(1), "s1 s2 s3");
}

// What the inner pass knows of the next firing, the rest of the outer one brings nearer.
TEST_F(KwEventTimeTest, AQuietPassInsideAPassHidesNoEvent) {
    Add(EVTIME_SECOND, 2, 1);
    Add(EVTIME_SECOND, 6, 2);
    target.inside = [&](unsigned int param) {
        if (param != 1) return;
        Add(EVTIME_SECOND, KwEventTime::kRemove, 1);
        events.RunEventTime(EVTIME_SECOND);
    };
    EXPECT_EQ(Seconds(4), "s1");
    EXPECT_EQ(Seconds(1), "s2");
}

TEST_F(KwEventTimeTest, WhatLeavesAHandlerDoesNotEndTheWalk) {
    const unsigned int before = KwOS::GetExceptionCount();
    Add(EVTIME_SECOND, 1, 1);
    Add(EVTIME_SECOND, 1, 2);
    target.inside = [this](unsigned int param) {
        if (param == 1) Add(EVTIME_SECOND, KwEventTime::kRemove, 1);
        throw std::runtime_error("param " + std::to_string(param));
    };
    EXPECT_EQ(Seconds(2), "s1 s2 s2");
    EXPECT_EQ(KwOS::GetExceptionCount(), before + 3);
}

TEST_F(KwEventTimeTest, TheEventsOfARegisteredTargetEndWithIt) {
    auto gone = std::make_unique<Target>();
    gone->Attack();
    events.AddEventTime("gone", EVTIME_SECOND, 1, 0, gone.get(), &Target::OnTime);
    Add(EVTIME_SECOND, 1, 1);
    Seconds(1);
    EXPECT_EQ(gone->Take(), "s0");
    gone.reset();
    EXPECT_EQ(Seconds(2), "s1 s1");
}

// The clock ---------------------------------------------------------------------------------------------------

TEST_F(KwEventTimeTest, SecondsAreCountedAtMostOnceACallAndBehindEach1000Ms) {
    Add(EVTIME_SECOND, 1, 1);
    events.RunTime(100);
    for (const unsigned int tick : {1100u, 50u, 1101u, 2101u, 2102u, 9000u, 9000u, 10000u, 10001u}) {
        events.RunTime(tick);
    }
    EXPECT_EQ(target.Take(), "s1 s1 s1 s1");
}

TEST_F(KwEventTimeTest, AMinuteIsOverBySixtySecondsOrBySixtyThousandMs) {
    clock.Set(2019, 5, 6, 10, 59, 30);
    AddAll();
    EXPECT_EQ(Loop(29), "");
    EXPECT_EQ(Loop(1), "m0 h0");
    EXPECT_EQ(Loop(59), "");
    EXPECT_EQ(Loop(1), "m0");
    // A loop of three seconds a pass counts twenty of them in a minute.
    for (int i = 0; i < 20; ++i) events.RunTime(clock.tick += 3000);
    EXPECT_EQ(target.Take(), "");
    events.RunTime(clock.tick += 3000);
    EXPECT_EQ(target.Take(), "m0");
}

TEST_F(KwEventTimeTest, TheCalendarDecidesWhichUnitsFire) {
    const struct {
        int year, month, day, hour;
        const char* calls;
    } cases[] = {
        {2019, 5, 6, 10, "m0 h0"},        {2019, 5, 6, 23, "m0 h0 d0"},         {2019, 4, 30, 23, "m0 h0 d0 M0"},
        {2019, 2, 28, 23, "m0 h0 d0 M0"}, {2020, 2, 28, 23, "m0 h0 d0"},        {2020, 2, 29, 23, "m0 h0 d0 M0"},
        {1900, 2, 28, 23, "m0 h0 d0 M0"}, {2019, 12, 31, 23, "m0 h0 d0 M0 y0"},
    };
    AddAll();
    for (const auto& c : cases) {
        clock.Set(c.year, c.month, c.day, c.hour, 58, 59);
        events.SetClock(clock);
        EXPECT_EQ(Loop(1), "m0");
        EXPECT_EQ(Loop(59), "");
        EXPECT_EQ(Loop(1), c.calls) << c.year << "-" << c.month << "-" << c.day;
    }
}

TEST_F(KwEventTimeTest, AClockThatIsMovedMovesTheLargerUnitsWithIt) {
    const struct {
        const char* what;
        int fromDay, fromHour, toDay, toHour;
        const char* calls;
    } cases[] = {
        {"set back by an hour", 6, 10, 6, 9, "m0 h0"},
        {"set back over midnight", 6, 0, 5, 23, "m0 h0 d0"},
        {"set back by a year less an hour", 6, 10, 6, 11, "m0 h0"},
        {"daylight saving begins: 1:59, 3:00", 31, 1, 31, 3, "m0 h0"},
        {"daylight saving ends: 2:59, 2:00", 27, 2, 27, 2, "m0"},
    };
    AddAll();
    for (const auto& c : cases) {
        clock.Set(2019, 5, c.fromDay, c.fromHour, 59, 59);
        events.SetClock(clock);
        events.RunTime();
        clock.Set(2019, 5, c.toDay, c.toHour, 0, 0);
        events.RunTime(clock.tick += 1001);
        EXPECT_EQ(target.Take(), c.calls) << c.what;
        EXPECT_EQ(events.GetTime().hour, c.toHour);
    }
}

TEST_F(KwEventTimeTest, WithoutTheSystemsTimeTheCountGoesOn) {
    clock.Set(2019, 12, 31, 23, 59, 30);
    AddAll();
    Loop(1);
    clock.isAvailable = false;
    EXPECT_EQ(Loop(29), "m0 h0 d0 M0 y0");
    EXPECT_EQ(Loop(60), "m0");
    EXPECT_EQ(events.GetTime().year, 2020);
}

TEST_F(KwEventTimeTest, TheWrapOfTheTickShowsNowhere) {
    Add(EVTIME_SECOND, 2, 0);
    AddAll();
    const auto run = [this](unsigned int start, unsigned int pass) {
        clock.tick = start;
        clock.Set(2019, 5, 6, 10, 58, 40);
        events.SetClock(clock);
        events.RunTime(start);
        std::string calls;
        for (int i = 1; i <= 500; ++i) {
            clock.PassSecond();
            events.RunTime(start + static_cast<unsigned int>(i) * pass);
            calls += target.Take() + ";";
        }
        return calls;
    };
    for (const unsigned int pass : {250u, 1001u, 7000u}) {
        const std::string expected = run(5000, pass);
        EXPECT_NE(expected.find("m0"), std::string::npos);
        for (const unsigned int start : {0u, 0u - 1u, 0u - 999u, 0u - 1000u, 0u - 1001u, 0u - 30000u, 0u - 59999u,
                                         0u - 60000u, 0u - 60001u, 0x7FFFFFFFu, 0x80000000u}) {
            EXPECT_EQ(run(start, pass), expected) << "from tick " << start << " by " << pass;
        }
    }
}

TEST_F(KwEventTimeTest, ALoopThatStoodStillForWeeksGoesOnAtOnce) {
    Add(EVTIME_SECOND, 1, 1);
    for (const unsigned int days : {1u, 24u, 25u, 49u}) {
        events.SetClock(clock);
        events.RunTime(1);
        events.RunTime(1 + days * 86400000u);
        EXPECT_EQ(target.Take(), "s1") << days << " days";
    }
    // Over the wrap as well, up to half of the range.
    events.SetClock(clock);
    events.RunTime(0x90000000u);
    events.RunTime(0x90000000u + 24u * 86400000u);
    EXPECT_EQ(target.Take(), "s1");
}

TEST_F(KwEventTimeTest, ACopyHasTheClockAndNoEvents) {
    events.SetLog("srv", Message);
    Add(EVTIME_SECOND, 1, 1);
    Loop(3);
    KwEventTime copy(events);
    EXPECT_EQ(std::memcmp(&copy.GetTime(), &events.GetTime(), sizeof(STime)), 0);
    copy.RunTime(clock.tick + 1001);
    EXPECT_EQ(target.Take(), "");
    EXPECT_EQ(copy.GetTime().second, events.GetTime().second + 1) << "it has started";
    copy.AddEventTime("c", EVTIME_SECOND, 1, 2, &target, &Target::OnTime);
    copy = *&copy;
    copy.RunEventTime(EVTIME_SECOND);
    EXPECT_EQ(target.Take(), "s2");
    target.inside = [&](unsigned int) { copy = events; };
    copy.RunEventTime(EVTIME_SECOND);
    copy.RunEventTime(EVTIME_SECOND);
    EXPECT_EQ(target.Take(), "s2") << "assigned to in a handler";
    EXPECT_EQ(Seconds(1), "s1") << "the source keeps its own";
}

TEST(KwClockTest, TheSystemsClockIsTheDefault) {
    KwEventTime events;
    STime now = {};
    KwTime::GetCurTime(&now);
    EXPECT_EQ(events.GetTime().year, now.year);
    EXPECT_LE(KwTime::GetTime() - KwClock::GetSystem().GetTick(), 10000u);
}

}  // namespace
