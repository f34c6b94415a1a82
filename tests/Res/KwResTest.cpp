#include "Kw/Res/KwRes.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "Kw/KwBuffer.h"
#include "Kw/Res/KwFile.h"
#include "KwResFixture.h"
#include "KwTestSupport.h"

namespace {

class KwResTest : public KwResFixture {
protected:
    static std::string Read(const std::string& name) {
        KwBuffer buffer;
        if (!KwRes::ReadFileToBuffer(name.c_str(), &buffer)) return "(none)";
        return {reinterpret_cast<char*>(buffer.GetData()), buffer.GetUsed()};
    }
    // Where the name leads for reading, or nothing.
    static std::string Find(const std::string& name) {
        char out[KwRes::kPathSize];
        return KwRes::GetFullPathExist(out, name.c_str()) ? out : "";
    }
    static std::string Utf8(const KwWChar* text) {
        return std::filesystem::path(std::u16string(text, text + KwWString(text).size())).string();
    }
    char out_[KwRes::kPathSize] = "";
};

TEST_F(KwResTest, ANameInTwoResourcePathsLeadsToTheFirst) {
    Put("game/a.txt", "game");
    Put("patch/a.txt", "patch");
    Put("patch/sub/b.txt", "sub");
    EXPECT_TRUE(KwRes::SetResPath(Path("game").c_str(), 0));
    EXPECT_EQ(LogLine(), "Set Path 0=" + Inner("game") + "\\");
    EXPECT_TRUE(KwRes::SetResPath(Path("patch/").c_str(), -1));
    EXPECT_EQ(KwRes::GetResPathNum(), 2);
    EXPECT_EQ(KwRes::GetResPath(1), Inner("patch") + "\\");
    EXPECT_EQ(Read("a.txt"), "game");
    EXPECT_EQ(Read("\\sub//x/../b.txt"), "sub");
    EXPECT_EQ(Find("/sub\\b.txt"), Inner("patch") + "\\sub\\b.txt");
    // Out of the path and in again.
    EXPECT_EQ(Find("../patch/a.txt"), Inner("patch") + "\\a.txt");
    EXPECT_EQ(Find("sub") + Find("missing") + Find("") + Find("/") + Find(std::string(1020, 'x')), "");
    std::filesystem::remove(folder_ / "game/a.txt");
    EXPECT_EQ(Read("a.txt"), "patch");
}

TEST_F(KwResTest, SlotsOutsideTheTableChangeNothing) {
    const std::string path = folder_.string();
    EXPECT_FALSE(KwRes::SetResPath(path.c_str(), 12) || KwRes::SetResPath(path.c_str(), 10));
    EXPECT_FALSE(KwRes::SetResPath(path.c_str(), -2));
    EXPECT_EQ(KwRes::GetResPath(12), nullptr);
    EXPECT_EQ(KwRes::GetResPath(-1), nullptr);
    EXPECT_STREQ(KwRes::GetResPath(9), "");
    EXPECT_TRUE(KwRes::SetResPath(path.c_str(), 0) && KwRes::SetResPath(path.c_str(), 2));
    // The names are looked for up to the first free slot only.
    EXPECT_EQ(KwRes::GetResPathNum(), 1);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(KwRes::SetResPath(path.c_str(), -1));
    EXPECT_EQ(KwRes::GetResPathNum(), 10);
    EXPECT_FALSE(KwRes::SetResPath(path.c_str(), -1));
    // A release forgets them.
    Kw_Release();
    Kw_Init();
    EXPECT_EQ(KwRes::GetResPathNum(), 0);
    EXPECT_STREQ(KwRes::GetResPath(2), "");
}

TEST_F(KwResTest, AResourcePathIsMadeOrRefused) {
    EXPECT_TRUE(KwRes::SetResPath(Path("new/deep").c_str(), 0));
    EXPECT_EQ(TakeLog(), (std::vector<std::string>{"Create Path 0=" + Inner("new\\deep"),
                                                   "Set Path 0=" + Inner("new\\deep") + "\\"}));
    EXPECT_TRUE(std::filesystem::is_directory(folder_ / "new/deep"));
    // A file is in the way.
    Put("file", "");
    EXPECT_FALSE(KwRes::SetResPath(Path("file").c_str(), 1));
    EXPECT_EQ(TakeLog().back(), "Set Path 1=" + Inner("file") + " error not found");
    // 1022 characters and the separator fill a slot; one more is refused.
    std::string longest = folder_.string();
    while (longest.size() < 900) longest += "/" + std::string(100, 'd');
    longest += "/" + std::string(1021 - longest.size(), 'e');
    ASSERT_EQ(longest.size(), 1022u);
    std::filesystem::create_directories(LongPath(longest));
    std::filesystem::create_directories(LongPath(longest + "e"));
    EXPECT_FALSE(KwRes::SetResPath((longest + "e").c_str(), 1));
    EXPECT_EQ(KwRes::GetResPathNum(), 1);
    EXPECT_TRUE(KwRes::SetResPath(longest.c_str(), 1));
    EXPECT_EQ(std::strlen(KwRes::GetResPath(1)), 1023u);
    // Names under it do not fit, but are looked for in the paths before and behind.
    Put("more/x", "found");
    EXPECT_TRUE(KwRes::SetResPath(Path("more").c_str(), 2));
    EXPECT_EQ(Read("x"), "found");
}

TEST_F(KwResTest, RelativeResourcePathsBeginAtTheProgram) {
    ASSERT_TRUE(KwRes::SetProcessPath(Path("bin").c_str()));
    EXPECT_EQ(KwRes::GetProcessPath(), Inner("bin") + "\\");
    Put("bin/x", "bin");
    Put("data/y", "data");
    EXPECT_TRUE(KwRes::SetResPath("", 0));
    EXPECT_EQ(KwRes::GetResPath(0), Inner("bin") + "\\");
    EXPECT_TRUE(KwRes::SetResPath("..//data\\", 1));
    EXPECT_EQ(KwRes::GetResPath(1), Inner("data") + "\\");
    EXPECT_TRUE(KwRes::SetResPath("\\kw-data\\new", 2));
    EXPECT_EQ(KwRes::GetResPath(2), Inner("bin") + "\\kw-data\\new\\");
    EXPECT_EQ(Read("x") + Read("y"), "bindata");
    // A path that the library gave out is taken as it is.
    EXPECT_TRUE(KwRes::SetResPath((std::string(KwRes::GetProcessPath()) + "made").c_str(), 3));
    EXPECT_EQ(KwRes::GetResPath(3), Inner("bin") + "\\made\\");
}

TEST_F(KwResTest, AHashInAResourcePathStays) {
    Put("c#/a", "sharp");
    ASSERT_TRUE(KwRes::SetProcessPath(Path("c#").c_str()));
    EXPECT_TRUE(KwRes::SetResPath("", 0));
    EXPECT_EQ(Read("x/../a"), "sharp");
    EXPECT_TRUE(KwRes::SetResPath("sub", 1));
    EXPECT_TRUE(std::filesystem::is_directory(folder_ / "c#/sub"));
    // In a name it goes.
    EXPECT_EQ(Read("#a#"), "sharp");
}

TEST_F(KwResTest, FullPathsNeedNoFile) {
    EXPECT_TRUE(KwRes::GetFullPath(out_, "a//b.txt", -1));
    EXPECT_STREQ(out_, "a\\b.txt");
    EXPECT_FALSE(KwRes::GetFullPath(out_, "a", 0) || KwRes::GetFullPath(out_, "", -1));
    ASSERT_TRUE(KwRes::SetResPath(Path("r0").c_str(), 0) && KwRes::SetResPath(Path("r1").c_str(), 1));
    EXPECT_TRUE(KwRes::GetFullPath(out_, "\\x/../b", -1));
    EXPECT_EQ(out_, Inner("r0") + "\\b");
    EXPECT_TRUE(KwRes::GetFullPath(out_, "b", 1));
    EXPECT_EQ(out_, Inner("r1") + "\\b");
    EXPECT_TRUE(KwRes::GetFullPath(out_, "D:\\x\\y", 1));
    EXPECT_STREQ(out_, "D:\\x\\y");
    EXPECT_FALSE(KwRes::GetFullPath(out_, std::string(1000, 'x').c_str(), 1));
    EXPECT_FALSE(KwRes::GetFullPath(out_, "b", 10));
    KwWChar wide[KwRes::kPathSize];
    EXPECT_TRUE(KwRes::GetFullPath(wide, KW_W("b"), 1));
    EXPECT_EQ(Utf8(wide), Inner("r1") + "\\b");
    EXPECT_TRUE(KwRes::GetNativePath(out_, Inner("r1").c_str()));
    EXPECT_EQ(out_, Path("r1"));
}

TEST_F(KwResTest, CandidatesAreCheckedInOrder) {
    ASSERT_TRUE(KwRes::SetProcessFullPath(Path("bin/host.exe").c_str()));
    EXPECT_STREQ(KwRes::GetProcessName(), "host.exe");
    ASSERT_TRUE(KwRes::SetResPath(Path("r0").c_str(), 0) && KwRes::SetResPath(Path("r1").c_str(), 1));
    Put("r1/host.exe.ds", "");
    Put("r1/c", "");
    EXPECT_TRUE(KwRes::CheckFileExist(out_, "a", ".ds", "c"));
    EXPECT_EQ(out_, Inner("r1") + "\\host.exe.ds");
    EXPECT_TRUE(KwRes::CheckFileExist(out_, nullptr, ".no", "c"));
    EXPECT_EQ(out_, Inner("r1") + "\\c");
    EXPECT_FALSE(KwRes::CheckFileExist(out_, "a", "", nullptr));
    EXPECT_STREQ(out_, "");
    // 63 characters are the most that the process name and the text behind it may have.
    const std::string tail(55, 't');
    Put("r0/host.exe" + tail, "");
    Put("r0/host.exe" + tail + "t", "");
    EXPECT_TRUE(KwRes::CheckFileExist(out_, nullptr, tail.c_str(), nullptr));
    EXPECT_FALSE(KwRes::CheckFileExist(out_, nullptr, (tail + "t").c_str(), nullptr));
    // Folders are looked for in every path.
    EXPECT_FALSE(KwRes::CheckFolderExist(out_, "c", "", "d"));
    std::filesystem::create_directories(folder_ / "r1/d");
    KwWChar wide[KwRes::kPathSize];
    EXPECT_TRUE(KwRes::CheckFolderExist(wide, KW_W("c"), KW_W(""), KW_W("d")));
    EXPECT_EQ(Utf8(wide), Inner("r1") + "\\d");
    EXPECT_TRUE(KwRes::CheckFileExist(wide, nullptr, KW_W(".ds"), nullptr));
}

TEST_F(KwResTest, AFolderIsNoFile) {
    Put("sub/file", "x");
    EXPECT_FALSE(KwRes::IsFileExist(Path("sub").c_str(), true));
    EXPECT_TRUE(KwRes::IsFileExist(Wide(Path("sub/file")).c_str(), false));
    EXPECT_TRUE(KwRes::IsFolderExist(Path("sub").c_str()) && KwRes::IsFolderExist(Wide(Inner("sub\\")).c_str()));
    EXPECT_FALSE(KwRes::IsFolderExist(Path("sub/file").c_str()) || KwRes::IsFolderExist(""));
    EXPECT_FALSE(KwRes::DeleteFileW(Path("sub").c_str()));
    EXPECT_EQ(LogLine(), "remove file " + Path("sub") + " error");
}

TEST_F(KwResTest, TheProcessIsTheRunningProgramUntilItIsSet) {
    const std::string path = KwRes::GetProcessPath();
    EXPECT_EQ(path.back(), '\\');
    EXPECT_TRUE(KwRes::IsFileExist((path + KwRes::GetProcessName()).c_str(), false));
    EXPECT_TRUE(KwRes::SetProcessName("other"));
    EXPECT_EQ(KwRes::GetProcessPath() + std::string(KwRes::GetProcessName()), path + "other");
    EXPECT_FALSE(KwRes::SetProcessPath(std::string(1023, 'x').c_str()) || KwRes::SetProcessName(nullptr));
    EXPECT_EQ(KwRes::GetProcessPath(), path);
    EXPECT_TRUE(KwRes::SetProcessFullPath(""));
    EXPECT_STRNE(KwRes::GetProcessName(), "other");
}

TEST_F(KwResTest, SeveralThreadsOpenFilesAndAskForTheProgramFirst) {
    Put("a", "text");
    ASSERT_TRUE(KwRes::SetProcessFullPath("") && KwRes::SetResPath(folder_.string().c_str(), 0));
    ASSERT_TRUE(KwRes::SetProcessFullPath(""));
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&good] {
            const std::string path = KwRes::GetProcessPath();
            for (int round = 0; round < 50; ++round) good += Read("a") == "text" && path == KwRes::GetProcessPath();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(good, 200);
}

TEST_F(KwResTest, FoldersAreMadeUpToTheEndThatIsAskedFor) {
    EXPECT_TRUE(KwRes::CreateFolder(Path("a/b/c").c_str(), false, 0));
    EXPECT_TRUE(std::filesystem::is_directory(folder_ / "a/b"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "a/b/c"));
    EXPECT_TRUE(KwRes::CreateFolder(Wide(Inner("a\\b\\\\c\\")).c_str(), true, 0));
    EXPECT_TRUE(KwRes::CreateFolder(Path("a/b/c/d").c_str(), true, static_cast<int>(Path("a").size())));
    EXPECT_TRUE(std::filesystem::is_directory(folder_ / "a/b/c/d"));
    // What is before the start is not made.
    EXPECT_FALSE(KwRes::CreateFolder(Path("x/y/z").c_str(), true, static_cast<int>(Path("x/y").size())));
    EXPECT_EQ(LogLine(), "create folder " + Path("x/y") + " error");
    Put("file", "");
    EXPECT_FALSE(KwRes::CreateFolder(Path("file/y").c_str(), true, 0) || KwRes::CreateFolder("", true, 0));
    EXPECT_EQ(TakeLog().size(), 2u);
    const std::string longName = Path("q/") + std::string(256, 'q');
    EXPECT_FALSE(KwRes::CreateFolder(longName.c_str(), false, 0));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "q"));
    EXPECT_TRUE(KwRes::CreateFolder(Path("a").c_str(), true, 100000) &&
                KwRes::CreateFolder(Path("a").c_str(), true, -9));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(KwRes::CreateFolder(Wide(Path("file/y")).c_str(), true, 0));
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "create folder " + Path("file") + " error\n");
}

TEST_F(KwResTest, RenamingNeverReplaces) {
    Put("a", "a");
    Put("b", "b");
    EXPECT_FALSE(KwRes::RenameFile(Path("a").c_str(), Path("b").c_str()));
    EXPECT_EQ(LogLine(), "rename file " + Path("a") + " -> " + Path("b") + " error");
    EXPECT_FALSE(KwRes::MoveFileW(Path("a").c_str(), Path("b").c_str()));
    EXPECT_EQ(LogLine(), "rename " + Path("a") + "->" + Path("b") + " error");
    EXPECT_TRUE(KwRes::RenameFile(Path("a").c_str(), Path("c").c_str()));
    EXPECT_TRUE(KwRes::MoveFileW(Wide(Path("c")).c_str(), Wide(Path("d")).c_str()));
    EXPECT_EQ(Get("d") + Get("b"), "ab");
    EXPECT_TRUE(KwRes::DeleteFileW(Wide(Path("d")).c_str()) && KwRes::DeleteFileW(Path("b").c_str()));
    EXPECT_EQ(CountEntries(), 0);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(KwRes::DeleteFileW(Wide(Path("d")).c_str()) ||
                 KwRes::RenameFile(Wide(Path("d")).c_str(), Wide(Path("e")).c_str()));
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "remove file " + Path("d") + " error\nrename file " + Path("d") + " -> " + Path("e") + " error\n");
    EXPECT_TRUE(TakeLog().empty());
}

TEST_F(KwResTest, SavingAndCopyingReplaceTheFile) {
    EXPECT_TRUE(KwRes::SaveFile(Path("a").c_str(), "first", 5));
    EXPECT_TRUE(KwRes::SaveFile(Wide(Path("a")).c_str(), "second", 6));
    EXPECT_EQ(Get("a"), "second");
    EXPECT_TRUE(KwRes::SaveFile(Path("empty").c_str(), nullptr, 0));
    EXPECT_FALSE(KwRes::SaveFile(Path("empty").c_str(), nullptr, 1) || KwRes::SaveFile(Path("").c_str(), "x", 1));
    EXPECT_FALSE(KwRes::SaveFile(Path("no/folder").c_str(), "x", 1) || KwRes::SaveFile(Path(".").c_str(), "x", 1));
    TakeLog();
    const std::string block(300000, 'z');
    Put("big", block);
    EXPECT_TRUE(KwRes::CopyFileTo(Path("big").c_str(), Path("a").c_str()));
    EXPECT_TRUE(KwRes::CopyFileTo(Wide(Path("a")).c_str(), Wide(Path("./a")).c_str()));  // onto itself
    EXPECT_EQ(Get("a"), block);
    EXPECT_EQ(std::filesystem::last_write_time(folder_ / "a"), std::filesystem::last_write_time(folder_ / "big"));
    EXPECT_FALSE(KwRes::CopyFileTo(Path("none").c_str(), Path("a").c_str()));
    EXPECT_EQ(LogLine(), "copy file " + Path("none") + " -> " + Path("a") + " error");
    EXPECT_EQ(CountEntries(), 3);
}

// A program that looks into a file, or keeps it open for long, hinders nobody.
TEST_F(KwResTest, AnOpenFileIsReplacedRenamedAndRemoved) {
    KwFile open;
    ASSERT_TRUE(open.Open(Put("a", "old").c_str()));
    EXPECT_TRUE(KwRes::SaveFile(Path("a").c_str(), "new", 3));
    char out[4] = "";
    EXPECT_TRUE(open.Read(out, 3));
    EXPECT_STREQ(out, "old");
    EXPECT_EQ(Read(Path("a")), "new");
    ASSERT_TRUE(open.Open(Path("a").c_str()));
    EXPECT_TRUE(KwRes::RenameFile(Path("a").c_str(), Path("b").c_str()));
    EXPECT_TRUE(KwRes::DeleteFileW(Path("b").c_str()));
    open.Close();
    EXPECT_EQ(CountEntries(), 0);
}

TEST_F(KwResTest, SeveralWritersAppendToOneFile) {
    KwFile one, other;
    ASSERT_TRUE(one.Append(Path("log").c_str()) && other.Append(Path("log").c_str()));
    EXPECT_TRUE(one.Write("1", 1) && one.Flush() && other.Write("2", 1) && other.Flush());
    EXPECT_TRUE(one.Write("3", 1) && one.Flush());
    EXPECT_EQ(Get("log"), "123");
}

TEST_F(KwResTest, AFolderGoesWithItsContent) {
    Put("dir/a", "");
    Put("dir/sub/deep/b", "");
    Put("keep", "");
    EXPECT_TRUE(KwRes::DeleteFolder(Path("dir/").c_str()));
    const std::vector<std::string> log = TakeLog();
    EXPECT_EQ(log.size(), 5u);
    EXPECT_EQ(std::count(log.begin(), log.end(), "remove folder " + Path("dir") + " successfull"), 1);
    EXPECT_EQ(std::count(log.begin(), log.end(), "remove file " + Path("dir") + "\\a successfull"), 1);
    EXPECT_EQ(CountEntries(), 1);
    EXPECT_FALSE(KwRes::DeleteFolder(Path("keep").c_str()) || KwRes::DeleteFolder(""));
    EXPECT_EQ(TakeLog().front(), "not goto dir " + Path("keep"));
}

TEST_F(KwResTest, ReadingLeavesRoomAsAsked) {
    const std::string path = Put("a", "text");
    KwBuffer buffer;
    EXPECT_TRUE(KwRes::ReadFileToBufferAndResize(path.c_str(), &buffer, 0, 1));
    EXPECT_STREQ(reinterpret_cast<char*>(buffer.GetData()), "text");
    EXPECT_EQ(buffer.GetUsed(), 4u);
    EXPECT_EQ(buffer.GetSize(), 5u);
    EXPECT_FALSE(KwRes::ReadFileToBufferAndResize(path.c_str(), &buffer, -1, 0) ||
                 KwRes::ReadFileToBufferAndResize(path.c_str(), nullptr, 0, 0));
    buffer.Alloc(100);
    EXPECT_TRUE(KwRes::ReadFileToBuffer(Wide(path).c_str(), &buffer));
    EXPECT_EQ(buffer.GetSize(), 100u);
    EXPECT_TRUE(KwRes::ReadFileToBufferAndResize(Wide(Put("empty", "")).c_str(), &buffer, 0, 0));
    EXPECT_EQ(buffer.GetSize() + buffer.GetUsed(), 1u);
    EXPECT_FALSE(KwRes::ReadFileToBuffer(Path("none").c_str(), &buffer));
    EXPECT_TRUE(TakeLog().empty());
}

TEST_F(KwResTest, VariablesAreCopiedWhereTheyFit) {
    SetVariable("KW_RES_TEST", "value");
    EXPECT_TRUE(KwRes::GetSystemVaries("KW_RES_TEST", out_) && KwRes::GetSystemVaries("KW_RES_TEST", nullptr));
    EXPECT_STREQ(out_, "value");
    SetVariable("KW_RES_TEST", std::string(1024, 'v').c_str());
    EXPECT_FALSE(KwRes::GetSystemVaries("KW_RES_TEST", out_));
    EXPECT_TRUE(KwRes::GetSystemVaries("KW_RES_TEST", nullptr));
    SetVariable("KW_RES_TEST", nullptr);
    EXPECT_FALSE(KwRes::GetSystemVaries("KW_RES_TEST", nullptr) || KwRes::GetSystemVaries(nullptr, out_));
    // Read once, until the library is released.
    SetVariable("SyncProjectPath", "here");
    EXPECT_STREQ(KwRes::GetSyncProjectPath(), "here");
    SetVariable("SyncProjectPath", nullptr);
    EXPECT_STREQ(KwRes::GetSyncProjectPath(), "here");
    Kw_Release();
    Kw_Init();
    EXPECT_EQ(KwRes::GetSyncProjectPath(), nullptr);
}

}  // namespace
