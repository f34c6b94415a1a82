#include "Kw/Helper/KwLogSystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kw/Helper/KwLogToBuffer.h"
#include "Kw/KwMemory.h"
#include "Kw/KwModuleEngine.h"
#include "Kw/KwTime.h"
#include "Kw/Res/KwRes.h"

namespace {

namespace fs = std::filesystem;

class KwLogSystemTest : public testing::Test {
protected:
    KwLogSystemTest() {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    ~KwLogSystemTest() override {
        KwLogSystem::SetOutputLogConsole(false);
        fs::remove_all(folder);
    }
    static std::string Read(const fs::path& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    static std::vector<std::string> Lines(const std::string& text) {
        std::vector<std::string> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }
    template <class Body>
    static std::string Console(Body body) {
        testing::internal::CaptureStdout();
        body();
        return testing::internal::GetCapturedStdout();
    }
    void ToFile(bool withTime = false) { KwLogSystem::SetOutputLogFile(file.c_str(), withTime); }

    fs::path folder = fs::path(testing::TempDir()) / ("kwlogsystem" + std::to_string(std::random_device{}()));
    std::string file = (folder / "system.log").string();
};

// Console -----------------------------------------------------------------------------------------------------

TEST_F(KwLogSystemTest, TheConsoleGetsNameAndTextAndEveryPushGivesFalse) {
    const std::string text = Console([] {
        KwLogSystem::Push("plain %d %s", 7, "x");
        EXPECT_FALSE(KwLogSystem::PushRes("result"));
        EXPECT_FALSE(KwLogSystem::PushName("core", "named %d", 1));
        EXPECT_FALSE(KwLogSystem::PushName("", "no name"));
        EXPECT_FALSE(KwLogSystem::PushName(nullptr, "null name"));
        KwLogSystem::Push("100%%");
        KwLogSystem::Push("%s", "");
    });
    EXPECT_EQ(text, "plain 7 x\nresult\n[core]named 1\nno name\nnull name\n100%\n\n");
}

TEST_F(KwLogSystemTest, WhatCannotBeFormattedIsWrittenAsItIsAndNullIsNothing) {
    const char* broken = "half %";
    const char* none = nullptr;
    const std::string text = Console([&] {
        KwLogSystem::PushV(broken, nullptr);
        KwLogSystem::PushV("ready %d text", nullptr);
        KwLogSystem::PushV(none, nullptr);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
        KwLogSystem::Push(broken);
#pragma GCC diagnostic pop
    });
    EXPECT_EQ(text, "half %\nready %d text\nhalf %\n");
}

TEST_F(KwLogSystemTest, TheTimeStandsWithoutPaddingBeforeTheName) {
    KwLogSystem::SetOutputLogConsole(true);
    STime before = {};
    STime after = {};
    KwTime::GetCurTime(&before);
    const std::string text = Console([] { KwLogSystem::PushName("n", "t"); });
    KwTime::GetCurTime(&after);
    const auto prefix = [](const STime& t) {
        std::ostringstream out;
        out << '[' << +t.day << '_' << +t.month << '_' << t.year << "][" << +t.hour << '_' << +t.minute << '_'
            << +t.second << "][n]t\n";
        return out.str();
    };
    EXPECT_TRUE(text == prefix(before) || text == prefix(after)) << text;
}

// Around the room that a line has on the stack, with and without a name.
TEST_F(KwLogSystemTest, LongLinesAreWhole) {
    for (const std::size_t length : {900u, 1016u, 1017u, 1023u, 1024u, 1025u, 5000u, 200000u}) {
        const std::string body(length, 'b');
        const std::string name(length / 2, 'n');
        const std::string text = Console([&] {
            KwLogSystem::Push("%s", body.c_str());
            KwLogSystem::PushName("core", "%s", body.c_str());
            KwLogSystem::PushName(name.c_str(), "%s", body.c_str());
        });
        EXPECT_TRUE(text == body + "\n[core]" + body + "\n[" + name + "]" + body + "\n") << length;
    }
}

// A file ------------------------------------------------------------------------------------------------------

TEST_F(KwLogSystemTest, AFileIsAppendedToAndNamesStayOut) {
    std::ofstream(file, std::ios::binary) << "old\n";
    ToFile();
    KwLogSystem::PushName("name", "new");
    KwLogSystem::SetOutputLogConsole(false);
    EXPECT_EQ(Read(file), "old\nnew\n");
}

TEST_F(KwLogSystemTest, FlushHandsTheWaitingLinesOut) {
    ToFile(true);
    KwLogSystem::Push("line");
    KwLogSystem::Flush();
    int end = 0;
    const std::string text = Read(file);
    std::sscanf(text.c_str(), "[%*d_%*d_%*4d][%*d_%*d_%*d]line%n", &end);
    EXPECT_EQ(text.substr(static_cast<std::size_t>(end)), "\n") << text;
}

TEST_F(KwLogSystemTest, TheFileIsReopenedAfterLine101) {
    ToFile();
    for (int i = 0; i < 100; ++i) KwLogSystem::Push("%d", i);
    const std::string moved = file + ".1";
    fs::rename(file, moved);
    KwLogSystem::Push("the last of the old file");
    KwLogSystem::Push("the first of the new file");
    for (int i = 0; i < 99; ++i) KwLogSystem::Push("%d", i);
    KwLogSystem::SetOutputLogConsole(false);
    EXPECT_EQ(Lines(Read(moved)).size(), 101u);
    EXPECT_EQ(Lines(Read(moved)).back(), "the last of the old file");
    EXPECT_EQ(Lines(Read(file)).size(), 100u);
    EXPECT_EQ(Lines(Read(file)).front(), "the first of the new file");
}

TEST_F(KwLogSystemTest, AFileThatCannotBeOpenedLeavesTheConsole) {
    const std::string path = (folder / "missing" / "x.log").string();
    const std::string shown = Console([&] {
        KwLogSystem::SetOutputLogFile(path.c_str(), false);
        KwLogSystem::Push("line");
    });
    std::string inner = path;
    std::replace(inner.begin(), inner.end(), '/', '\\');
    EXPECT_TRUE(shown == "Set Log file error not append file " + path + "\nline\n" ||
                shown == "Set Log file error not append file " + inner + "\nline\n")
        << shown;
    EXPECT_EQ(Console([] { KwLogSystem::SetOutputLogFile(nullptr, false); }), "Set Log file error not append file \n");
    const std::string tooLong = folder.string() + "/" + std::string(300, 'x');
    EXPECT_EQ(Console([&] { KwLogSystem::SetOutputLogFile(tooLong.c_str(), false); }),
              "Set Log file error not append file " + tooLong + "\n");
}

// A folder is in its place for a while: lines show on the console meanwhile, one message tells why.
TEST_F(KwLogSystemTest, AFileThatIsLostIsTakenUpAgain) {
    ToFile();
    fs::rename(file, file + ".1");
    fs::create_directories(file);
    const std::string shown = Console([] {
        for (int i = 0; i < 3 * 101; ++i) KwLogSystem::Push("line");
    });
    const std::vector<std::string> lines = Lines(shown);
    EXPECT_EQ(lines.size(), 1u + 2 * 101u);
    EXPECT_EQ(lines[0].substr(0, 35), "Set Log file error not append file ");
    fs::remove(file);
    EXPECT_EQ(Lines(Console([] {
                  for (int i = 0; i < 102; ++i) KwLogSystem::Push("line %d", i);
              })).size(),
              101u);
    KwLogSystem::SetOutputLogConsole(false);
    EXPECT_EQ(Read(file), "line 101\n");
}

TEST_F(KwLogSystemTest, RelativeNamesStandUnderTheFirstResourcePath) {
    Console([this] { EXPECT_TRUE(KwRes::SetResPath(folder.string().c_str(), 0)); });
    KwLogSystem::SetOutputLogFile("relative.log", false);
    KwLogSystem::Push("x");
    Kw_Release();
    Kw_Init();
    EXPECT_EQ(Read(folder / "relative.log"), "x\n");
}

TEST_F(KwLogSystemTest, LinesOfSeveralThreadsAreNeverTornOrMixed) {
    ToFile(true);
    constexpr int kThreads = 4;
    constexpr int kLines = 3000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                KwLogSystem::Push("%d %d %s", t, i,
                                  std::string(static_cast<std::size_t>(i % 50), static_cast<char>('a' + t)).c_str());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    KwLogSystem::SetOutputLogConsole(false);
    const std::vector<std::string> lines = Lines(Read(file));
    ASSERT_EQ(lines.size(), std::size_t{kThreads * kLines});
    std::map<int, int> next;
    for (const std::string& line : lines) {
        int t = -1;
        int i = -1;
        int used = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "[%*d_%*d_%*d][%*d_%*d_%*d]%d %d %n", &t, &i, &used), 2) << line;
        ASSERT_EQ(i, next[t]++);
        ASSERT_EQ(line.substr(static_cast<std::size_t>(used)),
                  std::string(static_cast<std::size_t>(i % 50), static_cast<char>('a' + t)));
    }
}

// A callback --------------------------------------------------------------------------------------------------

std::vector<std::string> g_lines;
bool g_timed = false;

void Collect(const char* format, va_list args, STime* time) {
    g_timed = time != nullptr && time->year > 2000;
    if (args == nullptr) {
        g_lines.emplace_back(format);
        return;
    }
    char text[256];
    std::vsnprintf(text, sizeof(text), format, args);
    g_lines.emplace_back(text);
}

TEST_F(KwLogSystemTest, ACallbackGetsFormatArgumentsAndTime) {
    g_lines.clear();
    ToFile();
    KwLogSystem::SetOutputLogCallback(Collect, true);
    KwLogSystem::PushName("name", "%s-%d", "a", 5);
    EXPECT_TRUE(g_timed);
    KwLogSystem::SetOutputLogCallback(Collect, false);
    KwLogSystem::PushV("100%%", nullptr);
    EXPECT_FALSE(g_timed);
    EXPECT_EQ(g_lines, (std::vector<std::string>{"a-5", "100%%"}));
    EXPECT_EQ(Read(file), "");
}

TEST_F(KwLogSystemTest, ANullCallbackLeavesTheConsole) {
    EXPECT_EQ(Console([] {
                  KwLogSystem::SetOutputLogCallback(nullptr, false);
                  KwLogSystem::Push("line");
              }),
              "Set Log Func error func = null\nline\n");
}

TEST_F(KwLogSystemTest, WhatACallbackPushesGoesToTheConsole) {
    KwLogSystem::SetOutputLogCallback([](const char*, va_list, STime*) { KwLogSystem::Push("inner"); }, false);
    EXPECT_EQ(Console([] { KwLogSystem::Push("outer"); }), "inner\n");
}

TEST_F(KwLogSystemTest, ACallbackThatThrowsIsCalledAgain) {
    KwLogSystem::SetOutputLogCallback([](const char*, va_list, STime*) { throw std::runtime_error("full"); }, false);
    const std::string line = "exception in the log callback: full\n";
    EXPECT_EQ(Console([] {
                  KwLogSystem::Push("outer");
                  KwLogSystem::Push("%d", 2);
              }),
              line + line);
}

// The rest ----------------------------------------------------------------------------------------------------

TEST_F(KwLogSystemTest, WriteLogWritesToBothAndToNeitherWithoutItsFile) {
    const std::string extra = (folder / "extra.log").string();
    ToFile(true);
    KwLogSystem::WriteLog(extra.c_str(), "n=%d %s", 3, std::string(2000, 'x').c_str());
    KwLogSystem::WriteLog(extra.c_str(), "second");
    KwLogSystem::Flush();
    EXPECT_EQ(Read(extra), "n=3 " + std::string(2000, 'x') + "\nsecond\n");
    EXPECT_EQ(Lines(Read(file)).size(), 2u);
    KwLogSystem::WriteLog((folder / "none" / "x").string().c_str(), "lost");
    KwLogSystem::SetOutputLogConsole(false);
    EXPECT_EQ(Read(file).find("lost"), std::string::npos);
}

TEST_F(KwLogSystemTest, WriteLogKeepsBothOutputsInStep) {
    const std::string extra = (folder / "extra.log").string();
    ToFile();
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&extra, t] {
            for (int i = 0; i < 3000; ++i) KwLogSystem::WriteLog(extra.c_str(), "%d %d", t, i);
        });
    }
    for (std::thread& thread : threads) thread.join();
    KwLogSystem::SetOutputLogConsole(false);
    EXPECT_EQ(Lines(Read(extra)).size(), 9000u);
    EXPECT_TRUE(Read(extra) == Read(file));
}

TEST_F(KwLogSystemTest, ProcessTimeIsCountedFromTheCallBefore) {
    Kw_Release();
    Kw_Init();
    const std::string first = Console([] { KwLogSystem::SetProcessTimeWork("load"); });
    EXPECT_EQ(first, ">>>>ProcessTimeWork[load]=0\n");
    KwTime::Wait(20);
    const std::string second = Console([] { KwLogSystem::SetProcessTimeWork("save"); });
    int ms = 0;
    ASSERT_EQ(std::sscanf(second.c_str(), ">>>>ProcessTimeWork[save]=%d", &ms), 1);
    EXPECT_GE(ms, 20);
    EXPECT_LT(ms, 2000);
}

TEST_F(KwLogSystemTest, AReleaseClosesTheFileAndTheLogGoesOnAfterIt) {
    ToFile(true);
    KwLogSystem::Push("before");
    Kw_Release();
    EXPECT_EQ(Lines(Read(file)).size(), 1u);
    EXPECT_EQ(Console([] { KwLogSystem::Push("released"); }), "released\n");
    Kw_Init();
    ToFile();
    KwLogSystem::Push("again");
    Kw_Release();
    Kw_Init();
    EXPECT_EQ(Lines(Read(file)).size(), 2u);
}

TEST_F(KwLogSystemTest, TheAllocatorsReportReachesTheFile) {
    ToFile();
    KwMemory::AttackLogError(KwLogSystem::Push);
    KwMemory::Malloc(5, "leak.cpp", 3);
    Kw_Release();
    Kw_Init();
    EXPECT_NE(Read(file).find("Size=5,[leak.cpp:3]\nMemory Leak "), std::string::npos) << Read(file);
}

// A static object of a host logs before main and after it.
struct Early {
    Early() { KwLogSystem::Push("early %d", ++count); }
    static int count;
};
int Early::count = 0;
const Early g_early;

TEST_F(KwLogSystemTest, AStaticObjectMayLog) {
    EXPECT_EQ(Early::count, 1);
}

// Capture -----------------------------------------------------------------------------------------------------

// Keeps the lines that it is handed; one that says "echo" is answered by a line of its own.
class Capture : public CBLogToBuffer {
public:
    void OnLog(const char* text, unsigned int length) override {
        lines.emplace_back(text, length);
        if (lines.back() == "echo") KwLogSystem::Push("answer");
        if (lines.back() == "unhook") KwLogSystem::UnHook();
        if (lines.back() == "throw") throw std::runtime_error("thrown");
    }
    std::vector<std::string> lines;
};

TEST_F(KwLogSystemTest, AHookedObjectGetsTheLinesWhenItIsCalled) {
    Capture capture;
    const std::string shown = Console([&] {
        KwLogSystem::Push("before");
        KwLogSystem::Hook(&capture);
        KwLogSystem::Push("%d", 1);
        KwLogSystem::PushName("name", "two");
        EXPECT_TRUE(capture.lines.empty());
        EXPECT_EQ(KwLogSystem::CallHook(), 2);
        KwLogSystem::Push("echo");
        KwLogSystem::UnHook();
        KwLogSystem::Push("after");
    });
    EXPECT_EQ(capture.lines, (std::vector<std::string>{"1", "[name]two", "echo", "answer"}));
    EXPECT_EQ(shown, "before\n1\n[name]two\necho\nanswer\nafter\n");
    EXPECT_EQ(KwLogSystem::CallHook(), 0);
    EXPECT_EQ(capture.GetRef(), 1);
}

TEST_F(KwLogSystemTest, AHookedObjectMayUnhookItselfAndLostLinesAreTold) {
    Capture capture;
    Console([&] {
        KwLogSystem::Hook(&capture);
        KwLogSystem::Push("throw");
        KwLogSystem::Push("unhook");
        EXPECT_EQ(KwLogSystem::CallHook(), 2);
        EXPECT_EQ(capture.GetRef(), 1);
        KwLogSystem::Hook(&capture);
        const std::string large(9 << 20, 'x');
        for (int i = 0; i < 3; ++i) KwLogSystem::Push("%s", large.c_str());
        KwLogSystem::UnHook();
    });
    ASSERT_EQ(capture.lines.size(), 4u);
    EXPECT_EQ(capture.lines[3], "2 log lines lost");
}

}  // namespace
