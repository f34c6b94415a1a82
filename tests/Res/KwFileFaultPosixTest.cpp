// Disks that refuse bytes: a limit on the size of files stands for the full disk.
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "Kw/Res/KwFile.h"
#include "KwResFixture.h"

namespace {

class KwFileFaultPosixTest : public KwResFixture {
protected:
    KwFileFaultPosixTest() {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &old_);
    }
    ~KwFileFaultPosixTest() override { Free(); }

    // From here on the disk takes files of so many bytes.
    void Full(unsigned int bytes) {
        const rlimit limit{bytes, old_.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    void Free() { setrlimit(RLIMIT_FSIZE, &old_); }

private:
    rlimit old_;
};

TEST_F(KwFileFaultPosixTest, BytesThatWereTakenReachTheDiskWhenItHasRoomAgain) {
    const std::string a(6000, 'a'), b(6000, 'b'), c(20000, 'c');
    KwFile file;
    ASSERT_TRUE(file.Append(Put("f", "12345").c_str()));
    Full(9000);
    EXPECT_TRUE(file.Write(a.data(), 6000));
    EXPECT_TRUE(file.Write(b.data(), 6000));
    EXPECT_FALSE(file.Flush());
    EXPECT_EQ(file.Size(), 12005u);
    // Neither small nor large writes are taken now, nor is the position moved.
    EXPECT_FALSE(file.Write(b.data(), 6000) || file.Write(c.data(), 20000));
    EXPECT_EQ(TakeLog().size(), 2u);
    EXPECT_EQ(file.Seek(0, 0), 12005u);
    EXPECT_EQ(file.Tell(), 12005u);
    Free();
    EXPECT_TRUE(file.Write(c.data(), 20000));
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(Get("f"), "12345" + a + b + c);
}

TEST_F(KwFileFaultPosixTest, ARefusedWriteLeavesNoPartBehind) {
    const std::string block(50000, 'x');
    for (const bool append : {false, true}) {
        KwFile file;
        ASSERT_TRUE(append ? file.Append(Path("f").c_str()) : file.Create(Path("f").c_str()));
        EXPECT_TRUE(file.Write("head", 4));
        const unsigned int place = file.Tell();
        Full(30000);
        EXPECT_FALSE(file.Write(block.data(), 50000));
        EXPECT_EQ(LogLine(), "write file error size=50000");
        EXPECT_EQ(file.Tell(), place);
        EXPECT_EQ(file.Size(), place);
        EXPECT_TRUE(file.Write("tail", 4));
        EXPECT_TRUE(file.Close());
        Free();
        EXPECT_EQ(Get("f"), append ? "headtailheadtail" : "headtail");
    }
}

TEST_F(KwFileFaultPosixTest, ClosingSaysWhatWasLost) {
    KwFile file;
    ASSERT_TRUE(file.Create(Path("f").c_str()));
    EXPECT_TRUE(file.Write("0123456789", 10));
    Full(4);
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(LogLine(), "write file error size=6");
    Free();
    EXPECT_EQ(Get("f"), "0123");
}

TEST_F(KwFileFaultPosixTest, AFullDeviceIsReported) {
    KwFile file;
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
    ASSERT_TRUE(file.Append("/dev/full"));
    EXPECT_TRUE(file.WriteF("%d", 12345));
    EXPECT_FALSE(file.Flush());
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(LogLine(), "write file error size=5");
    // No file is put in the place of a device.
    EXPECT_FALSE(KwRes::SaveFile("/dev/full", "x", 1));
    EXPECT_EQ(LogLine(), "write file error size=1");
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
}

TEST_F(KwFileFaultPosixTest, AFailedSaveLeavesTheOldFileAndNothingBeside) {
    const std::string block(5000, 'n');
    Put("old", "old content");
    Full(1000);
    EXPECT_FALSE(KwRes::SaveFile(Path("old").c_str(), block.data(), 5000));
    EXPECT_EQ(LogLine(), "write file error size=5000");
    EXPECT_FALSE(KwRes::SaveFile(Path("new").c_str(), block.data(), 5000));
    EXPECT_FALSE(KwRes::SaveFile(Path("no/folder").c_str(), block.data(), 5));
    EXPECT_EQ(TakeLog().back(), "create file " + Path("no/folder") + " error");
    Free();
    EXPECT_EQ(Get("old"), "old content");
    EXPECT_EQ(CountEntries(), 1);
    // A device stays what it is as the target of a copy, too.
    if (access("/dev/null", W_OK) == 0) {
        const auto before = std::filesystem::status("/dev/null").permissions();
        EXPECT_TRUE(KwRes::CopyFileTo(Path("old").c_str(), "/dev/null"));
        EXPECT_EQ(std::filesystem::status("/dev/null").permissions(), before);
    }
    // A copy is made in the same way.
    Put("large", block);
    Full(1000);
    EXPECT_FALSE(KwRes::CopyFileTo(Path("large").c_str(), Path("old").c_str()));
    Free();
    EXPECT_EQ(Get("old"), "old content");
    EXPECT_EQ(CountEntries(), 2);
}

}  // namespace
