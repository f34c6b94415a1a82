#include "Kw/Helper/KwConvertString.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

TEST(KwConvertStringTest, ATextIsConvertedAndKept) {
    KwConvertToUTF8 narrow;
    EXPECT_STREQ(narrow.Get(), "");
    EXPECT_TRUE(narrow.Set(KW_W("Tiếng Việt 中 \U0001F600"), -1));
    EXPECT_STREQ(narrow.Get(), "Tiếng Việt 中 \U0001F600");
    EXPECT_EQ(narrow.GetLength(), 23);
    EXPECT_TRUE(narrow.Set(KW_W("中中中"), 2));  // three bytes a unit, the most there is
    EXPECT_STREQ(narrow.Get(), "中中");

    KwConvertToUnicode wide;
    EXPECT_TRUE(wide.Set("Việt \U0001F600", -1));
    EXPECT_EQ(KwWString(wide.Get()), KwWString(KW_W("Việt \U0001F600")));
    EXPECT_EQ(wide.GetLength(), 7);
    EXPECT_TRUE(wide.Set(KW_W("a\0b"), 3));
    EXPECT_EQ(KwWString(wide.Get(), 4), KwWString(KW_W("a\0b\0"), 4));
}

TEST(KwConvertStringTest, SettingFromItselfFromNullAndFromNothing) {
    KwConvertToUTF8 text;
    EXPECT_TRUE(text.Set("prefix-rest", -1));
    EXPECT_TRUE(text.Set(text.Get() + 7, -1));
    EXPECT_STREQ(text.Get(), "rest");
    EXPECT_TRUE(text.Set(static_cast<const KwWChar*>(nullptr), 10));
    EXPECT_STREQ(text.Get(), "");
    KwConvertToUnicode wide;
    EXPECT_TRUE(wide.Set("x", 0));
    EXPECT_EQ(wide.Get()[0], 0);
    EXPECT_TRUE(wide.Set(static_cast<const char*>(nullptr), -1));
}

TEST(KwConvertStringTest, CopiesAreIndependent) {
    auto first = std::make_unique<KwConvertToUnicode>();
    first->Set("one", -1);
    KwConvertToUnicode copy(*first);
    KwConvertToUnicode assigned;
    assigned = copy;
    copy = *&copy;
    first->Set("two", -1);
    first.reset();
    EXPECT_EQ(KwWString(copy.Get()), KW_W("one"));
    EXPECT_EQ(KwWString(assigned.Get()), KW_W("one"));
}
