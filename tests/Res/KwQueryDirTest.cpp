#include "Kw/Res/KwQueryDirWin.h"
#include "KwResFixture.h"

namespace {

// Writes down what the hooks are told.
class Notes : public KwQueryDir {
public:
    bool BeginQuery(const char* root) override {
        told = "";
        return *root != '\0';
    }
    bool OnBeginDir(const SQueryEntry& folder) override {
        told += std::string("<") + folder.subPath + " ";
        return passed != folder.name;
    }
    void OnEndDir(const SQueryEntry& folder) override { told += std::string(folder.name) + "> "; }
    bool OnFile(const SQueryEntry& file) override {
        told += std::string(file.subPath) + ":" + std::to_string(file.depth) + " ";
        size = file.size;
        written = KwFileTimeToUnits(file.written);
        return last != file.name;
    }
    void OnError(const char* path) override {
        told += "!" + std::string(KwRes::FilterName(path, -1)) + " ";
        KwQueryDir::OnError(path);
    }

    std::string told;
    std::string passed;
    std::string last;
    std::uint64_t size = 0;
    std::uint64_t written = 0;
};

class KwQueryDirTest : public KwResFixture {
protected:
    KwQueryDirTest() {
        for (const char* name : {"t/b.txt", "t/a.txt", "t/sub/deep/x", "t/sub/c", "t/more/y"}) Put(name, "12345");
    }
    Notes notes_;
};

TEST_F(KwQueryDirTest, FilesComeBeforeFoldersInTheOrderOfTheirNames) {
    ASSERT_TRUE(notes_.Query((Path("t") + "/").c_str()));
    EXPECT_EQ(notes_.told, "a.txt:0 b.txt:0 <more more\\y:1 more> <sub sub\\c:1 <sub\\deep sub\\deep\\x:2 deep> sub> ");
    EXPECT_TRUE(notes_.GetFileCount() == 5 && notes_.GetFolderCount() == 3 && notes_.GetErrorCount() == 0);
    EXPECT_EQ(notes_.GetSize(), 0u);
    ASSERT_TRUE(notes_.Query(Wide(Path("t")).c_str(), KwQueryDir::kDetails));
    EXPECT_EQ(notes_.told, "a.txt:0 b.txt:0 <more more> <sub sub> ");
    EXPECT_TRUE(notes_.GetSize() == 10 && notes_.size == 5 && notes_.written > 130000000000000000u);

    notes_.passed = "sub";
    ASSERT_TRUE(notes_.Query(Path("t").c_str()));
    EXPECT_EQ(notes_.told, "a.txt:0 b.txt:0 <more more\\y:1 more> <sub ");
    notes_.last = "y";
    EXPECT_FALSE(notes_.Query(Path("t").c_str()));
    EXPECT_EQ(notes_.told, "a.txt:0 b.txt:0 <more more\\y:1 more> ") << "who was told of a begin is told of the end";

    EXPECT_FALSE(notes_.Query(Path("none").c_str()));
    EXPECT_EQ(LogLine(), "not goto dir " + Inner("none"));
    EXPECT_FALSE(notes_.Query(""));
    EXPECT_FALSE(notes_.Query(static_cast<const char*>(nullptr)));
    TakeLog();
}

TEST_F(KwQueryDirTest, AFolderThatVanishesMeanwhileIsReportedAndPassedOver) {
    class Removing : public Notes {
    public:
        bool OnFile(const SQueryEntry& file) override {
            if (std::string(file.name) == "b.txt") std::filesystem::remove_all(folder);
            return Notes::OnFile(file);
        }
        std::string folder;
    } removing;
    removing.folder = Path("t/more");
    EXPECT_TRUE(removing.Query(Path("t").c_str()));
    EXPECT_EQ(removing.told, "a.txt:0 b.txt:0 <more !more more> <sub sub\\c:1 <sub\\deep sub\\deep\\x:2 deep> sub> ");
    EXPECT_EQ(removing.GetErrorCount(), 1u);
    EXPECT_EQ(LogLine(), "not goto dir " + Inner("t/more"));
}

TEST_F(KwQueryDirTest, TheTreeChangesTheDiskAndItself) {
    KwQueryDirWin tree;
    EXPECT_EQ(tree.Find(""), nullptr);
    ASSERT_TRUE(tree.Query(Path("t").c_str(), KwQueryDir::kSubFolders | KwQueryDir::kDetails));
    SFileInfo* x = tree.Find("sub/deep\\x");
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->GetSubPath(), "sub\\deep\\x");
    EXPECT_EQ(x->GetFullPath(), Inner("t/sub/deep/x"));
    EXPECT_EQ(x->GetFullPathW(), Wide(Inner("t/sub/deep/x")));
    EXPECT_TRUE(x->size == 5 && !x->isFolder && tree.GetRoot()->children.size() == 4);

    SFileInfo* sub = tree.Find("sub");
    SFileInfo* more = tree.Find("more");
    EXPECT_TRUE(x->Rename("z"));
    EXPECT_EQ(Get("t/sub/deep/z"), "12345");
    EXPECT_EQ(tree.Find("sub/deep/z"), x);
    EXPECT_TRUE(more->Attack(sub));
    EXPECT_EQ(x->GetSubPath(), "more\\sub\\deep\\z");
    EXPECT_EQ(Get("t/more/sub/deep/z"), "12345");
    EXPECT_FALSE(sub->Attack(more)) << "into itself";
    EXPECT_FALSE(more->Attack(sub)) << "it is there";
    EXPECT_FALSE(x->Rename("..") || x->Rename("a/b") || x->Rename("") || tree.GetRoot()->Rename("n"));
    EXPECT_FALSE(sub->FindChild("c")->Rename("deep")) << "taken";
    EXPECT_TRUE(sub->Delete());
    EXPECT_FALSE(std::filesystem::exists(Path("t/more/sub")));
    EXPECT_EQ(tree.Find("more/sub"), nullptr);
    EXPECT_FALSE(tree.GetRoot()->Delete());
    TakeLog();

    // What the disk refuses leaves the tree as it was.
    SFileInfo* ghost = more->AddChild("ghost", false);
    ASSERT_NE(ghost, nullptr);
    EXPECT_EQ(more->AddChild("ghost", true), ghost);
    EXPECT_FALSE(ghost->Rename("other") || ghost->Delete());
    EXPECT_EQ(tree.Find("more/ghost"), ghost);
    EXPECT_EQ(TakeLog().size(), 2u);
    EXPECT_EQ(ghost->AddChild("below", false), nullptr);
}

TEST_F(KwQueryDirTest, WhatADerivedTreePassesOverLeavesTheRestInItsPlace) {
    class Without : public KwQueryDirWin {
    public:
        bool OnBeginDir(const SQueryEntry& folder) override {
            return KwQueryDirWin::OnBeginDir(folder) && std::string(folder.name) != "more";
        }
    } tree;
    ASSERT_TRUE(tree.Query(Path("t").c_str()));
    EXPECT_TRUE(tree.Find("more") != nullptr && tree.Find("more")->children.empty());
    EXPECT_TRUE(tree.Find("sub/c") != nullptr && tree.Find("sub/deep/x") != nullptr);
}

TEST_F(KwQueryDirTest, TextsAreConvertedBothWays) {
    KwWChar wide[4];
    EXPECT_EQ(KwQueryDir::_ConvertText("a\xFF"
                                       "bcd",
                                       wide, 4),
              3);
    EXPECT_EQ(KwWString(wide), KW_W("a\xFFFD"
                                    "b"));
    char narrow[4];
    EXPECT_EQ(KwQueryDir::_ConvertText(KW_W("\x00E4\x00E4"), narrow, 4), 2) << "half a character does not fit";
    EXPECT_STREQ(narrow, "\xC3\xA4");
}

}  // namespace
