// The conversions against an independent slow decoder, with every set of kernels that the processor has.
#include "Kw/KwUtf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Kw/KwStr.h"

namespace {

using Bytes = std::vector<unsigned char>;

// --- The oracle: well-formed sequences as the rows of a table, one range a byte. ---

struct Row {
    unsigned int length;
    unsigned char low[4];
    unsigned char high[4];
};

constexpr Row kRows[] = {
    {1, {0x00}, {0x7F}},
    {2, {0xC2, 0x80}, {0xDF, 0xBF}},
    {3, {0xE0, 0xA0, 0x80}, {0xE0, 0xBF, 0xBF}},
    {3, {0xE1, 0x80, 0x80}, {0xEC, 0xBF, 0xBF}},
    {3, {0xED, 0x80, 0x80}, {0xED, 0x9F, 0xBF}},
    {3, {0xEE, 0x80, 0x80}, {0xEF, 0xBF, 0xBF}},
    {4, {0xF0, 0x90, 0x80, 0x80}, {0xF0, 0xBF, 0xBF, 0xBF}},
    {4, {0xF1, 0x80, 0x80, 0x80}, {0xF3, 0xBF, 0xBF, 0xBF}},
    {4, {0xF4, 0x80, 0x80, 0x80}, {0xF4, 0x8F, 0xBF, 0xBF}},
};

std::u32string Decode8(const Bytes& text) {
    std::u32string codes;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t best = 0;
        bool whole = false;
        for (const Row& row : kRows) {
            std::size_t n = 0;
            while (n < row.length && at + n < text.size() && text[at + n] >= row.low[n] && text[at + n] <= row.high[n])
                ++n;
            if (n > best) {
                best = n;
                whole = n == row.length;
            }
        }
        char32_t code = 0xFFFD;
        if (whole) {
            code = best == 1 ? text[at] : text[at] & (0x7F >> best);
            for (std::size_t n = 1; n < best; ++n) code = code * 64 + (text[at + n] - 0x80);
        }
        codes += code;
        at += best == 0 ? 1 : best;
    }
    return codes;
}

std::u32string Decode16(const std::u16string& text) {
    std::u32string codes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned int unit = text[i];
        if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
            codes += static_cast<char32_t>(0x10000 + (unit - 0xD800) * 0x400 + (text[++i] - 0xDC00));
        } else {
            codes += unit >= 0xD800 && unit < 0xE000 ? 0xFFFD : static_cast<char32_t>(unit);
        }
    }
    return codes;
}

void Encode8(Bytes& out, char32_t code) {
    const auto add = [&out](char32_t byte) { out.push_back(static_cast<unsigned char>(byte)); };
    if (code >= 0x10000) {
        add(0xF0 + code / 0x40000);
        add(0x80 + code / 0x1000 % 64);
    } else if (code >= 0x800) {
        add(0xE0 + code / 0x1000);
    }
    if (code >= 0x800) add(0x80 + code / 64 % 64);
    if (code >= 0x80 && code < 0x800) add(0xC0 + code / 64);
    add(code < 0x80 ? code : 0x80 + code % 64);
}

void Encode16(std::u16string& out, char32_t code) {
    if (code >= 0x10000) out += static_cast<char16_t>(0xD800 + (code - 0x10000) / 0x400);
    out += static_cast<char16_t>(code >= 0x10000 ? 0xDC00 + (code - 0x10000) % 0x400 : code);
}

// The longest prefix of whole characters that fits into `room`.
Bytes Expect8(const std::u32string& codes, std::size_t room) {
    Bytes out;
    for (const char32_t code : codes) {
        Bytes next = out;
        Encode8(next, code);
        if (next.size() > room) break;
        out.swap(next);
    }
    return out;
}

std::u16string Expect16(const std::u32string& codes, std::size_t room) {
    std::u16string out;
    for (const char32_t code : codes) {
        std::u16string next;
        Encode16(next, code);
        if (out.size() + next.size() > room) break;
        out += next;
    }
    return out;
}

// --- The conversions, out of and into heap blocks of exactly the stated size, at an odd address. ---

Bytes Shifted(const void* text, std::size_t bytes) {
    Bytes block(bytes + 1);
    if (bytes != 0) std::memcpy(block.data() + 1, text, bytes);
    return block;
}

std::u16string To16(const Bytes& text, std::size_t room, std::size_t* read = nullptr) {
    const Bytes src = Shifted(text.data(), text.size());
    Bytes dst(2 * room + 1);
    const KwUtf::Result result = KwUtf::Utf8ToUtf16(dst.data() + 1, room, src.data() + 1, text.size());
    EXPECT_LE(result.written, room);
    if (read != nullptr) *read = result.read;
    std::u16string out(result.written, 0);
    std::memcpy(out.data(), dst.data() + 1, 2 * result.written);
    return out;
}

Bytes To8(const std::u16string& text, std::size_t room, std::size_t* read = nullptr) {
    const Bytes src = Shifted(text.data(), 2 * text.size());
    Bytes dst(room);
    const KwUtf::Result result = KwUtf::Utf16ToUtf8(dst.data(), room, src.data() + 1, text.size());
    EXPECT_LE(result.written, room);
    if (read != nullptr) *read = result.read;
    dst.resize(result.written);
    return dst;
}

// Runs each case with every set of kernels.
class KwUtfTest : public testing::TestWithParam<int> {
protected:
    static constexpr unsigned int kSeed = 31337;

    void SetUp() override {
        if (KwUtf::UseKernels(GetParam()) != GetParam()) GTEST_SKIP() << "the processor has no kernels " << GetParam();
    }
    void TearDown() override { KwUtf::UseKernels(KwUtf::kAllKernels); }

    unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(random() % limit); }

    // A code point of 1 to 4 bytes.
    char32_t Code(unsigned int bytes) {
        switch (bytes) {
            case 1: return Below(0x80);
            case 2: return 0x80 + Below(0x780);
            case 3: return Below(8) == 0 ? 0xE000 + Below(0x2000) : 0x800 + Below(0xD000);
            default: return 0x10000 + Below(0x100000);
        }
    }

    // Runs of characters of one size each, as real text has them.
    std::u32string Text(std::size_t codes, unsigned int longest) {
        std::u32string text;
        while (text.size() < codes) {
            const unsigned int bytes = 1 + Below(longest);
            for (unsigned int run = 1 + Below(Below(3) == 0 ? 100 : 4); run != 0; --run) text += Code(bytes);
        }
        text.resize(codes);
        return text;
    }

    std::mt19937_64 random{kSeed};
};

TEST_P(KwUtfTest, EveryCharacterGoesThereAndBack) {
    std::u32string all;
    for (char32_t code = 0; code < 0x110000; ++code) {
        if (code < 0xD800 || code > 0xDFFF) all += code;
    }
    Bytes bytes;
    std::u16string units;
    for (const char32_t code : all) {
        Encode8(bytes, code);
        Encode16(units, code);
    }
    EXPECT_TRUE(To16(bytes, units.size()) == units);
    EXPECT_TRUE(To8(units, bytes.size()) == bytes);
    EXPECT_EQ(KwUtf::CountUtf8(bytes.data(), bytes.size()), all.size());
    EXPECT_EQ(KwUtf::Utf16Length(bytes.data(), bytes.size()), units.size());
    EXPECT_EQ(KwUtf::Utf8Length(units.data(), units.size()), bytes.size());
}

// One replacement for each maximal part that a well-formed sequence could start with.
TEST_P(KwUtfTest, MalformedBytesAreReplacedByMaximalParts) {
    struct {
        Bytes text;
        std::u16string expected;
    } const cases[] = {
        {{0xC0, 0xAF, 0xE0, 0x80, 0xBF, 0xF0, 0x81, 0x82, 0x41}, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {{0xED, 0xA0, 0x80, 0xED, 0xBF, 0xBF, 0xED, 0xAF, 0x41}, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {{0xF4, 0x91, 0x92, 0x93, 0xFF, 0x41, 0x80, 0xBF, 0x42}, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA\uFFFD\uFFFDB"},
        {{0xE1, 0x80, 0xE2, 0xF0, 0x91, 0x92, 0xF1, 0xBF, 0x41}, u"\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {{0x61, 0xF1, 0x80, 0x80, 0xE1, 0x80, 0xC2, 0x62, 0x80}, u"a\uFFFD\uFFFD\uFFFDb\uFFFD"},
        {{0xE1, 0x80}, u"\uFFFD"},
        {{0xF0, 0x9F, 0x98}, u"\uFFFD"},
    };
    for (const auto& c : cases) {
        // In front of it and behind it text that fast paths take, so that the fault lies anywhere in a block.
        for (std::size_t lead = 0; lead < 140; ++lead) {
            Bytes text(lead, 'x');
            text.insert(text.end(), c.text.begin(), c.text.end());
            text.insert(text.end(), 70, 'y');
            const std::u16string expected = std::u16string(lead, u'x') + c.expected + std::u16string(70, u'y');
            ASSERT_EQ(To16(text, expected.size()), expected) << lead;
            text.resize(lead + c.text.size());
            ASSERT_EQ(To16(text, expected.size()), expected.substr(0, expected.size() - 70)) << lead;
        }
    }
}

TEST_P(KwUtfTest, RandomTextsAreAsTheSlowDecoderReadsThem) {
    SCOPED_TRACE(kSeed);
    for (int i = 0; i < 6000; ++i) {
        const std::u32string codes = Text(Below(i % 10 == 0 ? 400 : 90), 1 + Below(4));
        Bytes bytes = Expect8(codes, SIZE_MAX);
        std::u16string units = Expect16(codes, SIZE_MAX);
        if (i % 2 != 0) {  // some faults
            for (unsigned int faults = 1 + Below(4); faults != 0 && !bytes.empty(); --faults) {
                bytes[Below(static_cast<unsigned int>(bytes.size()))] = static_cast<unsigned char>(Below(256));
                units[Below(static_cast<unsigned int>(units.size()))] = static_cast<char16_t>(0xD800 + Below(0x800));
            }
        }
        const std::u32string codes8 = Decode8(bytes);
        const std::u16string to16 = Expect16(codes8, SIZE_MAX);
        const std::u32string codes16 = Decode16(units);
        const Bytes to8 = Expect8(codes16, SIZE_MAX);
        ASSERT_EQ(To16(bytes, to16.size()), to16) << i;
        ASSERT_EQ(To16(bytes, to16.size() + Below(200)), to16) << i;
        ASSERT_EQ(To8(units, to8.size()), to8) << i;
        ASSERT_EQ(To8(units, to8.size() + Below(200)), to8) << i;
        ASSERT_EQ(KwUtf::CountUtf8(bytes.data(), bytes.size()), codes8.size());
        ASSERT_EQ(KwUtf::Utf16Length(bytes.data(), bytes.size()), to16.size());
        ASSERT_EQ(KwUtf::Utf8Length(units.data(), units.size()), to8.size());
    }
}

TEST_P(KwUtfTest, EachRoomGivesTheLongestPrefixOfWholeCharacters) {
    for (int i = 0; i < 12; ++i) {
        const std::u32string codes = Text(100, 1 + static_cast<unsigned int>(i) % 4);
        const Bytes bytes = Expect8(codes, SIZE_MAX);
        const std::u16string units = Expect16(codes, SIZE_MAX);
        for (std::size_t room = 0; room <= bytes.size(); ++room) {
            std::size_t read = 0;
            const Bytes to8 = To8(units, room, &read);
            ASSERT_EQ(to8, Expect8(codes, room)) << room;
            // What was read is what was written, so that a caller can go on behind it.
            ASSERT_EQ(KwUtf::Utf8Length(units.data(), read), to8.size());
            ASSERT_EQ(To8(units.substr(read), bytes.size()).size(), bytes.size() - to8.size());
        }
        for (std::size_t room = 0; room <= units.size(); ++room) {
            std::size_t read = 0;
            const std::u16string to16 = To16(bytes, room, &read);
            ASSERT_EQ(to16, Expect16(codes, room)) << room;
            ASSERT_EQ(KwUtf::Utf16Length(bytes.data(), read), to16.size());
            ASSERT_EQ(To16(Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(read), bytes.end()), units.size()),
                      units.substr(to16.size()));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, KwUtfTest, testing::Range(0, KwUtf::kAllKernels + 1));

// --- The toolkit's calls ---

TEST(KwStrUtfTest, CountsLeaveOutTheTerminatorThatIsWrittenWhereItFits) {
    char16_t wide[5];
    const auto to16 = [&wide](int dstBytes, const char* src, int length) {
        std::memset(wide, 0x7E, sizeof(wide));
        return KwStr::UTF8ToUTF16(wide, dstBytes, src, length);
    };
    EXPECT_EQ(to16(10, "a\xC3\xA9", -1), 4);
    EXPECT_EQ(std::u16string(wide), u"a\u00E9");
    EXPECT_EQ(wide[3], 0x7E7E);
    EXPECT_EQ(to16(4, "ab", -1), 4);
    EXPECT_EQ(wide[2], 0x7E7E);
    EXPECT_EQ(to16(5, "a\xF0\x9F\x98\x80", -1), 2);  // no half of the pair, and an odd byte is no room
    EXPECT_EQ(std::u16string(wide), u"a");
    EXPECT_EQ(to16(10, "a\0b", 3), 6);
    EXPECT_EQ(wide[1], 0);
    EXPECT_EQ(to16(1, "a", -1), 0);
    EXPECT_EQ(wide[0], 0x7E7E);
    EXPECT_EQ(to16(10, nullptr, 5), 0);
    EXPECT_EQ(wide[0], 0);
    EXPECT_EQ(to16(-2, "a", -1), 0);
    EXPECT_EQ(KwStr::UTF8ToUTF16(nullptr, 10, "a", -1), 0);

    char narrow[8];
    const auto to8 = [&narrow](int dstBytes, const char16_t* src, int bytes) {
        std::memset(narrow, 0x7E, sizeof(narrow));
        return KwStr::UTF16ToUTF8(narrow, dstBytes, src, bytes);
    };
    EXPECT_EQ(to8(8, u"a\u00E9", -1), 3);
    EXPECT_STREQ(narrow, "a\xC3\xA9");
    EXPECT_EQ(to8(2, u"a\u00E9", -1), 1);
    EXPECT_STREQ(narrow, "a");
    EXPECT_EQ(to8(1, u"a", -1), 1);
    EXPECT_EQ(narrow[1], 0x7E);
    EXPECT_EQ(to8(8, u"ab", 3), 1);  // an odd byte is no unit
    EXPECT_EQ(to8(8, nullptr, -1), 0);
    EXPECT_STREQ(narrow, "");
    EXPECT_EQ(to8(0, u"a", -1), 0);
    EXPECT_EQ(narrow[0], 0x7E);
}

TEST(KwStrUtfTest, Utf32AndLengths) {
    const char32_t text[] = {'a', 0x1F600, 0xD800, 0x110000, 0xFFFFFFFF, 'z', 0};
    KwWChar wide[8];
    const char* bytes = reinterpret_cast<const char*>(text);
    EXPECT_EQ(KwStr::UTF32ToUTF16(bytes, -1, wide, 8), 7);
    EXPECT_EQ(KwWString(wide), KW_W("a\U0001F600\uFFFD\uFFFD\uFFFDz"));
    EXPECT_EQ(KwStr::UTF32ToUTF16(bytes, 2, wide, 2), 1);
    EXPECT_EQ(KwWString(wide), KW_W("a"));
    EXPECT_EQ(KwStr::UTF32ToUTF16(bytes, 2, wide, 3), 3);
    EXPECT_EQ(KwStr::UTF32ToUTF16(bytes, 2, nullptr, 3), 0);
    EXPECT_EQ(KwStr::UTF32ToUTF16(nullptr, 2, wide, 3), 0);
    EXPECT_EQ(wide[0], 0);
    EXPECT_EQ(KwStr::GetUTF8Len("a\xE1\xBB\x87\xF0\x9F\x98\x80\x80", -1), 4);
    EXPECT_EQ(KwStr::GetUTF8Len("a\0b", 3), 3);
    EXPECT_EQ(KwStr::GetUTF8Len(nullptr, 3), 0);
}

}  // namespace
