#include "Kw/Helper/KwFilterText.h"
#include "KwDataTestSupport.h"
#include "KwTestSupport.h"

namespace {

std::vector<std::string> g_frees;
void TraceFree(const char* format, ...) {
    if (std::string(format).rfind("Free", 0) != 0) return;
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    g_frees.emplace_back(text);
}

std::u16string Wide(const KwWChar* text) {
    std::u16string units;
    for (; text != nullptr && *text != 0; ++text) units += static_cast<char16_t>(*text);
    return units;
}

}  // namespace

TEST(KwDSItem, CopyingOnlyClearsTheTarget) {
    KwDSItem a;
    a = 5;
    KwDSItem b;
    b = "text";
    b = a;
    EXPECT_EQ(b.GetType(), DSTYPE_INT);
    EXPECT_EQ(b.GetInt(9), 0);
    EXPECT_EQ(a.GetInt(9), 5);
    const KwDSItem c(a);
    EXPECT_EQ(c.GetInt(9), 0);
    KwDSItem& same = a;
    a = same;
    EXPECT_EQ(a.GetInt(9), 0);
}

TEST(KwDSItem, NumbersConvertAtTheEdgesOfTheirRanges) {
    KwDSItem item;
    item = -1;
    EXPECT_EQ(item.GetUint(0), 0xFFFFFFFFu);
    EXPECT_EQ(item.GetDouble(0), -1.0);
    item = 0xFFFFFFFFu;
    EXPECT_EQ(item.GetInt(0), -1);
    EXPECT_EQ(item.GetDouble(0), 4294967295.0);
    item = -1.9;
    EXPECT_EQ(item.GetInt(0), -1);
    EXPECT_EQ(item.GetUint(0), 0xFFFFFFFFu);
    item = 0.9;
    EXPECT_FALSE(item.GetBool(true));
    item = 4294967297.0;
    EXPECT_EQ(item.GetUint(0), 1u);
    for (const double wild : {1e300, -1e300, __builtin_inf(), __builtin_nan("")}) {
        item = wild;
        EXPECT_EQ(item.GetUint(7), 0u) << wild;
        item.GetInt(0);
        item.GetBool(false);
    }
}

TEST(KwDSItem, TextsAreReadAsNumbers) {
    KwDSItem item;
    item = "12abc";
    EXPECT_EQ(item.GetInt(0), 12);
    EXPECT_EQ(item.GetDouble(0), 12.0);
    EXPECT_EQ(item.GetUint(0), 12u);
    EXPECT_TRUE(item.GetBool(false));
    item = "abc";
    EXPECT_EQ(item.GetInt(5), 0);
    EXPECT_FALSE(item.GetBool(true));
    item = KW_W("12");
    EXPECT_EQ(item.GetInt(5), 5);
    EXPECT_EQ(item.GetDouble(5), 5.0);
    EXPECT_TRUE(item.GetBool(true));
}

TEST(KwDSItem, TextsKeepLengthAndNul) {
    KwDSItem item;
    item = std::string("a\0b", 3);
    int len = 0;
    const char* text = item.GetString(&len, nullptr);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(len) + 1), std::string("a\0b\0", 4));
    item.SetString("abcdef", 3);
    EXPECT_STREQ(item.GetString(&len, nullptr), "abc");
    item.SetString(static_cast<const char*>(nullptr), -1);
    EXPECT_STREQ(item.GetString(&len, "def"), "");
    EXPECT_EQ(len, 0);
    item.SetString(static_cast<const char*>(nullptr), 3);
    EXPECT_EQ(std::string(item.GetString(&len, "def"), 4), std::string(4, '\0'));
    item = 1;
    EXPECT_STREQ(item.GetString(&len, "def"), "def");
    EXPECT_EQ(len, 3);
    EXPECT_EQ(item.GetString(&len, nullptr), nullptr);
    EXPECT_EQ(len, 0);
}

// A text may be set from a part of the very value that it replaces.
TEST(KwDSItem, SettingFromItselfIsSafe) {
    KwDSItem item;
    item = "some longer text that is on the heap";
    item = item.GetString(nullptr, nullptr) + 5;
    EXPECT_STREQ(item.GetString(nullptr, nullptr), "longer text that is on the heap");
    auto* document = new KwDS;
    (*document)["x"] = "inner";
    item = document;
    item = item.GetStruct();
    ASSERT_NE(item.GetStruct(), nullptr);
    item = item.GetStruct()->GetString("x", nullptr, nullptr);
    EXPECT_STREQ(item.GetString(nullptr, nullptr), "inner");
}

TEST(KwDSItem, GetWStringConvertsForGood) {
    KwDSItem item;
    item = "\xC3\xA9";
    int len = 0;
    EXPECT_EQ(Wide(item.GetWString(&len, nullptr)), u"\u00E9");
    EXPECT_EQ(len, 1);
    EXPECT_EQ(item.GetType(), DSTYPE_WSTRING);
    EXPECT_STREQ(item.GetString(&len, "def"), "def");
    item = "\xF0\x9F\x98\x80x\xFF";  // four bytes to two units; a malformed byte to one
    EXPECT_EQ(Wide(item.GetWString(&len, nullptr)), u"\U0001F600x\uFFFD");
    EXPECT_EQ(len, 4);
    item = "";
    EXPECT_EQ(Wide(item.GetWString(&len, KW_W("def"))), u"");
    item = 3;
    EXPECT_EQ(Wide(item.GetWString(&len, KW_W("def"))), u"def");
    EXPECT_EQ(len, 3);
}

TEST(KwDSItem, NumbersOfTheScannerAndUnknownKinds) {
    SFilterNumber number;
    number.kind = 1;
    number.uintValue = 7;
    KwDSItem item;
    item.SetNumber(&number);
    EXPECT_EQ(item.GetType(), DSTYPE_UINT);
    number.kind = 3;
    item.SetNumber(&number);
    EXPECT_EQ(item.GetType(), DSTYPE_INT);
    EXPECT_EQ(item.GetInt(9), 0);
    item = "x";
    item.SetNumber(nullptr);
    EXPECT_EQ(item.GetType(), DSTYPE_INT);
}

TEST(KwDSItem, TheAllocatorHearsWhereATextIsFreed) {
    KwDSItem item;
    item = "text";
    g_frees.clear();
    KwMemory::AttackLogAction(TraceFree);
    item.Clear();
    KwMemory::AttackLogAction(nullptr);
    ASSERT_EQ(g_frees.size(), 1u);
    EXPECT_NE(g_frees[0].find("size=5,[Res/KwDataObjectItem:18]"), std::string::npos) << g_frees[0];
}

// Longer than any stack would bear if destroying or printing recursed.
TEST(KwDSItem, DeepChainsOfDocumentsAndTablesAreDestroyedCopiedAndPrinted) {
    constexpr int kDepth = 200000;
    KwDS top;
    KwDS* inner = &top;
    for (int i = 0; i < kDepth; ++i) {
        auto* table = new KwTable;
        table->SetInt(1, 1, 0);
        (*inner)["t"] = table;
        auto* next = new KwDS;
        *table->GetItem(1, 1) = next;
        inner = next;
    }
    (*inner)["end"] = 7;
    const KwDS copy(top);
    LogLines log;
    testing::internal::CaptureStdout();
    KwDS(copy).ShowDebug();
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text.substr(text.size() - std::string("[end]=7(INT)\n").size()), "[end]=7(INT)\n");
}

TEST(KwDSItem, Dump) {
    LogLines log;
    KwDS document;
    ASSERT_TRUE(LoadText(document, "-1 3000000000 1.5 \"text\" $1 a={ b=x } t=@table{\n1\t2\n}"));
    document[6] = KW_W("\u00E9");
    testing::internal::CaptureStdout();
    document.ShowDebug();
    std::string text = testing::internal::GetCapturedStdout();
    for (const char* type : {"(Object)", "(Table)"}) {  // the address before each varies
        const std::size_t at = text.find(type);
        ASSERT_NE(at, std::string::npos);
        const std::size_t from = text.rfind('=', at) + 1;
        text.erase(from, at - from);
    }
    EXPECT_EQ(text,
              "[1]=-1(INT)\n[2]=3000000000(UINT)\n[3]=1.500000(Double)\n[4]=text(4)(String)\n[5]=0(INT)\n"
              "[6]=\xC3\xA9(1)(WString)\n[a]=(Object)\n[b]=x(1)(String)\n[t]=(Table)\n[1|1]=1(1)(String)\n"
              "[1|2]=2(1)(String)\n");
    EXPECT_EQ(log.TakeAll(),
              "Show Struct|Show 6 index|Show 2 Name|Show Struct|Show 0 index|Show 1 Name|Show table 1 row,2 column");
}
