// Keys and lines as a person types them at a terminal, and as they come through a pipe.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "App/KwAppHarness.h"
#include "Kw/App/KwCommandThread.h"

namespace {

// A host around one registry: "end" stops it, every other line is printed between brackets.
class ListenHost : public KwInf {
public:
    explicit ListenHost(KwCommand& registry) : registry_(registry) {
        registry.Add("end", this, &ListenHost::OnEnd);
        registry.Add("password", this, &ListenHost::OnPassword);
        registry.SetCommandCallback(this, &ListenHost::OnLine);
    }
    void OnEnd(const std::string&, KwCmd*) {
        ended_ = true;
        registry_.StopLines();
    }
    void OnPassword(const std::string&, KwCmd*) { std::printf("[secret %s]\n", registry_.InputPassword().c_str()); }
    bool OnLine(const std::string& name, KwCmd* params) {
        std::printf("[%s %s]\n", name.c_str(), params->GetString(1, ""));
        return true;
    }
    bool IsEnded() const { return ended_; }

private:
    KwCommand& registry_;
    bool ended_ = false;
};

void Pause() {
    usleep(1000);
}

int Listen() {
    KwCommand registry;
    ListenHost host(registry);
    while (!host.IsEnded() && !KwCommand::IsInputEnded()) {
        registry.Listen();
        Pause();
    }
    return 0;
}

int ReadByThread() {
    KwCommandThread registry;
    ListenHost host(registry);
    registry.InitCommandThread();
    for (int i = 0; i < 20000 && !host.IsEnded(); ++i) {
        registry.OnEvent();
        if (KwCommand::IsInputEnded()) {
            registry.OnEvent();
            break;
        }
        Pause();
    }
    registry.CloseComandThread();
    return 0;
}

TEST(KwConsoleTest, KeysAreEchoedEditedAndRunByEnter) {
    HostProcess host(HostProcess::kTerminal, Listen);
    ASSERT_TRUE(host.WaitForKeyMode(true));
    host.Type(
        "savx\x7f"
        "e 7\r");
    EXPECT_TRUE(host.Sees("savx\b \be 7\r\n[save 7]"));
    // Taking back more than there is leaves the screen left of the line alone.
    host.Type(
        "\x7f\x08"
        "a 1\n");
    EXPECT_TRUE(host.Sees("\r\na 1\r\n[a 1]"));
    // A character of three bytes and two columns goes whole.
    host.Type(
        "\xE4\xB8\xAD\x7f"
        "b 2\r");
    EXPECT_TRUE(host.Sees("\xE4\xB8\xAD\b \b\b \bb 2\r\n[b 2]"));
    host.Type("end\r");
    EXPECT_EQ(host.Wait(), 0);
    EXPECT_TRUE(host.WaitForKeyMode(false));
}

TEST(KwConsoleTest, ArrowsDeleteAndFunctionKeysLeaveTheLineAlone) {
    HostProcess host(HostProcess::kTerminal, Listen);
    ASSERT_TRUE(host.WaitForKeyMode(true));
    host.Type(
        "a\x1b[A\x1b[B\x1b[C\x1b[D\x1bOA\x1b[3~\x1b[1;5Cb\x1bOP\x1b[15~\x1b[24~\x1b[H\x1bOF\x1b[5~\x1b[2~\x1b["
        "99z\x01\x04"
        "c 3\r");
    EXPECT_TRUE(host.Sees("abc 3\r\n[abc 3]"));
    // Cut in the middle of a sequence, and a lone Esc.
    host.Type("d\x1b[");
    usleep(5000);
    host.Type("Ae\x1b");
    usleep(120000);
    host.Type("[f 4\r");
    EXPECT_TRUE(host.Sees("[de[f 4]"));
    host.Type("end\r");
    EXPECT_EQ(host.Wait(), 0);
}

TEST(KwConsoleTest, APasswordIsShownAsStars) {
    HostProcess host(HostProcess::kTerminal, Listen);
    ASSERT_TRUE(host.WaitForKeyMode(true));
    host.Type("password\r");
    EXPECT_TRUE(host.Sees("password\r\n"));
    host.Type("ab c\r");
    EXPECT_TRUE(host.Sees("****\r\n[secret ab c]"));
    host.Type("password\r\r");
    EXPECT_TRUE(host.Sees("password\r\n\r\n[secret ]"));
    EXPECT_EQ(host.Output().find('*'), std::string::npos);
}

TEST(KwConsoleTest, TheTerminalIsPutBackBySignalsAndAtExit) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGUSR1}) {
        HostProcess host(HostProcess::kTerminal, Listen);
        ASSERT_TRUE(host.WaitForKeyMode(true));
        host.Signal(number);
        EXPECT_EQ(host.Wait(), 1000 + number);
        EXPECT_TRUE(host.WaitForKeyMode(false)) << number;
    }
    HostProcess host(HostProcess::kTerminal, [] {
        // Never destroyed: the exit has to do it.
        alignas(KwCommand) static unsigned char memory[sizeof(KwCommand)];
        auto* registry = new (memory) KwCommand;
        registry->Listen();
        std::printf("listening\n");
        return 3;
    });
    EXPECT_TRUE(host.Sees("listening"));
    EXPECT_EQ(host.Wait(), 3);
    EXPECT_TRUE(host.WaitForKeyMode(false));
}

// A shell with job control around `Listen`: it tells of a stop and continues the job in the foreground.
int RunAsJob() {
    const pid_t job = fork();
    if (job == 0) {
        setpgid(0, 0);
        while (tcgetpgrp(STDIN_FILENO) != getpgrp()) Pause();
        _exit(Listen());
    }
    setpgid(job, job);
    signal(SIGTTOU, SIG_IGN);
    tcsetpgrp(STDIN_FILENO, job);
    int status = 0;
    while (waitpid(job, &status, WUNTRACED) == job && WIFSTOPPED(status)) {
        tcsetpgrp(STDIN_FILENO, getpgrp());
        std::printf("stopped\n");
        usleep(50000);
        std::printf("continued\n");
        tcsetpgrp(STDIN_FILENO, job);
        kill(-job, SIGCONT);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

TEST(KwConsoleTest, AStoppedHostGivesTheTerminalBackAndTakesItAgain) {
    HostProcess host(HostProcess::kTerminal, RunAsJob);
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(host.WaitForKeyMode(true));
        host.Type("\x1a");  // Ctrl+Z
        EXPECT_TRUE(host.Sees("stopped"));
        EXPECT_TRUE(host.WaitForKeyMode(false));
        EXPECT_TRUE(host.Sees("continued"));
    }
    ASSERT_TRUE(host.WaitForKeyMode(true));
    host.Type("back 1\r");
    EXPECT_TRUE(host.Sees("[back 1]"));
    host.Type("end\r");
    EXPECT_EQ(host.Wait(), 0);
}

TEST(KwConsoleTest, NoLineOfAPipeIsLost) {
    HostProcess host(HostProcess::kPipe, Listen);
    std::string expected;
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += "line" + std::to_string(i) + " " + std::to_string(i) + (i % 3 == 0 ? "\r\n" : "\n");
        expected += "[line" + std::to_string(i) + " " + std::to_string(i) + "]\n";
    }
    text += "last x";
    expected += "[last x]\n";
    host.Type(text);
    host.CloseInput();
    EXPECT_EQ(host.Wait(), 0);
    EXPECT_EQ(host.Output(), expected) << "nothing is echoed";
}

TEST(KwConsoleTest, LinesBehindTheEndAreNotRun) {
    HostProcess host(HostProcess::kPipe, Listen);
    host.Type("a 1\nend\nb 2\n");
    EXPECT_EQ(host.Wait(), 0);
    EXPECT_EQ(host.Output(), "[a 1]\n");
}

TEST(KwConsoleTest, PrefixBytesInTextAreTextAndKeepTheEndOfTheirLine) {
    HostProcess host(HostProcess::kPipe, Listen);
    // A Thai letter, 224 before a key code, 224 and 0 before a line end, 0 before a character.
    host.Type(
        "\xE0\xB8\x81 1\na\xE0"
        "Kb 2\nc\xE0\nd" +
        std::string(1, '\0') + "\ne" + std::string("\0x", 2) + "f 3\n");
    host.CloseInput();
    EXPECT_EQ(host.Wait(), 0);
    EXPECT_EQ(host.Output(), "[\xE0\xB8\x81 1]\n[ab 2]\n[c\xE0 ]\n[d ]\n[ef 3]\n");
}

// The key that does not fit runs the line and is dropped; the rest is a line of its own.
TEST(KwConsoleTest, AFullLineRunsAsItStands) {
    HostProcess host(HostProcess::kPipe, Listen);
    host.Type(std::string(1023, 'a') + "\n" + std::string(1023, 'b') + "Xrest 1\n");
    host.CloseInput();
    EXPECT_EQ(host.Wait(), 0);
    EXPECT_EQ(host.Output(), "[" + std::string(1023, 'a') + " ]\n[" + std::string(1023, 'b') + " ]\n[rest 1]\n");
}

TEST(KwConsoleTest, TheReaderThreadRefusesLongLinesWhole) {
    HostProcess host(HostProcess::kPipe, ReadByThread);
    host.Type(std::string(1023, 'a') + "\r\n" + std::string(1024, 'b') + "\n" + std::string(100000, 'c') + "\nlast 1");
    host.CloseInput();
    EXPECT_EQ(host.Wait(), 0);
    const std::string refused = "command line of more than 1023 characters refused\n";
    std::string output = host.Output();
    for (int i = 0; i < 2; ++i) {
        const std::size_t found = output.find(refused);
        ASSERT_NE(found, std::string::npos);
        output.erase(found, refused.size());
    }
    EXPECT_EQ(output, "[" + std::string(1023, 'a') + " ]\n[last 1]\n");
}

TEST(KwConsoleTest, TheReaderThreadStopsWhileItWaits) {
    for (const HostProcess::Input input : {HostProcess::kPipe, HostProcess::kTerminal}) {
        HostProcess host(input, [] {
            KwCommandThread registry;
            for (int i = 0; i < 3; ++i) {
                if (!registry.InitCommandThread()) return 1;
                registry.CloseComandThread();
            }
            return registry.InitCommandThread() ? 5 : 1;  // and by the destructor
        });
        EXPECT_EQ(host.Wait(), 5);
    }
}

// Lines of a terminal are typed in its own line mode, with its own echo.
TEST(KwConsoleTest, TheReaderThreadReadsATerminalAndAHandlerMayTakeItsKeys) {
    HostProcess host(HostProcess::kTerminal, ReadByThread);
    usleep(50000);  // what is typed before the thread begins with a line is dropped
    host.Type("one 1\n");
    EXPECT_TRUE(host.Sees("[one 1]"));
    usleep(50000);
    host.Type("password\n");
    ASSERT_TRUE(host.WaitForKeyMode(true));
    host.Type("key\r");
    EXPECT_TRUE(host.Sees("[secret key]"));
    ASSERT_TRUE(host.WaitForKeyMode(false));
    host.Type("end\n");
    EXPECT_EQ(host.Wait(), 0);
}

}  // namespace
