#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "Kw/KwStr.h"

namespace {

using Pieces = std::list<std::string>;

// The pieces in both widths, which must agree.
Pieces Split(const std::string& text, char separator, int len = -1) {
    Pieces pieces;
    std::list<KwWString> wide;
    const std::vector<char> narrow(text.c_str(), text.c_str() + text.size() + 1);
    const std::vector<KwWChar> units(narrow.begin(), narrow.end());
    const int count = KwStr::FilerParam(narrow.data(), len, separator, pieces);
    EXPECT_EQ(count, static_cast<int>(pieces.size()));
    EXPECT_EQ(KwStr::FilerParam(units.data(), len, static_cast<KwWChar>(separator), wide), count);
    Pieces narrowed;
    for (const KwWString& piece : wide) narrowed.emplace_back(piece.begin(), piece.end());
    EXPECT_EQ(narrowed, pieces);
    return pieces;
}

Pieces Members(const std::string& name, int maxParts, bool index) {
    Pieces parts = {"kept"};
    const int count = KwStr::FilerNameMember(name, maxParts, index, '.', parts);
    EXPECT_EQ(parts.size(), static_cast<std::size_t>(count) + 1);
    parts.pop_front();
    return parts;
}

}  // namespace

TEST(KwStrScanTest, SscanfReadsNumbersBetweenDelimiters) {
    int a = 0;
    int b = 0;
    int c = 0;
    EXPECT_EQ(KwStr::Sscanf("2024_-3_ 17", "%d_%d_%d", &a, &b, &c), 3);
    EXPECT_EQ(a, 2024);
    EXPECT_EQ(b, -3);
    EXPECT_EQ(c, 17);
    EXPECT_EQ(KwStr::Sscanf("-5-6", "%d-%d", &a, &b), 2);  // the number's own sign is no delimiter
    EXPECT_EQ(a, -5);
    EXPECT_EQ(b, 6);

    unsigned int u = 0;
    float f = 0;
    double n = 0;
    EXPECT_EQ(KwStr::Sscanf("x;3000000000;1.5rest;-2.5e1", "%s;%u;%f;%n", &a, &u, &f, &n), 3);
    EXPECT_EQ(u, 3000000000U);
    EXPECT_EQ(f, 1.5F);
    EXPECT_EQ(n, -25.0);
    EXPECT_EQ(KwStr::Sscanf("-1", "%u", &u), 1);
    EXPECT_EQ(u, 4294967295U);
}

TEST(KwStrScanTest, SscanfThatRunsOutLeavesTheRestAlone) {
    int a = 1;
    int b = 2;
    EXPECT_EQ(KwStr::Sscanf("7", "%d,%d", &a, &b), 1);
    EXPECT_EQ(KwStr::Sscanf("7,  ", "%d,%d", &a, &b), 1);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(KwStr::Sscanf("abc", "%d", &a), 1);  // no digit reads as 0
    EXPECT_EQ(a, 0);
    EXPECT_EQ(KwStr::Sscanf("8,9", "%d,%d", static_cast<int*>(nullptr), &b), 1);
    EXPECT_EQ(b, 9);
    EXPECT_EQ(KwStr::Sscanf("4,5", "%x %d,%", &a), 1);  // %x is no conversion
    EXPECT_EQ(a, 4);
    EXPECT_EQ(KwStr::Sscanf("4 5", "%d%d", &a, &b), 1);  // the delimiter is the second percent sign
    EXPECT_EQ(b, 9);
    EXPECT_EQ(KwStr::Sscanf(nullptr, "%d", &a), 0);
}

TEST(KwStrScanTest, FilerParamDropsBlanksAndWhatFollowsTheLastInnerRun) {
    EXPECT_EQ(Split("5,name=x", ','), (Pieces{"5", "name=x"}));
    EXPECT_EQ(Split("  a , b\t,\r\nc ", ','), (Pieces{"a", "b", "c"}));
    EXPECT_EQ(Split("ab cd,ef", ','), (Pieces{"ab", "ef"}));
    EXPECT_EQ(Split("ab  cd \tef,x y", ','), (Pieces{"ab  cd", "x"}));
    EXPECT_EQ(Split("a,,b", ','), (Pieces{"a", "", "b"}));
    EXPECT_EQ(Split(",a, ", ','), (Pieces{"", "a", ""}));
    EXPECT_EQ(Split("  a b  c", ' '), (Pieces{"a", "b", "c"}));
    EXPECT_EQ(Split("a,b,c", ',', 3), (Pieces{"a", "b"}));
    for (const char* blank : {"", " ", "\t\r\n "}) EXPECT_EQ(Split(blank, ','), Pieces());
    Pieces none;
    EXPECT_EQ(KwStr::FilerParam(static_cast<const char*>(nullptr), 4, ',', none), 0);
}

TEST(KwStrScanTest, FilerNameMemberSplitsPaths) {
    EXPECT_EQ(Members("server.ports[2][10].name", 0, true), (Pieces{"server", "ports", "2", "10", "name"}));
    EXPECT_EQ(Members("server.ports[2]", 0, false), (Pieces{"server", "ports[2]"}));
    EXPECT_EQ(Members("a.[1]", 0, true), (Pieces{"a", "1"}));
    EXPECT_EQ(Members("a.b.c", 2, true), (Pieces{"a", "b.c"}));
    EXPECT_EQ(Members("a[1].c", 2, true), (Pieces{"a", "[1].c"}));
    EXPECT_EQ(Members("one", 1, true), (Pieces{"one"}));
    for (const char* bad : {"", ".", "a.", ".a", "a..b", "a[", "a[]", "a]", "a[1]b", "a.b[1", "a[1]."}) {
        EXPECT_EQ(Members(bad, 0, true), Pieces()) << bad;
    }
}
