// Plays a host in a process of its own, at a pseudo terminal or at pipes, and talks to it.
#pragma once

#include <termios.h>

#include <functional>
#include <string>

class HostProcess {
public:
    enum Input { kTerminal, kPipe, kEnded };

    // Forks; `host` runs in the child, whose result is its exit code.
    HostProcess(Input input, const std::function<int()>& host);
    ~HostProcess();  // kills what still runs
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    void Type(const std::string& text);
    void CloseInput();
    // Whether the host's output contains `text` from here on; waits up to 10 seconds. What stands up to
    // the end of `text` is taken.
    bool Sees(const std::string& text);
    // Everything that was not taken, up to now.
    std::string Output();
    void Signal(int number) const;
    // Waits for the end, at most 10 seconds: the exit code, 1000 + the signal that ended it, -1 for neither.
    int Wait();
    // Processor time that the host took, in milliseconds; after Wait.
    long CpuMs() const { return cpuMs_; }
    // The terminal's local modes.
    tcflag_t LocalModes() const;
    bool WaitForKeyMode(bool on) const;

private:
    bool Read(int timeoutMs);

    int pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    int slave_ = -1;  // keeps the terminal alive when the host is gone
    bool terminal_;
    long cpuMs_ = 0;
    std::string output_;
};
