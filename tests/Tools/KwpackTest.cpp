// The program kwpack, run on small folders and on packs that mean no good.
#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFilePack.h"
#include "Kw/Res/KwNrv2b.h"
#include "KwpackFixture.h"

TEST_F(KwpackTest, WhatIsPackedComesOutAgain) {
    PutFiles("data", files_);
    for (const std::string layout : {"plain", "split"}) {
        const std::string pack = layout + ".pack", out = "out-" + layout;
        ASSERT_EQ(Run("create data " + pack + " --threads 3 --layout " + layout).code, 0);
        ASSERT_EQ(Run("create data again.pack --threads 1 --layout " + layout).code, 0);
        EXPECT_EQ(Get(pack), Get("again.pack"));
        EXPECT_EQ(Get(pack)[20], layout == "split" ? 1 : 0);
        const Result verify = Run("verify " + pack);
        EXPECT_EQ(verify.code, 0);
        EXPECT_TRUE(verify.Has("3 files, 5001 bytes unpacked; sound")) << verify.out;
        EXPECT_EQ(Run("extract " + pack + " " + out).code, 0);
        EXPECT_EQ(GetFiles(out), files_);

        // The library finds each by its name, in another case too.
        KwFilePack library;
        ASSERT_TRUE(library.Open(Path(pack).c_str(), false));
        EXPECT_EQ(library.GetItemCount(), 4);
        KwBuffer content;
        ASSERT_TRUE(library.ReadItem(library.FindItem(HashName("SUB\\Deep/noise.BIN")), &content));
        EXPECT_EQ(std::memcmp(content.GetData(), files_.at("sub/deep/Noise.bin").data(), 2000), 0);
    }
    const Json list = Json::parse(Run("list plain.pack --json").out);
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[1]["name"], "a.txt");
    EXPECT_EQ(list[1]["unpacked"], 3001);
    EXPECT_EQ(list[1]["method"], KwNrv2bAvailable() ? "nrv2b" : "stored");
    EXPECT_EQ(list[2]["method"], "stored");  // noise does not get smaller
    const std::string byHash = "hash:" + list[1]["hash"].get<std::string>();
    EXPECT_EQ(Run("cat plain.pack A.TXT Empty " + byHash).out, files_.at("a.txt") + files_.at("a.txt"));
    EXPECT_EQ(Run("cat plain.pack nothing hash:12").code, 1);
}

TEST_F(KwpackTest, APackWithoutNamesGivesItsFilesByHash) {
    PutFiles("data", {{"one", "1"}, {"two", "22"}});
    ASSERT_EQ(Run("create data p.pack --no-names --method stored").code, 0);
    EXPECT_EQ(CountItems("p.pack"), 2u);
    EXPECT_TRUE(Json::parse(Run("list p.pack --json").out)[0]["name"].is_null());
    EXPECT_EQ(Run("cat p.pack two").out, "22");
    EXPECT_EQ(Run("extract p.pack out").code, 0);
    EXPECT_EQ(GetFiles("out"), (Files{{HashText(HashName("one")), "1"}, {HashText(HashName("two")), "22"}}));
}

TEST_F(KwpackTest, NothingIsWrittenOutsideTheFolder) {
    Files files;
    for (const std::string name : {"../evil", "a/../../evil", "/tmp/kw-evil", "\\evil", "c:evil", "c:\\evil",
                                   "..\\worse", "..", ".", "a//evil", "evil/", "e\x1Bvil"}) {
        files[name] = "evil";
    }
    const std::size_t hostile = files.size();
    files["good/file"] = "good";
    MakePack("p.pack", files);
    const Json json = Json::parse(Run("extract p.pack out/put --json").out);
    EXPECT_EQ(json["files"], 1);
    EXPECT_EQ(json["faults"].size(), hostile) << json;
    EXPECT_EQ(GetFiles("."), (Files{{"p.pack", Get("p.pack")}, {"out/put/good/file", "good"}}));
    EXPECT_FALSE(fs::exists("/tmp/kw-evil"));
    EXPECT_FALSE(Run("list p.pack").Has("\x1B"));
    EXPECT_EQ(Run("verify p.pack").code, 1);
    // What is there already is left alone unless told.
    Put("out/put/good/file", "changed");
    EXPECT_EQ(Run("extract p.pack out/put good/FILE").code, 1);
    EXPECT_EQ(Get("out/put/good/file"), "changed");
    EXPECT_EQ(Run("extract p.pack out/put good/FILE --replace").code, 0);
    EXPECT_EQ(Get("out/put/good/file"), "good");
}

TEST_F(KwpackTest, DamageIsSaidByEntry) {
    PutFiles("data", files_);
    ASSERT_EQ(Run("create data whole.pack").code, 0);
    MakePack("p.pack", {{"one", "1"}, {"two", "22"}});
    const std::string stored = Get("p.pack"), whole = Get("whole.pack");
    // Cut anywhere.
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{31}, std::size_t{32}, whole.size() / 2, whole.size() - 1}) {
        Put("cut.pack", whole.substr(0, size));
        ExpectDamaged("cut.pack", "no whole pack");
    }
    std::vector<unsigned int> hashes = {HashName("one"), HashName("two"), HashName(kNamesEntry)};
    std::sort(hashes.begin(), hashes.end());
    const std::size_t one =
        static_cast<std::size_t>(std::find(hashes.begin(), hashes.end(), HashName("one")) - hashes.begin());
    struct Case {
        std::size_t field;
        std::uint32_t value;
        std::string message;
    };
    for (const Case& damage : {Case{4, 0xFFFFFFF0, "one: its 1 bytes at offset 4294967280 reach beyond the end"},
                               {8, 0xFFFFFFFF, "one: it is stored in 1 bytes, but is said to have 4294967295"},
                               {12, 0x05000001, "one: its method 5 is unknown"},
                               {12, 0x01000001, KwNrv2bAvailable() ? "one: it does not unpack to 1" : "without UCL"}}) {
        Put("p.pack", stored);
        Patch("p.pack", EntryAt("p.pack", one) + damage.field, damage.value);
        ExpectDamaged("p.pack", damage.message);
    }
    Patch("p.pack", EntryAt("p.pack", one) + 8, 0x40000000);
    ExpectDamaged("p.pack", KwNrv2bAvailable() ? "more than --limit allows" : "without UCL");
    Put("p.pack", stored);
    Patch("p.pack", EntryAt("p.pack", 1), hashes[0]);
    ExpectDamaged("p.pack", "has the hash " + HashText(hashes[0]) + " twice");
    Patch("p.pack", EntryAt("p.pack", 1), 0);
    ExpectDamaged("p.pack", "is not sorted at entry 2");
    Put("p.pack", stored);
    Patch("p.pack", EntryAt("p.pack", 1) + 4, 31);
    ExpectDamaged("p.pack", "overlap");
    // A list of names that lies.
    std::string lies = stored;
    lies.replace(lies.find(std::string("one\0", 4)), 3, "ghi");
    Put("p.pack", lies);
    ExpectDamaged("p.pack", "ghi: no entry has this name");
    lies.replace(lies.find("kwpack names"), 6, "nobody");
    Put("p.pack", lies);
    ExpectDamaged("p.pack", "it is no list of names");
    EXPECT_EQ(Json::parse(Run("verify p.pack --json").out)["faults"].size(), 1u);
    // More names than entries: a bomb, where the list is compressed.
    PackWriter bomb(Path("bomb.pack"));
    std::vector<unsigned char> list = WriteNames({});
    list.resize(1 << 20);
    bomb.Add(HashName(kNamesEntry), MakeBody(kNamesEntry, list, PackMethod::kAuto, 7));
    bomb.Commit(false);
    ExpectDamaged("bomb.pack", "it is no list of names");
    if (!KwNrv2bAvailable()) return;
    // A bit of a compressed body.
    std::string bytes = whole;
    bytes[bytes.find("a\0", 32) + 3] ^= 1;
    Put("flip.pack", bytes);
    EXPECT_EQ(Run("verify flip.pack").code, 1);
}

TEST_F(KwpackTest, UsageAndFileErrors) {
    for (const char* line : {"", "create", "list nothing.pack", "verify nothing.pack", "create . p --level 11",
                             "create . p --layout other", "extract nothing.pack out"}) {
        EXPECT_EQ(Run(line).code, 2) << line;
    }
    EXPECT_EQ(Run("--help").code, 0);
    PutFiles("data", {{"one", "1"}});
    ASSERT_EQ(Run("create data p.pack").code, 0);
    Put("file", "");
    EXPECT_EQ(Run("extract p.pack file").code, 2);
}
