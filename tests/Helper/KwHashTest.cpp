#include "Kw/Helper/KwHash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

// These values are in files; no change of the source may change them.
TEST(KwHashTest, TheStringHashHasItsPublishedVectors) {
    EXPECT_EQ(KwHash::HashString2(""), 0x02CC5D05U);
    EXPECT_EQ(KwHash::HashString2(nullptr), 0x02CC5D05U);
    EXPECT_EQ(KwHash::HashString2("a"), 0x550D7456U);
    EXPECT_EQ(KwHash::HashString2("abc"), 0x32D153FFU);
    EXPECT_EQ(KwHash::HashString2("abcdef", 3), 0x32D153FFU);
    EXPECT_EQ(KwHash::HashString2("Nobody inspects the spammish repetition"), 0xE2293B2FU);
    EXPECT_EQ(KwHash::HashString2("\\data\\item.ds"), 0x254D68CEU);
    const std::string shifted = "xNobody inspects the spammish repetition";
    EXPECT_EQ(KwHash::HashString2(shifted.c_str() + 1), 0xE2293B2FU);  // unaligned
}

TEST(KwHashTest, NamesThatDifferLittleRarelyCollide) {
    std::vector<unsigned int> hashes;
    for (int i = 0; i < 20000; ++i) hashes.push_back(KwHash::HashString2(("\\data\\map" + std::to_string(i)).c_str()));
    std::sort(hashes.begin(), hashes.end());
    // 20,000 random 32-bit numbers have 0.05 equal pairs on average.
    EXPECT_LE(hashes.end() - std::unique(hashes.begin(), hashes.end()), 1);
}

TEST(KwHashTest, TheScramblerHasItsPublishedVectors) {
    unsigned char zero[16] = {};
    KwHash::RoundData(zero, 16, 0);
    const unsigned char expected[16] = {0xAF, 0xCD, 0x1D, 0x7B, 0x39, 0xA8, 0x20, 0xE2,
                                        0xF4, 0x65, 0xB9, 0xA1, 0x6A, 0x9E, 0x78, 0x6E};
    EXPECT_TRUE(std::equal(zero, zero + 16, expected));
    unsigned char eleven[11] = {};
    KwHash::RoundData(eleven, 11, 11);
    const unsigned char expectedEleven[11] = {0x9D, 0x30, 0x80, 0x23, 0x7D, 0x64, 0xF5, 0x50, 0xA1, 0x13, 0x6B};
    EXPECT_TRUE(std::equal(eleven, eleven + 11, expectedEleven));
}

TEST(KwHashTest, TheScramblerIsItsOwnInverseAtEveryLengthAndAlignment) {
    for (unsigned int length = 0; length < 40; ++length) {
        std::vector<unsigned char> bytes(length + 1);
        for (unsigned int i = 0; i <= length; ++i) bytes[i] = static_cast<unsigned char>(i * 7);
        const std::vector<unsigned char> before = bytes;
        KwHash::RoundData(bytes.data() + 1, length, length);
        EXPECT_TRUE(length < 8 || bytes != before);
        EXPECT_EQ(bytes[0], before[0]);
        KwHash::RoundData(bytes.data() + 1, length, length);
        EXPECT_EQ(bytes, before);
    }
    KwHash::RoundData(nullptr, 5, 5);
}
