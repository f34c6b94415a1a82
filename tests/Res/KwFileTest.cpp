#include "Kw/Res/KwFile.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "Kw/KwBuffer.h"
#include "KwResFixture.h"
#include "KwTestSupport.h"

namespace {

class KwFileTest : public KwResFixture {
protected:
    static std::string Rest(KwFile& file) {
        std::string text(file.Size() - file.Tell(), '\0');
        if (!text.empty() && !file.Read(text.data(), static_cast<unsigned int>(text.size()))) text = "(unreadable)";
        return text;
    }
    // A buffer filled with the text, owned by the caller.
    static KwBuffer* Filled(const char* text) {
        KwBuffer* buffer = new KwBuffer;
        EXPECT_TRUE(buffer->Alloc(64) && buffer->AddString(text, 0));
        return buffer;
    }
};

TEST_F(KwFileTest, WhatIsWrittenIsReadBackByBothWidthsOfNames) {
    const std::string path = Path("a.bin");
    KwFile file;
    ASSERT_TRUE(file.Create(path.c_str()));
    EXPECT_TRUE(file.IsFileOut() && file.CanWrite() && !file.CanRead());
    EXPECT_TRUE(file.Write("0123456789", 10));
    EXPECT_EQ(file.Size(), 10u);
    EXPECT_TRUE(file.Close());
    EXPECT_FALSE(file.IsFileOut() || file.CanWrite());

    ASSERT_TRUE(file.Open(Wide(path).c_str()));
    EXPECT_TRUE(file.IsFileOut() && file.CanRead() && !file.CanWrite());
    EXPECT_EQ(Rest(file), "0123456789");
    ASSERT_TRUE(file.Append(Wide(path).c_str()));
    EXPECT_TRUE(file.CanRead() && file.CanWrite());
    EXPECT_TRUE(file.Write("ab", 2));
    ASSERT_TRUE(file.Open(path.c_str()));
    EXPECT_EQ(Rest(file), "0123456789ab");
    EXPECT_TRUE(file.Create(Wide(path).c_str()));
    EXPECT_EQ(file.Size(), 0u);
    EXPECT_TRUE(TakeLog().empty());
}

TEST_F(KwFileTest, NamesInAnyScriptAreTheSameInBothWidths) {
    KwFile file;
    ASSERT_TRUE(file.Create((folder_.string() + "/\xC4\x90\xC3\xA0 N\xE1\xBA\xB5ng \xF0\x9F\x98\x80").c_str()));
    KwWString name = Wide(folder_.string() + "/") + KW_W("\u0110\u00E0 N\u1EB5ng \U0001F600");
    EXPECT_TRUE(file.Open(name.c_str()));
    // Half a pair names no file.
    name.pop_back();
    EXPECT_FALSE(file.Open(name.c_str()));
}

TEST_F(KwFileTest, SeeksAreCutToTheFile) {
    KwBuffer* buffer = Filled("0123456789");
    KwFile disk, memory;
    ASSERT_TRUE(disk.Open(Put("ten", "0123456789").c_str()));
    ASSERT_TRUE(memory.OpenFromBuffer(buffer, true, false));
    for (KwFile* file : {&disk, &memory}) {
        EXPECT_EQ(file->Seek(11, 0), 10u);
        EXPECT_EQ(file->Seek(0xFFFFFFFFu, 0), 10u);
        EXPECT_EQ(file->Seek(static_cast<unsigned int>(-3), 2), 7u);
        EXPECT_EQ(file->Seek(static_cast<unsigned int>(-5), 1), 2u);
        EXPECT_EQ(file->Seek(4, 1), 6u);
        EXPECT_EQ(file->Seek(1, 7), 6u);
        EXPECT_EQ(file->Tell(), 6u);
        EXPECT_EQ(Rest(*file), "6789");
        EXPECT_EQ(file->Seek(static_cast<unsigned int>(-11), 1), 0u);
        EXPECT_EQ(file->Seek(0x80000000u, 2), 0u);
        EXPECT_EQ(Rest(*file), "0123456789");
    }
    buffer->Release();
}

TEST_F(KwFileTest, AFailedReadLeavesThePosition) {
    char out[16] = "";
    KwBuffer* buffer = Filled("0123456789");
    KwFile disk, memory;
    ASSERT_TRUE(disk.Open(Put("ten", "0123456789").c_str()));
    ASSERT_TRUE(memory.OpenFromBuffer(buffer, true, false));
    for (KwFile* file : {&disk, &memory}) {
        file->Seek(8, 0);
        EXPECT_FALSE(file->Read(out, 5));
        EXPECT_EQ(LogLine(),
                  file == &disk ? "read file error size=5" : "read buffer error:offset=8,buffersize=10,size=5");
        EXPECT_FALSE(file->Read(out, 0xFFFFFFFFu));
        EXPECT_EQ(TakeLog().size(), 1u);
        EXPECT_EQ(file->Tell(), 8u);
        EXPECT_EQ(Rest(*file), "89");
        EXPECT_FALSE(file->Read(nullptr, 1) || file->Read(out, 0));
    }
    EXPECT_TRUE(TakeLog().empty());
    buffer->Release();
}

TEST_F(KwFileTest, AccessIsRefusedInSilence) {
    char out[4];
    KwFile file;
    EXPECT_FALSE(file.Read(out, 1) || file.Write("x", 1) || file.WriteLine("x", 0));
    ASSERT_TRUE(file.Open(Put("a", "text").c_str()));
    EXPECT_FALSE(file.Write("x", 1));
    ASSERT_TRUE(file.Create(Path("b").c_str()));
    EXPECT_FALSE(file.Read(out, 1));
    EXPECT_TRUE(TakeLog().empty());
}

TEST_F(KwFileTest, AppendedBytesGoToTheEndWhereverThePositionIs) {
    KwFile file;
    ASSERT_TRUE(file.Append(Put("log", "12345").c_str()));
    EXPECT_EQ(file.Size(), 5u);
    EXPECT_EQ(file.Tell(), 5u);
    EXPECT_TRUE(file.Write("67", 2));
    EXPECT_EQ(file.Seek(1, 0), 1u);
    EXPECT_EQ(file.Size(), 7u);
    EXPECT_TRUE(file.Write("89", 2));
    EXPECT_EQ(file.Tell(), 9u);
    EXPECT_TRUE(file.Flush());
    EXPECT_EQ(Get("log"), "123456789");
    // The stream itself is for writing alone.
    char out[4];
    EXPECT_FALSE(file.Read(out, 2));
    EXPECT_EQ(LogLine(), "read file error size=2");
    EXPECT_TRUE(file.Write("0", 1) && file.Close());
    EXPECT_EQ(Get("log"), "1234567890");
}

TEST_F(KwFileTest, AFileIsOverwrittenInPlace) {
    KwFile file;
    ASSERT_TRUE(file.Create(Path("a").c_str()));
    const std::string block(20000, 'a');
    EXPECT_TRUE(file.Write(block.data(), 20000));
    EXPECT_TRUE(file.Write("tail", 4));
    EXPECT_EQ(file.Seek(100, 0), 100u);
    EXPECT_TRUE(file.Write("BBB", 3));
    EXPECT_EQ(file.Tell(), 103u);
    EXPECT_EQ(file.Size(), 20004u);
    EXPECT_EQ(file.Seek(0, 2), 20004u);
    EXPECT_TRUE(file.Write("!", 1) && file.Close());
    std::string expected = block + "tail!";
    expected.replace(100, 3, "BBB");
    EXPECT_EQ(Get("a"), expected);
}

TEST_F(KwFileTest, WhatIsNoFileIsNotOpened) {
    KwFile file;
    EXPECT_FALSE(file.Open(folder_.string().c_str()) || file.Open(Wide(folder_.string()).c_str()));
    EXPECT_FALSE(file.Open("") || file.Open(static_cast<const char*>(nullptr)) || file.Open(Path("missing").c_str()));
    EXPECT_FALSE(file.Open(static_cast<const KwWChar*>(nullptr)) || file.Open(std::string(5000, 'n').c_str()));
    EXPECT_TRUE(TakeLog().empty());
    EXPECT_FALSE(file.Create(folder_.string().c_str()));
    EXPECT_EQ(LogLine(), "create file " + folder_.string() + " error");
    EXPECT_FALSE(file.Append(Path("no/such/folder").c_str()));
    EXPECT_EQ(LogLine(), "append file " + Path("no/such/folder") + " error");
    EXPECT_FALSE(file.Create(static_cast<const char*>(nullptr)) || file.OpenFromBuffer(nullptr, true, true));
    EXPECT_EQ(TakeLog().back(), "open file from buffer error null");
    testing::internal::CaptureStdout();
    EXPECT_FALSE(file.Create(Wide(Path("no/x")).c_str()) || file.Append(Wide(Path("no/x")).c_str()));
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "create file " + Path("no/x") + " error\nappend file " + Path("no/x") + " error\n");
}

TEST_F(KwFileTest, AFileOfNoBytesIsAFile) {
    KwFile file;
    KwBuffer buffer;
    char out[1];
    ASSERT_TRUE(file.Open(Put("empty", "").c_str()));
    EXPECT_EQ(file.Size(), 0u);
    EXPECT_EQ(file.Seek(5, 0), 0u);
    EXPECT_TRUE(file.ReadAll(&buffer, 0, 0, false));
    EXPECT_EQ(buffer.GetUsed(), 0u);
    EXPECT_FALSE(file.Read(out, 1));
    TakeLog();
}

TEST_F(KwFileTest, AMemoryFileStaysInsideItsBuffer) {
    KwBuffer* buffer = Filled("0123456789");
    KwFile file;
    ASSERT_TRUE(file.OpenFromBuffer(buffer, true, true));
    EXPECT_EQ(buffer->GetRef(), 2);
    EXPECT_TRUE(file.IsMemory());
    EXPECT_EQ(file.GetHandle(), buffer);
    file.Seek(8, 0);
    EXPECT_TRUE(file.Write("AB", 2));
    EXPECT_FALSE(file.Write("C", 1));
    EXPECT_EQ(LogLine(), "write file buffer error:10,10,1");
    EXPECT_EQ(file.Size(), 10u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer->GetData()), 10), "01234567AB");
    EXPECT_FALSE(file.WriteF("%d", 1));
    EXPECT_EQ(LogLine(), "writefilef error");
    // The file holds a reference of its own, also when it opens the same buffer again.
    buffer->Release();
    ASSERT_TRUE(file.OpenFromBuffer(buffer, true, false));
    EXPECT_EQ(buffer->GetRef(), 1);
    EXPECT_EQ(Rest(file), "01234567AB");
    // A block that became shorter behind the file's back.
    EXPECT_TRUE(buffer->Alloc(4));
    file.Seek(0, 0);
    char out[10];
    EXPECT_FALSE(file.Read(out, 10));
    EXPECT_EQ(TakeLog().size(), 1u);
}

TEST_F(KwFileTest, FormattedTextIsWrittenWholeOrNotAtAll) {
    const std::string longText(20000, 'x');
    KwFile file;
    ASSERT_TRUE(file.Create(Path("t").c_str()));
    EXPECT_TRUE(file.WriteF("[%d] %s\n", 7, "seven"));
    EXPECT_TRUE(file.WriteF("%s|", longText.c_str()));
    EXPECT_TRUE(file.WriteF(KW_W("%d\u1EB5\U0001F600"), 8));
    EXPECT_TRUE(file.WriteLine("line", 2) && file.WriteLine(longText.c_str(), 0) && file.WriteLine(nullptr, 0));
    EXPECT_TRUE(TakeLog().empty());
    const unsigned int place = file.Tell();
    // A text that the formatter refuses.
    EXPECT_FALSE(file.WriteF(std::string("abc%").c_str(), 0));
    EXPECT_EQ(LogLine(), "writefilev error");
    EXPECT_FALSE(file.WriteF(static_cast<const KwWChar*>(nullptr)));
    EXPECT_EQ(LogLine(), "writefilef error");
    EXPECT_EQ(file.Tell(), place);
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(Get("t"), "[7] seven\n" + longText + "|8\xE1\xBA\xB5\xF0\x9F\x98\x80line\n" + longText + "\n\n");
}

TEST_F(KwFileTest, APieceIsCopiedThroughASmallBuffer) {
    KwFile source, target;
    KwBuffer work;
    ASSERT_TRUE(source.Open(Put("s", "0123456789").c_str()));
    ASSERT_TRUE(target.Create(Path("t").c_str()));
    EXPECT_FALSE(target.ReadAndWrite(&source, &work, 0, 4));
    work.Alloc(3);
    EXPECT_TRUE(target.ReadAndWrite(&source, &work, 2, 7));
    EXPECT_TRUE(target.ReadAndWrite(&source, &work, 10, 0));
    EXPECT_FALSE(target.ReadAndWrite(&source, &work, 11, 1));
    EXPECT_FALSE(target.ReadAndWrite(&source, &work, 9, 0xFFFFFFFFu) || target.ReadAndWrite(nullptr, &work, 0, 1));
    EXPECT_EQ(LogLine(), "read file error size=3");
    target.Close();
    EXPECT_EQ(Get("t"), "2345678");
}

TEST_F(KwFileTest, ABufferMayBeMovedWithinItself) {
    KwBuffer buffer;
    buffer.Alloc(10);
    std::memcpy(buffer.GetData(), "0123456789", 10);
    buffer.SetUsed(10);
    KwFile file;
    ASSERT_TRUE(file.OpenFromBuffer(&buffer, true, true));
    EXPECT_TRUE(file.Read(buffer.GetData() + 2, 8));
    EXPECT_EQ(std::memcmp(buffer.GetData(), "0101234567", 10), 0);
    file.Seek(1, 0);
    EXPECT_TRUE(file.Write(buffer.GetData(), 9));
    EXPECT_EQ(std::memcmp(buffer.GetData(), "0010123456", 10), 0);
}

TEST_F(KwFileTest, WholeFilesAreReadWithRoomAroundThem) {
    KwFile file;
    KwBuffer buffer;
    char out[3];
    ASSERT_TRUE(file.Open(Put("s", "012345").c_str()));
    ASSERT_TRUE(file.Read(out, 3));
    EXPECT_TRUE(file.ReadAll(&buffer, 2, 1, false));
    EXPECT_EQ(buffer.GetUsed(), 8u);
    EXPECT_EQ(buffer.GetSize(), 9u);
    EXPECT_EQ(std::memcmp(buffer.GetData(),
                          "\0\0"
                          "012345\0",
                          9),
              0);
    EXPECT_EQ(file.Tell(), 6u);
    // A block that is kept is cleared around the content.
    std::memset(buffer.GetData(), 'x', 9);
    EXPECT_TRUE(file.ReadAll(&buffer, 1, 1, true));
    EXPECT_EQ(std::memcmp(buffer.GetData(),
                          "\0"
                          "012345\0x",
                          9),
              0);
    EXPECT_FALSE(file.ReadAll(&buffer, 0xFFFFFFFFu, 0xFFFFFFFFu, true));
    TakeLog();
    // The file lost bytes since it was opened.
    ASSERT_TRUE(file.Open(Path("s").c_str()));
    std::filesystem::resize_file(folder_ / "s", 2);
    EXPECT_FALSE(file.ReadAll(&buffer, 0, 0, true));
    EXPECT_EQ(LogLine(), "read file error size=6");
    EXPECT_EQ(buffer.GetUsed(), 0u);
    EXPECT_EQ(file.Tell(), 0u);
    EXPECT_TRUE(file.Read(out, 2));
}

TEST_F(KwFileTest, AHostMayUseTheStream) {
    KwFile file;
    ASSERT_TRUE(file.Create(Path("a").c_str()));
    EXPECT_TRUE(file.Write("ab", 2));
    std::FILE* stream = static_cast<std::FILE*>(file.GetHandle());
    std::fputs("cd", stream);
    EXPECT_EQ(file.Tell(), 4u);
    EXPECT_EQ(file.Size(), 4u);
    EXPECT_TRUE(file.Write("ef", 2));
    std::fputs("gh", stream);
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(Get("a"), "abcdefgh");
    ASSERT_TRUE(file.Open(Path("a").c_str()));
    std::fgetc(static_cast<std::FILE*>(file.GetHandle()));
    EXPECT_EQ(Rest(file), "bcdefgh");
}

TEST_F(KwFileTest, AnOpenFileHasOneOwner) {
    KwFile file;
    ASSERT_TRUE(file.Open(Put("a", "text").c_str()));
    KwFile copy(file);
    EXPECT_EQ(copy.GetHandle(), nullptr);
    copy = file;
    EXPECT_EQ(Rest(file), "text");
    EXPECT_FALSE(copy.CanRead());
    file = copy;
    EXPECT_FALSE(file.CanRead());
}

TEST_F(KwFileTest, FilesBetweenTwoAndFourGigabytesWork) {
    const std::string path = Put("big", "");
    if (!SetFileLength(path.c_str(), 0xFFFFFFFEull)) GTEST_SKIP() << "no sparse files of 4 GiB here";
    KwFile file;
    char out[4] = "";
    ASSERT_TRUE(file.Open(path.c_str()));
    EXPECT_EQ(file.Size(), KwFile::kMaxSize);
    EXPECT_EQ(file.Seek(static_cast<unsigned int>(-4), 2), 0xFFFFFFFAu);
    EXPECT_FALSE(file.Read(out, 5));
    EXPECT_EQ(file.Tell(), 0xFFFFFFFAu);
    EXPECT_TRUE(file.Read(out, 4));
    TakeLog();

    // One byte more cannot be told from an unknown size; it is neither written nor opened.
    ASSERT_TRUE(file.Append(path.c_str()));
    EXPECT_FALSE(file.Write("x", 1) || file.WriteF("%s", "x"));
    EXPECT_EQ(TakeLog(), std::vector<std::string>(2, "write file error size=1"));
    EXPECT_TRUE(file.Close());
    ASSERT_TRUE(SetFileLength(path.c_str(), 0xFFFFFFFFull));
    EXPECT_FALSE(file.Open(path.c_str()));
    EXPECT_EQ(LogLine(), "open file " + Inner("big") + " error: larger than 4 GiB");
    EXPECT_FALSE(file.Append(path.c_str()));
    EXPECT_EQ(LogLine(), "append file " + path + " error");
    EXPECT_EQ(std::filesystem::file_size(path), 0xFFFFFFFFull);
}

}  // namespace
