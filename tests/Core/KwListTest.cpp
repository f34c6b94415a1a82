#include "Kw/KwList.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>

namespace {

struct Item : KwNode {
    explicit Item(char n) : name(n) {}
    char name;
};

// The names forward; a link that does not hold backward as well is marked.
std::string Names(const SKwList& list) {
    std::string names;
    int count = 0;
    for (const SKwNode* node = list.head.next; node != &list.tail; node = node->next, ++count) {
        if (node->owner != &list || node->prev->next != node || node->next->prev != node) names += '!';
        names += static_cast<const Item*>(static_cast<const KwNode*>(node))->name;
    }
    if (count != list.count) names += "?count";
    return names;
}

class KwListTest : public testing::Test {
protected:
    Item a{'a'}, b{'b'}, c{'c'};
    KwList list, other;
};

}  // namespace

TEST_F(KwListTest, LinkingMovesANodeFromWhereverItIs) {
    list.AddTail(&a);
    list.AddTail(&b);
    list.AddHead(&c);
    EXPECT_EQ(Names(list), "cab");
    other.AddTail(&a);
    EXPECT_EQ(Names(list), "cb");
    EXPECT_EQ(Names(other), "a");
    list.AddHead(&c);
    EXPECT_EQ(Names(list), "cb");
    c.InsertAfter(&a);
    b.InsertBefore(&c);
    EXPECT_EQ(Names(list), "acb");
    b.InsertAfter(&b);
    EXPECT_EQ(Names(list), "acb");
    EXPECT_EQ(other.count, 0);
}

TEST_F(KwListTest, ADetachedPositionAndANullNodeChangeNothing) {
    list.AddTail(&a);
    b.InsertAfter(&a);
    b.InsertBefore(&a);
    a.InsertAfter(nullptr);
    list.AddHead(nullptr);
    EXPECT_EQ(Names(list), "a");
}

TEST_F(KwListTest, RemovalDetaches) {
    EXPECT_EQ(list.RemoveHead(), nullptr);
    EXPECT_EQ(list.RemoveTail(), nullptr);
    list.AddTail(&a);
    list.AddTail(&b);
    list.AddTail(&c);
    EXPECT_EQ(list.RemoveHead(), &a);
    EXPECT_EQ(list.RemoveTail(), &c);
    EXPECT_EQ(b.RemoveNode(), &list);
    EXPECT_EQ(b.RemoveNode(), nullptr);
    EXPECT_EQ(list.count, 0);
    EXPECT_TRUE(b.owner == nullptr && b.next == nullptr && b.prev == nullptr);
    {
        Item gone('g');
        list.AddTail(&gone);
        list.AddTail(&a);
    }
    EXPECT_EQ(Names(list), "a");
    list.Clear();
    EXPECT_TRUE(a.owner == nullptr && Names(list).empty());
}

TEST_F(KwListTest, InitListForgetsItsNodesAndResetNodeItsList) {
    list.AddTail(&a);
    EXPECT_EQ(list.InitList(), &list.tail);
    EXPECT_EQ(Names(list), "");
    EXPECT_EQ(a.owner, &list);
    EXPECT_EQ(a.ResetNode(), &a);
    EXPECT_EQ(a.owner, nullptr);
}

TEST_F(KwListTest, ACopyOfANodeIsInNoListAndACopyOfAListEndsAtItsSource) {
    list.AddTail(&a);
    list.AddTail(&b);
    {
        Item copy(a);
        EXPECT_EQ(copy.RemoveNode(), nullptr);
        copy.name = 'b';
        b = copy;
    }
    EXPECT_EQ(Names(list), "ab");
    KwList copy(list);
    EXPECT_EQ(copy.count, 2);
    copy.Clear();  // takes what it can reach, and ends
    KwList empty(other);
    EXPECT_EQ(empty.RemoveHead(), nullptr);
    EXPECT_EQ(empty.RemoveTail(), nullptr);
    EXPECT_EQ(Names(other), "");
}

TEST(KwListLock, ACopySharesTheLockUntilItsLastSharer) {
    auto* first = new KwListLock;
    {
        KwListLock second(*first);
        delete first;
        first = nullptr;
        int value = 0;
        std::thread thread([&] {
            for (int i = 0; i < 1000; ++i) {
                const std::lock_guard<KwLock> guard(second);
                ++value;
            }
        });
        for (int i = 0; i < 1000; ++i) {
            const std::lock_guard<KwLock> guard(second);
            ++value;
        }
        thread.join();
        EXPECT_EQ(value, 2000);
    }
}
