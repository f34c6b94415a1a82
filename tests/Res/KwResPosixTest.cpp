// What only file systems with one root, links and permissions have.
#include <algorithm>
#include <string>
#include <vector>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwRes.h"
#include "KwResFixture.h"

namespace {

class KwResPosixTest : public KwResFixture {
protected:
    static std::string Read(const std::string& name) {
        KwBuffer buffer;
        if (!KwRes::ReadFileToBuffer(name.c_str(), &buffer)) return "(none)";
        return {reinterpret_cast<char*>(buffer.GetData()), buffer.GetUsed()};
    }
};

TEST_F(KwResPosixTest, ARootedNameIsTriedUnderTheResourcePathsFirst) {
    Put("a.txt", "root");
    const std::string name = Path("a.txt");
    EXPECT_EQ(Read(name), "root");
    ASSERT_TRUE(KwRes::SetResPath(Path("res").c_str(), 0));
    EXPECT_EQ(Read(name), "root");
    EXPECT_EQ(Read(Inner("a.txt")), "root");
    Put("res" + name, "resource");
    EXPECT_EQ(Read(name), "resource");
    // For writing it counts as one with a drive.
    char out[KwRes::kPathSize] = "";
    EXPECT_TRUE(KwRes::GetFullPath(out, name.c_str(), -1));
    EXPECT_EQ(out, Inner("a.txt"));
}

TEST_F(KwResPosixTest, AFileMovesToAnotherVolume) {
    const std::string other = "/dev/shm/kw-res-test-" + std::to_string(testing::UnitTest::GetInstance()->random_seed());
    Put("a", "content");
    std::error_code error;
    std::filesystem::rename(folder_ / "a", other, error);
    if (error != std::errc::cross_device_link) {
        std::filesystem::remove(other, error);
        GTEST_SKIP() << "no second volume at /dev/shm";
    }
    EXPECT_TRUE(KwRes::MoveFileW(Path("a").c_str(), other.c_str()));
    EXPECT_EQ(Read(other), "content");
    EXPECT_EQ(CountEntries(), 0);
    Put("a", "newer");
    EXPECT_FALSE(KwRes::MoveFileW(Path("a").c_str(), other.c_str()));
    EXPECT_EQ(Read(other), "content");
    EXPECT_EQ(Get("a"), "newer");
    EXPECT_TRUE(KwRes::DeleteFileW(other.c_str()));
}

TEST_F(KwResPosixTest, SavingAndCopyingKeepLinksAndPermissions) {
    Put("a", "first");
    std::filesystem::permissions(folder_ / "a",
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::filesystem::create_symlink("a", folder_ / "link");
    EXPECT_TRUE(KwRes::SaveFile(Wide(Path("link")).c_str(), "second", 6));
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "link"));
    EXPECT_EQ(Get("a"), "second");
    EXPECT_EQ(std::filesystem::status(folder_ / "a").permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_TRUE(KwRes::CopyFileTo(Wide(Path("link")).c_str(), Wide(Path("a")).c_str()));  // onto itself
    EXPECT_EQ(Get("a"), "second");
    EXPECT_EQ(CountEntries(), 2);
}

TEST_F(KwResPosixTest, WhatLinksLeadToStaysWhenTheirFolderGoes) {
    Put("keep/file", "kept");
    Put("dir/a", "");
    std::filesystem::create_directory_symlink(folder_ / "keep", folder_ / "dir/link");
    std::filesystem::create_directory_symlink(folder_ / "keep", folder_ / "top");
    EXPECT_TRUE(KwRes::DeleteFolder(Path("dir/").c_str()) && KwRes::DeleteFolder(Path("top/").c_str()));
    EXPECT_EQ(TakeLog().size(), 4u);
    EXPECT_EQ(CountEntries(), 1);
    EXPECT_EQ(Get("keep/file"), "kept");
}

}  // namespace
