// Links, names that are no UTF-8, and trees deeper than a path of the system.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Kw/Res/KwQueryDirWin.h"
#include "KwResFixture.h"

namespace {

class KwQueryDirPosixTest : public KwResFixture {
protected:
    // "path" of files, "path/" of folders, "!path" of what was passed over, below the root.
    std::string Walk(unsigned int options) {
        class Names : public KwQueryDir {
        public:
            bool OnBeginDir(const SQueryEntry& folder) override {
                told += std::string(folder.subPath) + (folder.isLink ? "@/ " : "/ ");
                return true;
            }
            bool OnFile(const SQueryEntry& file) override {
                told += std::string(file.subPath) + (file.isLink ? "@ " : " ");
                return true;
            }
            void OnError(const char* path) override { told += "!" + std::string(path).substr(rootLength + 1) + " "; }
            std::string told;
            std::size_t rootLength = 0;
        } names;
        names.rootLength = folder_.string().size();
        EXPECT_TRUE(names.Query(folder_.c_str(), options));
        return names.told;
    }
};

TEST_F(KwQueryDirPosixTest, LinksLeadIntoNoCircle) {
    Put("a/file", "x");
    std::filesystem::create_directory_symlink("..", folder_ / "a/loop");
    std::filesystem::create_directory_symlink("a", folder_ / "again");
    std::filesystem::create_symlink("nowhere", folder_ / "dead");
    std::filesystem::create_symlink("a/file", folder_ / "link");
    EXPECT_EQ(Walk(KwQueryDir::kSubFolders), "again@ dead@ link@ a/ a\\file a\\loop@ ");
    EXPECT_EQ(Walk(KwQueryDir::kSubFolders | KwQueryDir::kFollowLinks), "dead@ link@ a/ a\\file a\\loop@/ again@/ ");
}

TEST_F(KwQueryDirPosixTest, NamesArePassedThroughAsTheyAre) {
    Put("bad\xFF\xC3/na\xE4me", "x");
    EXPECT_EQ(Walk(KwQueryDir::kSubFolders), "bad\xFF\xC3/ bad\xFF\xC3\\na\xE4me ");
    // With `\` for the separator these would lead out of the folder.
    Put("..\\..", "x");
    std::filesystem::create_directory(folder_ / "x\\..\\..");
    EXPECT_EQ(Walk(KwQueryDir::kSubFolders).substr(0, 19), "!..\\.. !x\\..\\.. bad");
}

TEST_F(KwQueryDirPosixTest, DeepTreesNeedNeitherStackNorDescriptors) {
    constexpr int kDepth = 500;  // a path of 12,000 bytes
    constexpr const char* kName = "folder_with_a_long_name";
    char before[4096];
    ASSERT_NE(getcwd(before, sizeof(before)), nullptr);
    ASSERT_EQ(chdir(folder_.c_str()), 0);
    for (int i = 0; i < kDepth; ++i) ASSERT_TRUE(mkdir(kName, 0777) == 0 && chdir(kName) == 0);
    ASSERT_EQ(mkdir("last", 0777), 0);

    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    rlimit few = limit;
    few.rlim_cur = 32;
    setrlimit(RLIMIT_NOFILE, &few);
    KwQueryDirWin tree;
    EXPECT_TRUE(tree.Query(folder_.c_str()));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(tree.GetFolderCount(), kDepth + 1u);
    EXPECT_EQ(tree.GetErrorCount(), 0u);
    SFileInfo* deepest = tree.GetRoot();
    while (!deepest->children.empty()) deepest = deepest->children.begin()->second;
    EXPECT_EQ(deepest->GetSubPath().size(), 24u * kDepth + 4u);

    rmdir("last");
    for (int i = 0; i < kDepth; ++i) ASSERT_TRUE(chdir("..") == 0 && rmdir(kName) == 0);
    ASSERT_EQ(chdir(before), 0);
}

}  // namespace
