// KwLogRotation: when a log file has grown too large or too old, and which of its predecessors stay. Internal.
//
// A file that is due is renamed to its name with ".1"; what bore that name becomes ".2", and so on.
// Thread-safety: none; the log's lock guards it.
#pragma once

#include <cstdint>
#include <string>

#include "Kw/KwMemory.h"

class KwLogRotation {
public:
    KW_TRACKED_NEW

    // Limits of 0 are none. `keep` old files stay beside the open one.
    KwLogRotation(unsigned int maxBytes, unsigned int maxAgeSeconds, int keep);

    // The log appends to `path` from now on; `fresh` when the file was just made.
    void Opened(const char* path, bool fresh);
    // Whether the file, which has `size` bytes now, must give way.
    bool IsDue(unsigned int size) const;
    // Renames the closed file and those before it. On failure one line is logged, and the file is not due for
    // some seconds.
    void Shift();
    // Removes all but the newest of the files that the log called `name` has left in the folder of the open one:
    // "name_dd_mm_yyyy.log" and those with a number behind. Nothing when the open file is not called so.
    void Prune(const std::string& name) const;

private:
    std::string Numbered(int number) const;

    unsigned int maxBytes_;
    std::uint64_t maxAge_;  // 100 ns units
    int keep_;
    std::string path_;
    std::uint64_t begun_ = 0;      // when the file was made
    std::uint64_t notBefore_ = 0;  // after a failure
    bool reported_ = false;
};
