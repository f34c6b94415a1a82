// Hosts as child processes of this program, their standard input a pipe. A child is this program again, told to run
// one of the cases named DISABLED, which are the hosts.
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>
// The Windows header comes first.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <string>
#include <thread>

#include "Kw/App/KwApp.h"
#include "Kw/App/KwCommandThread.h"

namespace {

constexpr DWORD kPatienceMs = 20000;

struct Ended {
    std::string output;
    DWORD code = 0xFFFFFFFF;
};

// Runs the host with `input`, whose end it sees when `close`; without it the pipe stays open to the end.
Ended RunHost(const std::string& host, const std::string& input, bool close = true) {
    SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
    HANDLE childIn, in, out, childOut;
    CreatePipe(&childIn, &in, &inherit, 0);
    CreatePipe(&out, &childOut, &inherit, 0);
    SetHandleInformation(in, HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(out, HANDLE_FLAG_INHERIT, 0);

    char program[MAX_PATH];
    GetModuleFileNameA(nullptr, program, MAX_PATH);
    std::string line = '"' + std::string(program) +
                       "\" --gtest_also_run_disabled_tests --gtest_filter=KwConsoleWin32Host.DISABLED_" + host;
    STARTUPINFOA start{};
    start.cb = sizeof(start);
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = childIn;
    start.hStdOutput = start.hStdError = childOut;
    PROCESS_INFORMATION process{};
    Ended ended;
    const BOOL started =
        CreateProcessA(program, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &process);
    CloseHandle(childIn);
    CloseHandle(childOut);
    EXPECT_NE(started, 0);
    if (started == 0) return ended;

    std::thread writer([&] {
        DWORD written;
        WriteFile(in, input.data(), static_cast<DWORD>(input.size()), &written, nullptr);
        if (close) CloseHandle(in);
    });
    std::thread reader([&] {
        char part[4096];
        DWORD count = 0;
        while (ReadFile(out, part, sizeof(part), &count, nullptr) != 0 && count != 0) ended.output.append(part, count);
    });
    const DWORD wait = WaitForSingleObject(process.hProcess, kPatienceMs);
    EXPECT_EQ(wait, static_cast<DWORD>(WAIT_OBJECT_0)) << "the host hangs";
    if (wait != WAIT_OBJECT_0) TerminateProcess(process.hProcess, 99);
    GetExitCodeProcess(process.hProcess, &ended.code);
    writer.join();
    reader.join();
    if (!close) CloseHandle(in);
    CloseHandle(out);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return ended;
}

// What the hosts' commands said, which is between bars.
std::string Said(const std::string& output) {
    std::string said;
    for (std::size_t at = output.find('|'); at != std::string::npos; at = output.find('|', at)) {
        const std::size_t end = output.find('|', at + 1);
        if (end == std::string::npos) break;
        said += output.substr(at + 1, end - at - 1) + ' ';
        at = end + 1;
    }
    return said;
}

void Say(const std::string&, KwCmd* params) {
    std::printf("|%s|", params->GetString(1, "?"));
}

std::string Numbered(int count, const char* end) {
    std::string lines;
    for (int i = 0; i < count; ++i) lines += "say " + std::to_string(i) + end;
    return lines;
}

std::string Numbers(int count) {
    std::string said;
    for (int i = 0; i < count; ++i) said += std::to_string(i) + ' ';
    return said;
}

// --- The hosts ---

TEST(KwConsoleWin32Host, DISABLED_Thread) {
    KwCommandThread commands;
    commands.Add("say", Say);
    ASSERT_TRUE(commands.InitCommandThread());
    while (!KwCommand::IsInputEnded()) {
        commands.OnEvent();
        Sleep(1);
    }
    commands.CloseComandThread();
    commands.OnEvent();
}

TEST(KwConsoleWin32Host, DISABLED_Keys) {
    KwCommand commands;
    commands.Add("say", Say);
    while (!KwCommand::IsInputEnded()) {
        commands.Listen();
        Sleep(1);
    }
}

TEST(KwConsoleWin32Host, DISABLED_Stop) {
    KwCommandThread commands;
    commands.Add("say", Say);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(commands.InitCommandThread());
        Sleep(50);
        commands.CloseComandThread();
    }
    commands.OnEvent();
    std::printf("|stopped|");
}

class Host : public KwAppClass {
    bool OnInit(KwDS*) override {
        GetCommand()->Add("say", Say);
        GetCommand()->Add("signal", [](const std::string&, KwCmd*) { raise(SIGTERM); });
        GetCommand()->Add("twice", [](const std::string&, KwCmd*) {
            raise(SIGTERM);
            std::printf("|one|");
            std::fflush(stdout);
            raise(SIGTERM);
        });
        return true;
    }
    void OnClose() override { std::printf("|closed|"); }
};

TEST(KwConsoleWin32Host, DISABLED_App) {
    Host host;
    ASSERT_TRUE(host.Init(nullptr, true, true));
    host.Run(1);
    host.Close();
}

// --- The cases ---

TEST(KwConsoleWin32Test, TheReaderThreadLosesNoLineOfAPipe) {
    EXPECT_EQ(Said(RunHost("Thread", Numbered(3000, "\r\n")).output), Numbers(3000));
    EXPECT_EQ(Said(RunHost("Thread", Numbered(2, "\n") + "say last").output), "0 1 last ");
    EXPECT_EQ(Said(RunHost("Thread", "say " + std::string(5000, 'x') + "\nsay kept\n").output), "kept ");
    EXPECT_EQ(Said(RunHost("Thread", "").output), "");
}

TEST(KwConsoleWin32Test, KeysOfAPipeMakeTheSameLines) {
    EXPECT_EQ(Said(RunHost("Keys", Numbered(3000, "\r\n")).output), Numbers(3000));
    EXPECT_EQ(Said(RunHost("Keys", "say wrog\bng\nsay last").output), "wrong last ");
}

TEST(KwConsoleWin32Test, TheReaderThreadStopsWhileItWaits) {
    const Ended silent = RunHost("Stop", "", false);
    EXPECT_EQ(Said(silent.output), "stopped ");
    EXPECT_EQ(silent.code, 0u);
    EXPECT_EQ(Said(RunHost("Stop", "say once\n", false).output), "once stopped ");
}

TEST(KwConsoleWin32Test, AnApplicationEndsWithoutAQuestionWhereNobodyCanAnswer) {
    const Ended byCommand = RunHost("App", "say 1\nexit\nsay 2\n", false);
    EXPECT_EQ(Said(byCommand.output), "1 closed ");
    EXPECT_EQ(byCommand.code, 0u);
    EXPECT_EQ(Said(RunHost("App", "signal\n", false).output), "closed ");
}

TEST(KwConsoleWin32Test, TheSecondRequestToStopEndsTheProcessAtOnce) {
    const Ended ended = RunHost("App", "twice\n", false);
    EXPECT_EQ(Said(ended.output), "one ");
    EXPECT_EQ(ended.code, 3u) << "as the C runtime ends it";
}

}  // namespace
