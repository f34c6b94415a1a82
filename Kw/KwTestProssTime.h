// CTestProssTime: a stopwatch that logs how long the steps of a procedure took.
//
// Thread-safety: none.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Kw/KwMemory.h"

// The table of virtual operations holds the two hooks and nothing else, so there is no virtual destructor:
// never delete a derived stopwatch through this class.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class KW_API CTestProssTime {
public:
    KW_TRACKED_NEW

    // Starts at once; `log` makes Update and End write to the log.
    CTestProssTime(const std::string& name, bool log);
    ~CTestProssTime() = default;

    void Begin();
    // Ends a step: logs "[name][step]time=ms" unless no time has passed, then calls OnUpdateTime.
    void Update(const std::string& step);
    // Logs "[name]end time=ms", counted from Begin, then calls OnEndTime.
    void End();

    // `tick` is the tick count at the end of the step; `elapsed` is in milliseconds.
    virtual void OnUpdateTime(const std::string& step, int tick);
    virtual void OnEndTime(int elapsed);

protected:
    bool log_;
    unsigned int beginTick_ = 0;
    unsigned int lastTick_ = 0;
    std::vector<std::pair<std::string, int>> steps_;  // name and milliseconds
    std::string name_;
};
#pragma GCC diagnostic pop
