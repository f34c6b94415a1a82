#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kw/KwStr.h"

namespace {

struct Edited {
    int result;
    std::string text;
    bool operator==(const Edited&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Edited& edited) {
    return out << edited.result << " \"" << edited.text << '"';
}

// Applies an edit over a narrow and a wide copy of `text` in buffers of exact size; both must agree.
template <typename Edit>
Edited Apply(const std::string& text, Edit edit) {
    std::vector<char> narrow(text.c_str(), text.c_str() + text.size() + 1);
    std::vector<KwWChar> wide(narrow.begin(), narrow.end());
    const int result = edit(narrow.data());
    EXPECT_EQ(edit(wide.data()), result) << text;
    const KwWString wideText(wide.data());
    EXPECT_EQ(std::string(wideText.begin(), wideText.end()), narrow.data()) << text;
    return {result, narrow.data()};
}

Edited Trim(const std::string& text, bool remove, int mode, int len = -1) {
    return Apply(text, [=](auto* p) { return KwStr::Trim(p, len, remove, mode); });
}

Edited Remove(const std::string& text, const std::string& pattern, int len = -1) {
    const KwWString wide(pattern.begin(), pattern.end());
    return Apply(text, [&](auto* p) {
        if constexpr (sizeof(*p) == 1) {
            return KwStr::Remove(p, len, pattern.c_str(), -1);
        } else {
            return KwStr::Remove(p, len, wide.c_str(), -1);
        }
    });
}

}  // namespace

TEST(KwStrEditTest, TrimCountsByMode) {
    const std::string text = " \ta b\r\n c\n";
    EXPECT_EQ(Trim(text, false, 0), (Edited{2, text}));
    EXPECT_EQ(Trim(text, false, 1), (Edited{1, text}));
    EXPECT_EQ(Trim(text, false, 2), (Edited{7, text}));
    EXPECT_EQ(Trim(text, false, 9), (Edited{7, text}));
    EXPECT_EQ(Trim("a\v\f", false, 3), (Edited{0, "a\v\f"}));
}

TEST(KwStrEditTest, TrimRemovesByModeAndGivesCountOrLength) {
    EXPECT_EQ(Trim(" a b ", true, 2), (Edited{2, "ab"}));
    EXPECT_EQ(Trim(" a b ", true, 0), (Edited{1, "a b "}));
    EXPECT_EQ(Trim(" a b  ", true, 1), (Edited{2, " a b"}));
    EXPECT_EQ(Trim(" a b ", true, -1), (Edited{2, "ab"}));
    EXPECT_EQ(Trim("ab", true, 2), (Edited{0, "ab"}));  // nothing to remove: the count
    for (const int mode : {0, 1}) EXPECT_EQ(Trim("   ", true, mode), (Edited{3, ""}));
    EXPECT_EQ(Trim("  ab", true, 0, 3), (Edited{2, "a"}));
    EXPECT_EQ(Trim("", true, 0), (Edited{0, ""}));
    EXPECT_EQ(KwStr::Trim(static_cast<char*>(nullptr), 5, true, 0), 0);
}

TEST(KwStrEditTest, RemoveDeletesLeftToRightWithoutOverlap) {
    EXPECT_EQ(Remove("abcabc", "bc"), (Edited{2, "aa"}));
    EXPECT_EQ(Remove("aaaaa", "aa"), (Edited{2, "a"}));
    EXPECT_EQ(Remove("aabb", "ab"), (Edited{1, "ab"}));  // what moves together is not looked at again
    EXPECT_EQ(Remove("abc", "abc"), (Edited{1, ""}));
    EXPECT_EQ(Remove("abcx", "x", 3), (Edited{0, "abcx"}));
    EXPECT_EQ(Remove("abc", ""), (Edited{0, "abc"}));
    EXPECT_EQ(KwStr::Remove(static_cast<char*>(nullptr), 3, "a", 1), 0);
    char text[] = "abc";
    EXPECT_EQ(KwStr::Remove(text, -1, nullptr, 3), 0);
}

TEST(KwStrEditTest, CharactersAreRemovedCollapsedAndReplaced) {
    EXPECT_EQ(Apply("a//b///c", [](auto* p) { return KwStr::RemoveCharTruncate(p, -1, char{'/'}); }),
              (Edited{5, "a/b/c"}));
    EXPECT_EQ(Apply("//", [](auto* p) { return KwStr::RemoveCharTruncate(p, -1, char{'/'}); }), (Edited{1, "/"}));
    EXPECT_EQ(Apply("ab", [](auto* p) { return KwStr::RemoveCharTruncate(p, -1, char{0}); }), (Edited{0, "ab"}));
    EXPECT_EQ(Apply("-a-b-", [](auto* p) { return KwStr::RemoveChar(p, -1, char{'-'}); }), (Edited{2, "ab"}));
    EXPECT_EQ(Apply("-a-b-", [](auto* p) { return KwStr::RemoveChar(p, 3, char{'-'}); }), (Edited{1, "a"}));
    EXPECT_EQ(Apply("a/b/", [](auto* p) { return KwStr::ReplaceChar(p, -1, char{'/'}, char{'\\'}); }),
              (Edited{2, "a\\b\\"}));
}

TEST(KwStrEditTest, CaseChangesForAsciiLettersOnly) {
    const std::string text = "@AZ[`az{\xC0\xE0";
    EXPECT_EQ(Apply(text, [](auto* p) { return KwStr::Upper(p); }), (Edited{2, "@AZ[`AZ{\xC0\xE0"}));
    EXPECT_EQ(Apply(text, [](auto* p) { return KwStr::Lower(p); }), (Edited{2, "@az[`az{\xC0\xE0"}));
    EXPECT_EQ(KwStr::Lower(static_cast<KwWChar*>(nullptr)), 0);
    KwWChar wide[] = KW_W("\x141\xFF21");  // letters whose low byte is an ASCII letter
    EXPECT_EQ(KwStr::Lower(wide), 0);
}
