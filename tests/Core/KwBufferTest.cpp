#include "Kw/KwBuffer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Kw/KwBufferTrunk.h"
#include "Kw/KwModuleEngine.h"
#include "KwTestSupport.h"

namespace {

std::string Content(const KwBuffer& buffer) {
    return {reinterpret_cast<const char*>(buffer.GetData()), buffer.GetUsed()};
}

}  // namespace

TEST(KwBuffer, AppendsAreWholeOrNothing) {
    KwBuffer buffer;
    buffer.AddInt(1);  // no block yet
    EXPECT_FALSE(buffer.AddString("x", 1) || buffer.AddStringF("x") || buffer.Alloc(0));
    ASSERT_TRUE(buffer.Alloc(15));
    buffer.AddByte(1);
    buffer.AddWord(0x0302);
    buffer.AddDouble(0.0);
    EXPECT_EQ(buffer.GetUsed(), 11u);
    buffer.AddDouble(1.0);
    EXPECT_EQ(buffer.GetUsed(), 11u);
    buffer.AddInt(0x07060504);
    EXPECT_EQ(buffer.GetUsed(), 15u);
    buffer.AddByte(9);
    EXPECT_EQ(buffer.GetUsed(), 15u);
    EXPECT_EQ(buffer.GetData()[1], 2);  // little-endian
    EXPECT_EQ(buffer.GetData()[11], 4);
    EXPECT_FALSE(buffer.AddData("x", 1));
    EXPECT_TRUE(buffer.AddData("x", 0));
    EXPECT_FALSE(buffer.AddData(nullptr, 0));
    buffer.SetUsed(-1);  // unchecked by design; nothing may be written from there
    buffer.AddInt(1);
    EXPECT_FALSE(buffer.AddData("x", 1) || buffer.AddStringF("x") || buffer.Remove(0, 1));
}

TEST(KwBuffer, TextLengthsBelowOneAreMeasured) {
    KwBuffer buffer;
    buffer.Alloc(16);
    EXPECT_TRUE(buffer.AddString("abc", 0));
    EXPECT_TRUE(buffer.AddString("defgh", 2));
    EXPECT_TRUE(buffer.AddString("", 0));
    EXPECT_TRUE(buffer.AddString("ij", static_cast<unsigned int>(-1)));
    EXPECT_EQ(Content(buffer), "abcdeij");
    EXPECT_TRUE(buffer.AddString(KW_W("kl"), 0));
    EXPECT_EQ(buffer.GetUsed(), 11u);
    EXPECT_FALSE(buffer.AddString(KW_W("mno"), 3));
    EXPECT_FALSE(buffer.AddString(static_cast<const char*>(nullptr), 1));
}

TEST(KwBuffer, FormattedTextMayFillTheRoomExactly) {
    KwBuffer buffer;
    buffer.Alloc(6);
    EXPECT_TRUE(buffer.AddStringF("%d-%s", 12, "abc"));
    EXPECT_EQ(Content(buffer), "12-abc");
    buffer.SetUsed(1);
    EXPECT_FALSE(buffer.AddStringF("%d-%s", 12, "abc"));
    EXPECT_FALSE(buffer.AddStringF("%s", ""));
    EXPECT_EQ(buffer.GetUsed(), 1u);
    EXPECT_FALSE(buffer.AddStringF(KW_W("abc")));
}

TEST(KwBuffer, RemoveClosesTheGap) {
    KwBuffer buffer;
    buffer.Alloc(8);
    buffer.AddString("abcdef", 0);
    EXPECT_TRUE(buffer.Remove(1, 2));
    EXPECT_EQ(Content(buffer), "adef");
    EXPECT_FALSE(buffer.Remove(1, 4) || buffer.Remove(-1, 1) || buffer.Remove(0, 0));
    EXPECT_FALSE(buffer.Remove(2147483647, 2147483647));
    EXPECT_TRUE(buffer.Remove(0, 4));
    EXPECT_EQ(buffer.GetUsed(), 0u);
}

TEST(KwBuffer, ReallocKeepsTheMarkOnRequestAndCutsIt) {
    KwBuffer buffer;
    buffer.Alloc(8);
    buffer.AddString("abcdef", 0);
    EXPECT_TRUE(buffer.Realloc(20, true));
    EXPECT_EQ(Content(buffer), "abcdef");
    EXPECT_TRUE(buffer.Realloc(3, true));
    EXPECT_EQ(Content(buffer), "abc");
    EXPECT_TRUE(buffer.Realloc(3, false));
    EXPECT_EQ(buffer.GetUsed(), 0u);
}

// A failed Alloc leaves an empty buffer; a failed Realloc leaves the numbers and no block.
TEST(KwBuffer, FailuresLeaveWhatIsDocumented) {
    testing::internal::CaptureStdout();
    auto* buffer = new KwBuffer;
    buffer->Alloc(8);
    EXPECT_FALSE(buffer->Alloc(0xFFFFFFF0u));
    EXPECT_TRUE(buffer->GetSize() == 0 && buffer->GetData() == nullptr);
    buffer->Alloc(8);
    unsigned char* abandoned = buffer->GetData();
    buffer->AddString("abc", 0);
    EXPECT_FALSE(buffer->Realloc(0xFFFFFFF0u, true));
    EXPECT_TRUE(buffer->GetSize() == 8 && buffer->GetUsed() == 3 && buffer->GetData() == nullptr);
    EXPECT_FALSE(buffer->AddString("x", 1));
    KwMemory::Free(abandoned, nullptr, 0);
    buffer->Release();
    EXPECT_EQ(TakeMemoryReports().size(), 2u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "alloc buffer error size=-16\nrealloc buffer error size=-16\n");
}

TEST(KwBuffer, CopiesAreIndependent) {
    KwBuffer first;
    first.Alloc(8);
    first.AddString("abc", 0);
    KwBuffer second(first);
    second.GetData()[0] = 'x';
    EXPECT_EQ(Content(first), "abc");
    EXPECT_EQ(Content(second), "xbc");
    second = KwBuffer();
    EXPECT_EQ(second.GetData(), nullptr);
}

TEST(KwBufferList, ABufferComesBackWithItsUsersLastReference) {
    KwBufferList list;
    EXPECT_EQ(list.PopFree(), nullptr);  // no size, nothing idle
    list.Init(64);
    KwBufferNode* node = list.PopFree();
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->GetRef(), 2);
    EXPECT_EQ(list.GetRef(), 2);
    node->AddString("abc", 0);
    node->AddRef();
    node->Release();  // the extra reference is not the return
    EXPECT_TRUE(list.Empty(false));
    node->Release();
    EXPECT_EQ(list.GetItemCount(false), 1);
    EXPECT_EQ(list.GetRef(), 1);
    KwBufferNode* again = list.PopFree();
    EXPECT_EQ(again, node);
    EXPECT_EQ(again->GetUsed(), 0u);
    again->Release();
}

// Of two users who release at once one finds the pool's reference and its own, and returns the nodes.
TEST(KwBufferList, UsersOnTwoThreadsReturnABuffer) {
    KwBufferList list;
    list.Init(16);
    std::vector<KwBufferNode*> nodes(1000);
    const auto releaseAll = [&nodes](std::atomic<int>& ready) {
        ++ready;
        while (ready < 2) std::this_thread::yield();
        for (KwBufferNode* node : nodes) node->Release();
    };
    for (int round = 0; round < 100; ++round) {
        for (KwBufferNode*& node : nodes) {
            node = list.PopFree();
            node->AddRef();
        }
        std::atomic<int> ready{0};
        std::thread other(releaseAll, std::ref(ready));
        releaseAll(ready);
        other.join();
        ASSERT_EQ(list.GetItemCount(false), 1000) << "round " << round;
    }
    EXPECT_EQ(list.GetRef(), 1);
}

TEST(KwBufferList, TheNodeBeyondTheFreeLimitIsFreed) {
    KwBufferList list;
    list.Init(16);
    std::vector<KwBufferNode*> out;
    for (int i = 0; i < 1025; ++i) out.push_back(list.PopFree());
    EXPECT_EQ(list.GetRef(), 1026);
    for (KwBufferNode* node : out) node->Release();
    EXPECT_EQ(list.GetItemCount(false), 1024);
    EXPECT_EQ(list.GetRef(), 1);
}

TEST(KwBufferList, MoreBuffersThanReferencesMayBeOut) {
    KwBufferList list;
    list.Init(16);
    std::vector<KwBufferNode*> out;
    for (int i = 0; i < 70000; ++i) out.push_back(list.PopFree());
    EXPECT_EQ(list.GetRef(), 32767);
    for (KwBufferNode* node : out) node->Release();
    EXPECT_EQ(list.GetItemCount(false), 1024);
    EXPECT_EQ(list.GetRef(), 1);
}

TEST(KwBufferList, TheQueueOfUsedBuffersKeepsItsOrderAndClearTakesThemBack) {
    KwBufferList list;
    list.Init(16);
    KwBufferNode* a = list.PopFree();
    KwBufferNode* b = list.PopFree();
    list.PushUsedBack(a);
    list.PushUsedFront(b);
    list.PushUsedBack(nullptr);
    EXPECT_EQ(list.GetItemCount(true), 2);
    EXPECT_EQ(list.PopUsed(), b);
    list.PushUsedBack(b);
    list.Clear();
    EXPECT_TRUE(list.Empty(true) && list.Empty(false));
    EXPECT_EQ(list.GetRef(), 1);
}

TEST(KwBufferList, ABufferOutlivesItsPool) {
    KwBufferNode* node = nullptr;
    {
        KwBufferList list;
        list.Init(16);
        node = list.PopFree();
    }
    node->AddString("abc", 0);
    EXPECT_EQ(Content(*node), "abc");
    EXPECT_EQ(node->Release(), 0);
}

TEST(KwBufferTrunk, MatchesSizesExactlyAndKeepsPoolsAlive) {
    KwBufferTrunk trunk;
    EXPECT_EQ(trunk.SelectBuffer(0), nullptr);
    KwBufferList* hundred = trunk.SelectBufferList(100);
    EXPECT_NE(hundred, trunk.SelectBufferList(101));
    EXPECT_EQ(hundred, trunk.SelectBufferList(100));
    KwBuffer* first = trunk.SelectBuffer(100);
    KwBuffer* second = trunk.SelectBuffer(100);
    EXPECT_EQ(first->GetSize(), 100u);
    first->Release();
    EXPECT_EQ(hundred->GetRef(), 1);  // the return does not take the trunk's own reference
    EXPECT_EQ(hundred->GetItemCount(false), 1);
    trunk.Clear();
    EXPECT_EQ(second->Release(), 0);  // its pool is gone
}

TEST(KwBufferTrunk, TheRootLivesAsLongAsTheLibrary) {
    KwBufferTrunk* root = QueryTrunkRoot();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root, QueryTrunkRoot());
    root->SelectBuffer(128)->Release();
    Kw_Release();
    EXPECT_EQ(QueryTrunkRoot(), nullptr);
    Kw_Init();
    EXPECT_NE(QueryTrunkRoot(), nullptr);
}

TEST(KwBufferTrunk, BuffersTravelBetweenThreadsWhilePoolsDie) {
    for (int round = 0; round < 20; ++round) {
        auto* trunk = new KwBufferTrunk;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([trunk, t] {
                std::vector<KwBuffer*> held;
                for (int i = 0; i < 200; ++i) {
                    KwBuffer* buffer = trunk->SelectBuffer(32 + static_cast<unsigned int>(i % 3));
                    buffer->AddInt(i);
                    held.push_back(buffer);
                    if (held.size() > 5) {
                        held.front()->Release();
                        held.erase(held.begin());
                    }
                    if (t == 0 && i % 50 == 49) trunk->Clear();
                }
                for (KwBuffer* buffer : held) buffer->Release();
            });
        }
        for (std::thread& thread : threads) thread.join();
        trunk->Release();
    }
}
