#include "Kw/Helper/KwElfImage.h"

#include <gtest/gtest.h>

#include <string>

#include "KwModuleFixture.h"

class KwElfImageTest : public KwModuleFixture {
protected:
    bool Check(const std::string& bytes, std::size_t size) {
        return image_.Check(bytes.data(), size, KwElfImage::kX64, 4096);
    }

    std::string tiny_ = ReadBeside("tinyso.kwmod");
    KwElfImage image_;
};

TEST_F(KwElfImageTest, AnImageIsReadToItsEndAndNoFurther) {
    ASSERT_TRUE(Check(tiny_, tiny_.size()));
    EXPECT_EQ(image_.GetFileSize(), tiny_.size());
    ASSERT_TRUE(Check(tiny_, 0));
    EXPECT_EQ(image_.GetFileSize(), tiny_.size());
    EXPECT_FALSE(image_.Check(tiny_.data(), tiny_.size(), KwElfImage::kArm64, 4096));
    EXPECT_FALSE(image_.Check(tiny_.data(), tiny_.size(), KwElfImage::kX64, 65536));
    for (std::size_t size = 1; size < tiny_.size(); ++size) {
        const std::string cut(tiny_, 0, size);
        ASSERT_FALSE(Check(cut, size)) << size;
    }
    for (std::size_t at = 0; at < tiny_.size(); ++at) {
        for (const int flip : {0x01, 0x08, 0x80, 0xFF}) {
            std::string bytes = tiny_;
            bytes[at] = static_cast<char>(bytes[at] ^ flip);
            const bool sound = Check(bytes, bytes.size());
            ASSERT_TRUE(!sound || image_.GetFileSize() <= bytes.size());
        }
    }
}

// Without section headers nothing else tells of it.
TEST_F(KwElfImageTest, WhatTheLoaderWouldTripOverIsRefused) {
    for (const std::size_t at : {40, 60, 62}) tiny_.replace(at, at == 40 ? 8 : 2, at == 40 ? 8 : 2, '\0');
    ASSERT_TRUE(Check(tiny_, tiny_.size()));
    const auto refuses = [this](std::size_t at, int value) {
        std::string bytes = tiny_;
        bytes[at] = static_cast<char>(value);
        return !Check(bytes, bytes.size());
    };
    constexpr std::size_t kDynamic = 0x480, kSymbols = 0x208;
    EXPECT_TRUE(refuses(kSymbols + 4, 0x10));         // the symbol that is none is looked for
    EXPECT_TRUE(refuses(kSymbols + 24 + 6, 1));       // a function from elsewhere at the image's start
    EXPECT_TRUE(refuses(kDynamic + 11 * 16 + 8, 0));  // no calls to bind
    EXPECT_TRUE(refuses(kDynamic + 19 * 16, 0x42));   // versions that no symbol has
}
