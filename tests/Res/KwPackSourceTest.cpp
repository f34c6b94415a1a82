// The road of a name into the packs, over a source that stands for the pack system.
#include "Kw/Res/KwPackSource.h"

#include <map>
#include <string>

#include "Kw/Helper/KwHash.h"
#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"
#include "KwResFixture.h"

namespace {

// Entries by the hash of their key, with the number of times that each is open.
class FakeSource : public KwPackSource {
public:
    struct Item : KwPackEntry {
        KwBuffer content;
        int open = 0;
    };

    Item& Add(const char* key, const char* text) {
        Item& item = items[KwHash::HashString2(key)];
        item.hash = KwHash::HashString2(key);
        item.data = &item.content;
        item.content.Alloc(100);
        item.content.AddString(text, 0);
        return item;
    }
    KwPackEntry* OpenEntry(unsigned int hash) override {
        const auto found = items.find(hash);
        if (found == items.end()) return nullptr;
        ++found->second.open;
        return &found->second;
    }
    void CloseEntry(KwPackEntry* entry) override { --static_cast<Item*>(entry)->open; }
    bool EntryExists(const char* name) override {
        unsigned int hash = 0;
        return GetKeyHash(name, hash) && items.count(hash) > 0;
    }
    bool RequestLoad(const char* name, KwPackLoaded callback, void* a, void* b) override {
        if (!EntryExists(name)) return false;
        KwFile file;
        callback(name, a, b, file.Open(name) ? &file : nullptr);
        return true;
    }

    std::map<unsigned int, Item> items;
};

class KwPackSourceTest : public KwResFixture {
protected:
    KwPackSourceTest() { KwPackSource::Register(&source); }
    ~KwPackSourceTest() override { KwPackSource::Register(nullptr); }
    FakeSource source;
};

TEST_F(KwPackSourceTest, ANameThatIsNotOnDiskIsLookedUpByItsKey) {
    FakeSource::Item& item = source.Add("\\data\\map.txt", "0123456789");
    for (const char* name : {"data/Map.txt", "\\DATA\\map.TXT", "/data/map.txt"}) {
        KwFile file;
        ASSERT_TRUE(file.Open(name)) << name;
        EXPECT_EQ(file.IsPackFile(), KwHash::HashString2("\\data\\map.txt"));
        EXPECT_EQ(item.open, 1);
        EXPECT_EQ(file.Size(), 10u);
        EXPECT_FALSE(file.Write("x", 1));
        char out[6];
        EXPECT_EQ(file.Seek(7, 0), 7u);
        EXPECT_TRUE(file.Read(out, 3));
        EXPECT_FALSE(file.Read(out, 1));
        EXPECT_EQ(LogLine().substr(0, 26), "read file pack error:pack=");
        EXPECT_EQ(file.Tell(), 10u);
        file.Close();
        EXPECT_EQ(item.open, 0);
    }
    KwFile file;
    EXPECT_FALSE(file.Open("data/other.txt") || file.Open(KW_W("data/map.txt")) || file.OpenFromPack(1));
    EXPECT_FALSE(file.Open(std::string(2000, 'a').c_str()));
}

TEST_F(KwPackSourceTest, TheDiskComesBeforeThePacks) {
    Put("data/a.txt", "disk");
    source.Add("\\data\\a.txt", "packed");
    source.Add("\\data\\b.txt", "packed, too");
    ASSERT_TRUE(KwRes::SetResPath(folder_.string().c_str(), 0));
    KwBuffer buffer;
    EXPECT_TRUE(KwRes::ReadFileToBuffer("data/a.txt", &buffer));
    EXPECT_EQ(buffer.GetUsed(), 4u);
    EXPECT_TRUE(KwRes::ReadFileToBufferAndResize("Data/B.txt", &buffer, 0, 0));
    EXPECT_EQ(buffer.GetUsed(), 11u);
    EXPECT_TRUE(KwRes::IsFileExist("data/b.txt", true) && KwRes::IsFileExist(KW_W("data/b.txt"), true));
    EXPECT_FALSE(KwRes::IsFileExist("data/b.txt", false) || KwRes::IsFileExist("data/c.txt", true));
}

TEST_F(KwPackSourceTest, AFileIsClosedAtTheSourceThatOpenedIt) {
    FakeSource::Item& item = source.Add("\\a", "text");
    KwFile file;
    ASSERT_TRUE(file.Open("a"));
    KwPackSource::Register(nullptr);
    EXPECT_FALSE(KwFile().Open("a"));
    file.Close();
    EXPECT_EQ(item.open, 0);
}

class Target : public KwPackLoadTarget {
public:
    void OnLoad(const std::string& name, KwFile* file) override {
        got = name + ":" + (file == nullptr ? "none" : std::to_string(file->Size())) + ":" + std::to_string(GetRef());
    }
    std::string got;
};

TEST_F(KwPackSourceTest, LoadsAreHandedToTheSource) {
    source.Add("\\a", "text");
    static std::string got;
    const auto callback = [](const std::string& name, void*, void*, KwFile* file) {
        got = name + ":" + std::to_string(file->Size());
    };
    EXPECT_TRUE(KwRes::LoadByThread("a", callback));
    EXPECT_EQ(got, "a:4");
    Target target;
    EXPECT_TRUE(KwRes::LoadByThread("a", &target));
    EXPECT_EQ(target.got, "a:4:2");
    // Refused: no call, and the reference is back.
    EXPECT_FALSE(KwRes::LoadByThread("b", &target));
    KwBuffer noTarget;
    EXPECT_FALSE(KwRes::LoadByThread("a", &noTarget) || KwRes::LoadByThread("a", static_cast<KwInf*>(nullptr)));
    KwPackSource::Register(nullptr);
    EXPECT_FALSE(KwRes::LoadByThread("a", &target) || KwRes::LoadByThread("a", callback));
    EXPECT_EQ(target.GetRef(), 1);
    EXPECT_EQ(target.got, "a:4:2");
}

}  // namespace
