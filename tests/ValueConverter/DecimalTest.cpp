// Exact decimal numbers.
#include "ValueConverter/Decimal.h"

#include <gtest/gtest.h>

#include <limits>

using Datapoint::Decimal;
using Datapoint::DecimalText;

namespace {

std::string Units(std::string_view text, int decimals) {
    const auto decimal = Decimal::Read(text);
    if (!decimal) {
        return "none";
    }
    const auto scaled = decimal->InUnits(decimals);
    constexpr std::string_view kRemainders[] = {"", " <", " =", " >"};
    return scaled.overflow ? "overflow"
                           : (scaled.negative ? "-" : "") + std::to_string(scaled.magnitude) +
                                 std::string(kRemainders[static_cast<unsigned>(scaled.remainder)]);
}

} // namespace

TEST(Decimal, CountsUnits) {
    EXPECT_EQ(Units("21.5", 2), "2150");
    EXPECT_EQ(Units("-21.5", 0), "-21 =");
    EXPECT_EQ(Units("21.49", 0), "21 <");
    EXPECT_EQ(Units("21.51", 0), "21 >");
    EXPECT_EQ(Units("2.15e1", 2), "2150");
    EXPECT_EQ(Units("215e-1", 1), "215");
    EXPECT_EQ(Units(".5", 1), "5");
    EXPECT_EQ(Units("0.000", 5), "0");
    EXPECT_EQ(Units("0e99999999999", 5), "0");
}

TEST(Decimal, KeepsAllDigitsThat64BitsHold) {
    EXPECT_EQ(Units("18446744073709551615", 0), "18446744073709551615");
    EXPECT_EQ(Units("18446744073709551616", 0), "overflow");
    EXPECT_EQ(Units("184467440737095516150e-1", 0), "18446744073709551615");
    EXPECT_EQ(Units("1e19", 0), "10000000000000000000");
    EXPECT_EQ(Units("1e20", 0), "overflow");
    EXPECT_EQ(Units("1e99999999999", 0), "overflow");
    EXPECT_EQ(Units("1e-99999999999", 0), "0 <");
    EXPECT_EQ(Units("0.5000000000000000000000000000000000001", 0), "0 >");
    EXPECT_EQ(Units("0.4999999999999999999999999999999999999", 0), "0 <");
    EXPECT_EQ(Units("0.5000000000000000000000000000000000000", 0), "0 =");
}

TEST(Decimal, ComparesExactly) {
    EXPECT_EQ(Decimal::Read("-273")->InUnits(2).Compare(-27300), 0);
    EXPECT_EQ(Decimal::Read("-273.000000000000000001")->InUnits(2).Compare(-27300), -1);
    EXPECT_EQ(Decimal::Read("-272.999999999999999999")->InUnits(2).Compare(-27300), 1);
    EXPECT_EQ(Decimal::Read("0.0000001")->InUnits(0).Compare(0), 1);
    EXPECT_EQ(Decimal::Read("-0.0000001")->InUnits(0).Compare(0), -1);
    EXPECT_EQ(Decimal::Read("-0")->InUnits(0).Compare(0), 0);
    EXPECT_EQ(Decimal::Read("-0")->InUnits(0).Compare(5), -1);
    EXPECT_EQ(Decimal::Read("-0")->InUnits(0).Compare(-5), 1);
    EXPECT_EQ(Decimal::Read("1e30")->InUnits(0).Compare(std::numeric_limits<std::int64_t>::max()), 1);
    EXPECT_EQ(Decimal::Read("-1e30")->InUnits(0).Compare(std::numeric_limits<std::int64_t>::min()), -1);
    EXPECT_EQ(
        Decimal::Read("-9223372036854775808")->InUnits(0).Compare(std::numeric_limits<std::int64_t>::min()),
        0);
}

TEST(DecimalText, HasNoZerosAtItsEnd) {
    EXPECT_EQ(DecimalText(2150, 2).View(), "21.5");
    EXPECT_EQ(DecimalText(2100, 2).View(), "21");
    EXPECT_EQ(DecimalText(-1, 2).View(), "-0.01");
    EXPECT_EQ(DecimalText(10, 2).View(), "0.1");
    EXPECT_EQ(DecimalText(0, 2).View(), "0");
    EXPECT_EQ(DecimalText(100, 0).View(), "100");
    EXPECT_EQ(DecimalText(std::numeric_limits<std::int64_t>::min(), 4).View(), "-922337203685477.5808");
    EXPECT_EQ(DecimalText(std::numeric_limits<std::int64_t>::min(), 0).View(), "-9223372036854775808");
}
