#include "Kw/KwTestProssTime.h"

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwTime.h"

CTestProssTime::CTestProssTime(const std::string& name, bool log) : log_(log), name_(name) {
    Begin();
}

void CTestProssTime::Begin() {
    lastTick_ = KwTime::GetTime();
    beginTick_ = lastTick_;
}

void CTestProssTime::Update(const std::string& step) {
    const unsigned int now = KwTime::GetTime();
    const int elapsed = static_cast<int>(now - lastTick_);
    lastTick_ = now;
    steps_.emplace_back(step, elapsed);
    if (elapsed != 0 && log_) KwLogSystem::Push("[%s][%s]time=%d", name_.c_str(), step.c_str(), elapsed);
    OnUpdateTime(step, static_cast<int>(now));
}

void CTestProssTime::End() {
    lastTick_ = KwTime::GetTime();
    const int elapsed = static_cast<int>(lastTick_ - beginTick_);
    if (log_) KwLogSystem::Push("[%s]end time=%d", name_.c_str(), elapsed);
    OnEndTime(elapsed);
}

void CTestProssTime::OnUpdateTime(const std::string&, int) {}
void CTestProssTime::OnEndTime(int) {}
