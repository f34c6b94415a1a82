// The phases run once per process: each case plays in a process of its own.
#include "Kw/App/KwEventInit.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kw/KwModuleEngine.h"
#include "Kw/KwOS.h"

namespace {

std::string g_calls;

void Note(const std::string& text) {
    g_calls += (g_calls.empty() ? "" : " ") + text;
}

bool Agree(int event, int argument) {
    Note("f" + std::to_string(event) + "/" + std::to_string(argument));
    return true;
}

bool Decline(int event, int argument) {
    Note("n" + std::to_string(event) + "/" + std::to_string(argument));
    return false;
}

// Registers a dozen hooks, so that the table moves, while it is being walked.
bool RegisterMore(int event, int) {
    Note("more" + std::to_string(event));
    for (int i = 0; i < 12 && event == 1; ++i) const KwEventInit token(Agree);
    return true;
}

class Object : public CBKwEventInit {
public:
    bool OnEventInit() override { return Say("init"); }
    bool OnEventStart() override { return Say("start"); }
    void OnEventClose() override { Say("close"); }
    void OnEventDestroy() override { Say("destroy"); }
    bool OnEventCode(int code) override { return Say("code" + std::to_string(code)) && stays; }
    bool stays = true;

private:
    static bool Say(const std::string& text) {
        Note(text);
        return true;
    }
};

// A hook of a static object, registered before main.
int g_staticCalls = 0;
bool CountStatic(int, int) {
    ++g_staticCalls;
    return true;
}
const KwEventInit g_static(CountStatic);

void Expect(const std::string& calls) {
    if (g_calls != calls) {
        std::fprintf(stderr, "called: %s\nexpected: %s\n", g_calls.c_str(), calls.c_str());
        std::_Exit(1);
    }
    g_calls.clear();
}

void Require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::_Exit(1);
}

template <class Scenario>
void InOwnProcess(Scenario scenario) {
    EXPECT_EXIT(
        {
            scenario();
            std::_Exit(7);
        },
        testing::ExitedWithCode(7), "");
}

TEST(KwEventInitTest, EveryPhaseRunsOnceAndDestroyEmptiesTheTable) {
    InOwnProcess([] {
        static Object object;
        const KwEventInit a(Agree);
        const KwEventInit b(&object);
        const KwEventInit none(static_cast<CBKwEventInit*>(nullptr));
        for (int round = 0; round < 2; ++round) {
            Require(KwEventInit::CallEventInit(), "init");
            Require(KwEventInit::CallEventStart(), "start");
            KwEventInit::CallEventClose();
            KwEventInit::CallEventDestroy();
        }
        Expect("f1/0 init f2/0 start f3/0 close f4/0 destroy");
        Require(KwEventInit::CallEventCode(5), "a code without hooks");
        Require(g_staticCalls == 4, "the hook of a static object has seen every phase");
        Expect("");
    });
}

TEST(KwEventInitTest, AHookThatDeclinesEndsThePhaseForGood) {
    InOwnProcess([] {
        const KwEventInit a(Agree);
        const KwEventInit b(Decline);
        const KwEventInit c(Agree);
        Require(!KwEventInit::CallEventInit(), "init is declined");
        Require(KwEventInit::CallEventInit(), "but has run");
        Expect("f1/0 n1/0");
        Require(!KwEventInit::CallEventCode(9), "a code is ended");
        Require(!KwEventInit::CallEventCode(9), "any number of times");
        Expect("f5/9 n5/9 f5/9 n5/9");
        KwEventInit::CallEventClose();
        Expect("f3/0 n3/0 f3/0");
    });
}

bool Throw(int event, int) {
    throw std::runtime_error("event " + std::to_string(event));
}

TEST(KwEventInitTest, WhatLeavesAHookFailsItsPhaseAndIsCounted) {
    InOwnProcess([] {
        const unsigned int before = KwOS::GetExceptionCount();
        const KwEventInit a(Throw);
        const KwEventInit b(Agree);
        Require(!KwEventInit::CallEventInit() && !KwEventInit::CallEventStart(), "init and start");
        Require(!KwEventInit::CallEventCode(9), "a code");
        Expect("");
        KwEventInit::CallEventDeleteByCode(9);
        Expect("f5/-9");
        KwEventInit::CallEventClose();
        KwEventInit::CallEventDestroy();
        Expect("f3/0 f4/0");
        Require(KwOS::GetExceptionCount() == before + 6, "six hooks threw");
    });
}

TEST(KwEventInitTest, HooksRegisteredDuringAWalkAreCalledInIt) {
    InOwnProcess([] {
        const KwEventInit a(RegisterMore);
        Require(KwEventInit::CallEventInit(), "init");
        std::string expected = "more1";
        for (int i = 0; i < 12; ++i) expected += " f1/0";
        Expect(expected);
    });
}

TEST(KwEventInitTest, DeleteByCodeAsksWithTheNegatedCodeAndDropsThoseThatDecline) {
    InOwnProcess([] {
        static Object leaves;
        static Object remains;
        leaves.stays = false;
        const KwEventInit a(Decline);
        const KwEventInit b(&leaves);
        const KwEventInit c(Agree);
        const KwEventInit d(&remains);
        KwEventInit::CallEventDeleteByCode(7);
        Expect("n5/-7 n6/7 code-7 destroy f5/-7 code-7");
        Require(KwEventInit::CallEventCode(1), "the others stay");
        Expect("f5/1 code1");
        KwEventInit::CallEventDeleteByCode(INT_MIN);
        Expect("f5/-2147483648 code-2147483648");
    });
}

TEST(KwEventInitTest, TheTableOutlivesAReleaseOfTheLibrary) {
    InOwnProcess([] {
        const KwEventInit a(Agree);
        Require(KwEventInit::CallEventInit(), "init");
        Kw_Release();
        Require(Kw_Init(), "the library comes up again");
        Require(KwEventInit::CallEventInit(), "has run");
        Require(KwEventInit::CallEventStart(), "start");
        Expect("f1/0 f2/0");
    });
}

}  // namespace
