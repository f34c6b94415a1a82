#include "Kw/KwInf.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Kw/KwModuleEngine.h"

namespace {

template <typename Base>
struct Counted : Base {
    explicit Counted(int* deaths) : died(deaths) {}
    ~Counted() override { ++*died; }
    int* died;
};

}  // namespace

template <typename Base>
class KwInfBoth : public testing::Test {};
using Bases = testing::Types<KwInf, KwInfLock>;
TYPED_TEST_SUITE(KwInfBoth, Bases);

TYPED_TEST(KwInfBoth, DiesWithItsLastReferenceInTheTrackedAllocator) {
    int deaths = 0;
    auto* object = new Counted<TypeParam>(&deaths);
    unsigned int size = 0;
    EXPECT_TRUE(KwMemory::GetPtrInfo(object, &size, nullptr, nullptr));
    EXPECT_EQ(size, sizeof(*object));
    EXPECT_EQ(object->AddRef(), 2);
    EXPECT_EQ(object->Release(), 1);
    EXPECT_EQ(deaths, 0);
    EXPECT_EQ(object->Release(), 0);
    EXPECT_EQ(deaths, 1);
}

TYPED_TEST(KwInfBoth, TheRegistryForgetsADestroyedTarget) {
    int deaths = 0;
    auto* object = new Counted<TypeParam>(&deaths);
    EXPECT_EQ(Kw_InfSerial(object), 0u);
    object->Attack();
    const unsigned int serial = Kw_InfSerial(object);
    EXPECT_NE(serial, 0u);
    object->Attack();
    EXPECT_EQ(Kw_InfSerial(object), serial);
    Kw_InfAttack(object, true);  // a new registration, a new number
    EXPECT_GT(Kw_InfSerial(object), serial);
    KwInf* address = object;
    object->Release();
    EXPECT_EQ(Kw_InfSerial(address), 0u);
}

TYPED_TEST(KwInfBoth, ACopyTakesCountAndFlagAndSharesTheLock) {
    int deaths = 0;
    {
        Counted<TypeParam> first(&deaths);
        first.AddRef();
        Counted<TypeParam> second(first);
        EXPECT_EQ(second.GetRef(), 2);
        first = second;
        EXPECT_EQ(second.AddRef(), 3);
        EXPECT_EQ(first.GetRef(), 2);
    }
    EXPECT_EQ(deaths, 2);
}

TEST(KwInf, RegistrationDoesNothingWhileTheLibraryIsDown) {
    int deaths = 0;
    Kw_Release();
    {
        Counted<KwInfLock> object(&deaths);
        object.Attack();
        EXPECT_EQ(Kw_InfSerial(&object), 0u);
    }
    EXPECT_TRUE(Kw_Init());
    Kw_InfAttack(nullptr, true);
    {
        Counted<KwInf> object(&deaths);
        object.Attack();
        Kw_Release();  // the target outlives the registry
        Kw_Init();
        EXPECT_EQ(Kw_InfSerial(&object), 0u);
    }
}

TEST(KwInfLock, CountsFromManyThreads) {
    int deaths = 0;
    auto* object = new Counted<KwInfLock>(&deaths);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        object->AddRef();
        threads.emplace_back([object] {
            for (int i = 0; i < 2000; ++i) {
                object->AddRef();
                object->Attack();
                object->Release();
            }
            object->Release();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(object->GetRef(), 1);
    object->Release();
    EXPECT_EQ(deaths, 1);
}

TEST(KwLock, AWrongOperationAndANullHandleDoNothing) {
    void* handle = nullptr;
    for (int op = -1; op < 7; ++op) {
        if (op != 1) Kw_LockWork(op, handle);
        EXPECT_EQ(handle, nullptr);
    }
    Kw_LockWork(1, handle);
    ASSERT_NE(handle, nullptr);
    void* shared = Kw_LockShare(handle);
    Kw_LockWork(3, handle);
    Kw_LockWork(3, handle);  // the holder enters again
    Kw_LockWork(4, handle);
    Kw_LockWork(4, handle);
    Kw_LockWork(2, handle);
    EXPECT_EQ(handle, nullptr);
    Kw_LockWork(3, shared);
    Kw_LockWork(4, shared);
    Kw_LockWork(2, shared);
}

namespace {
std::vector<int> g_calls;
struct Module : KwModuleEngine {
    explicit Module(int n) : number(n) {}
    void BeginRelease() override { g_calls.push_back(number); }
    void EndRelease() override {
        g_calls.push_back(-number);
        delete this;
    }
    int number;
};
}  // namespace

TEST(KwModuleEngine, BothRoundsRunNewestFirstAndTheLibraryComesUpAgain) {
    g_calls.clear();
    PostModuleEngine(nullptr);
    for (int i = 1; i <= 3; ++i) PostModuleEngine(new Module(i));
    Kw_Release();
    EXPECT_FALSE(Kw_IsInitialised());
    EXPECT_EQ(g_calls, (std::vector<int>{3, 2, 1, -3, -2, -1}));
    Kw_Release();
    EXPECT_EQ(g_calls.size(), 6u);
    EXPECT_TRUE(Kw_Init());
    EXPECT_TRUE(Kw_Init());
}
