// An application at its console: the "exit" command, the question, signals, the reader thread, idling.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "App/KwAppHarness.h"
#include "Kw/App/KwApp.h"
#include "Kw/App/KwCommand.h"
#include "Kw/App/KwEventInit.h"
#include "Kw/App/KwInputWatch.h"

namespace {

bool SayPhase(int event, int) {
    if (event > 2) std::printf("phase %d\n", event);
    return true;
}

class App : public KwAppClass {
public:
    void OnLine(const std::string& name, KwCmd* params) {
        std::printf("[%s %s]\n", name.c_str(), params->GetString(1, ""));
    }

protected:
    bool OnInit(KwDS*) override {
        if (GetCommand() != nullptr) GetCommand()->Add("say", this, &App::OnLine, "say it");
        return true;
    }
    void OnPreRun() override { std::printf("ready\n"); }
};

int Live(bool thread) {
    const KwEventInit phases(SayPhase);
    App app;
    if (!app.Init(nullptr, true, thread)) return 1;
    app.Run(1);
    std::printf("over\n");
    app.Close();
    return 0;
}
int LiveByListen() {
    return Live(false);
}
int LiveByThread() {
    return Live(true);
}

TEST(KwAppConsoleTest, PipedLinesRunInOrderUpToExit) {
    for (const auto& live : {LiveByListen, LiveByThread}) {
        HostProcess host(HostProcess::kPipe, live);
        host.Type("say 1\nSAY 2\nExit\nsay 3\nexit\nsay 4\n");
        EXPECT_EQ(host.Wait(), 0);
        EXPECT_EQ(host.Output(), "ready\n[say 1]\n[SAY 2]\n[say 3]\nover\nphase 3\nphase 4\n");
    }
}

TEST(KwAppConsoleTest, ExitAsksAtATerminal) {
    for (const auto& live : {LiveByListen, LiveByThread}) {
        HostProcess host(HostProcess::kTerminal, live);
        ASSERT_TRUE(host.Sees("ready"));
        usleep(50000);  // what is typed before a thread begins with a line is dropped
        host.Type("exit\n");
        ASSERT_TRUE(host.Sees("System: You want stop Application ? [y/n] "));
        host.Type("xn\n");
        ASSERT_TRUE(host.Sees("n\r\n"));
        ASSERT_TRUE(live == LiveByThread ? host.WaitForKeyMode(false) : host.WaitForKeyMode(true));
        usleep(50000);
        host.Type("say 5\n");
        ASSERT_TRUE(host.Sees("[say 5]")) << host.Output();
        usleep(50000);
        host.Type("exit\n");
        ASSERT_TRUE(host.Sees("[y/n] "));
        host.Type("y");
        EXPECT_EQ(host.Wait(), 0);
        EXPECT_TRUE(host.Sees("over"));
        EXPECT_EQ(host.Output().find("not found"), std::string::npos) << "the Enter behind the answer is no line";
        EXPECT_TRUE(host.WaitForKeyMode(false));
    }
}

TEST(KwAppConsoleTest, ASignalEndsTheLoopWithoutAQuestion) {
    for (const HostProcess::Input input : {HostProcess::kTerminal, HostProcess::kPipe, HostProcess::kEnded}) {
        for (const int number : {SIGINT, SIGTERM}) {
            HostProcess host(input, input == HostProcess::kPipe ? LiveByThread : LiveByListen);
            ASSERT_TRUE(host.Sees("ready"));
            host.Signal(number);
            EXPECT_EQ(host.Wait(), 0);
            EXPECT_TRUE(host.Sees("over"));
            EXPECT_TRUE(host.Sees("phase 4"));
        }
    }
}

TEST(KwAppConsoleTest, ASignalEndsTheQuestionToo) {
    HostProcess host(HostProcess::kTerminal, LiveByListen);
    ASSERT_TRUE(host.Sees("ready"));
    host.Type("exit\r");
    ASSERT_TRUE(host.Sees("[y/n] "));
    host.Signal(SIGTERM);
    EXPECT_EQ(host.Wait(), 0);
}

class Stuck : public App {
protected:
    void OnRun(unsigned int) override {
        std::printf("stuck\n");
        for (;;) usleep(1000);
    }
};

TEST(KwAppConsoleTest, TheSecondSignalEndsTheProcessAtOnce) {
    HostProcess host(HostProcess::kTerminal, [] {
        Stuck app;
        app.Init(nullptr, true, false);
        app.GetCommand()->Listen();  // takes the terminal
        app.Run(1);
        return 0;
    });
    ASSERT_TRUE(host.Sees("stuck"));
    ASSERT_TRUE(host.WaitForKeyMode(true));
    host.Signal(SIGTERM);
    usleep(20000);
    EXPECT_EQ((host.LocalModes() & ICANON), 0u) << "the first one does nothing yet";
    host.Signal(SIGINT);
    EXPECT_EQ(host.Wait(), 1000 + SIGINT);
    EXPECT_TRUE(host.WaitForKeyMode(false));
}

TEST(KwAppConsoleTest, AHostMayKeepTheSignals) {
    HostProcess switchedOff(HostProcess::kPipe, [] {
        App app;
        app.SetStopBySignal(false);
        app.Init(nullptr, false, false);
        app.Run(1);
        return 0;
    });
    ASSERT_TRUE(switchedOff.Sees("ready"));
    switchedOff.Signal(SIGTERM);
    EXPECT_EQ(switchedOff.Wait(), 1000 + SIGTERM);

    HostProcess ignoring(HostProcess::kPipe, [] {
        signal(SIGINT, SIG_IGN);
        return LiveByListen();
    });
    ASSERT_TRUE(ignoring.Sees("ready"));
    ignoring.Signal(SIGINT);
    ignoring.Type("say 1\n");
    EXPECT_TRUE(ignoring.Sees("[say 1]"));
    ignoring.Type("exit\n");
    EXPECT_EQ(ignoring.Wait(), 0);
}

// A server may be started with its standard streams closed.
TEST(KwAppConsoleTest, NoFileTakesTheNumberOfAClosedStream) {
    HostProcess host(HostProcess::kPipe, [] {
        for (int fd = 0; fd < 3; ++fd) close(fd);
        App app;
        app.Init(nullptr, false, false);
        std::FILE* first = std::tmpfile();
        return first != nullptr && fileno(first) > 2 ? 0 : 1;
    });
    EXPECT_EQ(host.Wait(), 0);
}

// After Close the next application of the process starts without the old request.
TEST(KwAppConsoleTest, ARequestToStopEndsWithItsApplication) {
    HostProcess host(HostProcess::kPipe, [] {
        LiveByListen();
        return LiveByThread();
    });
    ASSERT_TRUE(host.Sees("ready"));
    host.Signal(SIGTERM);
    ASSERT_TRUE(host.Sees("over"));
    host.Type("say 1\nexit\n");
    EXPECT_TRUE(host.Sees("[say 1]"));
    EXPECT_EQ(host.Wait(), 0);
}

// Its passes wait for something else, as those of a server do.
class WaitingApp : public App {
public:
    KwInputWatch watch;

protected:
    void OnRun(unsigned int) override {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!wake_.wait_for(lock, std::chrono::seconds(60), [this] { return woken_; })) std::printf("overslept\n");
        woken_ = false;
    }
    void OnPreRun() override {
        watch.Start([this] {
            const std::lock_guard<std::mutex> guard(mutex_);
            woken_ = true;
            wake_.notify_all();
        });
        App::OnPreRun();
    }
    void OnClose() override { watch.Stop(); }

private:
    std::mutex mutex_;
    std::condition_variable wake_;
    bool woken_ = false;
};

TEST(KwAppConsoleTest, WhatIsTypedWakesALoopThatWaitsElsewhere) {
    for (const auto input : {HostProcess::kTerminal, HostProcess::kPipe}) {
        HostProcess host(input, [] {
            WaitingApp app;
            if (!app.Init(nullptr, true, false)) return 1;
            app.Run(1 << 30);
            app.Close();
            return app.watch.Start([] {}) ? 0 : 2;  // ends by itself
        });
        ASSERT_TRUE(host.Sees("ready"));
        for (const char* word : {"1", "2", "3"}) {
            host.Type(std::string("say ") + word + "\n");
            ASSERT_TRUE(host.Sees(std::string("[say ") + word + "]"));
        }
        usleep(200000);
        if (input == HostProcess::kPipe) host.Type(std::string(5000, 'x') + "\nexit");
        input == HostProcess::kPipe ? host.CloseInput() : host.Type("exit\ny");
        EXPECT_EQ(host.Wait(), 0) << host.Output();
        EXPECT_LT(host.CpuMs(), 150);
    }
}

TEST(KwAppConsoleTest, AnEndedInputCostsNoProcessorTime) {
    for (const auto& live : {LiveByListen, LiveByThread}) {
        HostProcess host(HostProcess::kEnded, live);
        ASSERT_TRUE(host.Sees("ready"));
        usleep(1000000);
        host.Signal(SIGTERM);
        EXPECT_EQ(host.Wait(), 0);
        EXPECT_LT(host.CpuMs(), 100) << "in a second that a spinning reader would fill";
    }
}

}  // namespace
