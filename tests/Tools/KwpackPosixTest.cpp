// What kwpack does with names and links that only some systems have.
#include "KwpackFixture.h"

using KwpackPosixTest = KwpackTest;

TEST_F(KwpackPosixTest, WhatCannotBePackedIsNamedAndTheOldPackStays) {
    Put("p.pack", "old");
    // Two names with one hash.
    std::map<unsigned int, std::string> seen;
    std::string one, two;
    for (int i = 0; two.empty(); ++i) {
        const std::string name = "n" + std::to_string(i);
        const auto [found, fresh] = seen.emplace(HashName(name), name);
        if (!fresh) one = found->second, two = name;
    }
    struct Case {
        Files files;
        std::string message, options;
    };
    const Case cases[] = {
        {{{one, "1"}, {two, "2"}}, "\"" + one + "\" and \"" + two + "\" have the same hash", ""},
        {{{"A.txt", "1"}, {"a.TXT", "2"}}, "\"A.txt\" and \"a.TXT\" have the same hash", ""},
        {{{"Kwpack.names", "1"}}, "its own list of names", ""},
        {{{"d/a\\b", "1"}}, "it has a backslash", ""},
        {{{"c:b", "1"}}, "it has a colon", ""},
        {{{"a\nb", "1"}}, "a\\x0ab", ""},
        {{{"big", Noise(0x1000000)}}, "big: its 16777216 bytes in the pack do not fit", "--method stored"},
        {{}, "the folder has no files", ""}};
    int number = 0;
    for (const Case& one_case : cases) {
        const std::string data = "data" + std::to_string(++number);
        fs::create_directories(folder_ / data / "sub");
        PutFiles(data, one_case.files);
        const Result create = Run("create " + data + " p.pack " + one_case.options);
        EXPECT_EQ(create.code, 2) << create.out;
        EXPECT_TRUE(create.Has(one_case.message)) << create.out;
    }
    Put("good/file", "1");
    fs::create_symlink("file", folder_ / "good/link");
    EXPECT_EQ(Run("create good link.pack").code, 0);
    EXPECT_EQ(Run("cat link.pack link").out, "1");
    EXPECT_TRUE(Run("create good good/p.pack").Has("the pack lies in the folder to pack"));
    EXPECT_TRUE(Run("create good no/such/p.pack").Has("the file cannot be made"));
    fs::create_symlink("..", folder_ / "good/circle");
    EXPECT_TRUE(Run("create good p.pack").Has("a link to a folder"));
    EXPECT_TRUE(Run("create missing p.pack").Has("there is no such folder"));
    EXPECT_EQ(Get("p.pack"), "old");
    EXPECT_FALSE(fs::exists(folder_ / "p.pack.kwpack-new"));
}

TEST_F(KwpackPosixTest, NoLinkLeadsOutOfTheFolder) {
    MakePack("p.pack", {{"door/evil", "evil"}});
    for (const std::string options : {"", " --replace"}) {
        Put("outside/evil", "kept");
        fs::remove_all(folder_ / "out");
        fs::create_directories(folder_ / "out");
        fs::create_symlink(folder_ / "outside", folder_ / "out/door");
        EXPECT_TRUE(Run("extract p.pack out" + options).Has("door is a link or no folder"));
        EXPECT_EQ(Get("outside/evil"), "kept");
        // The file itself is a link, which is replaced at most.
        fs::remove(folder_ / "out/door");
        fs::create_directories(folder_ / "out/door");
        fs::create_symlink(folder_ / "outside/evil", folder_ / "out/door/evil");
        EXPECT_EQ(Run("extract p.pack out" + options).code, options.empty() ? 1 : 0);
        EXPECT_EQ(Get("outside/evil"), "kept");
        EXPECT_EQ(Get("out/door/evil"), options.empty() ? "kept" : "evil");
    }
}

TEST_F(KwpackPosixTest, BytesAndNamesAreKeptAsTheyAre) {
    const Files files = {{"sub/\xC3\xBC \xFF.txt", "a name that is no UTF-8"}, {"noise", Noise(3000)}};
    PutFiles("data", files);
    ASSERT_EQ(Run("create data p.pack").code, 0);
    EXPECT_EQ(Run("extract p.pack out").code, 0);
    EXPECT_EQ(GetFiles("out"), files);
    EXPECT_EQ(Json::parse(Run("list p.pack --json").out).size(), 2u);
    EXPECT_EQ(Run("cat p.pack noise").out, files.at("noise"));
    EXPECT_EQ(Run("list p.pack >/dev/full").code, 2);
    EXPECT_EQ(Run("cat p.pack noise >/dev/full").code, 2);
}
