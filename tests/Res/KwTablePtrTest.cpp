#include <bit>
#include <cstring>
#include <random>

#include "Kw/Res/KwTableScanSets.h"
#include "KwDataTestSupport.h"

namespace {

std::vector<std::size_t> g_surplus;

// What the index of a text must be, found byte by byte.
struct Expected {
    std::size_t rows = 0;
    std::size_t columns = 1;
    std::vector<std::pair<unsigned int, unsigned int>> cells;
    std::vector<std::size_t> surplus;

    explicit Expected(const std::string& text) {
        for (std::size_t i = 0; i < text.size() && text[i] != '\n' && text[i] != '\r'; ++i) columns += text[i] == '\t';
        std::size_t at = 0;
        while (at < text.size()) {
            std::size_t inRow = 0;
            for (bool lineEnd = false; !lineEnd;) {
                const std::size_t stop = std::min(text.find_first_of("\t\n\r", at), text.size());
                if (inRow++ < columns) cells.emplace_back(at, stop - at);
                lineEnd = stop == text.size() || text[stop] != '\t';
                at = std::min(stop + 1, text.size());
                if (stop + 1 < text.size() && text[stop] == '\r' && text[stop + 1] == '\n') ++at;
            }
            if (inRow > columns) surplus.push_back(rows);
            for (; inRow < columns; ++inRow) cells.emplace_back(at, 0);
            ++rows;
        }
    }
};

template <typename Count, typename Fill>
void CheckAgainst(const Expected& expected, const std::string& text, Count count, Fill fill) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.c_str());
    // In two parts, so that a CR LF may fall apart.
    KwTableCount counted;
    const std::size_t half = text.size() / 2;
    count(bytes, half, counted);
    count(bytes + half, text.size() - half, counted);
    const bool ended = !text.empty() && (text.back() == '\n' || text.back() == '\r');
    ASSERT_EQ(counted.lineEnds + (ended || text.empty() ? 0 : 1), expected.rows);
    std::vector<KwTableCell> cells(expected.rows * expected.columns);
    g_surplus.clear();
    fill({bytes, text.size(), cells.data(), expected.rows, expected.columns},
         [](std::size_t row) { g_surplus.push_back(row); });
    EXPECT_EQ(g_surplus, expected.surplus);
    ASSERT_EQ(cells.size(), expected.cells.size());
    for (std::size_t i = 0; i < cells.size(); ++i) {
        ASSERT_EQ(cells[i].offset, expected.cells[i].first) << i;
        ASSERT_EQ(cells[i].length, expected.cells[i].second) << i;
    }
}

std::string Cell(const KwTablePtr& table, int row, int col) {
    unsigned int len = 0;
    const char* text = table.GetData(row - 1, col - 1, nullptr, &len);
    return text != nullptr ? std::string(text, len) : "(none)";
}

int Load(KwTablePtr& table, const std::string& text) {
    std::vector<unsigned char> bytes(text.begin(), text.end());
    return table.Load(bytes.data(), static_cast<int>(bytes.size()));
}

}  // namespace

// Regular tables, the case that is scanned in whole blocks, with every line end, and ever more disorder.
TEST(KwTableScan, EveryInstructionSetFindsTheSameCells) {
    std::mt19937 random(11);
    const char* ends[] = {"\n", "\r\n", "\r", "\n\r"};
    for (int round = 0; round < 4000; ++round) {
        const std::string end = ends[random() % 4];
        const std::size_t columns = random() % 12 + 1;
        const std::size_t disorder = round % 3 == 0 ? 1000000 : random() % 60 + 2;
        std::string text;
        for (std::size_t row = random() % 40; row > 0; --row) {
            for (std::size_t col = 0; col < columns; ++col) {
                text.append(random() % 17, 'x');
                if (col + 1 < columns) text += '\t';
                if (random() % disorder == 0) text += "\t\n\r\0"[random() % 4];
            }
            if (row > 1 || random() % 2 == 0) text += end;
        }
        const Expected expected(text);
        SCOPED_TRACE(round);
        CheckAgainst(expected, text, KwScanPlain::Count, KwScanPlain::Fill);
#if defined(__SSE2__)
        CheckAgainst(expected, text, KwScanSse2::Count, KwScanSse2::Fill);
#endif
#if defined(KW_SCAN_HAS_AVX2)
        if (__builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("bmi") != 0)
            CheckAgainst(expected, text, KwScanAvx2::Count, KwScanAvx2::Fill);
#endif
        if (testing::Test::HasFatalFailure()) FAIL();
    }
}

TEST(KwTablePtr, ShortLinesAreFilledUpAndLongOnesCut) {
    LogLines log;
    KwTablePtr table;
    EXPECT_EQ(Load(table, "a\tb\nc\n"), 1);
    EXPECT_EQ(table.GetRowNum() * 10 + table.GetColumnNum(), 22);
    EXPECT_EQ(Cell(table, 2, 1) + Cell(table, 2, 2), "c");
    int value = 0;
    EXPECT_FALSE(table.GetInt(2, 2, &value, 9));
    EXPECT_EQ(value, 9);
    EXPECT_EQ(log.TakeAll(), "");
    EXPECT_EQ(Load(table, "a\n1\t2\nb\n3\t4\t5"), 1);
    EXPECT_EQ(log.TakeAll(), "error load table2=1|error load table2=3");
    EXPECT_EQ(table.GetRowNum() * 10 + table.GetColumnNum(), 41);
    EXPECT_EQ(Cell(table, 4, 1), "3");
}

TEST(KwTablePtr, Readers) {
    KwTablePtr table;
    ASSERT_EQ(Load(table, "id\tprice\tname\r\n7\t2.5\tAnna\r\n12abc\t1e99\t"), 1);
    EXPECT_EQ(table.GetRowNum(), 3);
    EXPECT_EQ(table.GetInt(2, 1, 0) + table.GetInt(3, 1, 0), 19);
    EXPECT_EQ(table.GetDouble(2, 2, 0), 2.5);
    EXPECT_EQ(table.GetFloat(2, 2, 0), 2.5f);
    EXPECT_EQ(table.GetFloat(3, 2, 0), __builtin_inff());
    EXPECT_EQ(table.GetInt(3, 3, 5), 5);
    for (const int outside : {0, -1, 4, 2147483647, -2147483647 - 1}) {
        EXPECT_EQ(table.GetInt(outside, 1, 5), 5);
        EXPECT_EQ(table.GetInt(1, outside, 5), 5);
        EXPECT_EQ(table.FindRow("7", outside == 4 ? 5 : outside), 0);
        EXPECT_EQ(table.FindColumn("id", outside), 0);
    }
    EXPECT_EQ(table.GetData(-1, 0, nullptr, nullptr), nullptr);
    EXPECT_EQ(table.GetData(3, 0, nullptr, nullptr), nullptr);
    char text[8] = "zzzzzzz";
    unsigned int len = 0;
    EXPECT_NE(table.GetData(1, 2, text, &len), nullptr);
    EXPECT_STREQ(text, "Anna");
    EXPECT_TRUE(table.GetString(2, 3, text, 3, "def"));
    EXPECT_STREQ(text, "An");
    EXPECT_FALSE(table.GetString(3, 3, "default", text, 4));
    EXPECT_STREQ(text, "def");
    EXPECT_FALSE(table.GetString(9, "name", nullptr, text, 4));
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(table.GetString(2, "name", nullptr, text, 8));
    EXPECT_STREQ(text, "Anna");
    EXPECT_TRUE(table.GetString(2, 3, text, 0, nullptr));
    int number = 0;
    float real = 0;
    EXPECT_TRUE(table.GetInt(2, "id", 1, &number));
    EXPECT_FALSE(table.GetInt(2, "nope", 1, &number));
    EXPECT_EQ(number, 1);
    EXPECT_TRUE(table.GetFloat(2, "price", 1, &real));
    EXPECT_EQ(real, 2.5f);
}

TEST(KwTablePtr, FindingComparesAsTerminatedTexts) {
    KwTablePtr table;
    ASSERT_EQ(Load(table, std::string("ab\tab\0c\t\t\0\nabc\t", 15)), 1);
    EXPECT_EQ(table.FindColumn("ab", 1), 1);
    EXPECT_EQ(table.FindColumn("abc", 1), 0);
    EXPECT_EQ(table.FindColumn("", 1), 3);
    EXPECT_EQ(table.FindColumn(nullptr, 1), 3);
    EXPECT_EQ(table.FindRow("ab", 2), 1);
    EXPECT_EQ(table.FindRow("", 2), 2);
    EXPECT_EQ(table.FindRow("", 4), 1);
    EXPECT_EQ(table.FindRow("abc", 1), 2);
}

TEST(KwTablePtr, AGridFarLargerThanItsTextIsRefused) {
    LogLines log;
    KwTablePtr table;
    // 4000 columns over 4000 lines: 16 million cells of 12,000 bytes.
    EXPECT_EQ(Load(table, std::string(3999, '\t') + std::string(8000, '\n')), 1);
    EXPECT_EQ(log.TakeAll(), "load tableptr error");
    EXPECT_EQ(table.GetRowNum() + table.GetColumnNum(), 0);
    EXPECT_EQ(table.GetData(0, 0, nullptr, nullptr), nullptr);
    // The same with less than a million cells is taken.
    EXPECT_EQ(Load(table, std::string(999, '\t') + std::string(1000, '\n')), 1);
    EXPECT_EQ(log.TakeAll(), "");
    EXPECT_EQ(table.GetRowNum(), 1000);
}

TEST(KwTablePtr, Files) {
    LogLines log;
    KwTablePtr table;
    {
        std::string text;
        for (int i = 0; i < 60000; ++i) text += std::to_string(i) + "\tx\r\n";
        const TempFile file(text);  // several parts are read
        ASSERT_TRUE(table.Load(file.Path()));
        EXPECT_EQ(table.GetRowNum(), 60000);
        EXPECT_EQ(table.GetInt(60000, 1, 0), 59999);
        EXPECT_EQ(table.FindRow("41234", 1), 41235);
        ASSERT_EQ(table.Commit(), 1);
        EXPECT_EQ(table.GetRowNum(), 60000);
    }
    EXPECT_EQ(table.Load(nullptr, 5), 0);
    unsigned char byte = 'x';
    EXPECT_EQ(table.Load(&byte, 0), 0);
    EXPECT_EQ(table.GetRowNum(), 60000);
    const TempFile empty("");
    EXPECT_TRUE(table.Load(empty.Path()));
    EXPECT_EQ(table.GetRowNum() + table.GetColumnNum(), 0);
    EXPECT_EQ(log.TakeAll(), "");
    EXPECT_FALSE(table.Load("no such file"));
    EXPECT_EQ(log.TakeAll(), "load tableptr file no such file error");
    EXPECT_FALSE(table.Load(static_cast<const char*>(nullptr)));
    EXPECT_EQ(KwTablePtr().Commit(), 1);
}
