#include "Kw/Helper/KwPeImage.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "KwModuleFixture.h"

class KwPeImageTest : public KwModuleFixture, protected KwPeBinder {
protected:
    // All that the loader does with an image short of running it.
    bool Use(const std::string& bytes, std::size_t size, std::uint32_t base) {
        if (!image_.Open(bytes.data(), size)) return false;
        block_.assign(image_.GetSize(), 0);
        image_.Lay(block_.data());
        return image_.Move(base) && image_.ReadCallbacks(callbacks_) && image_.Bind(nullptr) && image_.Bind(this) &&
               image_.ReadExports();
    }
    bool OnLibrary(const char* library) override {
        imports_.push_back(library);
        return true;
    }
    bool OnImport(const char* name, unsigned int ordinal, std::uint32_t& out) override {
        imports_.push_back(name != nullptr ? name : "#" + std::to_string(ordinal));
        out = 0x11110000u + ordinal;
        return true;
    }
    std::uint32_t Word(std::uint32_t at) const {
        return block_[at] | (block_[at + 1] << 8) | (block_[at + 2] << 16) |
               (static_cast<std::uint32_t>(block_[at + 3]) << 24);
    }
    std::size_t Header() const {
        return static_cast<unsigned char>(tiny_[60]) + 256u * static_cast<unsigned char>(tiny_[61]);
    }
    std::size_t Sections() const { return Header() + 24 + static_cast<unsigned char>(tiny_[Header() + 20]); }
    static void Put32(std::string& bytes, std::size_t at, std::uint32_t value) {
        for (unsigned int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i));
    }

    std::string tiny_ = ReadBeside("tiny.kwmod");
    KwPeImage image_;
    std::vector<unsigned char> block_;
    std::vector<std::uint32_t> callbacks_;
    std::vector<std::string> imports_;
};

TEST_F(KwPeImageTest, AnImageIsLaidOutMovedAndBound) {
    ASSERT_TRUE(Use(tiny_, tiny_.size(), 0x10000000));
    EXPECT_EQ(imports_, (std::vector<std::string>{"ws2_32.dll", "#9", "KERNEL32.dll", "GetTickCount"}));
    EXPECT_EQ(Word(0x504C), 0x11110009u);
    EXPECT_EQ(Word(0x200C) & 0xFFFF0000u, 0x10000000u);  // its list of callbacks
    ASSERT_EQ(callbacks_.size(), 1u);
    EXPECT_EQ(image_.FindExport("TinyState").address, 0x1013u);
    EXPECT_STREQ(image_.FindExport("TinyForward").forwarder, "KERNEL32.GetCurrentProcessId");
    for (const char* name : {"", "Tiny", "TinyStates", "tinystate"}) EXPECT_EQ(image_.FindExport(name).address, 0u);
    EXPECT_TRUE(Use(tiny_, 0, 0));
}

TEST_F(KwPeImageTest, WhatItCannotDoIsRefused) {
    const auto refuses = [this](std::size_t at, std::uint32_t value) {
        std::string bytes = tiny_;
        Put32(bytes, Header() + 88, 0);
        if (!Use(bytes, bytes.size(), 0x10000000)) return false;
        Put32(bytes, at, value);
        return !Use(bytes, bytes.size(), 0x10000000);
    };
    EXPECT_TRUE(refuses(Header() + 4, 0x00068664));        // 64 bits
    EXPECT_TRUE(refuses(Header() + 22, 0x010B0102));       // a program
    EXPECT_TRUE(refuses(Header() + 22, 0x010B2103));       // cannot be moved
    EXPECT_TRUE(refuses(Header() + 56, 512));              // sections that share pages
    EXPECT_TRUE(refuses(Header() + 40, 0x2000));           // the entry is data
    EXPECT_TRUE(refuses(Header() + 24 + 96 + 14 * 8, 8));  // managed code
    EXPECT_TRUE(refuses(Header() + 24 + 96 + 1 * 8, 0));   // imports without a place
    EXPECT_TRUE(refuses(Header() + 24 + 96 + 5 * 8 + 4, 0));
    EXPECT_TRUE(refuses(Sections() + 36, 0x60000020 & ~0x40000000u));  // names that could not be read
    EXPECT_TRUE(refuses(0x600 + 4, 64));                               // thread variables for the system to lay out
    EXPECT_TRUE(refuses(0x600 + 16, 64));
    // Corrections, exports and imports that lead out of the image.
    EXPECT_TRUE(refuses(0xC00, 0x7000));
    EXPECT_TRUE(refuses(0xC08, 0x5000700B));
    EXPECT_TRUE(refuses(0x800 + 24, 0x40000000));
    EXPECT_TRUE(refuses(0x828, 0x7000));
    EXPECT_TRUE(refuses(0xA00 + 12, 0x7FFFFFFF));
    EXPECT_TRUE(refuses(0xA44, 0x6FFF));
}

// With its checksum any damage is found; without it, none does harm.
TEST_F(KwPeImageTest, DamageAndCutsAreFound) {
    std::string unsummed = tiny_;
    Put32(unsummed, Header() + 88, 0);
    for (std::size_t at = 0; at < tiny_.size(); ++at) {
        for (const int flip : {0x01, 0x80, 0xFF}) {
            const std::size_t sum = Header() + 88;
            std::string bytes = tiny_;
            bytes[at] = static_cast<char>(bytes[at] ^ flip);
            ASSERT_TRUE((at >= sum && at < sum + 4) || !Use(bytes, bytes.size(), 0)) << at;
            bytes = unsummed;
            bytes[at] = static_cast<char>(bytes[at] ^ flip);
            // A block of gigabytes is for the system to refuse.
            if (image_.Open(bytes.data(), bytes.size()) && image_.GetSize() < (1u << 20)) Use(bytes, bytes.size(), 0);
        }
        const std::string cut(tiny_, 0, at);
        ASSERT_TRUE(at == 0 || !Use(cut, cut.size(), 0)) << at;
    }
}
