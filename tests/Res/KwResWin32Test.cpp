// What only systems with drives have.
#include <fstream>
#include <string>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"
#include "Kw/Res/KwRes.h"
#include "KwResFixture.h"

namespace {

class KwResWin32Test : public KwResFixture {
protected:
    static std::string Read(const std::string& name) {
        KwBuffer buffer;
        if (!KwRes::ReadFileToBuffer(name.c_str(), &buffer)) return "(none)";
        return {reinterpret_cast<char*>(buffer.GetData()), buffer.GetUsed()};
    }
};

TEST_F(KwResWin32Test, ANameWithADriveIsTakenAsItIsAndOneWithoutIsNot) {
    const std::string name = Put("sub/a.txt", "drive");
    ASSERT_EQ(name[1], ':');
    EXPECT_EQ(Read(name), "drive");
    EXPECT_EQ(Read(name.substr(0, 2) + "/x/../" + name.substr(3)), "drive");
    // Without resource paths a leading separator is the root of the current drive.
    EXPECT_FALSE(KwRes::IsFileExist("\\sub\\a.txt", false));
    ASSERT_TRUE(KwRes::SetResPath(folder_.string().c_str(), 0));
    EXPECT_EQ(Read("\\sub\\a.txt") + Read("/Sub/A.TXT"), "drivedrive");
    // The root of the drive is no place where such a name is looked for.
    EXPECT_EQ(Read(name.substr(2)), "(none)");
    Put("other/sub/a.txt", "other");
    ASSERT_TRUE(KwRes::SetResPath(Path("other").c_str(), 0));
    EXPECT_EQ(Read(name), "drive");
    EXPECT_EQ(Read("sub/a.txt"), "other");
}

TEST_F(KwResWin32Test, AReadOnlyFileIsKept) {
    Put("a", "kept");
    std::filesystem::permissions(folder_ / "a", std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::remove);
    EXPECT_FALSE(KwRes::SaveFile(Path("a").c_str(), "new", 3));
    EXPECT_EQ(LogLine(), "create file " + Path("a") + " error");
    EXPECT_EQ(CountEntries(), 1);
    std::filesystem::permissions(folder_ / "a", std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
    EXPECT_TRUE(KwRes::SaveFile(Path("a").c_str(), "new", 3));
    EXPECT_EQ(Get("a"), "new");
}

// The C library's streams let others read and write, but neither rename nor remove the file.
TEST_F(KwResWin32Test, AFileThatIsNotSharedStaysAsItIs) {
    Put("a", "kept");
    Put("b", "b");
    {
        const std::ifstream holder(folder_ / "a");
        EXPECT_FALSE(KwRes::SaveFile(Path("a").c_str(), "new", 3));
        EXPECT_EQ(LogLine(), "write file error size=3");
        EXPECT_FALSE(KwRes::CopyFileTo(Path("b").c_str(), Path("a").c_str()));
        EXPECT_FALSE(KwRes::RenameFile(Path("a").c_str(), Path("c").c_str()));
        EXPECT_FALSE(KwRes::DeleteFileW(Path("a").c_str()));
        EXPECT_EQ(TakeLog().size(), 3u);
        EXPECT_EQ(Get("a"), "kept");
        EXPECT_EQ(CountEntries(), 2);
    }
    EXPECT_TRUE(KwRes::SaveFile(Path("a").c_str(), "new", 3));
    EXPECT_EQ(Get("a"), "new");
}

TEST_F(KwResWin32Test, LongNamesWork) {
    // Beyond the 260 characters of the plain calls, each folder below the limit of one name.
    std::string folder = Inner("n");
    while (folder.size() < 700) folder += "\\" + std::string(100, 'n');
    std::filesystem::create_directories(LongPath(folder));
    ASSERT_TRUE(KwRes::IsFolderExist(folder.c_str()));
    const std::string file = folder + "\\a";
    EXPECT_TRUE(KwRes::SaveFile(file.c_str(), "text", 4));
    EXPECT_TRUE(KwRes::RenameFile(file.c_str(), (folder + "/b").c_str()));
    EXPECT_EQ(Read(folder + "/./b"), "text");
    KwFile open;
    EXPECT_TRUE(open.Append((folder + "\\b").c_str()));
    open.Close();
    EXPECT_TRUE(KwRes::DeleteFolder(Path("n").c_str()));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "n"));
}

}  // namespace
