#include "Kw/App/KwCmd.h"

#include <gtest/gtest.h>

namespace {

// What a text leaves behind: "key=value" in key order, and "!" when the parser refused the rest.
std::string Parse(std::string text) {
    const std::string before = text;
    KwCmd cmd;
    const bool complete = cmd.Init(text.data(), -1);
    EXPECT_EQ(text, before) << "the text is the caller's";
    std::string result;
    for (const auto& [key, value] : cmd) result += (result.empty() ? "" : " ") + key + "=" + value;
    return complete ? result : result + "!";
}

TEST(KwCmdTest, PositionalNamedAndListedValuesAreStored) {
    EXPECT_EQ(Parse("5,name=x"), "$1=5 name=x");
    EXPECT_EQ(Parse("a=1|2|3, 7, x"), "$1=7 $2=x a1=1 a2=2 a3=3");
    EXPECT_EQ(Parse(" a = 1 ; b=2 & 9\t"), "$1=9 a=1 b=2");
    EXPECT_EQ(Parse("a=1|2,a=3"), "a=3 a1=1 a2=2") << "the list index starts anew";
    EXPECT_EQ(Parse("a=1,a=2"), "a=2");
    EXPECT_EQ(Parse(""), "");
}

TEST(KwCmdTest, EmptyValuesCountWhereASeparatorOrABlankStands) {
    EXPECT_EQ(Parse("5,"), "$1=5");
    EXPECT_EQ(Parse("5, "), "$1=5 $2=");
    EXPECT_EQ(Parse(",5"), "$1= $2=5");
    EXPECT_EQ(Parse("a=,b= "), "a= b=");
    EXPECT_EQ(Parse("a=|"), "a1=!");
}

TEST(KwCmdTest, QuotedTokensKeepSeparatorsAndBackslashes) {
    EXPECT_EQ(Parse(R"('it\'s',"a, b=c|d")"), R"($1=it\'s $2=a, b=c|d)");
    EXPECT_EQ(Parse(R"("x y"="")"), "x y=");
    EXPECT_EQ(Parse(R"('"', "'")"), R"($1=" $2=')");
    EXPECT_EQ(Parse("1,'open"), "$1=1!");
    EXPECT_EQ(Parse("1,'"), "$1=1!");
    EXPECT_EQ(Parse(R"('\')"), "!");
    EXPECT_EQ(Parse("'a'b"), "!");
}

TEST(KwCmdTest, AFaultEndsTheTextAndKeepsWhatCameBefore) {
    EXPECT_EQ(Parse("5 10"), "!");
    EXPECT_EQ(Parse("1,5 10,2"), "$1=1!");
    EXPECT_EQ(Parse("a="), "!");
    EXPECT_EQ(Parse("1,=2"), "$1=1!");
    EXPECT_EQ(Parse("a=b=c"), "!");
    EXPECT_EQ(Parse("a=1|"), "a1=1!");
    EXPECT_EQ(Parse("1|2"), "!");
    EXPECT_EQ(Parse("1,-a=2"), "$1=1!");
    EXPECT_EQ(Parse("$1=2"), "!");
    EXPECT_EQ(Parse("_a=2,9z=3"), "9z=3 _a=2");
    KwCmd cmd;
    EXPECT_FALSE(cmd.Init(nullptr, 0));
}

TEST(KwCmdTest, TheLengthIsNotUsedAndASecondInitStartsEmpty) {
    KwCmd cmd;
    EXPECT_TRUE(cmd.Init("1,2,3", 1));
    EXPECT_EQ(cmd.GetParamNum(), 3);
    EXPECT_TRUE(cmd.Init("a=1", -1));
    EXPECT_EQ(cmd.GetParamNum(), 1);
    EXPECT_EQ(cmd.GetInt(1, -1), -1);
}

TEST(KwCmdTest, PositionsBeyondTheNinthAreStoredUnderOddKeysOnly) {
    KwCmd cmd;
    ASSERT_TRUE(cmd.Init("1,2,3,4,5,6,7,8,9,10", -1));
    EXPECT_EQ(cmd.GetParamNum(), 10);
    EXPECT_EQ(cmd.GetInt(9, 0), 9);
    EXPECT_STREQ(cmd.GetString(10, "none"), "none");
    EXPECT_STREQ(cmd.GetString(0, "none"), "none");
    EXPECT_STREQ(cmd.GetString("$:", "none"), "10");
    // What no character numbers is a fault, and overwrites nothing.
    EXPECT_FALSE(cmd.Init(std::string(300, ',').c_str(), -1));
    EXPECT_EQ(cmd.GetParamNum(), 207);
    EXPECT_FALSE(cmd.Init(("a=" + std::string(300, '|')).c_str(), -1));
    EXPECT_EQ(cmd.GetParamNum(), 207);
}

TEST(KwCmdTest, ValuesAreConvertedAndWhatIsMissingGivesTheDefault) {
    KwCmd cmd;
    ASSERT_TRUE(cmd.Init("-7,9999999999,2.5,word,on=YES,off=0,port=80|443", -1));
    EXPECT_EQ(cmd.GetInt(1, 0), -7);
    EXPECT_EQ(cmd.GetInt(2, 0), 2147483647);
    EXPECT_EQ(cmd.GetInt64(2, 0), 9999999999);
    EXPECT_EQ(cmd.GetDouble(3, 0), 2.5);
    EXPECT_EQ(cmd.GetInt(4, 3), 0) << "a found value is converted, not replaced by the default";
    EXPECT_EQ(cmd.GetInt(8, 3), 3);
    EXPECT_TRUE(cmd.GetBool(1, false));
    EXPECT_FALSE(cmd.GetBool(4, true));
    EXPECT_TRUE(cmd.GetBool("on", false));
    EXPECT_FALSE(cmd.GetBool("off", true));
    EXPECT_TRUE(cmd.GetBool("ON", true)) << "names are exact: this one is missing";
    EXPECT_EQ(cmd.GetIntAnd("port", 2, 0), 443);
    EXPECT_EQ(cmd.GetIntAnd("port", 3, 5), 5);
    EXPECT_TRUE(cmd.GetBoolAnd("port", 1, false));
    EXPECT_EQ(cmd.GetInt64("port", 1, 0), 80);
    EXPECT_EQ(cmd.GetDouble("port", 2, 0), 443.0);
    EXPECT_STREQ(cmd.GetString("port", 1, ""), "80");
    EXPECT_EQ(cmd.GetString("port", nullptr), nullptr);
}

}  // namespace
