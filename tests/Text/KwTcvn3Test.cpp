#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Kw/KwStr.h"

#if __has_include(<iconv.h>)
#include <iconv.h>
#endif

namespace {

// Every Vietnamese letter that ASCII has not: 6 vowels of either case with accents, y, and the crossed d.
const KwWString kLetters = KW_W("àảãáạăằẳẵắặâầẩẫấậèẻẽéẹêềểễếệìỉĩíịòỏõóọôồổỗốộơờởỡớợùủũúụưừửữứựỳỷỹýỵđ")
    KW_W("ÀẢÃÁẠĂẰẲẴẮẶÂẦẨẪẤẬÈẺẼÉẸÊỀỂỄẾỆÌỈĨÍỊÒỎÕÓỌÔỒỔỖỐỘƠỜỞỠỚỢÙỦŨÚỤƯỪỬỮỨỰỲỶỸÝỴĐ");

std::string ToTcvn3(const KwWString& text, int room = 1000) {
    std::vector<char> out(static_cast<std::size_t>(room), '?');
    const int count = KwStr::UTF16ToTCVN3(out.data(), room, text.data(), static_cast<int>(text.size() * 2));
    EXPECT_EQ(std::strlen(out.data()), static_cast<std::size_t>(count));
    return {out.data(), static_cast<std::size_t>(count)};
}

KwWString FromTcvn3(const std::string& text, int roomBytes = 1000) {
    std::vector<KwWChar> out(static_cast<std::size_t>(roomBytes / 2), KW_W('?'));
    const int bytes = KwStr::TCVN3ToUTF16(out.data(), roomBytes, text.data(), static_cast<int>(text.size()));
    EXPECT_EQ(out[static_cast<std::size_t>(bytes / 2)], 0);
    return {out.data(), static_cast<std::size_t>(bytes / 2)};
}

}  // namespace

TEST(KwTcvn3Test, AllVietnameseLettersGoThereAndBack) {
    ASSERT_EQ(kLetters.size(), 134U);
    EXPECT_EQ(ToTcvn3(kLetters).size(), 134U);
    EXPECT_EQ(FromTcvn3(ToTcvn3(kLetters)), kLetters);
    const KwWString ascii = KW_W("Plain text, 0-9~");
    EXPECT_EQ(FromTcvn3(ToTcvn3(ascii)), ascii);
}

#if __has_include(<iconv.h>)
TEST(KwTcvn3Test, TheTableIsTheStandardsAsTheSystemKnowsIt) {
    for (int byte = 1; byte < 256; ++byte) {
        // A fresh converter for each byte: it holds letters back to join accents to them.
        iconv_t converter = iconv_open("UTF-16LE", "TCVN5712-1");
        ASSERT_NE(converter, reinterpret_cast<iconv_t>(-1));
        char in = static_cast<char>(byte);
        unsigned char out[8] = {};
        char* from = &in;
        char* to = reinterpret_cast<char*>(out);
        std::size_t fromLeft = 1;
        std::size_t toLeft = sizeof(out);
        iconv(converter, &from, &fromLeft, &to, &toLeft);
        iconv(converter, nullptr, nullptr, &to, &toLeft);
        iconv_close(converter);
        const KwWString expected(1, static_cast<KwWChar>(out[0] | out[1] << 8));
        EXPECT_EQ(FromTcvn3(std::string(1, in)), expected) << byte;
        EXPECT_EQ(ToTcvn3(expected), std::string(1, in)) << byte;
    }
}
#endif

TEST(KwTcvn3Test, ConversionStopsAtWhatHasNoCounterpart) {
    EXPECT_EQ(ToTcvn3(KW_W("ab\x4E2D"
                           "c")),
              "ab");
    EXPECT_EQ(ToTcvn3(KW_W("a\x01"
                           "b")),
              "a");  // the byte 01 is a letter
    EXPECT_EQ(ToTcvn3(KwWString(KW_W("a\0b"), 3)), "a");
    EXPECT_EQ(FromTcvn3(std::string("a\0b", 3)), KW_W("a"));
    // All bytes but 00, one unit each, are all there is.
    std::vector<unsigned char> exist(65536 + 20);
    EXPECT_EQ(KwStr::GetUTF16CharacterExist(exist.data(), -10, 65545), 255);
    EXPECT_EQ(exist[10 + 0x1EF9], 1);
    EXPECT_EQ(exist[10 + 0x4E2D], 0);
    EXPECT_EQ(KwStr::GetUTF16CharacterExist(exist.data(), 2, 1), 0);
    EXPECT_EQ(KwStr::GetUTF16CharacterExist(nullptr, 0, 1), 0);
}

TEST(KwTcvn3Test, SmallBuffersAreTerminatedWithinTheirSize) {
    EXPECT_EQ(ToTcvn3(KW_W("abc"), 3), "ab");
    EXPECT_EQ(ToTcvn3(KW_W("abc"), 1), "");
    EXPECT_EQ(FromTcvn3("abc", 6), KW_W("ab"));
    EXPECT_EQ(FromTcvn3("abc", 2), KW_W(""));
    unsigned char odd[7] = {9, 9, 9, 9, 9, 9, 9};
    EXPECT_EQ(KwStr::TCVN3ToUTF16(odd + 1, 5, "abc", -1), 2);  // unaligned, and half a unit to spare
    EXPECT_EQ(odd[6], 9);
    EXPECT_EQ(KwStr::TCVN3ToUTF16(odd, 1, "abc", -1), 0);
    EXPECT_EQ(odd[0], 9);
    EXPECT_EQ(KwStr::UTF16ToTCVN3(odd, 7, nullptr, 10), 0);
    EXPECT_EQ(odd[0], 0);
    EXPECT_EQ(KwStr::UTF16ToTCVN3(odd, 0, KW_W("a"), 2), 0);
}
