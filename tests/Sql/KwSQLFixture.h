// KwSQLFixture: the log as lines, a service with its host's loop, and queries from lambdas.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Kw/DB/KwSQLSupport.h"
#include "Kw/Helper/KwLogSystem.h"
#include "Kw/Res/KwDataObject.h"

// Catches the log of a case.
class LogLines {
public:
    LogLines() {
        TakeAll();
        KwLogSystem::SetOutputLogCallback(&Catch, false);
    }
    ~LogLines() { KwLogSystem::SetOutputLogConsole(false); }
    static int Count(const std::string& part) {
        const std::lock_guard<std::mutex> guard(mutex_);
        int count = 0;
        for (const std::string& line : lines_) count += line.find(part) != std::string::npos ? 1 : 0;
        return count;
    }
    static std::string TakeAll() {
        const std::lock_guard<std::mutex> guard(mutex_);
        std::string all;
        for (const std::string& line : lines_) all += line + "\n";
        lines_.clear();
        return all;
    }

private:
    static void Catch(const char* format, va_list args, STime*) {
        char text[2048] = "";
        if (args != nullptr) {
            std::vsnprintf(text, sizeof(text), format, args);
        } else {
            std::snprintf(text, sizeof(text), "%s", format);
        }
        const std::lock_guard<std::mutex> guard(mutex_);
        lines_.emplace_back(text);
    }
    static inline std::mutex mutex_;
    static inline std::vector<std::string> lines_;
};

// A query whose work is a function; counts those alive.
class Query : public KwSQLRequestQuery {
public:
    explicit Query(int type, std::function<bool(Query&)> work = nullptr) : KwSQLRequestQuery(type), work_(work) {
        ++alive;
    }
    ~Query() override { --alive; }
    bool run() override {
        ++runs;
        return !work_ || work_(*this);
    }
    void result() override {
        ++results;
        if (onResult) onResult();
    }
    std::function<void()> onResult;
    static inline std::atomic<int> alive{0}, runs{0}, results{0};

private:
    std::function<bool(Query&)> work_;
};

inline void SleepMs(int ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// Milliseconds since the object was made.
struct Stopwatch {
    const std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    int Ms() const {
        return static_cast<int>((std::chrono::steady_clock::now() - started) / std::chrono::milliseconds(1));
    }
};

template <class Done>
bool WaitUntil(Done done, int ms = 60000) {
    const Stopwatch watch;
    while (!done()) {
        if (watch.Ms() > ms) return false;
        SleepMs(1);
    }
    return true;
}

inline KwDS& Config(KwDS& ds, const std::string& body) {
    std::string text = "Sql={ " + body + " }\n";
    EXPECT_TRUE(ds.Init(reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned int>(text.size())));
    return ds;
}
