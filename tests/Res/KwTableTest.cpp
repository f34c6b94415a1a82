#include "Kw/Res/KwStreamShare.h"
#include "KwDataTestSupport.h"

namespace {

int g_pauses = 0;

// The cells in order, "row,column=text".
std::string Cells(KwTable& table) {
    std::string all;
    for (int row = 1; row <= table.GetRowNum(); ++row) {
        for (int col = 1; col <= table.GetColumnNum(); ++col) {
            if (table.GetItem(row, col) == nullptr) continue;
            all +=
                std::to_string(row) + "," + std::to_string(col) + "=" + table.GetString(row, col, nullptr, "?") + ";";
        }
    }
    return all;
}

std::string Parsed(const std::string& text) {
    KwTable table;
    EXPECT_TRUE(LoadText(table, text));
    return Cells(table);
}

}  // namespace

TEST(KwTable, RowsAndCells) {
    EXPECT_EQ(Parsed("a\tb\r\nc"), "1,1=a;1,2=b;2,1=c;");
    EXPECT_EQ(Parsed(""), "");
    EXPECT_EQ(Parsed("\t"), "1,1=;");
    EXPECT_EQ(Parsed("a\t\tb\t"), "1,1=a;1,2=;1,3=b;");
    EXPECT_EQ(Parsed("a\n\nb\n"), "1,1=a;2,1=b;");  // two line ends are one
    EXPECT_EQ(Parsed("a\n\n\nb"), "1,1=a;2,1=;3,1=b;");
    EXPECT_EQ(Parsed("a\n\rb\r\rc\rd"), "1,1=a;2,1=b;3,1=c;4,1=d;");
    EXPECT_EQ(Parsed("12"), "1,1=12;");
}

TEST(KwTable, Quotes) {
    EXPECT_EQ(Parsed("\"x\ty\""), "1,1=x;1,2=y\";");  // no protection from the TAB
    EXPECT_EQ(Parsed("\"ab\"\t\"a\"b\"c\t\"\t\"\"\ta\"b"), "1,1=ab;1,2=a\"b;1,3=;1,4=;1,5=a\"b;");
    EXPECT_EQ(Parsed("\"\n\"a"), "1,1=;2,1=a;");
}

TEST(KwTable, LookUpAndGetters) {
    KwTable table;
    ASSERT_TRUE(LoadText(table, "id\tname\n7\tAnna\n8\tBen"));
    EXPECT_EQ(table.GetRowNum() * 10 + table.GetColumnNum(), 32);
    EXPECT_EQ(table.FindRow("Ben", 2), 3);
    EXPECT_EQ(table.FindRow("Be", 2), 0);
    EXPECT_EQ(table.FindRow("Ben", 9), 0);
    EXPECT_EQ(table.FindCol("name", 1), 2);
    EXPECT_EQ(table.FindCol("name", 9), 0);
    EXPECT_EQ(table.GetInt(2, "id", 0), 7);
    EXPECT_EQ(table.GetInt(2, "nope", 5), 5);
    EXPECT_EQ(table.GetInt(0, 0, 5), 5);
    EXPECT_EQ(table.GetItem(2, 3), nullptr);
    int len = 7;
    EXPECT_STREQ(table.GetString(9, 9, &len, "def"), "def");
    EXPECT_EQ(len, 3);
    EXPECT_EQ(table.GetWString(9, 9, &len, nullptr), nullptr);
    EXPECT_EQ(len, 0);
    ASSERT_TRUE(table.SetInt(2, 2, 5));
    EXPECT_EQ(table.FindRow("", 2), 2);  // what is no String compares as empty
    EXPECT_EQ(table.FindRow(nullptr, 2), 2);
}

TEST(KwTable, Setters) {
    KwTable table;
    EXPECT_FALSE(table.SetInt(0, 1, 1));
    EXPECT_FALSE(table.SetString(1, -1, "x", -1));
    EXPECT_EQ(table.GetRowNum() + table.GetColumnNum(), 0);
    EXPECT_TRUE(table.SetDouble(5, 3, 2.5));
    EXPECT_TRUE(table.SetUint(2, 9, 3000000000u));
    EXPECT_TRUE(table.SetString(2, 1, KW_W("w"), 1));
    EXPECT_TRUE(table.SetString(1, 1, "text", 2));
    EXPECT_EQ(table.GetRowNum() * 10 + table.GetColumnNum(), 59);
    EXPECT_EQ(table.GetUint(2, 9, 0), 3000000000u);
    EXPECT_EQ(table.GetItem(3, 1), nullptr);
    EXPECT_STREQ(table.GetString(1, 1, nullptr, ""), "te");
    KwTable copy;
    copy = table;
    table.Clear();
    EXPECT_EQ(copy.GetDouble(5, 3, 0), 2.5);
    EXPECT_EQ(table.GetRowNum() + table.GetColumnNum(), 0);
    // A load replaces everything.
    ASSERT_TRUE(LoadText(copy, "a"));
    EXPECT_EQ(Cells(copy), "1,1=a;");
}

TEST(KwTable, ThePauseHookRunsEveryTenThousandRows) {
    std::string text;
    for (int i = 0; i < 20000; ++i) text += "x\n";
    KwTable table;
    KwTable::SetPauseHook([] { ++g_pauses; });
    ASSERT_TRUE(LoadText(table, text));
    KwTable::SetPauseHook(nullptr);
    EXPECT_EQ(g_pauses, 2);
    ASSERT_TRUE(LoadText(table, text));
    EXPECT_EQ(g_pauses, 2);
}

TEST(KwTable, Files) {
    const TempFile file("a\tb\n");
    KwTable table;
    KwStreamShare share(1, 0);
    EXPECT_TRUE(table.Init(file.Path(), nullptr));
    EXPECT_TRUE(table.Init(file.Path(), &share));
    EXPECT_EQ(Cells(table), "1,1=a;1,2=b;");
    LogLines log;
    EXPECT_FALSE(table.Init("no such file", nullptr));
    EXPECT_NE(table.GetParseError().message, "");
    const TempFile empty("");
    EXPECT_TRUE(table.Init(empty.Path(), nullptr));
    EXPECT_EQ(table.GetRowNum(), 0);
}
