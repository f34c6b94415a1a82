#include "Kw/KwMemory.h"

#include <gtest/gtest.h>

#include <atomic>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Kw/KwModuleEngine.h"
#include "KwTestSupport.h"

namespace {

std::vector<std::string> g_trace;

void Trace(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    g_trace.emplace_back(text);
}

double Held() {
    double held = 0;
    KwMemory::QueryInfo(&held, nullptr, nullptr);
    return held;
}

double Allocated() {
    double allocated = 0;
    KwMemory::QueryInfo(nullptr, &allocated, nullptr);
    return allocated;
}

unsigned char* Take(unsigned int size) {
    return static_cast<unsigned char*>(KwMemory::Malloc(size, "here.cpp", 7));
}
void Drop(void* ptr) {
    KwMemory::Free(ptr, "there.cpp", 9);
}

bool AllBytesAre(const unsigned char* data, unsigned int from, unsigned int to, unsigned char value) {
    for (unsigned int i = from; i < to; ++i) {
        if (data[i] != value) return false;
    }
    return true;
}

// What a Malloc of `size` adds to the bytes handed out: its pool's block size, or size + 32.
double CountedSize(unsigned int size) {
    const double before = Allocated();
    void* ptr = Take(size);
    const double counted = Allocated() - before;
    Drop(ptr);
    return counted;
}

}  // namespace

TEST(KwMemory, APoolServesEveryRequestThatFitsWithThirtyTwoBytesOfOverhead) {
    const std::vector<std::pair<unsigned int, double>> expected = {
        {0, 48},   {16, 48},     {17, 64},     {32, 64},       {33, 128},        {96, 128},
        {97, 256}, {2016, 2048}, {2017, 4096}, {32736, 32768}, {32737, 32769.0}, {100000, 100032}};
    for (const auto& [size, counted] : expected) EXPECT_EQ(CountedSize(size), counted) << size;
}

TEST(KwMemory, FreshAndReusedBlocksAreZeroedAlignedAndDistinct) {
    for (const unsigned int size : {0u, 1u, 16u, 17u, 500u, 32736u, 32737u, 300000u}) {
        std::set<void*> seen;
        for (int round = 0; round < 2; ++round) {
            std::vector<unsigned char*> blocks;
            for (int i = 0; i < 5; ++i) blocks.push_back(Take(size));
            for (unsigned char* block : blocks) {
                EXPECT_TRUE(AllBytesAre(block, 0, size, 0)) << size;
                if (sizeof(void*) == 8) {
                    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u);
                }
                std::memset(block, 0xEE, size);
            }
            EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), blocks.size());
            for (unsigned char* block : blocks) Drop(block);
        }
    }
}

TEST(KwMemory, PooledMemoryStaysHeldAndLargeMemoryGoesBack) {
    Drop(Take(5000));  // the pool has a block from here on
    const double before = Held();
    void* pooled = Take(5000);
    EXPECT_EQ(Held(), before);
    Drop(pooled);
    EXPECT_EQ(Held(), before);
    void* large = Take(100000);
    EXPECT_EQ(Held(), before + 100032);
    Drop(large);
    EXPECT_EQ(Held(), before);
}

// A pool keeps 1024 free blocks of its size; the next one goes back to the system.
TEST(KwMemory, TheBlockBeyondThePoolsLimitIsReturned) {
    std::vector<void*> blocks;
    for (int i = 0; i < 1025 + 1024; ++i) blocks.push_back(Take(10));
    const double full = Held();
    for (void* block : blocks) Drop(block);
    EXPECT_LE(Held(), full - 1025 * 48);
    const double after = Held();
    void* one = Take(10);
    Drop(one);
    EXPECT_EQ(Held(), after);
}

TEST(KwMemory, ReallocStaysInItsPoolAndMovesOtherwise) {
    unsigned char* block = Take(100);
    std::memset(block, 0xAA, 100);
    auto* grown = static_cast<unsigned char*>(KwMemory::Realloc(block, 200, "r.cpp", 1));
    EXPECT_EQ(grown, block);
    EXPECT_TRUE(AllBytesAre(grown, 0, 100, 0xAA) && AllBytesAre(grown, 100, 200, 0));
    auto* moved = static_cast<unsigned char*>(KwMemory::Realloc(grown, 300, "r.cpp", 2));
    EXPECT_NE(moved, block);
    EXPECT_TRUE(AllBytesAre(moved, 0, 100, 0xAA) && AllBytesAre(moved, 100, 300, 0));
    auto* small = static_cast<unsigned char*>(KwMemory::Realloc(moved, 10, "r.cpp", 3));
    EXPECT_NE(small, moved);
    auto* large = static_cast<unsigned char*>(KwMemory::Realloc(small, 100000, "r.cpp", 4));
    EXPECT_TRUE(AllBytesAre(large, 0, 10, 0xAA) && AllBytesAre(large, 10, 100000, 0));
    void* shrunk = KwMemory::Realloc(large, 99999, "r.cpp", 5);
    EXPECT_NE(shrunk, large);
    unsigned int size = 0;
    const char* file = nullptr;
    int line = 0;
    EXPECT_TRUE(KwMemory::GetPtrInfo(shrunk, &size, &file, &line));
    EXPECT_EQ(size, 99999u);
    EXPECT_STREQ(file, "r.cpp");
    EXPECT_EQ(line, 5);
    Drop(shrunk);
}

// Writing one byte too far is reported when the block is freed, and the block is left alone.
TEST(KwMemory, DamagedBlocksAreReportedAndRefused) {
    unsigned char* block = Take(20);
    block[20] ^= 0xFF;
    Drop(block);
    EXPECT_FALSE(KwMemory::GetPtrInfo(block, nullptr, nullptr, nullptr));
    EXPECT_FALSE(KwMemory::AutoFree(block));
    block[20] ^= 0xFF;
    block[-2] ^= 0xFF;
    Drop(block);
    EXPECT_EQ(KwMemory::Realloc(block, 30, "r.cpp", 3), nullptr);
    block[-2] ^= 0xFF;
    block[-3] = 200;  // the pool's number
    EXPECT_EQ(KwMemory::Realloc(block, 30, "r.cpp", 4), nullptr);
    block[-3] = 2;
    const std::vector<std::string> reports = TakeMemoryReports();
    ASSERT_EQ(reports.size(), 6u);
    char expected[128];
    const unsigned int address = static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(block));
    std::snprintf(expected, sizeof(expected), "Error Free:check header failed 2,ptr=%x,[there.cpp:9]", address);
    EXPECT_EQ(reports[0], expected);
    std::snprintf(expected, sizeof(expected), "Error Free:check header failed 1,ptr=%x,[there.cpp:9]", address);
    EXPECT_EQ(reports[3], expected);
    std::snprintf(expected, sizeof(expected), "Error Realloc:check header failed 1,ptr=%x,size=30,[r.cpp:3]", address);
    EXPECT_EQ(reports[4], expected);
    std::snprintf(expected, sizeof(expected), "Error Realloc:check header failed 2,ptr=%x,size=30,[r.cpp:4]", address);
    EXPECT_EQ(reports[5], expected);
    Drop(block);
}

TEST(KwMemory, ASecondFreeOfAPooledBlockIsRefused) {
    unsigned char* block = Take(40);
    Drop(block);
    Drop(block);
    EXPECT_EQ(TakeMemoryReports().size(), 1u);
    unsigned char* a = Take(40);
    unsigned char* b = Take(40);
    EXPECT_NE(a, b);
    Drop(a);
    Drop(b);
}

TEST(KwMemory, SizesThatWrapAreRefused) {
    EXPECT_EQ(Take(0xFFFFFFF0u), nullptr);
    const std::vector<std::string> reports = TakeMemoryReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].rfind("Error Malloc:size=", 0), 0u);
    auto* product = static_cast<unsigned char*>(KwMemory::Calloc(65536, 65537, nullptr, 0));  // 65536 in 32 bits
    EXPECT_TRUE(AllBytesAre(product, 0, 65536, 0));
    KwMemory::Free(product, nullptr, 0);
}

TEST(KwMemory, TheTracerHearsEveryOperation) {
    g_trace.clear();
    KwMemory::AttackLogAction(Trace);
    void* block = Take(100);
    block = KwMemory::Realloc(block, 101, "r.cpp", 1);
    block = KwMemory::Realloc(block, 1000, "r.cpp", 2);
    Drop(block);
    KwMemory::AttackLogAction(nullptr);
    ASSERT_EQ(g_trace.size(), 6u);
    EXPECT_NE(g_trace[0].find("Size=100,[here.cpp:7]"), std::string::npos);
    EXPECT_NE(g_trace[1].find("size=101,size<size limit,not resize,[r.cpp:1]"), std::string::npos);
    EXPECT_NE(g_trace[3].find("oldsize=101,newptr="), std::string::npos);
    EXPECT_NE(g_trace[4].find("Free:ptr="), std::string::npos);
    EXPECT_NE(g_trace[5].find("size=1000,[there.cpp:9]"), std::string::npos);
}

TEST(KwMemory, TheDefaultPoolsCannotBeReplaced) {
    EXPECT_FALSE(KwMemory::SetupBlock(1, 100u, 5));
    EXPECT_EQ(CountedSize(17), 64);
}

// What is alive at release is reported, unless it is marked; damage ends the walk.
TEST(KwMemory, TheReleaseReportsWhatIsStillAlive) {
    void* marked = Take(50);
    EXPECT_TRUE(KwMemory::AutoFree(marked));
    void* unlisted = KwMemory::Malloc(60, nullptr, 0);
    void* listed = Take(70);
    char expected[128];
    std::snprintf(expected, sizeof(expected), "Leak Mem 2:Ptr=%x,Size=70,[here.cpp:7]",
                  static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(listed)));
    EXPECT_NE(unlisted, nullptr);
    Kw_Release();
    EXPECT_EQ(KwMemory::QueryInfo(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(TakeMemoryReports(), (std::vector<std::string>{expected, "Memory Leak 2 Ptr"}));

    // Without a state blocks work and are traced, and belong to nobody.
    g_trace.clear();
    KwMemory::AttackLogAction(Trace);
    Drop(Take(10));
    KwMemory::AttackLogAction(nullptr);
    EXPECT_EQ(g_trace.size(), 2u);
    EXPECT_EQ(Take(0xFFFFFFF0u), nullptr);
    EXPECT_EQ(TakeMemoryReports().size(), 1u);
    unsigned char* lone = Take(10);
    EXPECT_TRUE(AllBytesAre(lone, 0, 10, 0));
    lone = static_cast<unsigned char*>(KwMemory::Realloc(lone, 1000, "r.cpp", 1));
    Kw_Init();
    Drop(lone);
    EXPECT_EQ(Held(), 0);

    unsigned char* damaged = Take(10);
    unsigned char* behind = Take(20);  // left alone with the damaged one
    damaged[10] ^= 1;
    Kw_Release();
    EXPECT_EQ(TakeMemoryReports().size(), 1u);
    damaged[10] ^= 1;
    Drop(damaged);
    Drop(behind);
    Kw_Init();
}

TEST(KwMemory, ThreadsAllocateAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (unsigned int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &wrong] {
            std::mt19937 random(t);
            std::vector<std::pair<unsigned char*, unsigned int>> live;
            for (int i = 0; i < 5000; ++i) {
                if (live.size() < 50) {
                    const auto size = static_cast<unsigned int>(random() % 3000);
                    unsigned char* block = Take(size);
                    if (!AllBytesAre(block, 0, size, 0)) ++wrong;
                    std::memset(block, static_cast<int>(t + 1), size);
                    live.emplace_back(block, size);
                } else {
                    const std::size_t pick = random() % live.size();
                    const auto [block, size] = live[pick];
                    if (!AllBytesAre(block, 0, size, static_cast<unsigned char>(t + 1))) ++wrong;
                    Drop(block);
                    live[pick] = live.back();
                    live.pop_back();
                }
            }
            for (const auto& [block, size] : live) Drop(block);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(KwMem, OrdersRangesByRawBytesAndFoldsOnlyForEquality) {
    EXPECT_EQ(KwMem::Cmp("abcdefghX", "abcdefghx", 9), 'X' - 'x');
    EXPECT_EQ(KwMem::Cmp("a", nullptr, 1), 1);
    EXPECT_EQ(KwMem::Cmp(nullptr, "a", 1), -1);
    EXPECT_EQ(KwMem::Cmp(nullptr, "a", 0), 0);
    EXPECT_EQ(KwMem::Cmp2("abc", 2, "abc", 3), -1);
    EXPECT_EQ(KwMem::Cmp2("b", 1, "abc", 3), 1);
    EXPECT_EQ(KwMem::ICmp("HeLLo", "hEllO", 5), 0);
    EXPECT_GT(KwMem::ICmp("a", "B", 1), 0);
    EXPECT_NE(KwMem::ICmp("[", "{", 1), 0);  // 32 apart, but no letters
    EXPECT_EQ(KwMem::ICmp2("AB", 2, "abc", 3), -1);
    EXPECT_EQ(KwMem::ICmp2("a", 1, "B", 1), 1);
}

TEST(KwMem, CopyRepeatsWhatLiesBetweenWhenTheTargetBeginsInTheSource) {
    char text[] = "abcdefgh";
    KwMem::Copy(text + 2, text, 6);
    EXPECT_STREQ(text, "abababab");
    char other[] = "abcdefgh";
    KwMem::Copy(other, other + 2, 6);
    EXPECT_STREQ(other, "cdefghgh");
}
