#include "Kw/App/KwCommand.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Kw/Helper/KwLogSystem.h"
#include "Kw/KwOS.h"

namespace {

std::vector<std::string> g_log;

void Capture(const char* format, va_list args, STime*) {
    char text[8192];
    if (args == nullptr) {
        g_log.emplace_back(format);
        return;
    }
    va_list copy;
    va_copy(copy, args);
    std::vsnprintf(text, sizeof(text), format, copy);
    va_end(copy);
    g_log.emplace_back(text);
}

std::vector<std::string> g_plainCalls;
void Plain(const std::string& name, KwCmd* params) {
    g_plainCalls.push_back(name + ":" + params->GetString(1, "-"));
}

// A target that notes its calls and can do something from inside them.
class Target : public KwInf {
public:
    void OnCall(const std::string& name, KwCmd* params) {
        calls.push_back(name + ":" + params->GetString(1, "-"));
        if (inside) inside();
        calls.back() += ";" + name + ":" + params->GetString(1, "-");
    }
    bool OnOther(const std::string& name, KwCmd* params) {
        calls.push_back("other " + name + ":" + params->GetString(1, "-"));
        return takes;
    }
    std::vector<std::string> calls;
    std::function<void()> inside;
    bool takes = true;
};
class Derived : public Target {};

class KwCommandTest : public testing::Test {
protected:
    void SetUp() override {
        g_log.clear();
        g_plainCalls.clear();
        KwLogSystem::SetOutputLogCallback(Capture, false);
    }
    void TearDown() override { KwLogSystem::SetOutputLogConsole(false); }

    void Do(std::string line) { registry.Do(line.data(), static_cast<int>(line.size())); }
    std::string TakeLog() {
        std::string all;
        for (const std::string& line : g_log) all += line + "\n";
        g_log.clear();
        return all;
    }

    KwCommand registry;
    Derived target;
};

using Calls = std::vector<std::string>;

TEST_F(KwCommandTest, HandlersGetTheWordAsTypedAndTheParameters) {
    registry.Add("db.Save", &target, &Derived::OnCall, "save");
    registry.Add("plain", Plain, nullptr);
    Do("  DB.save\t 5,name=x\r\n");
    Do("db.save");
    Do("db.save 5 10");
    Do("PLAIN 'a b'");
    EXPECT_EQ(target.calls, (Calls{"DB.save:5;DB.save:5", "db.save:-;db.save:-", "db.save:-;db.save:-"}));
    EXPECT_EQ(g_plainCalls, (Calls{"PLAIN:a b"}));
    EXPECT_EQ(TakeLog(), "");
    registry.Do(nullptr, 5);
}

TEST_F(KwCommandTest, TheUncheckedFormPassesMemberAndDescriptionOn) {
    using Unchecked = void (KwCommand::*)(const std::string&, KwInf*, ...);
    (registry.*static_cast<Unchecked>(&KwCommand::Add))("x", &target, static_cast<KwInfCommand>(&Target::OnCall),
                                                        static_cast<const char*>("about"));
    Do("x 1");
    EXPECT_EQ(target.calls, (Calls{"x:1;x:1"}));
    EXPECT_EQ(registry.FindCommand("X")->description, "about");
}

TEST_F(KwCommandTest, WhatNobodyKnowsGoesToTheCallbackOrTheLog) {
    Do("Nope 1");
    EXPECT_EQ(TakeLog(), "function Nope not found,docommand error\n");
    registry.SetCommandCallback(&target, &Derived::OnOther);
    Do("Nope 1");
    EXPECT_EQ(TakeLog(), "");
    target.takes = false;
    Do("Nope 2");
    EXPECT_EQ(TakeLog(), "function Nope not found,docommand error\n");
    EXPECT_EQ(target.calls, (Calls{"other Nope:1", "other Nope:2"}));
    registry.SetCommandCallback(nullptr, nullptr);
    Do("%s%n");
    EXPECT_EQ(TakeLog(), "function %s%n not found,docommand error\n");
}

TEST_F(KwCommandTest, WhatLeavesAHandlerIsLoggedWithTheCommandAndTheNextLineRuns) {
    const unsigned int before = KwOS::GetExceptionCount();
    registry.Add("db.save", &target, &Derived::OnCall);
    target.inside = [] { throw std::runtime_error("disk full"); };
    Do("db.save 1");
    registry.Add("plain", [](const std::string&, KwCmd*) { throw 5; });
    Do("plain");
    target.inside = nullptr;
    Do("db.save 2");
    EXPECT_EQ(TakeLog(), "exception in command db.save: disk full\nexception in command plain: int\n");
    EXPECT_EQ(target.calls.back(), "db.save:2;db.save:2");
    EXPECT_EQ(KwOS::GetExceptionCount(), before + 2);
}

TEST_F(KwCommandTest, HelpListsTheTopLevelInAnyCase) {
    registry.Add("db.show", &target, &Derived::OnCall, "rows");
    registry.Add("apple", Plain, nullptr);
    const std::string list =
        "Have 5 funcion\n[0]?(0 member)(show func list).\n[1]apple(0 member).\n[2]cls(0 member)(clear screen).\n"
        "[3]db(1 member).\n[4]help(0 member)(show func list).\n";
    for (const char* word : {"help", "HELP", "Help", "?"}) {
        Do(word);
        EXPECT_EQ(TakeLog(), list) << word;
    }
}

TEST_F(KwCommandTest, AGroupListsItsMembersAndRunsNothing) {
    registry.Add("db", &target, &Derived::OnCall, "group");
    registry.Add("db.show", &target, &Derived::OnCall, "rows");
    Do("db 1");
    EXPECT_EQ(TakeLog(), "Have 1 funcion\n[0]show(0 member)(rows).\n");
    EXPECT_TRUE(target.calls.empty());
    Do("db.show 2");
    EXPECT_EQ(target.calls, (Calls{"db.show:2;db.show:2"}));
    registry.Remove("DB.Show");
    Do("db 3");
    EXPECT_EQ(target.calls.back(), "db:3;db:3") << "without members it is a command again";
}

TEST_F(KwCommandTest, InvalidNamesAreNeitherAddedNorFound) {
    for (const std::string& name : {std::string(), std::string("."), std::string(".a"), std::string("a."),
                                    std::string("a..b"), std::string(4096, 'x')}) {
        registry.Add(name, &target, &Derived::OnCall, "");
        EXPECT_EQ(registry.FindCommand(name), nullptr) << name;
        registry.Remove(name);
        Do(name);
    }
    EXPECT_EQ(registry.FindCommand("a"), nullptr) << "no node is left behind by a refused name";
    EXPECT_TRUE(target.calls.empty());
}

TEST_F(KwCommandTest, SegmentsAreCutTo63Characters) {
    const std::string cut(63, 'a');
    registry.Add(cut + "bc.x", &target, &Derived::OnCall, "");
    EXPECT_EQ(registry.FindCommand(cut + ".x"), registry.FindCommand(cut + "zzzz.x"));
    EXPECT_EQ(registry.FindCommand(cut.substr(1) + ".x"), nullptr);
    Do(cut + "andMore.X 1");
    EXPECT_EQ(target.calls.size(), 1u);
}

TEST_F(KwCommandTest, TheLongestNameNestsAsDeepAsItHasSegments) {
    std::string name;
    for (int i = 0; i < 2047; ++i) name += "a.";
    name += "a";  // 4095 characters
    registry.Add(name, &target, &Derived::OnCall, "");
    ASSERT_NE(registry.FindCommand(name), nullptr);
    registry.Remove(name);
    EXPECT_EQ(registry.FindCommand("a"), nullptr) << "the nodes above had no other purpose";
    registry.Add(name, &target, &Derived::OnCall, "");
    registry.Clear();
    EXPECT_EQ(registry.FindCommand("help"), nullptr);
}

TEST_F(KwCommandTest, RemovingAGroupTakesItsMembersAndNothingElse) {
    registry.Add("a.b.c", &target, &Derived::OnCall, "");
    registry.Add("a.b.d", &target, &Derived::OnCall, "");
    registry.Add("a.e", &target, &Derived::OnCall, "");
    registry.Remove("a.b.x");
    registry.Remove("a.b");
    EXPECT_EQ(registry.FindCommand("a.b.c"), nullptr);
    EXPECT_NE(registry.FindCommand("a.e"), nullptr);
}

TEST_F(KwCommandTest, AHandlerMayRemoveItselfItsParentAndEverything) {
    for (const char* removed : {"db.save", "db", ""}) {
        registry.Add("db.save", &target, &Derived::OnCall, "save");
        target.inside = [&] {
            if (*removed == '\0') {
                registry.Clear();
            } else {
                registry.Remove(removed);
            }
            registry.Add("fresh.one", Plain, "");
            EXPECT_EQ(registry.FindCommand("db.save"), nullptr);
        };
        Do("Db.Save " + std::string(100, 'p'));
        const std::string call = "Db.Save:" + std::string(100, 'p');
        EXPECT_EQ(target.calls.back(), call + ";" + call);
    }
}

TEST_F(KwCommandTest, AHandlerMayExecuteOtherLines) {
    registry.Add("outer.long.name", &target, &Derived::OnCall, "");
    registry.Add("inner", Plain, "");
    target.inside = [&] { Do("inner 2"); };
    Do("outer.long.NAME 1");
    EXPECT_EQ(target.calls, (Calls{"outer.long.NAME:1;outer.long.NAME:1"}));
    EXPECT_EQ(g_plainCalls, (Calls{"inner:2"}));
}

TEST_F(KwCommandTest, ATargetThatWasRegisteredAndDiedIsNotCalled) {
    auto* mortal = new Derived;
    mortal->Attack();
    registry.Add("mortal", mortal, &Derived::OnCall, "");
    Do("mortal 1");
    EXPECT_EQ(mortal->calls.size(), 1u);
    delete mortal;
    Do("mortal 2");
    EXPECT_EQ(TakeLog(), "function mortal not found,docommand error\n");
}

// One thread runs the pending lines while a handler on another one is about to.
TEST_F(KwCommandTest, TwoThreadsMayRunThePendingLines) {
    struct Pending : KwCommand {
        using KwCommand::PushLine;
    };
    Pending shared;
    shared.Add("outer", &target, &Derived::OnCall);
    shared.Add("inner", Plain);
    std::atomic<bool> inHandler{false};
    target.inside = [&] {
        inHandler = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        shared.OnEvent();
    };
    shared.PushLine("inner 1");
    std::thread other([&] {
        while (!inHandler) std::this_thread::yield();
        shared.OnEvent();
    });
    char line[] = "outer";
    shared.Do(line, -1);
    other.join();
    EXPECT_EQ(g_plainCalls, (Calls{"inner:1"}));
}

// A log callback of the host may change the registry while its list goes out.
TEST_F(KwCommandTest, TheListSurvivesChangesFromTheLog) {
    static KwCommand* changed = nullptr;
    changed = &registry;
    registry.Add("a.b", Plain, "");
    KwLogSystem::SetOutputLogCallback([](const char*, va_list, STime*) { changed->Clear(); }, false);
    Do("a");
    KwLogSystem::SetOutputLogCallback(Capture, false);
    Do("a");
    EXPECT_EQ(TakeLog(), "function a not found,docommand error\n");
}

}  // namespace
