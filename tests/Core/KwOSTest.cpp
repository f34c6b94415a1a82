#include "Kw/KwOS.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kw/KwTime.h"
#include "Kw/Res/KwRes.h"

namespace {

bool IsSet(bool& flag) {
    return std::atomic_ref<bool>(flag).load();
}

void LoopUntilStopped(bool& run, void* param) {
    auto* passes = static_cast<std::atomic<int>*>(param);
    do {
        ++*passes;
        KwTime::Wait(1);
    } while (IsSet(run));
}

void ReturnAtOnce(bool&, void* param) {
    ++*static_cast<std::atomic<int>*>(param);
}

// A target that counts its own life.
class Target : public KwInfLock {
public:
    explicit Target(std::atomic<int>* alive) : alive_(alive) { ++*alive_; }
    ~Target() override { --*alive_; }

    void Body(bool& run, void* param) {
        refsInBody = GetRef();
        LoopUntilStopped(run, param);
    }
    // Repeats as often as the number behind `param` says.
    bool CountDown(void* param) { return --*static_cast<std::atomic<int>*>(param) > 0; }
    bool Forever(void* param) {
        ++*static_cast<std::atomic<int>*>(param);
        KwTime::Wait(1);
        return true;
    }

    bool Throw(void* param) {
        ++*static_cast<std::atomic<int>*>(param);
        throw std::string("event");
    }

    std::atomic<int> refsInBody{0};

private:
    std::atomic<int>* alive_;
};

bool WaitFor(const std::atomic<int>& value, int atLeast) {
    for (int i = 0; i < 5000 && value < atLeast; ++i) KwTime::Wait(1);
    return value >= atLeast;
}

// A thread ----------------------------------------------------------------------------------------------------

TEST(KwOSThreadTest, NewThreadReturnsWhenTheBodyRunsAndCloseWhenItHasReturned) {
    std::atomic<int> passes{0};
    void* thread = KwOS::NewThread(LoopUntilStopped, &passes);
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(WaitFor(passes, 3));
    KwOS::CloseService(thread);
    const int after = passes;
    KwTime::Wait(10);
    EXPECT_EQ(passes, after);
}

TEST(KwOSThreadTest, TheTargetIsHeldWhileItsBodyRuns) {
    std::atomic<int> alive{0}, passes{0};
    auto* target = new Target(&alive);
    void* thread = KwOS::NewThread(target, &Target::Body, &passes);
    ASSERT_TRUE(WaitFor(passes, 1));
    EXPECT_EQ(target->refsInBody, 2);
    target->Release();
    EXPECT_EQ(alive, 1);
    KwOS::CloseService(thread);
    EXPECT_EQ(alive, 0);
}

TEST(KwOSThreadTest, WhatLeavesABodyOrAnEventEndsItAloneAndIsCounted) {
    const unsigned int before = KwOS::GetExceptionCount();
    std::atomic<int> calls{0}, alive{0};
    const auto throwing = [](bool&, void* param) {
        ++*static_cast<std::atomic<int>*>(param);
        throw std::runtime_error("body");
    };
    KwOS::CloseService(KwOS::NewThread(throwing, &calls));
    auto* target = new Target(&alive);
    void* service = KwOS::CreateEventW(1);
    KwOS::PostEvent(service, target, &Target::Throw, &calls, 0);
    std::atomic<int> left{1};
    KwOS::PostEvent(service, target, &Target::CountDown, &left, 0);
    KwOS::DeleteEvent(service);
    EXPECT_EQ(calls, 2) << "the event is not repeated";
    EXPECT_EQ(left, 0) << "the listener goes on";
    EXPECT_EQ(KwOS::GetExceptionCount(), before + 2);
    EXPECT_EQ(target->GetRef(), 1);
    target->Release();
}

TEST(KwOSThreadTest, NullBodiesAndTargetsAndForeignHandlesAreRefused) {
    EXPECT_EQ(KwOS::NewThread(nullptr, nullptr), nullptr);
    EXPECT_EQ(KwOS::NewThread(nullptr, static_cast<KwInfThreadBody>(nullptr), nullptr), nullptr);
    unsigned int foreign[16] = {};
    KwOS::CloseService(nullptr);
    KwOS::CloseService(foreign);
    KwOS::KillService(nullptr);
    KwOS::KillService(foreign);
}

// Threads that end by themselves around the moment at which they are closed.
TEST(KwOSThreadTest, ClosingNeitherHangsNorFreesTwiceWhenTheBodyEndsByItself) {
    std::atomic<int> runs{0};
    for (int round = 0; round < 300; ++round) {
        void* thread = KwOS::NewThread(ReturnAtOnce, &runs);
        ASSERT_NE(thread, nullptr);
        for (int spin = round % 50; spin > 0; --spin) std::this_thread::yield();
        KwOS::CloseService(thread);
        ASSERT_EQ(runs, round + 1);
    }
}

TEST(KwOSThreadTest, AThreadMayCloseItself) {
    struct Shared {
        std::atomic<void*> handle{nullptr};
        std::atomic<int> state{0};
    } shared;
    const auto body = [](bool& run, void* param) {
        auto* own = static_cast<Shared*>(param);
        while (own->handle == nullptr) KwTime::Wait(1);
        KwOS::CloseService(own->handle);
        own->state = IsSet(run) ? 2 : 1;
    };
    shared.handle = KwOS::NewThread(body, &shared);
    EXPECT_TRUE(WaitFor(shared.state, 1));
    EXPECT_EQ(shared.state, 1);
    KwTime::Wait(20);  // the thread frees its handle, which the run checks at release
}

TEST(KwOSThreadTest, KillEndsABodyThatNeverLooksAtItsFlag) {
    std::atomic<int> passes{0};
    const auto stubborn = [](bool&, void* param) {
        for (;;) {
            ++*static_cast<std::atomic<int>*>(param);
            KwTime::Wait(1);
        }
    };
    for (int i = 0; i < 20; ++i) {
        void* thread = KwOS::NewThread(stubborn, &passes);
        ASSERT_TRUE(WaitFor(passes, i));
        KwOS::KillService(thread);
    }
    KwTime::Wait(50);
    const int after = passes;
    KwTime::Wait(20);
    EXPECT_EQ(passes, after);
}

TEST(KwOSThreadTest, KillOfAThreadThatHasReturnedFreesItsHandle) {
    std::atomic<int> runs{0};
    void* thread = KwOS::NewThread(ReturnAtOnce, &runs);
    KwTime::Wait(5);
    KwOS::KillService(thread);
    EXPECT_EQ(runs, 1);
}

TEST(KwOSThreadTest, IdsDifferAndProcessorsAreCounted) {
    std::atomic<unsigned int> other{0};
    KwOS::CloseService(KwOS::NewThread(
        [](bool&, void* param) { *static_cast<std::atomic<unsigned int>*>(param) = KwOS::GetCurrentThreadId(); },
        &other));
    EXPECT_NE(other, 0u);
    EXPECT_NE(other, KwOS::GetCurrentThreadId());
    EXPECT_EQ(KwOS::GetCurrentThreadId(), KwOS::GetCurrentThreadId());
    EXPECT_GE(KwOS::GetCpuCount(), 1);
}

// The single-instance lock ----------------------------------------------------------------------------------------

TEST(KwOSLockTest, OneInstanceHasTheLockUntilItsProcessEnds) {
    GTEST_FLAG_SET(death_test_style, "fast");
    const std::string program = testing::TempDir() + "kwoslock" + std::to_string(std::random_device{}());
    KwRes::SetProcessFullPath(program.c_str());
    // A holder that ends without giving anything back.
    EXPECT_EXIT(std::_Exit(KwOS::CanLockApp() ? 3 : 4), testing::ExitedWithCode(3), "");
    const bool first = KwOS::CanLockApp();
    EXPECT_EXIT(std::_Exit(KwOS::CanLockApp() ? 3 : 4), testing::ExitedWithCode(4), "");
    EXPECT_TRUE(first);
    EXPECT_FALSE(KwOS::CanLockApp()) << "this process has it already";
    EXPECT_TRUE(std::ifstream(program + ".lock").is_open());
    KwRes::SetProcessFullPath((testing::TempDir() + "kwmissing/program").c_str());
    EXPECT_FALSE(KwOS::CanLockApp());
    KwRes::SetProcessFullPath("");
    std::remove((program + ".lock").c_str());
}

}  // namespace
