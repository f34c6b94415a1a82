// The formatter against the C library over random formats and values, and where the two mean to differ.
#include "Kw/KwFormat.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "Kw/KwStr.h"

namespace {

// Both forms of one text, and the count that Print gave for it. The buffer is exactly as large as asked for.
std::string Narrow(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int count = KwFormat::Print(static_cast<char*>(nullptr), 0, format, args);
    va_end(args);
    std::vector<char> text(count > 0 ? static_cast<std::size_t>(count) : 0);
    EXPECT_EQ(KwFormat::Print(text.data(), static_cast<unsigned int>(text.size()), format, again), count);
    va_end(again);
    return count < 0 ? "error" : std::string(text.begin(), text.end());
}

// The wide form of the same call, narrowed unit by unit; `format` is ASCII.
std::string Wide(const char* format, ...) {
    const KwWString wide(format, format + std::strlen(format));
    va_list args;
    va_start(args, format);
    KwWString text;
    const bool done = KwFormat::Append(text, wide.c_str(), args);
    va_end(args);
    std::string narrow;
    for (const KwWChar unit : text) narrow += static_cast<char>(unit);
    return done ? narrow : "error";
}

KwWString WideText(const KwWChar* format, ...) {
    va_list args;
    va_start(args, format);
    KwWString text;
    const bool done = KwFormat::Append(text, format, args);
    va_end(args);
    return done ? text : KW_W("error");
}

// MinGW's C library slips in the sign of a NaN, in "%#.0o" of 0, in the padding of "%g" and in "%a". Elsewhere it
// can be compared with.
template <class T>
bool CLibrarySlips(const std::string& format, T value) {
    static const bool slips = [] {
        char text[8];
        return std::snprintf(text, sizeof(text), "%#.0o", 0) != 1;
    }();
    if (!slips) return false;
    if constexpr (std::is_floating_point_v<T>) {
        return std::isnan(value) || format.find_first_of("aAgG") != std::string::npos;
    } else {
        return value == 0 && format.find('#') != std::string::npos;
    }
}

template <class T>
void Compare(const std::string& format, int a, int b, int stars, T value) {
    if (CLibrarySlips(format, value)) return;
    char expected[8192];
    std::string narrow;
    std::string wide;
    int count = 0;
    const char* f = format.c_str();
    switch (stars) {
        case 0:
            count = std::snprintf(expected, sizeof(expected), f, value);
            narrow = Narrow(f, value);
            wide = Wide(f, value);
            break;
        case 1:
            count = std::snprintf(expected, sizeof(expected), f, a, value);
            narrow = Narrow(f, a, value);
            wide = Wide(f, a, value);
            break;
        default:
            count = std::snprintf(expected, sizeof(expected), f, a, b, value);
            narrow = Narrow(f, a, b, value);
            wide = Wide(f, a, b, value);
            break;
    }
    ASSERT_LT(static_cast<std::size_t>(count), sizeof(expected));
    ASSERT_EQ(narrow, expected) << '"' << format << "\" " << a << ' ' << b;
    ASSERT_EQ(wide, expected) << '"' << format << "\" " << a << ' ' << b;
}

class KwFormatRandom : public testing::Test {
protected:
    static constexpr unsigned int kSeed = 20240229;
    std::mt19937_64 random{kSeed};

    int Below(int limit) { return static_cast<int>(random() % static_cast<unsigned int>(limit)); }

    // "text%<flags><width><.precision><size><conversion>text" with up to two stars, whose values are drawn too.
    std::string Format(const char* flags, const char* size, char conversion, int longest, int& a, int& b, int& stars) {
        std::string format = Below(2) != 0 ? "[" : "";
        format += '%';
        for (const char* flag = flags; *flag != 0; ++flag) {
            if (Below(4) == 0) format += *flag;
        }
        stars = 0;
        if (Below(2) == 0) {
            if (Below(4) == 0) {
                format += '*';
                a = Below(60) - 30;
                stars = 1;
            } else {
                format += std::to_string(1 + Below(40));
            }
        }
        if (Below(2) == 0) {
            format += '.';
            if (Below(4) == 0) {
                format += '*';
                (stars == 0 ? a : b) = Below(longest) - 3;
                ++stars;
            } else if (Below(8) != 0) {
                format += std::to_string(Below(Below(8) == 0 ? longest : 20));
            }
        }
        return format + size + conversion + (Below(2) != 0 ? "] %%" : "");
    }

    // All magnitudes alike often.
    std::uint64_t Integer() { return random() >> Below(64); }

    double Double() {
        switch (Below(6)) {
            case 0: return std::bit_cast<double>(random());
            case 1: return static_cast<double>(static_cast<std::int64_t>(Integer())) / 64;     // ties
            case 2: return static_cast<double>(Below(2000001) - 1000000) / 1000;               // what people print
            case 3: return std::ldexp(static_cast<double>(random() >> 11), Below(140) - 110);  // around the fast path
            case 4: return std::pow(10, Below(30) - 12) * (1 + Below(3));                      // powers, for %g
            default: return static_cast<double>(random()) / 1e13;
        }
    }
};

TEST_F(KwFormatRandom, IntegersAreAsTheCLibraryPrintsThem) {
    SCOPED_TRACE(kSeed);
    for (int i = 0; i < 60000 && !HasFatalFailure(); ++i) {
        const char conversion = "diuoxX"[Below(6)];
        const char* flags = conversion == 'd' || conversion == 'i' ? "-0+ " : conversion == 'u' ? "-0" : "-0#";
        const std::uint64_t value = Below(20) == 0 ? 0 : Integer();
        const auto check = [&](const char* size, auto as) {
            int a = 0;
            int b = 0;
            int stars = 0;
            const std::string format = Format(flags, size, conversion, 50, a, b, stars);
            Compare(format, a, b, stars, static_cast<decltype(as)>(value));
        };
        switch (Below(7)) {
            case 0: check("", int{}); break;
            case 1: check("hh", int{}); break;
            case 2: check("h", int{}); break;
            case 3: check("ll", std::int64_t{}); break;
            case 4: check("j", std::intmax_t{}); break;
            case 5: check("z", std::size_t{}); break;
            default: check("t", std::ptrdiff_t{}); break;
        }
    }
}

TEST_F(KwFormatRandom, FloatingPointIsAsTheCLibraryPrintsIt) {
    SCOPED_TRACE(kSeed);
    for (int i = 0; i < 60000 && !HasFatalFailure(); ++i) {
        int a = 0;
        int b = 0;
        int stars = 0;
        const char conversion = "ffffFeEgGgaA"[Below(12)];
        const std::string format = Format("-0+ #", Below(8) == 0 ? "l" : "", conversion, 1200, a, b, stars);
        Compare(format, a, b, stars, Double());
    }
}

TEST_F(KwFormatRandom, LongDoubleIsAsTheCLibraryPrintsIt) {
    SCOPED_TRACE(kSeed);
    for (int i = 0; i < 3000 && !HasFatalFailure(); ++i) {
        int a = 0;
        int b = 0;
        int stars = 0;
        // Below the precision of a double the hexadecimal form is our own: one digit before the point.
        const std::string format = Format("-0+ #", "L", "fFeEgG"[Below(6)], 900, a, b, stars);
        const int exponent = Below(10) == 0 ? Below(8000) - 4000 : Below(200) - 130;
        Compare(format, a, b, stars, std::ldexp(static_cast<long double>(random()), exponent));
    }
    const long double wide = 1.0L + std::numeric_limits<long double>::epsilon();
    for (const char* format : {"%La", "%.40LA", "%+#.3La", "%.0La", "%030La"}) Compare(format, 0, 0, 0, wide);
}

TEST_F(KwFormatRandom, TextIsAsTheCLibraryPrintsIt) {
    SCOPED_TRACE(kSeed);
    for (int i = 0; i < 10000 && !HasFatalFailure(); ++i) {
        int a = 0;
        int b = 0;
        int stars = 0;
        const std::string text(static_cast<std::size_t>(Below(50)), static_cast<char>('a' + Below(26)));
        char expected[512];
        const std::string format = Format("-", "", 's', 60, a, b, stars);
        const char* f = format.c_str();
        const KwWString wide(text.begin(), text.end());
        if (stars == 0) {
            std::snprintf(expected, sizeof(expected), f, text.c_str());
            ASSERT_EQ(Narrow(f, text.c_str()), expected) << format;
            ASSERT_EQ(Wide(f, wide.c_str()), expected) << format;
        } else if (stars == 1) {
            std::snprintf(expected, sizeof(expected), f, a, text.c_str());
            ASSERT_EQ(Narrow(f, a, text.c_str()), expected) << format;
            ASSERT_EQ(Wide(f, a, wide.c_str()), expected) << format;
        } else {
            std::snprintf(expected, sizeof(expected), f, a, b, text.c_str());
            ASSERT_EQ(Narrow(f, a, b, text.c_str()), expected) << format;
            ASSERT_EQ(Wide(f, a, b, wide.c_str()), expected) << format;
        }
    }
}

TEST(KwFormatTest, EdgesOfTheNumbers) {
    Compare("%lld", 0, 0, 0, static_cast<long long>(INT64_MIN));
    Compare("%d", 0, 0, 0, INT_MIN);
    Compare("%+hhd", 0, 0, 0, 0x180);
    Compare("%.0d|", 0, 0, 0, 0);
    Compare("%#.0o|", 0, 0, 0, 0);
    Compare("%+.300f", 0, 0, 0, DBL_MAX);
    Compare("%.1100f", 0, 0, 0, DBL_TRUE_MIN);
    Compare("%.800e", 0, 0, 0, DBL_TRUE_MIN);
    Compare("%#.900g", 0, 0, 0, DBL_MIN);
    static const char* const kFormats[] = {"%f",    "%.0f",  "%.1f", "%#.0f", "%.9f",  "%.10f", "%e", "%.0e",
                                           "%#.0e", "%g",    "%#g",  "%.0g",  "%.1g",  "%#.1g", "%G", "%a",
                                           "%.0a",  "%#.0a", "%.3A", "%.20a", "%012f", "%-12g|"};
    static const double kValues[] = {0.0,
                                     -0.0,
                                     0.5,
                                     1.5,
                                     2.5,
                                     0.05,
                                     0.25,
                                     0.125,
                                     9.5,
                                     99.5,
                                     0.9999995,
                                     999999.4,
                                     0.00001,
                                     0.0001,
                                     100000.0,
                                     1e6,
                                     9007199254740993.0,
                                     9223372036854775807.0,
                                     9223372036854774784.0,
                                     1e19,
                                     1e22,
                                     1e23,
                                     1.0 / 3,
                                     DBL_MAX,
                                     DBL_MIN,
                                     DBL_TRUE_MIN,
                                     DBL_EPSILON,
                                     HUGE_VAL,
                                     -HUGE_VAL,
                                     std::nan("")};
    for (const char* format : kFormats) {
        for (const double value : kValues) {
            Compare(format, 0, 0, 0, value);
            Compare(format, 0, 0, 0, -value);
        }
    }
}

// Here the C library drops digits that '#' keeps.
TEST(KwFormatTest, RoundingUpToTheNextPowerKeepsTheDigits) {
    EXPECT_EQ(Narrow("%#g|%g|%#.3g", 999999.5, 999999.5, 9.999e9), "1.00000e+06|1e+06|1.00e+10");
}

TEST(KwFormatTest, SizesOfTheOtherPlatform) {
    EXPECT_EQ(Narrow("%I64d %I32u %Iu", INT64_MIN, 4000000000U, static_cast<std::size_t>(-1)),
              "-9223372036854775808 4000000000 " + std::to_string(static_cast<std::size_t>(-1)));
    int object = 0;
    char expected[32];
    std::snprintf(expected, sizeof(expected), "0x%" PRIxPTR, reinterpret_cast<std::uintptr_t>(&object));
    EXPECT_EQ(Narrow("%p", static_cast<void*>(&object)), expected);
    EXPECT_EQ(Narrow("%p|%6p|%-6p|", nullptr, nullptr, nullptr), "0x0|   0x0|0x0   |");
}

TEST(KwFormatTest, ErroneousFormatsAreRefused) {
    for (const char* format :
         {"a%", "%5", "%y", "%.-1d", "%99999999999d", "%.2147483648f", "%lls", "%wd", "%l", "%I6"}) {
        EXPECT_EQ(Narrow(format, 1, 2, 3), "error") << format;
        EXPECT_EQ(Wide(format, 1, 2, 3), "error") << format;
    }
    int stored = 7;
    EXPECT_EQ(Narrow("ab%n", &stored), "error");
    EXPECT_EQ(stored, 7);
    EXPECT_EQ(Narrow("%*d", INT_MIN, 1), "error");
    EXPECT_EQ(Narrow(nullptr), "error");
    std::string kept = "kept";
    const auto append = [&kept](const char* format, ...) {
        va_list args;
        va_start(args, format);
        const bool done = KwFormat::Append(kept, format, args);
        va_end(args);
        return done;
    };
    EXPECT_FALSE(append("%600d%n", 1, 2));
    EXPECT_EQ(kept, "kept");
    EXPECT_TRUE(append("%600d", 1));
    EXPECT_EQ(kept.size(), 604U);
}

// Widths and precisions that no buffer holds cost only what is written.
TEST(KwFormatTest, HugeWidthsAreCountedNotWritten) {
    const auto print = [](const char* format, ...) {
        char text[8];
        std::memset(text, '_', sizeof(text));
        va_list args;
        va_start(args, format);
        const int count = KwFormat::Print(text, 4, format, args);
        va_end(args);
        return std::string(text, sizeof(text)) + std::to_string(count);
    };
    EXPECT_EQ(print("%2147483647d", 1), "    ____2147483647");
    EXPECT_EQ(print("%-2147483647d", 1), "1   ____2147483647");
    EXPECT_EQ(print("%.2000000000f", 0.5), "0.50____2000000002");
    EXPECT_EQ(print("%.2000000000d", 5), "0000____2000000000");
    EXPECT_EQ(print("%.2147483647e", 1.0), "1.00____-1");
    EXPECT_EQ(print("%1500000000d%1500000000d", 1, 1), "    ____-1");
}

TEST(KwFormatTest, TextOfEitherWidthCrossesWhole) {
    const KwWChar* wide = KW_W("a\u1EC7\U0001F600z");
    const char* narrow = "a\xE1\xBB\x87\xF0\x9F\x98\x80z";
    EXPECT_EQ(Narrow("%S|%ls|%ws", wide, wide, wide), std::string(narrow) + "|" + narrow + "|" + narrow);
    EXPECT_EQ(Narrow("%hs|%hS", narrow, narrow), std::string(narrow) + "|" + narrow);
    EXPECT_EQ(WideText(KW_W("%S|%hs|%ls|%s"), narrow, narrow, wide, wide),
              KwWString(wide) + KW_W("|") + wide + KW_W("|") + wide + KW_W("|") + wide);
    // Precision counts output characters and keeps code points whole: bytes here, units there.
    EXPECT_EQ(Narrow("%.3S|%.4S|%.7S|%.8S", wide, wide, wide, wide),
              "a|a\xE1\xBB\x87|a\xE1\xBB\x87|a\xE1\xBB\x87\xF0\x9F\x98\x80");
    EXPECT_EQ(WideText(KW_W("%.3S|%.4S"), narrow, narrow), KwWString(KW_W("a\u1EC7|a\u1EC7\U0001F600")));
    EXPECT_EQ(Narrow("%11S|%-11.4S|", wide, wide), "  " + std::string(narrow) + "|a\xE1\xBB\x87       |");
    // Halves and malformed bytes.
    const KwWChar half[] = {0xDC00, 'x', 0xD83D, 0};
    EXPECT_EQ(Narrow("%S", half), "\xEF\xBF\xBDx\xEF\xBF\xBD");
    EXPECT_EQ(WideText(KW_W("%S"), "\xF0\x9Fx\x80"), KwWString(KW_W("\uFFFDx\uFFFD")));
    // Characters.
    EXPECT_EQ(Narrow("%c%C%lc%hc%wc|%3c|%-3C|", 'a', 0x1EC7, 0xE9, 'b', 0xD800, 'c', 0xE9),
              "a\xE1\xBB\x87\xC3\xA9"
              "b\xEF\xBF\xBD|  c|\xC3\xA9 |");
    EXPECT_EQ(WideText(KW_W("%c%C%hc%lc"), 0x1EC7, 'a', 'b', 0xE9), KwWString(KW_W("\u1EC7ab\u00E9")));
    EXPECT_EQ(Narrow("a%cb", 0), std::string("a\0b", 3));
}

TEST(KwFormatTest, NullTextAndTextWithoutTerminator) {
    const char* none = nullptr;
    EXPECT_EQ(Narrow("%s|%9s|%-8s|%.3s|%S", none, none, none, none, none), "(null)|   (null)|(null)  |(nu|(null)");
    EXPECT_EQ(WideText(KW_W("%s|%S"), none, none), KwWString(KW_W("(null)|(null)")));
    // The last readable byte is the last one that the precision allows.
    const std::vector<char> bytes = {'a', 'b', 'c'};
    EXPECT_EQ(Narrow("%.3s|%.*s", bytes.data(), 2, bytes.data()), "abc|ab");
    EXPECT_EQ(WideText(KW_W("%.3S"), bytes.data()), KwWString(KW_W("abc")));
    const std::vector<KwWChar> units = {'a', 'b', 'c'};
    EXPECT_EQ(Narrow("%.3S", units.data()), "abc");
}

// Every cut of a text is its prefix, and nothing behind the buffer is touched.
TEST(KwFormatTest, EachSizeGivesThePrefix) {
    const char* format = "%s|%08.3f|%-6d|%S|%c%%";
    const KwWChar* wide = KW_W("\u1EC7");
    const std::string whole = Narrow(format, "text", 3.14159, 42, wide, 'x');
    EXPECT_EQ(whole, "text|0003.142|42    |\xE1\xBB\x87|x%");
    for (unsigned int size = 0; size <= whole.size(); ++size) {
        std::vector<char> cut(size);
        const auto print = [&](const char* f, ...) {
            va_list args;
            va_start(args, f);
            const int count = KwFormat::Print(cut.data(), size, f, args);
            va_end(args);
            return count;
        };
        EXPECT_EQ(print(format, "text", 3.14159, 42, wide, 'x'), static_cast<int>(whole.size()));
        EXPECT_EQ(std::string(cut.begin(), cut.end()), whole.substr(0, size));
    }
}

class KwFormatFile : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(file = std::tmpfile(), nullptr); }
    void TearDown() override { std::fclose(file); }

    template <class C>
    int Print(const C* format, ...) {
        va_list args;
        va_start(args, format);
        const int count = KwFormat::PrintFile(file, format, args);
        va_end(args);
        return count;
    }
    std::string Content() {
        std::string content(static_cast<std::size_t>(std::ftell(file)), 0);
        std::rewind(file);
        EXPECT_EQ(std::fread(content.data(), 1, content.size(), file), content.size());
        return content;
    }

    std::FILE* file = nullptr;
};

TEST_F(KwFormatFile, LongTextGoesThroughInParts) {
    const std::string text(5000, 'x');
    EXPECT_EQ(Print("%s%3000d\n", text.c_str(), 7), 8001);
    EXPECT_EQ(Content(), text + std::string(2999, ' ') + "7\n");
}

// A surrogate pair that falls on the edge of the inner buffer stays one character.
TEST_F(KwFormatFile, WideTextIsWrittenAsUtf8) {
    for (int lead = 1020; lead < 1028; ++lead) {
        KwWString text(static_cast<std::size_t>(lead), KW_W('a'));
        std::string expected(static_cast<std::size_t>(lead), 'a');
        for (int i = 0; i < 1500; ++i) {
            text += KW_W("\U0001F600");
            expected += "\xF0\x9F\x98\x80";
        }
        std::rewind(file);
        ASSERT_EQ(Print(KW_W("%s"), text.c_str()), static_cast<int>(expected.size()));
        ASSERT_EQ(Content(), expected);
    }
    const KwWChar half[] = {'a', 0xD83D, 0};
    std::rewind(file);
    EXPECT_EQ(Print(KW_W("%s"), half), 4);
}

TEST_F(KwFormatFile, RefusedWritesAndFormatsAreNegative) {
    EXPECT_LT(Print("%n", static_cast<int*>(nullptr)), 0);
    EXPECT_LT(Print(static_cast<const char*>(nullptr)), 0);
    std::FILE* const writable = file;
    file = std::fopen("/dev/null", "rb");
    if (file != nullptr) {
        EXPECT_LT(Print("text"), 0);
        EXPECT_LT(Print(KW_W("text")), 0);
        std::fclose(file);
    }
    file = writable;
}

TEST(KwStrFormatTest, FitsOrIsNegativeAndTerminated) {
    char text[6] = "____?";
    EXPECT_EQ(KwStr::Format(text, 6, "%d", 12345), 5);
    EXPECT_STREQ(text, "12345");
    EXPECT_LT(KwStr::Format(text, 5, "%d", 54321), 0);  // no room for the terminator
    EXPECT_STREQ(text, "5432");
    EXPECT_LT(KwStr::Format(text, 1, "%s", "x"), 0);
    EXPECT_STREQ(text, "");
    text[0] = '_';
    EXPECT_LT(KwStr::Format(text, 0, "%s", "x"), 0);
    EXPECT_LT(KwStr::Format(text, -5, "%s", "x"), 0);
    EXPECT_EQ(text[0], '_');
    EXPECT_EQ(KwStr::Format(text, 6, "%s", ""), 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(KwStr::Format(static_cast<char*>(nullptr), 6, "x"), 0);
    const char* none = nullptr;
    EXPECT_EQ(KwStr::Format(text, 6, none), 0);
    KwWChar wide[4];
    EXPECT_EQ(KwStr::Format(wide, 4, KW_W("%s"), KW_W("abc")), 3);
    EXPECT_LT(KwStr::Format(wide, 4, KW_W("%s"), KW_W("wxyz")), 0);
    EXPECT_EQ(KwWString(wide), KW_W("wxy"));
}

}  // namespace
