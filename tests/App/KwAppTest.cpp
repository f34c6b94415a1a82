// The order of an application's life. The phases of the hooks run once per process: each case has its own.
#include "Kw/App/KwApp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "Kw/App/KwCommand.h"
#include "Kw/App/KwEventInit.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwDataObject.h"

namespace {

std::string g_calls;

void Note(const std::string& text) {
    g_calls += (g_calls.empty() ? "" : " ") + text;
}

void Expect(const std::string& calls) {
    if (g_calls != calls) {
        std::fprintf(stderr, "called: %s\nexpected: %s\n", g_calls.c_str(), calls.c_str());
        std::_Exit(1);
    }
    g_calls.clear();
}

void Require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::_Exit(1);
}

bool Hook(int event, int) {
    Note("hook" + std::to_string(event));
    return true;
}

bool DeclineStart(int event, int) {
    return event != 2;
}

class App : public KwAppClass {
public:
    bool starts = true;
    bool mayStop = true;
    int passes = 3;
    std::function<void()> inside;

protected:
    bool OnInit(KwDS* config) override {
        Note(config == nullptr ? "init" : "init:" + std::string(config->GetString("Other", nullptr, "-")));
        return starts;
    }
    void OnPreRun() override { Note("prerun"); }
    void OnRun(unsigned int tick) override {
        Require(tick == GetLastTick(), "the tick is that of the pass");
        Note("run");
        if (inside) inside();
        if (--passes == 0) StopApp();
    }
    void OnClose() override { Note(IsRunning() ? "close!" : "close"); }
    bool CanStopApp() override {
        Note("ask");
        return mayStop;
    }
};

std::string WriteConfig(const std::string& text) {
    const std::string path = testing::TempDir() + "kwapp" + std::to_string(std::rand()) + ".ds";
    std::FILE* file = std::fopen(path.c_str(), "wb");
    Require(file != nullptr && std::fwrite(text.data(), 1, text.size(), file) == text.size(), "config written");
    std::fclose(file);
    return path;
}

template <class Scenario>
void InOwnProcess(Scenario scenario) {
    EXPECT_EXIT(
        {
            scenario();
            std::_Exit(7);
        },
        testing::ExitedWithCode(7), "");
}

TEST(KwAppTest, HooksAndPhasesRunInTheirOrder) {
    InOwnProcess([] {
        const KwEventInit hook(Hook);
        App app;
        Require(app.Init(nullptr, false, true), "init");
        Require(app.GetCommand() == nullptr && app.GetAppName().empty(), "nothing that was not asked for");
        Expect("init hook1 hook2");
        app.Run(-5);
        Expect("prerun run run run ask");
        app.Run(1);
        Expect("prerun");
        app.StopApp();
        app.Close();
        Expect("close hook3 hook4");
    });
}

TEST(KwAppTest, AnApplicationThatDoesNotStartRunsNoHooks) {
    InOwnProcess([] {
        const KwEventInit hook(Hook);
        App app;
        app.starts = false;
        Require(!app.Init(nullptr, true, true), "not running");
        app.Run(1);
        Expect("init prerun");
        Require(app.GetCommand() != nullptr, "the registry is there until Close");
        app.Close();
        Require(app.GetCommand() == nullptr, "and not after it");
        Expect("close hook3 hook4");
    });
}

// A host that ignores the result of Init still enters its loop.
TEST(KwAppTest, AFailedStartPhaseLeavesTheRunningFlag) {
    InOwnProcess([] {
        const KwEventInit hook(DeclineStart);
        App app;
        Require(!app.Init(nullptr, false, false), "init fails");
        Require(app.IsRunning(), "the flag stays");
        app.Run(100);
        Expect("init prerun run run run ask");
    });
}

TEST(KwAppTest, AStopThatIsDeclinedLeavesTheLoopRunning) {
    InOwnProcess([] {
        App app;
        app.mayStop = false;
        app.Init(nullptr, false, false);
        app.passes = 1;
        app.inside = [&app] {
            if (app.passes == -2) {
                app.mayStop = true;
                app.StopApp();
            }
        };
        app.Run(10);
        Expect("init prerun run ask run run run ask");
    });
}

TEST(KwAppTest, TheConfigurationNamesTheApplication) {
    InOwnProcess([] {
        App app;
        const std::string named = WriteConfig("AppName=\"Zone server\"; Other=\"o\"");
        Require(app.Init(named.c_str(), false, false), "init");
        Require(app.GetAppName() == "Zone server", "its name");
        const std::string numbered = WriteConfig("AppName=5");
        Require(app.Init(numbered.c_str(), false, false) && app.GetAppName().empty(), "a number is no name");
        const std::string empty = WriteConfig("");
        Require(app.Init(empty.c_str(), false, false) && app.GetAppName().empty(), "an empty document");
        Expect("init:o init:- init:-");
        std::remove(named.c_str());
        std::remove(numbered.c_str());
        std::remove(empty.c_str());
    });
}

TEST(KwAppTest, AConfigurationThatDoesNotLoadEndsInitAtOnce) {
    InOwnProcess([] {
        KwLogSystem::SetOutputLogCallback([](const char*, va_list, STime*) {}, false);
        const KwEventInit hook(Hook);
        App app;
        Require(!app.Init("/nowhere/at/all.ds", true, true), "missing");
        const std::string broken = WriteConfig("a = { b = 1");
        Require(!app.Init(broken.c_str(), true, true), "broken");
        std::remove(broken.c_str());
        Require(app.GetCommand() == nullptr && !app.IsRunning(), "nothing was made");
        Expect("");
    });
}

TEST(KwAppTest, TheLoopSleepsOnceInSoManyPasses) {
    InOwnProcess([] {
        App app;
        app.Init(nullptr, false, false);
        app.passes = 7;
        app.SetPassSleep(100);
        const auto start = std::chrono::steady_clock::now();
        app.Run(3);
        const auto took = std::chrono::steady_clock::now() - start;
        Require(took >= std::chrono::milliseconds(200), "passes 3 and 6 begin with a sleep");
        Require(took < std::chrono::milliseconds(650), "the others do not");
    });
}

TEST(KwAppTest, ACopyOwnsNeitherCommandsNorThreads) {
    InOwnProcess([] {
        App app;
        Require(app.Init(nullptr, true, true), "init");
        {
            const App copy(app);
            Require(copy.IsRunning() && copy.GetCommand() == nullptr, "state without what is owned");
            App other;
            other = app;
            app = other;
            Require(app.GetCommand() != nullptr, "an assignment keeps what its target owns");
        }
        app.Close();
        App unclosed;
        Require(unclosed.Init(nullptr, true, true), "the destructor stops what Close was not called for");
    });
}

TEST(KwAppTest, AHandlerMayCloseTheApplicationThatRunsIt) {
    InOwnProcess([] {
        class Closer : public App {
        public:
            void OnCloseMe(const std::string&, KwCmd*) { Close(); }
        };
        Closer app;
        app.passes = 0;
        Require(app.Init(nullptr, true, false), "init");
        app.GetCommand()->Add("close", &app, &Closer::OnCloseMe);
        app.inside = [&app] {
            char line[] = "close";
            app.GetCommand()->Do(line, 5);
        };
        app.Run(1);
        Expect("init prerun run close!");
        Require(app.GetCommand() == nullptr, "closed");
    });
}

}  // namespace
