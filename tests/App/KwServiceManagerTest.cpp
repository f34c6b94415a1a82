#include "Kw/App/KwServiceManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "Kw/KwOS.h"
#include "Kw/KwTime.h"

namespace {

struct Counts {
    std::atomic<int> entered{0}, left{0};
};

void LoopUntilStopped(bool& run, void* param) {
    auto* counts = static_cast<Counts*>(param);
    ++counts->entered;
    while (std::atomic_ref<bool>(run).load()) KwTime::Wait(1);
    ++counts->left;
}

bool WaitFor(const std::atomic<int>& value, int atLeast) {
    for (int i = 0; i < 5000 && value < atLeast; ++i) KwTime::Wait(1);
    return value >= atLeast;
}

class Target : public KwInfLock {
public:
    void Work(bool& run, void* param) { LoopUntilStopped(run, param); }
};

class Manager : public KwServiceManager {
public:
    ~Manager() override { CloseAll(); }
    Counts counts;

protected:
    void OnServiceWork(bool& run, void* param) override {
        EXPECT_EQ(param, static_cast<KwServiceManager*>(this));
        LoopUntilStopped(run, &counts);
    }
};

TEST(KwServiceManagerTest, CloseAllStopsEveryKindOfWork) {
    Counts counts;
    Target target;
    {
        Manager manager;
        EXPECT_TRUE(manager.AddWork());
        EXPECT_TRUE(manager.AddWork(LoopUntilStopped, &counts));
        EXPECT_TRUE(manager.AddWork(&target, &Target::Work, &counts));
        EXPECT_FALSE(manager.AddWork(nullptr, nullptr));
        EXPECT_FALSE(manager.AddWork(static_cast<KwInf*>(nullptr), nullptr, nullptr));
        EXPECT_EQ(manager.GetTotal(), 3);
        EXPECT_TRUE(WaitFor(counts.entered, 2) && WaitFor(manager.counts.entered, 1));
        manager.CloseAll();
        EXPECT_EQ(manager.GetTotal(), 0);
        EXPECT_EQ(counts.left + manager.counts.left, 3);
        EXPECT_TRUE(manager.AddWork()) << "it can be used again; the destructor stops it";
        EXPECT_TRUE(WaitFor(manager.counts.entered, 2));
    }
    EXPECT_EQ(target.GetRef(), 1);
}

TEST(KwServiceManagerTest, WorkThatReturnedOrThrewLongAgoIsClosedTheSame) {
    const unsigned int before = KwOS::GetExceptionCount();
    static std::atomic<int> runs{0};
    KwServiceManager manager;
    EXPECT_TRUE(manager.AddWork()) << "the default does nothing";
    EXPECT_TRUE(manager.AddWork([](bool&, void*) { ++runs; }, nullptr));
    EXPECT_TRUE(manager.AddWork(
        [](bool&, void*) {
            ++runs;
            throw std::runtime_error("service");
        },
        nullptr));
    EXPECT_TRUE(WaitFor(runs, 2));
    KwTime::Wait(20);
    EXPECT_EQ(manager.GetTotal(), 3) << "until they are closed";
    manager.CloseAll();
    EXPECT_EQ(runs, 2) << "not started again";
    EXPECT_EQ(KwOS::GetExceptionCount(), before + 1);
}

}  // namespace
