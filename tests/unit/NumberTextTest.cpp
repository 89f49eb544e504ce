#include "core/text/NumberText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

namespace velmora {
namespace {

TEST(NumberTextTest, OrdinaryValuesAreFixedWithAFractionalPart) {
    EXPECT_EQ(doubleDescription(100000), "100000.0");
    EXPECT_EQ(doubleDescription(100), "100.0");
    EXPECT_EQ(doubleDescription(1234567.25), "1234567.25");
    EXPECT_EQ(doubleDescription(-3), "-3.0");
    EXPECT_EQ(doubleDescription(0.1), "0.1");
    EXPECT_EQ(doubleDescription(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(doubleDescription(1.0 / 3.0), "0.3333333333333333");
    EXPECT_EQ(doubleDescription(320.5), "320.5");
    EXPECT_EQ(doubleDescription(0), "0.0");
    EXPECT_EQ(doubleDescription(-0.0), "-0.0");
}

// Fixed notation reaches down to 0.0001; anything smaller in magnitude is
// written with an exponent.
TEST(NumberTextTest, BelowOneTenThousandthTheExponentTakesOver) {
    EXPECT_EQ(doubleDescription(0.0001), "0.0001");
    EXPECT_EQ(doubleDescription(-0.0001), "-0.0001");
    EXPECT_EQ(doubleDescription(0.00012), "0.00012");
    EXPECT_EQ(doubleDescription(0.00009999), "9.999e-05");
    EXPECT_EQ(doubleDescription(0.00001), "1e-05");
    EXPECT_EQ(doubleDescription(-0.000015), "-1.5e-05");
    EXPECT_EQ(doubleDescription(1e-100), "1e-100");
    EXPECT_EQ(doubleDescription(5e-324), "5e-324");  // the smallest subnormal
    EXPECT_EQ(doubleDescription(2.2250738585072014e-308), "2.2250738585072014e-308");
}

// Fixed notation reaches up to 2^53, the last integer a double holds together
// with all its neighbours; anything larger in magnitude is written with an
// exponent, 1e16 included.
TEST(NumberTextTest, Past2To53TheExponentTakesOver) {
    EXPECT_EQ(doubleDescription(1e15), "1000000000000000.0");
    EXPECT_EQ(doubleDescription(9007199254740991.0), "9007199254740991.0");
    EXPECT_EQ(doubleDescription(9007199254740992.0), "9007199254740992.0");
    EXPECT_EQ(doubleDescription(-9007199254740992.0), "-9007199254740992.0");
    EXPECT_EQ(doubleDescription(9007199254740994.0), "9.007199254740994e+15");
    EXPECT_EQ(doubleDescription(9999999999999998.0), "9.999999999999998e+15");
    EXPECT_EQ(doubleDescription(1e16), "1e+16");
    EXPECT_EQ(doubleDescription(-1e16), "-1e+16");
    EXPECT_EQ(doubleDescription(1.2345e20), "1.2345e+20");
    EXPECT_EQ(doubleDescription(1e21), "1e+21");
    EXPECT_EQ(doubleDescription(1e100), "1e+100");
    EXPECT_EQ(doubleDescription(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
    // Large values with a fraction stay fixed below the bound.
    EXPECT_EQ(doubleDescription(4503599627370495.5), "4503599627370495.5");
}

TEST(NumberTextTest, NonFiniteValuesAreNamed) {
    EXPECT_EQ(doubleDescription(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(doubleDescription(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(doubleDescription(std::nan("")), "nan");
}

TEST(NumberTextTest, EveryDescriptionReadsBackAsTheSameDouble) {
    uint64_t state = 0x9E3779B97F4A7C15u;
    for (int i = 0; i < 20000; ++i) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        double value = 0;
        std::memcpy(&value, &state, sizeof value);
        if (!std::isfinite(value)) {
            continue;
        }
        const std::string text = doubleDescription(value);
        EXPECT_EQ(std::strtod(text.c_str(), nullptr), value) << text;
        EXPECT_NE(text.find_first_of(".e"), std::string::npos) << text;
    }
}

TEST(NumberTextTest, TheJsonFormDropsATrailingPointZero) {
    EXPECT_EQ(jsonNumberText(10), "10");
    EXPECT_EQ(jsonNumberText(100000), "100000");
    EXPECT_EQ(jsonNumberText(0), "0");
    EXPECT_EQ(jsonNumberText(-0.0), "-0");
    EXPECT_EQ(jsonNumberText(-3), "-3");
    EXPECT_EQ(jsonNumberText(12.5), "12.5");
    EXPECT_EQ(jsonNumberText(0.0001), "0.0001");
    EXPECT_EQ(jsonNumberText(1e16), "1e+16");
    EXPECT_EQ(jsonNumberText(1e-5), "1e-05");
    EXPECT_EQ(jsonNumberText(9007199254740992.0), "9007199254740992");
    EXPECT_EQ(jsonNumberText(9007199254740994.0), "9.007199254740994e+15");
}

}  // namespace
}  // namespace velmora
