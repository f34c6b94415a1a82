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
