#include "Kw/Res/KwNrv2b.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using Bytes = std::vector<unsigned char>;

class KwNrv2bTest : public testing::Test {
protected:
    void SetUp() override {
        if (!KwNrv2bAvailable()) GTEST_SKIP() << "built without UCL";
    }
    static bool Unpack(const Bytes& packed, Bytes& out) {
        const unsigned int size = static_cast<unsigned int>(packed.size());
        return KwNrv2bUnpack(packed.data(), size, out.data(), static_cast<unsigned int>(out.size()));
    }
    // Whether it unpacks to `size` bytes, whatever they are.
    static bool UnpacksTo(const Bytes& packed, std::size_t size) {
        Bytes out(size);
        return Unpack(packed, out);
    }
};

// Text-like: words of a small vocabulary.
Bytes MakeText(std::size_t size, unsigned int seed) {
    static const char* const words[] = {"name=", "item", "level", "\r\n", "1", "20", "{ ", "} ", "gold "};
    std::mt19937 random(seed);
    Bytes text;
    while (text.size() < size) {
        for (const char* p = words[random() % 9]; *p != '\0'; ++p) text.push_back(static_cast<unsigned char>(*p));
    }
    text.resize(size);
    return text;
}

}  // namespace

TEST_F(KwNrv2bTest, TheStreamIsTheOneThatEveryDecoderKnows) {
    // A literal, a match at distance 1, the end mark.
    const Bytes stream = {0x98, 'a', 0, 0, 0, 0, 0, 0x12, 0xFF};
    Bytes out(4);
    EXPECT_TRUE(Unpack(stream, out));
    EXPECT_EQ(out, Bytes(4, 'a'));
    Bytes packed;
    ASSERT_TRUE(KwNrv2bPack(out.data(), 4, packed, 9));
    EXPECT_EQ(packed, stream);
}

TEST_F(KwNrv2bTest, WhatWasPackedComesBackAndNothingElsePasses) {
    std::mt19937 random(7);
    for (const std::size_t size : {1u, 2u, 255u, 4095u, 4096u, 70000u}) {
        Bytes noise(size);
        for (unsigned char& byte : noise) byte = static_cast<unsigned char>(random());
        for (const Bytes& data : {MakeText(size, 1), noise}) {
            Bytes packed, again;
            ASSERT_TRUE(KwNrv2bPack(data.data(), static_cast<unsigned int>(size), packed, 7));
            ASSERT_TRUE(KwNrv2bPack(data.data(), static_cast<unsigned int>(size), again, 7));
            EXPECT_EQ(packed, again);
            Bytes out(size);
            ASSERT_TRUE(Unpack(packed, out)) << size;
            EXPECT_EQ(out, data);
            EXPECT_FALSE(UnpacksTo(packed, size - 1));
            EXPECT_FALSE(UnpacksTo(packed, size + 1));
            // Cut, and with a byte behind the end mark; one that looks like its last byte is no better.
            EXPECT_FALSE(UnpacksTo(Bytes(packed.begin(), packed.end() - 1), size));
            EXPECT_FALSE(
                UnpacksTo(Bytes(packed.begin(), packed.begin() + static_cast<std::ptrdiff_t>(size % 7)), size));
            for (const int junk : {0x00, 0xFF}) {
                Bytes longer = packed;
                longer.push_back(static_cast<unsigned char>(junk));
                EXPECT_FALSE(UnpacksTo(longer, size));
            }
            packed.push_back(0);  // the byte that a caller vouches for is no part of the stream
            EXPECT_TRUE(KwNrv2bUnpack(packed.data(), static_cast<unsigned int>(packed.size() - 1), out.data(),
                                      static_cast<unsigned int>(size), true));
        }
    }
}

TEST_F(KwNrv2bTest, ImpossibleArgumentsAreRefused) {
    unsigned char byte = 0xFF;
    Bytes packed;
    EXPECT_FALSE(KwNrv2bUnpack(nullptr, 5, &byte, 1));
    EXPECT_FALSE(KwNrv2bUnpack(&byte, 0, &byte, 1));
    EXPECT_FALSE(KwNrv2bUnpack(&byte, 1, nullptr, 1));
    EXPECT_FALSE(KwNrv2bUnpack(&byte, 1, &byte, kNrv2bMaxSize + 1));
    EXPECT_FALSE(KwNrv2bPack(&byte, 0, packed, 7));
    EXPECT_FALSE(KwNrv2bPack(&byte, 1, packed, 0));
    EXPECT_FALSE(KwNrv2bPack(&byte, 1, packed, 11));
    EXPECT_FALSE(KwNrv2bPack(&byte, kNrv2bMaxSize, packed, 7));
    EXPECT_TRUE(packed.empty());
}
