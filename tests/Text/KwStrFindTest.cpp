#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Kw/KwStr.h"

namespace {

// Both widths must agree.
int Find(const std::string& text, const std::string& pattern, bool forward, int textLen = -1) {
    const std::vector<char> narrow(text.c_str(), text.c_str() + text.size() + 1);
    const std::vector<KwWChar> wide(narrow.begin(), narrow.end());
    const KwWString widePattern(pattern.begin(), pattern.end());
    const int patLen = static_cast<int>(pattern.size());
    const int result = KwStr::Find(narrow.data(), textLen, pattern.c_str(), patLen, forward);
    EXPECT_EQ(KwStr::Find(wide.data(), textLen, widePattern.c_str(), patLen, forward), result) << text;
    return result;
}

// The rule over a text that ends at its terminator, written down once more without any cleverness.
int FindByTheRule(const std::string& text, const std::string& pattern, bool forward) {
    const int count = static_cast<int>(text.size());
    const int patLen = static_cast<int>(pattern.size());
    const auto fits = [&](int i) {
        if (text[i] != (forward ? pattern.front() : pattern.back())) return false;
        for (int k = forward ? 1 : 0; k < (forward ? patLen : patLen - 1); ++k) {
            if (i + k + 1 >= count || text[i + k + 1] != pattern[k]) return false;
        }
        return true;
    };
    for (int i = forward ? 0 : count - 1; i >= 0 && i < count; i += forward ? 1 : -1) {
        if (fits(i)) return i;
    }
    return -1;
}

std::string RandomText(std::mt19937& random, std::size_t length, int letters) {
    std::string text(length, ' ');
    for (char& c : text) c = static_cast<char>('a' + random() % letters);
    return text;
}

int Position(const char* text, const char* hit) {
    return hit == nullptr ? -1 : static_cast<int>(hit - text);
}

}  // namespace

TEST(KwStrFindTest, TheComparisonIsShiftedByOne) {
    EXPECT_EQ(Find("abcabc", "c", true), 2);
    EXPECT_EQ(Find("abcabc", "c", false), 5);
    EXPECT_EQ(Find("abcabc", "bc", true), -1);
    EXPECT_EQ(Find("abcabc", "bc", false), -1);
    EXPECT_EQ(Find("bxc", "bc", true), 0);
    EXPECT_EQ(Find("xcb", "bc", false), 1);
    EXPECT_EQ(Find("", "a", true), -1);
    EXPECT_EQ(Find("a", "", false), -1);
    EXPECT_EQ(KwStr::Find(nullptr, 5, "a", 1, true), -1);
    EXPECT_EQ(KwStr::Find("a", 1, nullptr, 1, true), -1);
}

TEST(KwStrFindTest, TheComparisonMayGoOnToTheTerminatorAndNoFurther) {
    EXPECT_EQ(Find("bxc", "bc", true, 1), 0);
    EXPECT_EQ(Find("bxc", "bcd", true, 1), -1);
    EXPECT_EQ(Find("b", "bc", true), -1);
    EXPECT_EQ(Find("b", std::string("b\0c", 3), true), -1);
    EXPECT_EQ(Find("bx", std::string("b\0c", 3), true), -1);
    EXPECT_EQ(Find("b", std::string("\0cb", 3), false), -1);
}

TEST(KwStrFindTest, RandomTextsAgreeWithTheRule) {
    std::mt19937 random(20240117);
    for (int round = 0; round < 20000; ++round) {
        const std::string text = RandomText(random, 1 + random() % 12, 2);
        const std::string pattern = RandomText(random, 1 + random() % 4, 2);
        for (const bool forward : {true, false}) {
            ASSERT_EQ(Find(text, pattern, forward), FindByTheRule(text, pattern, forward)) << text << " " << pattern;
        }
    }
}

TEST(KwStrFindTest, TheQuickSearchAgreesWithThePlainOneInExactBuffers) {
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        const std::string source = RandomText(random, random() % 150, 1 + static_cast<int>(random() % 3));
        const std::vector<char> text(source.begin(), source.end());  // no terminator
        const std::string pattern = RandomText(random, 1 + random() % 40, 1 + static_cast<int>(random() % 2));
        const std::size_t expected = source.find(pattern);
        const char* hit = KwStr::FindStringQuick(text.data(), static_cast<int>(text.size()), pattern.c_str(), -1);
        ASSERT_EQ(Position(text.data(), hit), expected == std::string::npos ? -1 : static_cast<int>(expected))
            << source << " " << pattern;
    }
    EXPECT_EQ(KwStr::FindStringQuick("abc", -1, "", 0), nullptr);
    EXPECT_EQ(KwStr::FindStringQuick("ab", -1, "abc", 3), nullptr);
}

// Without the change to the rolling hash each start would be compared for 100,000 characters.
TEST(KwStrFindTest, TheQuickSearchTakesPeriodicTextsAtASteadyPace) {
    std::string text(4 << 20, 'a');
    const std::string pattern = std::string(100000, 'a') + 'b' + std::string(100000, 'a');
    EXPECT_EQ(KwStr::FindStringQuick(text.c_str(), -1, pattern.c_str(), -1), nullptr);
    text[3 << 20] = 'b';
    const char* hit = KwStr::FindStringQuick(text.c_str(), -1, pattern.c_str(), -1);
    EXPECT_EQ(Position(text.c_str(), hit), (3 << 20) - 100000);
}

TEST(KwStrFindTest, FindCharGivesTheFirstOrTheLast) {
    EXPECT_EQ(KwStr::FindChar("a.b.c", -1, '.', true), 1);
    EXPECT_EQ(KwStr::FindChar("a.b.c", -1, '.', false), 3);
    EXPECT_EQ(KwStr::FindChar("a.b.c", 3, '.', false), 1);
    EXPECT_EQ(KwStr::FindChar(KW_W("a.b.c"), -1, KW_W('c'), true), 4);
    EXPECT_EQ(KwStr::FindChar(KW_W("abc"), 2, KW_W('c'), false), -1);
    EXPECT_EQ(KwStr::FindChar(static_cast<const char*>(nullptr), 4, 'a', true), -1);
}
