#include "Kw/Helper/KwMath.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

TEST(KwMathTest, ToIntReadsTheNumberInFrontAndSaturates) {
    EXPECT_EQ(KwMath::ToInt(" \t\r\n+12abc"), 12);
    EXPECT_EQ(KwMath::ToInt("-12.9"), -12);
    EXPECT_EQ(KwMath::ToInt("2147483647"), INT_MAX);
    EXPECT_EQ(KwMath::ToInt("2147483648"), INT_MAX);
    EXPECT_EQ(KwMath::ToInt("-2147483648"), INT_MIN);
    EXPECT_EQ(KwMath::ToInt("-99999999999999999999999"), INT_MIN);
    EXPECT_EQ(KwMath::ToInt("000000000000000000000000000000042"), 42);
    EXPECT_EQ(KwMath::ToInt64("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(KwMath::ToInt64("9223372036854775808"), INT64_MAX);
    EXPECT_EQ(KwMath::ToInt64("-9223372036854775809"), INT64_MIN);
    for (const char* none : {"", "abc", "-", "+-1", "- 1", ".5", "\v1"}) EXPECT_EQ(KwMath::ToInt(none), 0) << none;
    EXPECT_EQ(KwMath::ToInt(nullptr), 0);
    EXPECT_EQ(KwMath::ToInt(nullptr, 3), 0);
}

TEST(KwMathTest, TheLengthEndsTheTextAndTheEndIsReported) {
    const std::vector<char> digits = {'1', '2', '3'};
    const char* end = nullptr;
    EXPECT_EQ(KwMath::ToInt(digits.data(), 3, &end), 123);
    EXPECT_EQ(end, digits.data() + 3);
    EXPECT_EQ(KwMath::ToInt(digits.data(), 2), 12);
    EXPECT_EQ(KwMath::ToInt(digits.data(), 0), 0);
    EXPECT_EQ(KwMath::ToDouble(digits.data(), 3, &end), 123.0);
    EXPECT_EQ(end, digits.data() + 3);
    const char* text = "  1.5e+x";
    EXPECT_EQ(KwMath::ToDouble(text, -1, &end), 1.5);
    EXPECT_STREQ(end, "e+x");
    EXPECT_EQ(KwMath::ToDouble("1e5", 2), 1.0);
    text = "  x";
    KwMath::ToDouble(text, -1, &end);
    EXPECT_EQ(end, text);
}

TEST(KwMathTest, ToDoubleAgreesWithTheCLibraryOnDecimalTexts) {
    std::mt19937_64 random(11);
    const char* const pieces[] = {"0", "7", "12", "999", ".", ".", "e", "E-", "e+", "-", "1", "305", "00", "_"};
    for (int round = 0; round < 100000; ++round) {
        std::string text = round % 3 == 0 ? "-" : "";
        for (std::uint64_t n = random() % 8; n > 0; --n) text += pieces[random() % std::size(pieces)];
        char* end = nullptr;
        double expected = std::strtod(text.c_str(), &end);
        if (end == text.c_str()) expected = 0.0;  // some C libraries give -0.0 for a lone sign
        ASSERT_EQ(KwMath::ToDouble(text.c_str()), expected) << text;
        ASSERT_EQ(std::signbit(KwMath::ToDouble(text.c_str())), std::signbit(expected)) << text;
    }
    for (int round = 0; round < 100000; ++round) {
        double value = 0;
        const std::uint64_t bits = random();
        std::memcpy(&value, &bits, sizeof(value));
        if (!std::isfinite(value)) continue;
        char text[40];
        std::snprintf(text, sizeof(text), "%.17g", value);
        ASSERT_EQ(KwMath::ToDouble(text), value) << text;
    }
}

TEST(KwMathTest, ToDoubleTakesNoWordsAndGoesToTheEndsOfItsRange) {
    for (const char* none : {"inf", "-infinity", "nancy", "e5", ".", "-.e1", ""}) {
        EXPECT_EQ(KwMath::ToDouble(none), 0.0) << none;
    }
    EXPECT_EQ(KwMath::ToDouble("0x10"), 0.0);
    EXPECT_EQ(KwMath::ToDouble("1e309"), INFINITY);
    EXPECT_EQ(KwMath::ToDouble("-1e99999999999999999999"), -INFINITY);
    EXPECT_EQ(KwMath::ToDouble("1e-99999999999999999999"), 0.0);
    EXPECT_EQ(KwMath::ToDouble("0e99999999999999999999"), 0.0);
    EXPECT_EQ(KwMath::ToDouble(("0." + std::string(400, '0') + "1").c_str()), 0.0);
    EXPECT_EQ(KwMath::ToDouble(("0." + std::string(400, '0') + "1e401").c_str()), 1.0);
    EXPECT_EQ(KwMath::ToDouble(std::string(400, '9').c_str()), INFINITY);
    EXPECT_EQ(KwMath::ToDouble("4.9406564584124654e-324"), 4.9406564584124654e-324);
}

TEST(KwMathTest, TruncationIsDefinedForEveryDouble) {
    EXPECT_EQ(KwMath::TruncateToInt(-2.9), -2);
    EXPECT_EQ(KwMath::TruncateToInt(1e300), INT_MAX);
    EXPECT_EQ(KwMath::TruncateToInt(-INFINITY), INT_MIN);
    EXPECT_EQ(KwMath::TruncateToInt(NAN), 0);
    EXPECT_EQ(KwMath::TruncateToUint(4294967297.5), 1U);
    EXPECT_EQ(KwMath::TruncateToUint(-1.5), 4294967295U);
    EXPECT_EQ(KwMath::TruncateToUint(9223372036854777856.0), 2048U);
    for (const double outside : {18446744073709551616.0, -1e19, double{INFINITY}, double{NAN}}) {
        EXPECT_EQ(KwMath::TruncateToUint(outside), 0U);
    }
}

TEST(KwMathTest, Base64HasThePublishedFormAndComesBack) {
    const std::string text = "foobar";
    const char* const encoded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    std::string out;
    for (unsigned int n = 0; n <= 6; ++n) {
        EXPECT_EQ(KwMath::EncodeBase64(text.data(), n), encoded[n]);
        EXPECT_TRUE(KwMath::DecodeBase64(encoded[n], -1, out));
        EXPECT_EQ(out, text.substr(0, n));
    }
    std::string all;
    for (int i = 0; i < 256; ++i) all += static_cast<char>(255 - i);
    const std::string code = KwMath::EncodeBase64(all.data(), 256);
    EXPECT_TRUE(code.starts_with("//79/Pv6"));
    EXPECT_TRUE(KwMath::DecodeBase64(code.data(), static_cast<int>(code.size()), out));
    EXPECT_EQ(out, all);
    EXPECT_TRUE(KwMath::EncodeBase64(nullptr, 5).empty());
}

TEST(KwMathTest, MalformedBase64IsRefusedWhole) {
    for (const char* bad : {"Zg", "Zg=", "Z===", "====", "Zh==", "Zm9=", "Zg==Zg==", "Zm9v\nZg=", "Zm-_", "=m9v",
                            "Zm=v", "Zm9v Zg==", "\xFFm9v"}) {
        std::string out = "old";
        EXPECT_FALSE(KwMath::DecodeBase64(bad, -1, out)) << bad;
        EXPECT_TRUE(out.empty());
    }
}
