#include "Kw/Helper/KwFilterText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using Byte = unsigned char;

// Bytes without a terminator, so that the sanitizer sees a step behind the end.
std::vector<Byte> Bytes(const std::string& text) {
    std::vector<Byte> bytes(text.begin(), text.end());
    bytes.reserve(1);  // an address for the empty text too
    return bytes;
}

// The scanned number as text with the count of bytes taken, "fail" without one.
std::string Scan(const std::string& text) {
    const std::vector<Byte> bytes = Bytes(text);
    SFilterNumber number;
    const Byte* end = KwFilterText::MakeNumber(bytes.data(), bytes.data() + bytes.size(), number);
    if (end == nullptr) return "fail";
    const std::string taken = "/" + std::to_string(end - bytes.data());
    if (number.kind == 0) return "int " + std::to_string(number.intValue) + taken;
    if (number.kind == 1) return "uint " + std::to_string(number.uintValue) + taken;
    char value[40];
    std::snprintf(value, sizeof(value), "double %.17g", number.doubleValue);
    return value + taken;
}

// The offset of the position that a scanner gives, -1 for null.
template <typename Scanner>
int Offset(Scanner scanner, const std::string& text) {
    const std::vector<Byte> bytes = Bytes(text);
    const Byte* at = scanner(bytes.data(), bytes.data() + bytes.size());
    return at == nullptr ? -1 : static_cast<int>(at - bytes.data());
}

int BlockEnd(const std::string& text) {
    return Offset(KwFilterText::FindBlockEnd, text);
}
int Skip(const std::string& text) {
    return Offset(KwFilterText::SkipBlank, text);
}

}  // namespace

TEST(KwFilterTextTest, IntegersTakeTheSmallestKindThatHoldsThem) {
    EXPECT_EQ(Scan("0"), "int 0/1");
    EXPECT_EQ(Scan("+007;"), "int 7/4");
    EXPECT_EQ(Scan("2147483647"), "int 2147483647/10");
    EXPECT_EQ(Scan("-2147483647"), "int -2147483647/11");
    EXPECT_EQ(Scan("-2147483648"), "double -2147483648/11");
    EXPECT_EQ(Scan("2147483648"), "uint 2147483648/10");
    EXPECT_EQ(Scan("4294967295"), "uint 4294967295/10");
    EXPECT_EQ(Scan("4294967296"), "double 4294967296/10");
    EXPECT_EQ(Scan("-4294967295"), "double -4294967295/11");
    EXPECT_EQ(Scan("18446744073709551617"), "double 1.8446744073709552e+19/20");
    EXPECT_EQ(Scan(std::string(400, '9')), "double inf/400");
}

TEST(KwFilterTextTest, DecimalsAreDoublesWithoutAnExponent) {
    EXPECT_EQ(Scan("1.5"), "double 1.5/3");
    EXPECT_EQ(Scan("-0.1e5"), "double -0.10000000000000001/4");
    EXPECT_EQ(Scan("3. x"), "double 3/2");
    EXPECT_EQ(Scan("-0.0"), "double -0/4");
    EXPECT_EQ(Scan("2nd"), "int 2/1");
    EXPECT_EQ(Scan("1.5.2"), "fail");
    EXPECT_EQ(Scan("1.."), "fail");
}

TEST(KwFilterTextTest, HexadecimalAndCharacterForms) {
    EXPECT_EQ(Scan("0xFf;"), "uint 255/4");
    EXPECT_EQ(Scan("-0X10"), "uint 16/5");
    EXPECT_EQ(Scan("0x123456789A"), "uint 591751049/11");  // nine digits, of which the low eight count
    EXPECT_EQ(Scan("0xg"), "fail");
    EXPECT_EQ(Scan("0x"), "fail");
    EXPECT_EQ(Scan("'A'"), "int 65/3");
    EXPECT_EQ(Scan("'\xFF'x"), "int 255/3");
    for (const char* bad : {"'A", "'", "''", "'AB'", "-'A'", "", "+", "-", "--1", "+ 1", ".5", "x"}) {
        EXPECT_EQ(Scan(bad), "fail") << bad;
    }
}

TEST(KwFilterTextTest, TheBlockEndIsFoundByCountingBracesOutsideComments) {
    EXPECT_EQ(BlockEnd("{}"), 1);
    EXPECT_EQ(BlockEnd("{a={b}c{}}}"), 9);
    EXPECT_EQ(BlockEnd("{a=1 /* } */ b=2}"), 16);
    EXPECT_EQ(BlockEnd("{// }\n}"), 6);
    EXPECT_EQ(BlockEnd("{// }\r}"), 6);
    EXPECT_EQ(BlockEnd("{/*/ } */}"), 9);  // the slash that opens does not close
    EXPECT_EQ(BlockEnd("{/ * } */}"), 5);
    EXPECT_EQ(BlockEnd("{x=\"}\"}"), 4);  // quotes are not respected
    for (const char* bad : {"", "a{}", "{", "{{}", "{//}", "{/*}", "{/*}*", "{/"}) EXPECT_EQ(BlockEnd(bad), -1) << bad;
}

TEST(KwFilterTextTest, BlanksAndCommentsAreSkippedTogether) {
    EXPECT_EQ(Skip("a"), 0);
    EXPECT_EQ(Skip(" \t\r\n a"), 5);
    EXPECT_EQ(Skip("// x\n /**/ /* / * // */=/"), 23);
    EXPECT_EQ(Skip("// to the end"), 13);
    EXPECT_EQ(Skip("/ /"), 0);
    EXPECT_EQ(Skip("/"), 0);
    EXPECT_EQ(Skip(" /* *"), -1);
    EXPECT_EQ(Skip("/*/"), -1);
    EXPECT_EQ(Skip(""), 0);
}
