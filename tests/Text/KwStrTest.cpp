#include "Kw/KwStr.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr const char* kNull = nullptr;
constexpr const KwWChar* kWideNull = nullptr;

int Sign(int value) {
    return (value > 0) - (value < 0);
}

// A heap copy of exactly the text and its terminator, so that the sanitizer sees every step behind it.
std::vector<char> Exact(const std::string& text) {
    return {text.c_str(), text.c_str() + text.size() + 1};
}

}  // namespace

TEST(KwStrTest, CmpGivesTheDifferenceOfTheFirstDifferingPair) {
    EXPECT_EQ(KwStr::Cmp("abc", "ab"), 99);
    EXPECT_EQ(KwStr::Cmp("ab", "abc"), -99);
    EXPECT_EQ(KwStr::Cmp("\x80", "a"), 0x80 - 'a');  // unsigned bytes
    EXPECT_EQ(KwStr::Cmp(KW_W("\xFFFF"), KW_W("\x20")), 0xFFFF - 0x20);
    EXPECT_EQ(KwStr::Cmp(KW_W("ab"), KW_W("ab")), 0);
    EXPECT_EQ(KwStr::ICmp("Path\\FILE", "pATH\\file"), 0);
    EXPECT_EQ(KwStr::ICmp("a", "B"), 'a' - 'B');  // raw order
    EXPECT_EQ(KwStr::ICmp(KW_W("a"), KW_W("B")), 'a' - 'B');
    EXPECT_EQ(KwStr::ICmp("[", "{"), '[' - '{');  // 32 apart, but no letters
    EXPECT_EQ(KwStr::ICmp(KW_W("\x141"), KW_W("a")), 0x141 - 'a');
    EXPECT_EQ(KwStr::NCmp("abX", "abY", 2), 0);
    EXPECT_EQ(KwStr::NCmp("a\0b", "a\0c", 3), -1);
    EXPECT_EQ(KwStr::NICmp(KW_W("ABx"), KW_W("abY"), 2), 0);
    EXPECT_EQ(KwStr::NCmp("abc", "abd", -1), -1);
}

TEST(KwStrTest, NullSortsBeforeAllButTheEmptyText) {
    EXPECT_EQ(KwStr::Cmp(kNull, ""), 0);
    EXPECT_EQ(KwStr::Cmp("", kNull), 0);
    EXPECT_EQ(KwStr::Cmp(kNull, kNull), 0);
    EXPECT_EQ(KwStr::Cmp(kNull, "a"), -1);
    EXPECT_EQ(KwStr::ICmp("a", kNull), 1);
    EXPECT_EQ(KwStr::ICmp(kWideNull, KW_W("a")), -1);
    EXPECT_EQ(KwStr::NCmp(kNull, "a", 0), 0);
    EXPECT_EQ(KwStr::NICmp("a", kNull, 1), 1);
}

TEST(KwStrTest, ComparingReadsNoFurtherThanTheShorterTerminator) {
    for (const char* other : {"", "a", "AB", "ab", "abc", "zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz"}) {
        const std::vector<char> a = Exact("ab");
        const std::vector<char> b = Exact(other);
        EXPECT_EQ(Sign(KwStr::Cmp(a.data(), b.data())), Sign(std::string("ab").compare(other))) << other;
        EXPECT_EQ(KwStr::ICmp(a.data(), b.data()) == 0, std::string(other) == "ab" || std::string(other) == "AB");
    }
}

TEST(KwStrTest, CpyLenTerminatesWithinTheSize) {
    char buffer[8] = "xxxxxxx";
    EXPECT_EQ(KwStr::CpyLen(buffer, 4, "abcdef", -1), 3);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(KwStr::CpyLen(buffer, 1, "abcdef", -1), 0);
    EXPECT_STREQ(buffer, "");
    buffer[0] = 'x';
    EXPECT_EQ(KwStr::CpyLen(buffer, 0, "abc", -1), 0);
    EXPECT_EQ(KwStr::CpyLen(buffer, -5, "abc", 2), 0);
    EXPECT_EQ(buffer[0], 'x');
    EXPECT_EQ(KwStr::CpyLen(buffer, 8, kNull, 5), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(KwStr::Cpy(static_cast<char*>(nullptr), "abc"), 0);
    EXPECT_EQ(KwStr::Cpy(buffer, "shift"), 5);
    EXPECT_EQ(KwStr::CpyLen(buffer, 8, buffer + 2, -1), 3);  // within its own buffer
    EXPECT_STREQ(buffer, "ift");
    KwWChar wide[4];
    EXPECT_EQ(KwStr::CpyLen(wide, 4, KW_W("abcdef"), 2), 2);
    EXPECT_EQ(KwWString(wide), KW_W("ab"));
    EXPECT_EQ(KwStr::Len(wide), 2);
    EXPECT_EQ(KwStr::Len(kNull), 0);
}

TEST(KwStrTest, ToStringNarrowsUpToTheFirstUnitOf255) {
    char buffer[16];
    EXPECT_EQ(KwStr::ToString(buffer, 16, KW_W("ab\xFE\xFFzz"), -1), 3);
    EXPECT_STREQ(buffer, "ab\xFE");
    EXPECT_EQ(KwStr::ToString(buffer, 16, KW_W("ab\x1EA4"), -1), 2);
    EXPECT_EQ(KwStr::ToString(buffer, 3, KW_W("abcdef"), 6), 2);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(KwStr::ToString(buffer, 16, KW_W("a\0b"), 3), 1);
    EXPECT_EQ(KwStr::ToString(buffer, 16, kWideNull, -1), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(KwStr::ToString(buffer, 0, KW_W("a"), 1), 0);

    KwWChar wide[16];
    EXPECT_EQ(KwStr::ToString(wide, 16, "a\xE9\xFF", -1), 3);
    EXPECT_EQ(KwWString(wide), KwWString(KW_W("a\xE9\xFF")));
    EXPECT_EQ(KwStr::CopyStringQuick(wide, "a\0\xE9", 3), 3);
    EXPECT_EQ(KwWString(wide, 4), KwWString(KW_W("a\0\xE9\0"), 4));
    EXPECT_EQ(KwStr::CopyStringQuick(buffer, KW_W("\x1234\x41"), -1), 2);
    EXPECT_STREQ(buffer, "\x34\x41");
}
