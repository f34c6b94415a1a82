// Path text: tidying, joining and taking apart.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Kw/Res/KwRes.h"

namespace {

std::string Mix(std::string path) {
    const int length = static_cast<int>(path.size());
    path.push_back('\0');
    const int mixed = KwRes::MixPath(path.data(), length);
    // The text ends where the result says.
    EXPECT_EQ(mixed, static_cast<int>(std::strlen(path.c_str()))) << path;
    return path.c_str();
}

TEST(KwResPathTest, MixPathJoinsSeparatorsAndTakesParentsOut) {
    EXPECT_EQ(Mix("a//b/../c"), "a\\c");
    EXPECT_EQ(Mix("D:/game\\\\data///x.txt"), "D:\\game\\data\\x.txt");
    EXPECT_EQ(Mix("\\a\\b\\c\\..\\..\\d"), "\\a\\d");
    EXPECT_EQ(Mix("a\\b\\.."), "a");
    EXPECT_EQ(Mix("a\\b\\..\\"), "a\\");
    EXPECT_EQ(Mix(""), "");
    EXPECT_EQ(Mix("/"), "\\");
}

TEST(KwResPathTest, MixPathDeletesEveryHash) {
    EXPECT_EQ(Mix("a\\b#c"), "a\\bc");
    EXPECT_EQ(Mix("###"), "");
    // After the rest is done: neither the run nor the `..` that comes about is looked at again.
    EXPECT_EQ(Mix("a\\#\\b"), "a\\\\b");
    EXPECT_EQ(Mix("a\\#..\\b"), "a\\..\\b");
    EXPECT_EQ(Mix("a\\#\\..\\b"), "a\\b");
}

TEST(KwResPathTest, ParentsWithoutAFolderBeforeThemLeadNowhereElse) {
    // Up from where the path begins: kept, since the folders above are not in the text.
    EXPECT_EQ(Mix("..\\a"), "..\\a");
    EXPECT_EQ(Mix("..\\..\\a"), "..\\..\\a");
    EXPECT_EQ(Mix("a\\..\\..\\b"), "..\\b");
    // A relative path never becomes one that begins at the root.
    EXPECT_EQ(Mix("a\\..\\b"), "b");
    EXPECT_EQ(Mix("a\\.."), "");
    // There is nothing above the root and above a drive.
    EXPECT_EQ(Mix("\\.."), "\\");
    EXPECT_EQ(Mix("\\..\\..\\a"), "\\a");
    EXPECT_EQ(Mix("\\a\\..\\..\\b"), "\\b");
    EXPECT_EQ(Mix("D:\\..\\..\\a"), "D:\\a");
    EXPECT_EQ(Mix("D:\\a\\b\\..\\..\\..\\c"), "D:\\c");
    // Names that only begin like it.
    EXPECT_EQ(Mix("a\\..b\\...\\c"), "a\\..b\\...\\c");
}

TEST(KwResPathTest, MixPathStaysInsideItsLength) {
    char text[] = "a/b/../cXYZ";
    EXPECT_EQ(KwRes::MixPath(text, 8), 3);
    EXPECT_STREQ(text, "a\\c");
    EXPECT_STREQ(text + 8, "XYZ");
    EXPECT_EQ(KwRes::MixPath(nullptr, 5), 0);
    // A long path of parents takes one pass.
    std::string deep;
    for (int i = 0; i < 300000; ++i) deep += "\\a";
    for (int i = 0; i < 300000; ++i) deep += "\\..";
    EXPECT_EQ(Mix(deep + "\\b"), "\\b");
}

TEST(KwResPathTest, AFolderGetsOneSeparatorAtItsEnd) {
    const auto add = [](const char* text) {
        char buffer[16];
        std::strcpy(buffer, text);
        const int length = KwRes::CheckAddCharPathToDir(buffer, -1);
        EXPECT_EQ(length, static_cast<int>(std::strlen(buffer)));
        return std::string(buffer);
    };
    EXPECT_EQ(add(""), "\\");
    EXPECT_EQ(add("a"), "a\\");
    EXPECT_EQ(add("a\\"), "a\\");
    EXPECT_EQ(add("a/"), "a/");
}

TEST(KwResPathTest, APathIsTakenApartAndTogetherAgain) {
    struct Case {
        const char *full, *dir, *name, *ext;
    };
    const Case cases[] = {{"D:\\a.b/map.old.txt", "D:\\a.b/", "map.old", ".txt"},
                          {"map", "", "map", ""},
                          {"a.b\\c", "a.b\\", "c", ""},
                          {"\\.profile", "\\", ".profile", ""},
                          {"a\\", "a\\", "", ""},
                          {"x.", "", "x", "."}};
    for (const Case& path : cases) {
        char dir[KwRes::kPathSize], name[KwRes::kPathSize], ext[KwRes::kPathSize];
        KwRes::ExtractPathName(path.full, dir, name, ext);
        EXPECT_STREQ(dir, path.dir);
        EXPECT_STREQ(name, path.name);
        EXPECT_STREQ(ext, path.ext);
        EXPECT_STREQ(KwRes::FilterExt(path.full, -1), path.ext);
        EXPECT_EQ(KwRes::FilterName(path.full, -1), path.full + std::strlen(path.dir));
    }
    // What does not fit an output is cut, and null outputs are left out.
    const std::string longName(3000, 'n');
    char name[KwRes::kPathSize];
    KwRes::ExtractPathName(longName.c_str(), nullptr, name, nullptr);
    EXPECT_EQ(std::strlen(name), KwRes::kPathSize - 1u);
    KwRes::ExtractPathName(nullptr, nullptr, name, nullptr);
    EXPECT_STREQ(name, "");
}

}  // namespace
