#include "common/Progress.h"

#include <algorithm>
#include <cstdio>

#include "common/Terminal.h"

namespace {
constexpr int kWidth = 40;  // characters of the bar
constexpr std::chrono::milliseconds kFirst(500);
constexpr std::chrono::milliseconds kEach(100);
}  // namespace

Progress::Progress(std::string what, std::uint64_t total, bool wanted)
    : what_(std::move(what)),
      total_(std::max<std::uint64_t>(total, 1)),
      step_(total_ / 1000 + 1),
      next_(wanted && IsTerminal(Stream::kError) ? step_ : UINT64_MAX),
      due_(std::chrono::steady_clock::now() + kFirst) {}

Progress::~Progress() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", static_cast<int>(what_.size()) + kWidth + 8, "");
}

void Progress::Look(std::uint64_t done) {
    next_ = done + step_;
    const auto now = std::chrono::steady_clock::now();
    if (now < due_) return;
    due_ = now + kEach;
    shown_ = true;
    const double part = static_cast<double>(std::min(done, total_)) / static_cast<double>(total_);
    const int full = static_cast<int>(part * kWidth);
    std::fprintf(stderr, "\r%s [%s%s] %3d%%", what_.c_str(), std::string(static_cast<std::size_t>(full), '#').c_str(),
                 std::string(static_cast<std::size_t>(kWidth - full), '.').c_str(), static_cast<int>(part * 100));
    std::fflush(stderr);
}
