// Progress: a bar on standard error for long work. It shows up after half a second, and only on a terminal;
// its line is wiped at the end.
// Thread-safety: one thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

class Progress {
public:
    // `total` is the amount of work, in any unit. Without `wanted` nothing is ever shown.
    Progress(std::string what, std::uint64_t total, bool wanted = true);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Cheap enough for every step of the work.
    void Update(std::uint64_t done) {
        if (done >= next_) Look(done);
    }

private:
    void Look(std::uint64_t done);

    std::string what_;
    std::uint64_t total_;
    std::uint64_t step_;
    std::uint64_t next_;  // the amount at which to look at the clock again
    std::chrono::steady_clock::time_point due_;
    bool shown_ = false;
};
