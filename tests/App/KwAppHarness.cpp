#include "App/KwAppHarness.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

constexpr int kPatienceMs = 10000;

std::chrono::steady_clock::time_point Deadline() {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
}

void PassFd(int from, int to) {
    dup2(from, to);
    if (from != to) close(from);
}

}  // namespace

HostProcess::HostProcess(Input input, const std::function<int()>& host) : terminal_(input == kTerminal) {
    int inPipe[2] = {-1, -1};
    int outPipe[2] = {-1, -1};
    if (terminal_) {
        int master = -1;
        if (openpty(&master, &slave_, nullptr, nullptr, nullptr) != 0) std::abort();
        in_ = out_ = master;
    } else {
        if (pipe(inPipe) != 0 || pipe(outPipe) != 0) std::abort();
        in_ = inPipe[1];
        out_ = outPipe[0];
    }
    std::fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        if (terminal_) {
            setsid();
            ioctl(slave_, TIOCSCTTY, 0);
            dup2(slave_, STDIN_FILENO);
            dup2(slave_, STDOUT_FILENO);
            close(in_);
        } else {
            if (input == kEnded) {
                PassFd(open("/dev/null", O_RDONLY), STDIN_FILENO);
            } else {
                PassFd(inPipe[0], STDIN_FILENO);
            }
            PassFd(outPipe[1], STDOUT_FILENO);
            close(inPipe[1]);
            close(outPipe[0]);
        }
        std::setvbuf(stdout, nullptr, _IONBF, 0);
        // Through exit, so that what is registered for it runs.
        std::exit(host());
    }
    if (!terminal_) {
        close(inPipe[0]);
        close(outPipe[1]);
    }
}

HostProcess::~HostProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (slave_ >= 0) close(slave_);
    if (!terminal_) close(out_);
    if (in_ >= 0) close(in_);
}

void HostProcess::Type(const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        // A host that writes must not wait for its reader.
        pollfd waiting{in_, POLLOUT, 0};
        while (Read(0) || poll(&waiting, 1, 10) == 0) {
        }
        const ssize_t count = write(in_, text.data() + done, std::min<std::size_t>(text.size() - done, 1024));
        if (count <= 0) return;
        done += static_cast<std::size_t>(count);
    }
}

void HostProcess::CloseInput() {
    close(in_);
    in_ = -1;
}

bool HostProcess::Read(int timeoutMs) {
    pollfd waiting{out_, POLLIN, 0};
    if (poll(&waiting, 1, timeoutMs) <= 0) return false;
    char bytes[4096];
    const ssize_t count = read(out_, bytes, sizeof(bytes));
    if (count <= 0) return false;
    output_.append(bytes, static_cast<std::size_t>(count));
    return true;
}

bool HostProcess::Sees(const std::string& text) {
    const auto end = Deadline();
    for (;;) {
        const std::size_t found = output_.find(text);
        if (found != std::string::npos) {
            output_.erase(0, found + text.size());
            return true;
        }
        if (std::chrono::steady_clock::now() > end) return false;
        if (!Read(100) && !terminal_ && pid_ < 0) return false;
    }
}

std::string HostProcess::Output() {
    while (Read(terminal_ ? 50 : 0)) {
    }
    return output_;
}

void HostProcess::Signal(int number) const {
    kill(pid_, number);
}

int HostProcess::Wait() {
    const auto end = Deadline();
    while (std::chrono::steady_clock::now() < end) {
        int status = 0;
        rusage usage{};
        if (wait4(pid_, &status, WNOHANG, &usage) == pid_) {
            pid_ = -1;
            cpuMs_ = (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
                     (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
        }
        if (!Read(5)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return -1;
}

tcflag_t HostProcess::LocalModes() const {
    termios modes{};
    tcgetattr(slave_, &modes);
    return modes.c_lflag;
}

bool HostProcess::WaitForKeyMode(bool on) const {
    for (int i = 0; i < kPatienceMs / 5; ++i) {
        if (((LocalModes() & (ICANON | ECHO)) == 0) == on) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}
