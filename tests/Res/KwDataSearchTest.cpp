#include "Kw/Res/KwDataSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include "KwTestSupport.h"

namespace {

struct Record {
    unsigned char odd = 0;
    unsigned char key[4] = {};  // not aligned
};
constexpr unsigned int kOffset = 1;

class Index : public KwDataSearchId {
public:
    explicit Index(bool callbacks = false, int capacity = 100) : callbacks_(callbacks) {
        EXPECT_TRUE(Init(callbacks ? 0 : kOffset, capacity, callbacks));
    }
    ~Index() override { Close(); }

    static unsigned int Key(const void* record) {
        unsigned int key;
        std::memcpy(&key, static_cast<const Record*>(record)->key, sizeof(key));
        return key;
    }
    // The record of `key`, the same one each time.
    Record* Of(unsigned int key) {
        Record& record = records_[key];
        std::memcpy(record.key, &key, sizeof(key));
        return &record;
    }
    std::vector<unsigned int> Walk() {
        std::vector<unsigned int> keys;
        for (void* record = First(); record != nullptr; record = Next()) keys.push_back(Key(record));
        return keys;
    }

    std::vector<unsigned int> added, removed;
    unsigned int alsoRemove = 0;
    bool throwing = false;

    void OnAdd(void* data) override { added.push_back(Key(data)); }
    void OnRemove(void* data) override {
        removed.push_back(Key(data));
        if (throwing) throw std::runtime_error("hook");
        if (alsoRemove != 0) Remove(std::exchange(alsoRemove, 0));
    }
    int OnCompare(void* data, unsigned int key) override {
        EXPECT_TRUE(callbacks_);
        return Key(data) < key ? -1 : Key(data) > key;
    }
    unsigned int OnGetKeyFromData(void* data) override { return Key(data); }

private:
    bool callbacks_;
    std::map<unsigned int, Record> records_;
};

using Keys = std::vector<unsigned int>;

// The pages as the simplest code keeps them.
struct Pages {
    std::vector<Keys> pages;
    std::size_t capacity;

    // The page and position that a new key gets.
    std::pair<int, int> Add(unsigned int key) {
        int low = 0, high = static_cast<int>(pages.size()) - 1, page = 0;
        while (low <= high) {
            page = (low + high) / 2;
            const std::size_t at = static_cast<std::size_t>(page);
            if (key > pages[at].back() && at + 1 < pages.size() && pages[at + 1].front() < key) {
                low = page + 1;
            } else if (key < pages[at].front() && at > 0 && pages[at - 1].back() > key) {
                high = page - 1;
            } else {
                break;
            }
        }
        if (pages.empty()) pages.emplace_back();
        auto index = static_cast<std::size_t>(page);
        auto at = std::lower_bound(pages[index].begin(), pages[index].end(), key) - pages[index].begin();
        if (pages[index].size() == capacity) {
            const Keys old = pages[index];
            const auto half = static_cast<std::ptrdiff_t>(old.size() / 2);
            pages[index].assign(old.begin() + half, old.end());
            pages.insert(pages.begin() + page, Keys(old.begin(), old.begin() + half));
            if (at >= half) at -= half, ++index;
        }
        pages[index].insert(pages[index].begin() + at, key);
        return {static_cast<int>(index), static_cast<int>(at)};
    }
    void Remove(unsigned int key) {
        for (auto page = pages.begin(); page != pages.end(); ++page) {
            if (std::erase(*page, key) == 0) continue;
            if (page->empty()) pages.erase(page);
            return;
        }
    }
    void Commit() {
        Keys all;
        for (const Keys& page : pages) all.insert(all.end(), page.begin(), page.end());
        pages.clear();
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (i % capacity == 0) pages.emplace_back();
            pages.back().push_back(all[i]);
        }
    }
};

class KwDataSearchTest : public testing::TestWithParam<std::pair<bool, int>> {
protected:
    std::mt19937 random_{20261};
    Index index_{GetParam().first, GetParam().second};
    std::map<unsigned int, Record*> expected_;
    Pages pages_{{}, static_cast<std::size_t>(GetParam().second)};

    // Small numbers and large ones, with both ends.
    unsigned int AnyKey(unsigned int spread) {
        const auto key = static_cast<unsigned int>(random_() % spread);
        return key % 2 == 0 ? key : UINT_MAX - (key - 1);
    }
    void* At(std::map<unsigned int, Record*>::iterator at) { return at != expected_.end() ? at->second : nullptr; }
    void* Before(std::map<unsigned int, Record*>::iterator at) {
        return at != expected_.begin() ? std::prev(at)->second : nullptr;
    }

    void Add(unsigned int key) {
        int page = -7, at = -7;
        const bool isNew = expected_.emplace(key, index_.Of(key)).second;
        const bool refused = !isNew || (expected_.size() == 1 && emptied_);
        ASSERT_EQ(index_.Add(index_.Of(key), &page, &at), !refused) << key;
        if (!refused) {
            ASSERT_EQ(std::make_pair(page, at), pages_.Add(key)) << key;
        } else if (isNew) {
            expected_.erase(key);
            index_.Close();
            emptied_ = false;
        }
    }
    void Remove(unsigned int key) {
        ASSERT_EQ(index_.Remove(key), expected_.erase(key) == 1) << key;
        pages_.Remove(key);
        emptied_ |= expected_.empty() && !index_.removed.empty();
    }
    void Look(unsigned int key) {
        const auto found = expected_.find(key);
        const auto above = expected_.upper_bound(key);
        const auto notBelow = expected_.lower_bound(key);
        ASSERT_EQ(index_.Search(key), At(found)) << key;
        ASSERT_EQ(index_.Next(), At(above)) << key;
        index_.Search(key);
        ASSERT_EQ(index_.Prev(), Before(notBelow)) << key;
    }
    void CompareAll(KwDataSearchId& index) {
        void* record = index.First();
        for (const auto& [key, wanted] : expected_) {
            ASSERT_EQ(record, wanted) << key;
            record = index.Next();
        }
        ASSERT_EQ(record, nullptr);
        ASSERT_EQ(index.GetCount(), static_cast<int>(expected_.size()));
    }

private:
    bool emptied_ = false;
};

// The same operations on the index, on a map and on the plainest pages, while the index grows and shrinks to nothing.
TEST_P(KwDataSearchTest, IsAMapWithPages) {
    for (int round = 0; round < 6; ++round) {
        const bool grows = round % 2 == 0;
        const unsigned int spread = round < 4 ? 3000 : 20000;
        for (int i = 0; i < 5000 && !HasFatalFailure(); ++i) {
            const unsigned int key = AnyKey(spread);
            (random_() % 4 == 0) == grows ? Remove(key) : Add(key);
            if (i % 3 == 0) Look(AnyKey(spread));
        }
        CompareAll(index_);
        const KwDataSearchId copy(index_);  // hooks of its own: none
        KwDataSearchId assigned = copy;
        if (!GetParam().first) CompareAll(assigned);
        // The cursor stays on its record.
        void* place = index_.Search(expected_.empty() ? 0 : std::next(expected_.begin(), expected_.size() / 2)->first);
        ASSERT_TRUE(index_.Commit());
        pages_.Commit();
        if (place != nullptr) {
            ASSERT_EQ(index_.Prev(), Before(expected_.find(Index::Key(place))));
        }
        CompareAll(index_);
        if (round == 3) {
            while (!expected_.empty()) Remove(expected_.begin()->first);
        }
    }
    EXPECT_EQ(index_.added.size() - index_.removed.size(), expected_.size());
}

// Sorted records go in at the end only; Add goes on from there.
TEST_P(KwDataSearchTest, SortedRecordsFillPages) {
    for (unsigned int i = 0; i < 1000; ++i) {
        const unsigned int key = i < 999 ? 7 * i : UINT_MAX;
        ASSERT_TRUE(index_.InsertData(index_.Of(key)));
        ASSERT_FALSE(index_.InsertData(index_.Of(key))) << "the same key";
        expected_.emplace(key, index_.Of(key));
        if (i % pages_.capacity == 0) pages_.pages.emplace_back();
        pages_.pages.back().push_back(key);
    }
    EXPECT_FALSE(index_.InsertData(nullptr));
    EXPECT_FALSE(index_.InsertData(index_.Of(5)));
    CompareAll(index_);
    for (unsigned int key = 0; key < 8000 && !HasFatalFailure(); key += 3) Look(key);
    for (unsigned int key = 0; key < 8000 && !HasFatalFailure(); key += 5) Add(key);
    CompareAll(index_);
}

INSTANTIATE_TEST_SUITE_P(Modes, KwDataSearchTest,
                         testing::Values(std::make_pair(false, 100), std::make_pair(false, 1024),
                                         std::make_pair(false, 129), std::make_pair(true, 100)));

TEST(KwDataSearch, OrderPlacesAndRefusals) {
    Index index;
    for (const unsigned int key : {5u, 1u, 3u}) EXPECT_TRUE(index.Add(index.Of(key)));
    EXPECT_EQ(index.Walk(), (Keys{1, 3, 5}));
    EXPECT_EQ(index.Next(), nullptr) << "the cursor is reset";
    EXPECT_EQ(index.Prev(), nullptr);
    EXPECT_EQ(index.First(), index.Of(1));
    EXPECT_EQ(index.Last(), nullptr);
    EXPECT_EQ(index.Prev(), nullptr) << "Last resets it too";
    EXPECT_FALSE(index.Add(index.Of(3)));
    EXPECT_FALSE(index.Add(nullptr));
    EXPECT_FALSE(index.Remove(4));
    EXPECT_EQ(index.GetCount(), 3);
    EXPECT_EQ(index.added, (Keys{5, 1, 3}));

    for (const unsigned int key : {3u, 1u, 5u}) EXPECT_TRUE(index.Remove(key));
    EXPECT_EQ(index.Search(3), nullptr);
    EXPECT_EQ(index.First(), nullptr);
    EXPECT_EQ(index.Last(), nullptr);
    EXPECT_TRUE(index.Commit());
    EXPECT_FALSE(index.Add(index.Of(1))) << "ran empty";
    Index copy(index);
    EXPECT_FALSE(copy.Add(index.Of(1)));
    copy.Close();
    EXPECT_TRUE(copy.Add(index.Of(1)));
    EXPECT_TRUE(index.InsertData(index.Of(9))) << "this makes the first page again";
    EXPECT_TRUE(index.Add(index.Of(1)));
    index.removed.clear();
    static_cast<KwDataSearchId&>(copy) = index;
    EXPECT_EQ(copy.removed.back(), 1u) << "assigning closes what was there";
    EXPECT_EQ(copy.Walk(), (Keys{1, 9}));
    EXPECT_TRUE(index.removed.empty());
    index.Close();
    EXPECT_EQ(index.removed, (Keys{1, 9}));
    EXPECT_EQ(index.GetCount(), 0);
    EXPECT_EQ(copy.Search(9), index.Of(9)) << "pages of its own, the same records";
}

// Wherever the cursor was left, a step gives a record or null.
TEST(KwDataSearch, ACursorOfGonePlacesIsSafe) {
    Index index;
    for (unsigned int key = 1; key <= 500; ++key) index.InsertData(index.Of(key));
    index.Search(500);
    for (unsigned int key = 402; key <= 500; ++key) index.Remove(key);
    EXPECT_EQ(index.Prev(), index.Of(401)) << "its page has one record left";
    index.Search(401);
    index.Remove(401);
    EXPECT_EQ(index.Prev(), index.Of(400)) << "its page is gone";
    index.Search(1000);
    EXPECT_EQ(index.Next(), nullptr);
    index.Search(1000);
    index.Close();
    EXPECT_EQ(index.Next(), nullptr);
    EXPECT_EQ(index.Prev(), nullptr);
}

TEST(KwDataSearch, HooksMayRemoveOthersOrThrow) {
    Index index;
    for (unsigned int key = 1; key <= 250; ++key) index.InsertData(index.Of(key));
    index.alsoRemove = 3;
    EXPECT_TRUE(index.Remove(7)) << "which stands elsewhere by then";
    EXPECT_EQ(index.Search(7), nullptr);
    EXPECT_EQ(index.Search(3), nullptr);
    index.throwing = true;
    EXPECT_THROW(index.Remove(8), std::runtime_error);
    EXPECT_THROW(index.Close(), std::runtime_error);
    index.throwing = false;
    EXPECT_EQ(index.GetCount(), 248);
    EXPECT_NE(index.Search(8), nullptr);
}

// A hook that removes others and then frees its record: nobody asks the freed one for its key.
TEST(KwDataSearch, AFreedRecordIsNotLookedInto) {
    class Owner : public KwDataSearchId {
    public:
        ~Owner() override { Close(); }
        int OnCompare(void* data, unsigned int key) override {
            const unsigned int own = OnGetKeyFromData(data);
            return own < key ? -1 : own > key;
        }
        unsigned int OnGetKeyFromData(void* data) override { return *static_cast<unsigned int*>(data); }
        void OnRemove(void* data) override {
            const unsigned int key = OnGetKeyFromData(data);
            if (key == 50 || key == 150) {
                for (unsigned int other = key - 49; other < key; ++other) Remove(other);
            }
            delete static_cast<unsigned int*>(data);
        }
    } owner;
    owner.Init(0, 100, true);
    for (unsigned int key = 1; key <= 300; ++key) EXPECT_TRUE(owner.InsertData(new unsigned int(key)));
    for (unsigned int key = 51; key <= 100; ++key) EXPECT_TRUE(owner.Remove(key));
    EXPECT_TRUE(owner.Remove(150)) << "which moves within its page";
    EXPECT_TRUE(owner.Remove(50)) << "whose page goes with it";
    EXPECT_EQ(owner.GetCount(), 150);
    EXPECT_EQ(owner.Search(150), nullptr);
    EXPECT_NE(owner.Search(151), nullptr);
}

// Callbacks that contradict themselves lose records and nothing else; without overrides every key is the same.
TEST(KwDataSearch, OddCallbacksStayInside) {
    class Odd : public KwDataSearchId {
    public:
        std::mt19937 random{5};
        int OnCompare(void*, unsigned int) override { return static_cast<int>(random() % 3) - 1; }
    };
    Odd odd;
    odd.Init(0, 0, true);
    Record records[3000];
    for (Record& record : records) odd.random() % 2 == 0 ? odd.Add(&record) : odd.InsertData(&record);
    int count = 0;
    for (void* record = odd.First(); record != nullptr; record = odd.Next()) ++count;
    EXPECT_EQ(count, odd.GetCount());
    for (unsigned int i = 0; i < 5000; ++i) odd.Remove(i), odd.Prev();
    EXPECT_TRUE(odd.Commit());

    KwDataSearchId plain;
    plain.Init(0, 100, true);
    EXPECT_TRUE(plain.Add(&records[0]));
    EXPECT_FALSE(plain.Add(&records[1]));
}

TEST(KwDataSearch, ACapacityBeyondTheAllocatorIsRefused) {
    Index index;
    EXPECT_FALSE(index.Init(kOffset, INT_MAX, false));
    EXPECT_TRUE(index.Add(index.Of(1))) << "with the settings it had";
    // A large page: its samples are halved before they are counted.
    EXPECT_TRUE(index.Init(kOffset, 100000, false));
    for (unsigned int key = 0; key < 50000; ++key) ASSERT_TRUE(index.InsertData(index.Of(key * 2)));
    for (unsigned int key = 0; key < 100000; ++key) {
        ASSERT_EQ(index.Search(key), key % 2 == 0 ? index.Of(key) : nullptr);
    }
    EXPECT_TRUE(TakeMemoryReports().empty());
}

}  // namespace
