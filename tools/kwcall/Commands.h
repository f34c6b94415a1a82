// What kwcall does: each gives the exit code and throws ToolError when it cannot go on.
#pragma once

#include <string>
#include <vector>

#include "Kw/Net/KwNetSettings.h"

constexpr int kAllDone = 0;
constexpr int kSomeFailed = 1;
constexpr int kWrongUsage = 2;
constexpr int kNotReached = 3;

struct Target {
    SNetClientSettings net;
    std::string token;
    double timeout = 30;  // seconds for an answer, 0 for ever
};

// Sends the commands, or with none the lines of standard input, and prints the answers.
int Call(const Target& target, const std::vector<std::string>& words, bool json);

struct LoadPlan {
    unsigned int connections = 50;
    unsigned int pipeline = 1;  // requests of a connection at once
    unsigned int requests = 100000;
    unsigned int keys = 100000;
    unsigned int size = 100;      // bytes of a value
    unsigned int setShare = 100;  // percent
    bool fill = false;            // every key is set first
};
// Drives that load and prints rates and latencies.
int Load(const Target& target, const LoadPlan& plan, bool json);

// Answers every request with "done" and nothing else, until it is ended.
int Echo(const SNetServerSettings& settings);
