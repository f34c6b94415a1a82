// One pack file: both header layouts, reading, and directories that lie.
#include "Kw/Res/KwFilePack.h"

#include "Kw/Res/KwNrv2b.h"
#include "KwPackFixture.h"

namespace {

class KwFilePackTest : public KwPackFixture {
protected:
    KwFilePack pack;
    std::string bytes = Pack({Stored("a.txt", "first"), Stored("b.txt", "second body"), Stored("empty", "")});

    bool Opens(const std::string& content) { return KwPackFixture::Opens(pack, content); }
    // The pack with a number changed.
    std::string With(std::size_t at, std::uint64_t value, int count = 4) const {
        std::string changed = bytes;
        Put32(changed, at, value, count);
        return changed;
    }
    static std::string Packed(const std::string& text) {
        std::vector<unsigned char> out;
        EXPECT_TRUE(KwNrv2bPack(text.data(), static_cast<unsigned int>(text.size()), out, 7));
        return {out.begin(), out.end()};
    }
};

TEST_F(KwFilePackTest, BothLayoutsReadFromDiskAndFromMemory) {
    std::vector<Body> bodies{Stored("x", std::string(70000, 'x')), Stored("A/B.txt", "text")};
    for (int i = 0; i < 300; ++i) bodies.push_back(Stored(std::to_string(i).c_str(), std::to_string(i)));
    for (const bool split : {false, true}) {
        for (const bool inMemory : {false, true}) {
            ASSERT_TRUE(KwPackFixture::Opens(pack, Pack(bodies, split), inMemory));
            EXPECT_EQ(pack.GetItemCount(), 302);
            EXPECT_EQ(Read(pack, "\\a\\b.TXT"), "text");
            EXPECT_EQ(Read(pack, "299"), "299");
            EXPECT_EQ(Read(pack, "x"), std::string(70000, 'x'));
            EXPECT_EQ(Read(pack, "y"), "-");
        }
    }
}

TEST_F(KwFilePackTest, HeadersThatLieAreRefused) {
    ASSERT_TRUE(Opens(bytes));
    const std::size_t size = bytes.size();
    const std::string lies[] = {
        "",
        bytes.substr(0, 31),
        bytes.substr(0, 32),
        bytes.substr(0, size - 1),  // the last entry is cut
        With(0, 0x4B434151),
        With(4, 0),
        With(4, 4),
        With(4, 0xFFFFFFFF),
        With(4, 0x10000000),  // times 16 is 0 in 32 bits
        With(8, 31),
        With(8, size),
        With(8, 0xFFFFFFF0),
        With(12, 31),
        With(12, size),
        With(20, 1, 1),
    };
    for (const std::string& lie : lies) {
        EXPECT_FALSE(Opens(lie)) << testing::PrintToString(lie);
        EXPECT_FALSE(pack.IsOpen());
        EXPECT_EQ(pack.GetItemCount(), 0);
    }
    EXPECT_FALSE(pack.Open(Path("none.pack").c_str(), true) || pack.Open(nullptr, false) || pack.Open("", false));
    // In the split layout, sums that overflow 32 bits.
    bytes = Pack({Stored("a", "text")}, true);
    ASSERT_TRUE(Opens(bytes));
    EXPECT_FALSE(Opens(With(8, 0x10000)) || Opens(With(4, 0x10000)) || Opens(With(25, 0xFFFFFFFF)) ||
                 Opens(With(21, 31 * 6 + 5)));
    EXPECT_TRUE(TakeLog().empty());
}

TEST_F(KwFilePackTest, DirectoriesOutOfOrderAndBodiesInOneAnotherAreRefused) {
    const std::size_t at = Directory(bytes);
    const auto entry = [&](int index) { return at + static_cast<std::size_t>(index) * 16; };
    EXPECT_FALSE(Opens(With(entry(1), Get32(bytes, entry(0)))));
    EXPECT_FALSE(Opens(With(entry(2), Get32(bytes, entry(0)) - 1)));
    // Bodies in the header, in the directory, and in a part of another body.
    std::vector<int> full;
    for (int i = 0; i < 3; ++i) {
        if (Get32(bytes, entry(i) + 8) > 0) full.push_back(i);
    }
    const std::size_t place = entry(full[1]) + 4;
    EXPECT_FALSE(Opens(With(place, 30)) || Opens(With(place, at - 1)) || Opens(With(place, at + 20)) ||
                 Opens(With(place, 33)));
    // One body under two names is none of that, nor is one that nobody can read.
    Body twin = Stored("b", "");
    bytes = Pack({Stored("a", "text"), twin});
    const std::size_t other = Directory(bytes) + (Hash("a") < Hash("b") ? 16 : 0);
    Put32(bytes, other + 4, 32);
    Put32(bytes, other + 8, 4);
    Put32(bytes, other + 12, 4);
    ASSERT_TRUE(Opens(bytes));
    EXPECT_EQ(Read(pack, "a") + Read(pack, "b"), "texttext");
    ASSERT_TRUE(Opens(With(other + 4, 0xFFFFFFFE)));
    EXPECT_EQ(Read(pack, "a") + Read(pack, "b"), "text-");
}

TEST_F(KwFilePackTest, EntriesThatLieFailAlone) {
    const std::string text = "again and again and again and again";
    const unsigned int size = static_cast<unsigned int>(text.size());
    bytes = Pack({Stored("good", "good"),
                  {Hash("sizes"), "12345", 6, 0},
                  {Hash("method"), "12345", 5, 2},
                  {Hash("huge"), "1234", 0xFFFFFFFF, 0x20},
                  {Hash("packed"), Packed(text), size, 0x01},
                  {Hash("packed too"), Packed(text), size, 0x20},
                  {Hash("longer"), Packed(text), size + 1, 0x01},
                  {Hash("shorter"), Packed(text), size - 1, 0x01},
                  {Hash("cut"), Packed(text).substr(0, 12), size, 0x20},
                  {Hash("rest"), Packed(text) + "x", size, 0x20},
                  {Hash("none"), "", 5, 0x20},
                  {Hash("zero"), "", 0, 0}});
    for (const bool inMemory : {false, true}) {
        ASSERT_TRUE(KwPackFixture::Opens(pack, bytes, inMemory));
        EXPECT_EQ(Read(pack, "good"), "good");
        EXPECT_EQ(Read(pack, "zero"), "");
        for (const char* name : {"sizes", "method", "huge", "longer", "shorter", "cut", "rest", "none"}) {
            EXPECT_EQ(Read(pack, name), "-") << name;
        }
        const char* packed = KwNrv2bAvailable() ? text.c_str() : "-";
        EXPECT_EQ(Read(pack, "packed"), packed);
        EXPECT_EQ(Read(pack, "packed too"), packed);
        pack.SetUnpackLimit(size - 1);
        EXPECT_EQ(Read(pack, "packed"), "-");
        EXPECT_EQ(Read(pack, "good"), "good");
        pack.SetUnpackLimit(KwFilePack::kUnpackLimit);
    }
    // A body that ends with the file, and behind it.
    bytes = Pack({Stored("a", "text")});
    Put32(bytes, 36 + 4, bytes.size() - 3);
    Put32(bytes, 36 + 12, 4);
    ASSERT_TRUE(Opens(bytes));
    EXPECT_EQ(Read(pack, "a"), "-");
}

TEST_F(KwFilePackTest, PartsOfABodyAreReadWithinIt) {
    ASSERT_TRUE(Opens(bytes));
    const SPackFileItem* item = pack.FindItem(Hash("b.txt"));
    unsigned char out[20] = {};
    EXPECT_TRUE(pack.ReadData(item, 7, 0, out, 4, false));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out)), "body");
    EXPECT_TRUE(pack.ReadData(item, 0, 11, out, 11, true) && pack.ReadData(item, 11, 0, out, 0, false));
    EXPECT_FALSE(pack.ReadData(item, 7, 0, out, 5, false) || pack.ReadData(item, 0xFFFFFFFF, 0, out, 2, false));
    EXPECT_FALSE(pack.ReadData(item, 0, 12, out, 12, true) || pack.ReadData(item, 0, 11, out, 10, true));
    EXPECT_FALSE(pack.ReadData(nullptr, 0, 1, out, 1, false) || pack.ReadData(item, 0, 1, nullptr, 1, false));
    KwFilePack other;
    EXPECT_FALSE(other.ReadData(item, 0, 1, out, 1, false));
    // The file shrinks under an open pack. Windows does not let it.
    std::error_code failed;
    std::filesystem::resize_file(Path("test.pack"), 33, failed);
    EXPECT_TRUE(failed || Read(pack, "b.txt") == "-");
}

TEST_F(KwFilePackTest, AddedItemsKeepTheOrder) {
    ASSERT_TRUE(Opens(bytes));
    for (unsigned int i = 0; i < 2500; ++i) EXPECT_TRUE(pack.AddFile(i * 2654435761u | 1, 32, 5, 5, 0, 5));
    ASSERT_GE(pack.GetItemCount(), 2503 - 3);
    for (int i = 1; i < pack.GetItemCount(); ++i) ASSERT_LT(pack.GetItem(i - 1)->hash, pack.GetItem(i)->hash);
    EXPECT_EQ(pack.SearchIndex(0), -1);
    EXPECT_EQ(pack.SearchIndex(pack.GetItem(7)->hash + 1), -1 - 8);
    const int count = pack.GetItemCount();
    EXPECT_TRUE(pack.AddFile(Hash("a.txt"), 33, 4, 4, 0x20000000 | 7, -1));
    EXPECT_EQ(pack.GetItemCount(), count);
    EXPECT_EQ(pack.FindItem(Hash("a.txt"))->method, 0x20000000u);
    EXPECT_TRUE(pack.SetLimitSize(10) && pack.SetLimitSize(10000));
    EXPECT_FALSE(pack.SetLimitSize(0x7FFFFFFF));
    EXPECT_EQ(Read(pack, "b.txt"), "second body");
}

}  // namespace
