#include "Kw/App/KwTask.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kw/KwOS.h"
#include "Kw/KwTime.h"

namespace {

constexpr unsigned int kForever = 0xFFFFFFFFu;

std::string g_calls;  // of tests with one thread

// Notes its steps and hooks under its name, and stays queued for so many steps.
class Node : public KwTaskNode {
public:
    explicit Node(const char* name, int steps = 1 << 30) : name_(name), left_(steps) {}

    std::function<void()> onAdd, onRun, onDestroy;
    std::string states;  // as the hooks see them

protected:
    bool OnRunTask() override {
        Note(" run");
        if (onRun) onRun();
        return --left_ > 0;
    }
    void OnAddTask() override {
        Note(" add");
        if (onAdd) onAdd();
    }
    void OnDestroyTask() override {
        Note(" destroyed");
        if (onDestroy) onDestroy();
    }

private:
    void Note(const char* what) {
        g_calls += name_ + what + ";";
        states += std::to_string(GetState()) + (GetOwner() != nullptr ? "o" : "-");
    }
    std::string name_;
    int left_;
};

class Queue : public KwTask {
public:
    Queue() : KwTask(false) { g_calls.clear(); }
    std::string Run(int times) {
        for (int i = 0; i < times; ++i) KwTask::Run();
        return std::exchange(g_calls, "");
    }
    std::string TakeCalls() { return Run(0); }

private:
    void OnAddTask(KwTaskNode*, int count) override { g_calls += "+" + std::to_string(count) + ";"; }
    void OnRemoveTask(KwTaskNode*, int count) override { g_calls += "-" + std::to_string(count) + ";"; }
};

// Driven by the host ------------------------------------------------------------------------------------------

TEST(KwTaskTest, NodesTakeTurnsUntilTheyAreFinished) {
    Queue queue;
    Node a("a"), b("b", 2), c("c");
    for (Node* node : {&a, &b, &c, &b}) queue.Post(node);
    queue.Post(nullptr);
    EXPECT_EQ(queue.TakeCalls(), "a add;+1;b add;+2;c add;+3;") << "once each";
    EXPECT_EQ(queue.Run(4), "a run;b run;c run;a run;");
    EXPECT_EQ(queue.Run(3), "b run;-2;b destroyed;c run;a run;");
    EXPECT_EQ(b.states, "1o1o1o0-");
    queue.Post(&b);
    EXPECT_EQ(queue.Run(3), "b add;+3;c run;a run;b run;-2;b destroyed;");
    queue.Close();
    EXPECT_EQ(queue.Run(2), "c destroyed;a destroyed;") << "without OnRemoveTask";
}

TEST(KwTaskTest, AClosingNodeIsDestroyedAtItsTurn) {
    Queue queue;
    Node a("a"), b("b");
    a.WaitCloseTask(kForever);
    EXPECT_EQ(a.GetState(), KwTaskNode::kIdle) << "nothing to wait for";
    queue.Post(&a);
    queue.Post(&b);
    b.onRun = [&b] { b.WaitCloseTask(kForever); };  // from inside, it does not wait for itself
    a.WaitCloseTask(0);
    EXPECT_EQ(a.GetState(), KwTaskNode::kClosing);
    a.WaitCloseTask(3);
    queue.TakeCalls();
    EXPECT_EQ(queue.Run(3), "-1;a destroyed;b run;-0;b destroyed;");
    EXPECT_EQ(a.states, "1o0-");
    EXPECT_EQ(a.GetState(), KwTaskNode::kIdle);
    a.onAdd = [&a] { a.WaitCloseTask(kForever); };
    queue.Post(&a);
    EXPECT_EQ(queue.Run(1), "a add;+1;-0;a destroyed;");
}

TEST(KwTaskTest, HooksPostNodes) {
    Queue queue;
    Node a("a", 1), b("b", 1);
    a.onRun = [&] { queue.Post(&b); };
    a.onDestroy = [&] { queue.Post(&a); };
    queue.Post(&a);
    EXPECT_EQ(queue.Run(1), "a add;+1;a run;b add;+2;-1;a destroyed;a add;+2;");
    EXPECT_EQ(queue.Run(1), "b run;-1;b destroyed;");
    queue.Close();
    EXPECT_EQ(queue.Run(2), "a destroyed;") << "what is posted while the queue closes is not taken";
    EXPECT_EQ(a.GetOwner(), nullptr);
}

TEST(KwTaskTest, NodesMayBeFreedWhereverTheyAre) {
    Queue queue;
    Node stays("s");
    auto* inDestroy = new Node("d", 1);
    auto* inRun = new Node("r");
    auto* queued = new Node("q");
    inDestroy->onDestroy = [=] { delete inDestroy; };
    inRun->onRun = [=] { inRun->DestroyTask(); };
    for (Node* node : {inDestroy, inRun, queued, &stays}) queue.Post(node);
    queue.TakeCalls();
    delete queued;
    EXPECT_EQ(queue.Run(4), "d run;-2;d destroyed;r run;r destroyed;s run;s run;");
    delete inRun;
    auto left = std::make_unique<Queue>();
    Node orphan("o");
    left->Post(&orphan);
    left.reset();
    EXPECT_EQ(orphan.GetOwner(), nullptr);
    queue.Post(&orphan);
    Node copy(orphan);
    copy = orphan;
    EXPECT_EQ(copy.GetOwner(), nullptr);
    EXPECT_EQ(copy.GetState(), KwTaskNode::kIdle);
    queue.Close();
}

TEST(KwTaskTest, WhatLeavesAHookIsCountedAndEndsTheTaskAlone) {
    const unsigned int before = KwOS::GetExceptionCount();
    Queue queue;
    Node a("a"), b("b");
    a.onRun = a.onDestroy = [] { throw std::runtime_error("a"); };
    queue.Post(&a);
    queue.Post(&b);
    queue.TakeCalls();
    EXPECT_EQ(queue.Run(2), "a run;-1;a destroyed;b run;");
    EXPECT_EQ(KwOS::GetExceptionCount(), before + 2);
    queue.Close();
}

// With workers ------------------------------------------------------------------------------------------------

// What several threads touch.
class Job : public KwTaskNode {
public:
    explicit Job(int limit = 1 << 30) : left(limit) {}

    std::atomic<int> left, steps{0}, inStep{0}, overlaps{0};
    std::atomic<bool> destroyed{false};
    std::function<void()> onRun;
    unsigned int destroyTime = 0;  // ms

protected:
    bool OnRunTask() override {
        if (inStep.fetch_add(1) != 0) ++overlaps;
        ++steps;
        if (onRun) onRun();
        --inStep;
        return --left > 0;
    }
    void OnDestroyTask() override {
        KwTime::Wait(destroyTime);
        destroyed = true;
    }
};

template <class Condition>
bool Until(Condition condition) {
    for (int i = 0; i < 10000 && !condition(); ++i) KwTime::Wait(1);
    return condition();
}

TEST(KwTaskThreadTest, WorkersAreStartedAndStopped) {
    KwTask queue(false);
    EXPECT_EQ(queue.GetThreadCount(), 0);
    EXPECT_EQ(queue.NewThread(0) + queue.NewThread(-3), 0);
    EXPECT_EQ(queue.NewThread(3), 3);
    queue.RemoveThread(2);
    EXPECT_EQ(queue.GetThreadCount(), 1);
    EXPECT_EQ(queue.NewThread(2), 2);
    queue.RemoveThread(100);
    queue.RemoveThread(1);
    EXPECT_EQ(queue.GetThreadCount(), 0);
    queue.Close();
    EXPECT_EQ(queue.NewThread(1), 1);
    queue.Close();
    queue.Close();
}

TEST(KwTaskThreadTest, WaitCloseTaskOutlivesTheHook) {
    KwTask queue(true);
    queue.NewThread(8);
    for (int round = 0; round < 20; ++round) {
        auto job = std::make_unique<Job>();
        job->destroyTime = 5;
        queue.Post(job.get());
        ASSERT_TRUE(Until([&] { return job->steps > 0; }));
        job->WaitCloseTask(kForever);
        ASSERT_TRUE(job->destroyed);
    }
    queue.Close();
}

// The node ends by itself around the moment at which its owner waits for it and frees it.
TEST(KwTaskThreadTest, ANodeThatEndsByItselfCanBeFreedBehindTheWait) {
    KwTask queue(true);
    queue.NewThread(8);
    std::vector<std::thread> owners;
    std::atomic<int> early{0};
    for (int owner = 0; owner < 4; ++owner) {
        owners.emplace_back([&, owner] {
            for (int round = 0; round < 60; ++round) {
                auto job = std::make_unique<Job>(1 + round % 3);
                job->destroyTime = static_cast<unsigned int>((round + owner) % 2);
                queue.Post(job.get());
                if (round % 4 != 0) KwTime::Wait(static_cast<unsigned int>(round % 4));
                job->WaitCloseTask(kForever);
                if (!job->destroyed) ++early;
            }
        });
    }
    for (std::thread& owner : owners) owner.join();
    EXPECT_EQ(early, 0);
    queue.Close();
}

TEST(KwTaskThreadTest, ANodeMayDeleteItselfWhileItsCloserWaits) {
    class Own : public KwTaskNode {
    public:
        explicit Own(std::atomic<int>& gone) : gone_(gone) {}
        std::atomic<bool> ran{false};

    protected:
        bool OnRunTask() override { return ran = true; }
        void OnDestroyTask() override {
            ++gone_;
            delete this;
        }

    private:
        std::atomic<int>& gone_;
    };
    KwTask queue(true);
    queue.NewThread(4);
    std::atomic<int> gone{0};
    for (int round = 1; round <= 100; ++round) {
        auto* node = new Own(gone);
        queue.Post(node);
        while (!node->ran) std::this_thread::yield();
        node->WaitCloseTask(kForever);
        ASSERT_EQ(gone, round);
    }
    queue.Close();
}

TEST(KwTaskThreadTest, TheDeadlineOfAWaitLeavesTheNodeClosing) {
    KwTask queue(true);
    queue.NewThread(1);
    std::atomic<bool> go{false};
    Job job;
    job.onRun = [&] { Until([&] { return go.load(); }); };
    queue.Post(&job);
    ASSERT_TRUE(Until([&] { return job.steps > 0; }));
    const unsigned int start = KwTime::GetTime();
    job.WaitCloseTask(30);
    EXPECT_GE(KwTime::GetTime() - start, 30u);
    EXPECT_EQ(job.GetState(), KwTaskNode::kClosing);
    go = true;
    job.WaitCloseTask(kForever);
    EXPECT_TRUE(job.destroyed);
    EXPECT_EQ(job.steps, 1);
    queue.Close();
}

TEST(KwTaskThreadTest, OneNodeRunsOnOneWorkerAtATime) {
    KwTask queue(true);
    std::vector<std::unique_ptr<Job>> jobs;
    for (int i = 0; i < 12; ++i) {
        jobs.push_back(std::make_unique<Job>(20));
        jobs.back()->onRun = [] { std::this_thread::yield(); };
        queue.Post(jobs.back().get());
    }
    queue.NewThread(8);
    for (const auto& job : jobs) {
        EXPECT_TRUE(Until([&] { return job->destroyed.load(); }));
        EXPECT_EQ(job->steps, 20);
        EXPECT_EQ(job->overlaps, 0);
    }
    queue.Close();
}

// Nodes use their queue while it loses its workers and closes.
TEST(KwTaskThreadTest, WorkersStopWhileNodesUseTheQueue) {
    for (int round = 0; round < 5; ++round) {
        KwTask queue(true);
        std::vector<std::unique_ptr<Job>> jobs;
        for (int i = 0; i < 16; ++i) jobs.push_back(std::make_unique<Job>());
        for (std::size_t i = 0; i < 8; ++i) {
            jobs[i]->onRun = [&queue, other = jobs[i + 8].get()] {
                queue.Post(other);
                queue.GetThreadCount();
                KwTime::Wait(1);
            };
            queue.Post(jobs[i].get());
        }
        EXPECT_EQ(queue.NewThread(8), 8);
        ASSERT_TRUE(Until([&] { return jobs[7]->steps > 1; }));
        std::thread remover([&queue] {
            queue.RemoveThread(2);
            queue.NewThread(1);
            queue.RemoveThread(3);
        });
        std::thread closer([&] { jobs[0]->WaitCloseTask(2000); });
        queue.RemoveThread(2);
        remover.join();
        closer.join();
        EXPECT_EQ(queue.GetThreadCount(), 2);
        queue.Close();
        for (const auto& job : jobs) EXPECT_EQ(job->GetOwner(), nullptr);
        EXPECT_TRUE(jobs[7]->destroyed);
    }
}

TEST(KwTaskThreadTest, AStepMayTakeItsOwnWorkersAway) {
    KwTask queue(true);
    Job job;
    std::atomic<int> left{-1};
    job.onRun = [&] {
        queue.RemoveThread(2);
        left = queue.GetThreadCount();
    };
    queue.NewThread(2);
    queue.Post(&job);
    ASSERT_TRUE(Until([&] { return left == 0; }));
    ASSERT_TRUE(Until([&] { return job.inStep == 0; }));
    KwTime::Wait(20);  // the worker that took itself away is on its way out
    queue.Close();
    EXPECT_TRUE(job.destroyed);
}

}  // namespace
