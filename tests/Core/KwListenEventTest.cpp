// Event services: what KwOS posts and KwListenEvent runs.
#include "Kw/KwListenEvent.h"

#include <gtest/gtest.h>

#include <atomic>

#include "Kw/KwEventBase.h"
#include "Kw/KwOS.h"
#include "Kw/KwTime.h"

namespace {

using Counter = std::atomic<int>;

bool Count(void* param) {
    ++*static_cast<Counter*>(param);
    return false;
}

class Target : public KwInfLock {
public:
    explicit Target(Counter* alive) : alive_(alive) { ++*alive_; }
    ~Target() override { --*alive_; }
    bool Count(void* param) { return ::Count(param); }
    bool Repeat(void* param) {
        ++*static_cast<Counter*>(param);
        KwTime::Wait(1);
        return true;
    }

private:
    Counter* alive_;
};

class KwListenEventTest : public testing::Test {
protected:
    // Holds the only listener back until Open, so that what is posted stays in the queue.
    void Block() {
        const auto hold = [](void* param) {
            while (*static_cast<Counter*>(param) == 0) KwTime::Wait(1);
            return false;
        };
        KwOS::PostEvent(service, hold, &gate, 0);
    }
    void Open() { gate = 1; }
    void Delete() {
        KwOS::DeleteEvent(service);
        service = nullptr;
    }
    static bool WaitFor(const Counter& value, int atLeast) {
        for (int i = 0; i < 5000 && value < atLeast; ++i) KwTime::Wait(1);
        return value >= atLeast;
    }
    ~KwListenEventTest() override {
        Open();
        KwOS::DeleteEvent(service);
    }

    Counter gate{0}, calls{0}, alive{0};
    void* service = KwOS::CreateEventW(0);
};

TEST_F(KwListenEventTest, EachKindOfEventIsCalledWithItsParameter) {
    struct Object : KwEvent_Base {
        bool OnEvent(void* param) override { return Count(param); }
    } object;
    auto* target = new Target(&alive);
    EXPECT_TRUE(KwOS::PostEvent(service, Count, &calls, 0));
    EXPECT_TRUE(KwOS::PostEvent(service, &object, &calls, 0));
    EXPECT_TRUE(KwOS::PostEvent(service, target, &Target::Count, &calls, 0));
    target->Release();
    EXPECT_TRUE(WaitFor(calls, 3));
    Delete();
    EXPECT_EQ(alive, 0);
}

TEST_F(KwListenEventTest, NullsAreRefused) {
    EXPECT_FALSE(KwOS::PostEvent(nullptr, Count, nullptr, 0));
    EXPECT_FALSE(KwOS::PostEvent(service, static_cast<bool (*)(void*)>(nullptr), nullptr, 0));
    EXPECT_FALSE(KwOS::PostEvent(service, static_cast<KwEvent_Base*>(nullptr), nullptr, 0));
    EXPECT_FALSE(KwOS::PostEvent(service, static_cast<KwInf*>(nullptr), static_cast<KwInfEvent>(nullptr), nullptr, 0));
    KwOS::RemoveInfFromEvent(nullptr, nullptr);
    KwOS::DeleteEvent(nullptr);
}

TEST_F(KwListenEventTest, ARepeatingEventRunsUntilTheServiceIsDeleted) {
    auto* target = new Target(&alive);
    KwOS::PostEvent(service, target, &Target::Repeat, &calls, 0);
    target->Release();
    EXPECT_TRUE(WaitFor(calls, 5));
    EXPECT_EQ(alive, 1);
    Delete();
    EXPECT_EQ(alive, 0);
}

// More than the spare list holds, so that nodes are both reused and destroyed.
TEST_F(KwListenEventTest, DeletionRunsWhatIsQueued) {
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 250; ++i) EXPECT_TRUE(KwOS::PostEvent(service, Count, &calls, 0));
        KwTime::Wait(2);
    }
    Delete();
    EXPECT_EQ(calls, 750);
}

// An event that posts itself again must not keep the service from ending.
TEST_F(KwListenEventTest, NothingCanBePostedWhileTheServiceIsDeleted) {
    static void* current = nullptr;
    current = service;
    static Counter refused{0};
    KwOS::PostEvent(
        service,
        [](void* param) {
            ++*static_cast<Counter*>(param);
            KwTime::Wait(20);
            if (!KwOS::PostEvent(current, Count, param, 0)) ++refused;
            return true;
        },
        &calls, 0);
    ASSERT_TRUE(WaitFor(calls, 1));
    Delete();
    EXPECT_GE(refused, 1);
}

TEST_F(KwListenEventTest, ADelayOfFiveOrMoreDropsTheEventAtItsFirstTurn) {
    auto* target = new Target(&alive);
    Block();
    KwOS::PostEvent(service, target, &Target::Count, &calls, 5);
    KwTime::Wait(30);  // long enough for the delay to have passed
    Open();
    for (int i = 0; i < 5000 && target->GetRef() > 1; ++i) KwTime::Wait(1);
    EXPECT_EQ(target->GetRef(), 1) << "the dropped event gives its reference back";
    EXPECT_EQ(calls, 0);
    target->Release();
}

TEST_F(KwListenEventTest, AShortDelayRunsOnlyWhenItHasPassedByTheFirstTurn) {
    Block();
    KwOS::PostEvent(service, Count, &calls, 4);
    KwTime::Wait(30);
    Open();
    EXPECT_TRUE(WaitFor(calls, 1));
    Delete();
    service = KwOS::CreateEventW(1);
    gate = 0;
    Block();
    KwTime::Wait(5);
    // Posted from the listener right before its next turn, so none of the four milliseconds has passed. On a
    // busy machine they may, but not twenty times in a row.
    static void* current = nullptr;
    static Counter rounds{0};
    current = service;
    rounds = 0;
    const auto post = [](void* param) {
        KwOS::PostEvent(current, Count, param, 4);
        return ++rounds < 20;
    };
    KwOS::PostEvent(service, post, &calls, 0);
    Open();
    EXPECT_TRUE(WaitFor(rounds, 20));
    Delete();
    EXPECT_LT(calls, 1 + 20);
}

TEST_F(KwListenEventTest, RemovedEventsGiveTheirReferencesBack) {
    auto* kept = new Target(&alive);
    auto* removed = new Target(&alive);
    Block();
    for (int i = 0; i < 10; ++i) {
        KwOS::PostEvent(service, kept, &Target::Count, &calls, 0);
        KwOS::PostEvent(service, removed, &Target::Count, &calls, 0);
    }
    EXPECT_EQ(removed->Release(), 10);
    KwOS::RemoveInfFromEvent(service, removed);
    EXPECT_EQ(alive, 1);
    Open();
    Delete();
    EXPECT_EQ(calls, 10);
    EXPECT_EQ(kept->Release(), 0);
}

// A count of 16 bits that wrapped would destroy the target under the events that are still queued.
TEST_F(KwListenEventTest, ATargetTakesAsManyEventsAsItCanCount) {
    auto* target = new Target(&alive);
    Block();
    int posted = 0;
    testing::internal::CaptureStdout();
    while (posted < 70000 && KwOS::PostEvent(service, target, &Target::Count, &calls, 0)) ++posted;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "new listen event node error\n");
    EXPECT_EQ(posted, 32766);
    EXPECT_EQ(target->GetRef(), 32767);
    Open();
    Delete();
    EXPECT_EQ(calls, posted);
    EXPECT_EQ(target->Release(), 0);
}

TEST_F(KwListenEventTest, ARunningEventThatIsRemovedIsNotRepeated) {
    auto* target = new Target(&alive);
    KwOS::PostEvent(service, target, &Target::Repeat, &calls, 0);
    EXPECT_TRUE(WaitFor(calls, 2));
    KwOS::RemoveInfFromEvent(service, target);
    for (int i = 0; i < 5000 && target->GetRef() > 1; ++i) KwTime::Wait(1);
    EXPECT_EQ(target->GetRef(), 1);
    target->Release();
}

TEST_F(KwListenEventTest, SeveralListenersShareTheQueue) {
    Delete();
    service = KwOS::CreateEventW(3);
    ASSERT_NE(service, nullptr);
    Counter targets{0};
    std::vector<Target*> all;
    for (int i = 0; i < 4; ++i) all.push_back(new Target(&targets));
    for (int i = 0; i < 2000; ++i) KwOS::PostEvent(service, all[i % 4], &Target::Count, &calls, 0);
    for (Target* target : all) target->Release();
    Delete();
    EXPECT_EQ(calls, 2000);
    EXPECT_EQ(targets, 0);
}

TEST_F(KwListenEventTest, ACallbackMayDeleteItsOwnService) {
    Counter deleted{0};
    static Counter* done = nullptr;
    done = &deleted;
    KwOS::PostEvent(
        service,
        [](void* own) {
            KwOS::DeleteEvent(own);
            ++*done;
            return true;
        },
        service, 0);
    service = nullptr;
    EXPECT_TRUE(WaitFor(deleted, 1));
    KwTime::Wait(20);
}

}  // namespace
