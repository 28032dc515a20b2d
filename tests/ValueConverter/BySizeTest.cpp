// Main number 0: values of which only the size is known.
#include "Convert.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace ConverterTest;

namespace {

constexpr unsigned kDecimalBits = 64;

/// The record of an untyped value: its size has 8 bits.
KNXDPT RecordOf(unsigned bits) {
    KNXDPT dpt;
    dpt.sizeInBits = static_cast<std::uint8_t>(bits);
    return dpt;
}

// 1 to 7, then whole octets up to 255 of them.
std::vector<unsigned> AllSizes() {
    std::vector<unsigned> sizes{1, 2, 3, 4, 5, 6, 7};
    for (unsigned bits = 8; bits <= 2040; bits += 8) {
        sizes.push_back(bits);
    }
    return sizes;
}

// Nothing but zeros, nothing but ones, a one at either end, and 20 values by chance.
std::vector<Bytes> SamplesOf(unsigned bits) {
    std::mt19937 random(bits);
    const std::size_t length = (bits + 7) / 8;
    const auto top = static_cast<std::uint8_t>(bits < 8 ? (1U << bits) - 1 : 0xFF);
    std::vector<Bytes> samples{Bytes(length, 0), Bytes(length, 0xFF), Bytes(length, 0), Bytes(length, 0)};
    samples[2].back() = 1;
    samples[3].front() = static_cast<std::uint8_t>((top >> 1) + 1);
    for (int i = 0; i < 20; ++i) {
        std::generate_n(std::back_inserter(samples.emplace_back()), length,
                        [&random] { return static_cast<std::uint8_t>(random()); });
    }
    for (Bytes& sample : samples) {
        sample.front() &= top;
    }
    return samples;
}

// The digits by long division, so that no type of this machine has a say in it.
std::string DecimalOf(Bytes octets) {
    std::string digits;
    do {
        unsigned rest = 0;
        for (auto& octet : octets) {
            rest = rest * 256 + octet;
            octet = static_cast<std::uint8_t>(rest / 10);
            rest %= 10;
        }
        digits.insert(digits.begin(), static_cast<char>('0' + rest));
    } while (std::any_of(octets.begin(), octets.end(), [](auto octet) { return octet != 0; }));
    return digits;
}

/// The octets of the text in a value of the size, or kRefused.
std::string EncodedAs(unsigned bits, const std::string& text) {
    TAVVALUE value;
    value.SetText(text);
    KnxStack::GroupValue groupValue;
    if (!Datapoint::Encode(RecordOf(bits), value, groupValue)) {
        return std::string(kRefused);
    }
    EXPECT_EQ(groupValue.GetDefinedSize(), bits);
    return groupValue.GetRawData().ToString();
}

} // namespace

// A size that is a multiple of 256 bits is recorded as 0, which is the size of nothing.
TEST(BySize, EverySizeSurvivesTheWayToTextAndBack) {
    for (const unsigned bits : AllSizes()) {
        for (const Bytes& octets : SamplesOf(bits)) {
            const std::string text = FromBus(RecordOf(bits), octets, bits);
            if (bits % 256 == 0) {
                ASSERT_EQ(text, kRefused) << bits;
                ASSERT_EQ(EncodedAs(bits, Hex(octets)), kRefused) << bits;
                continue;
            }
            ASSERT_EQ(text, bits <= kDecimalBits ? DecimalOf(octets) : Hex(octets)) << bits;
            ASSERT_EQ(EncodedAs(bits, text), Hex(octets)) << bits;
        }
    }
}

TEST(BySize, OneBeyondEverySizeIsRefused) {
    for (const unsigned bits : AllSizes()) {
        const std::size_t length = (bits + 7) / 8;
        if (bits <= kDecimalBits) {
            Bytes octets(length + 1, 0); // 2^bits
            octets[bits % 8 == 0 ? 0 : 1] = static_cast<std::uint8_t>(1U << bits % 8);
            EXPECT_EQ(EncodedAs(bits, DecimalOf(octets)), kRefused) << bits;
            EXPECT_EQ(EncodedAs(bits, "-1"), kRefused) << bits;
        } else {
            const std::string digits(length * 2, 'a');
            for (const auto& text : {digits.substr(1), digits.substr(2), digits + "a", digits + "aa"}) {
                EXPECT_EQ(EncodedAs(bits, text), kRefused) << bits;
            }
        }
        EXPECT_EQ(FromBus(RecordOf(bits), Bytes(length + 1, 0), bits), kRefused) << bits;
        EXPECT_EQ(FromBus(RecordOf(bits), Bytes(length + 1, 0), bits + 8), kRefused) << bits;
    }
}

// 32 octets are 0 in 8 bits, 33 are 8, 40 are 64: a value of 8 and of 64 bits is a number, these are digits.
TEST(BySize, AWrappedSizeTakesTheTextForWhatItIs) {
    EXPECT_EQ(FromBus(RecordOf(256), Bytes(32, 1), 256), kRefused);
    const Bytes octets40(40, 0x12);
    EXPECT_EQ(FromBus(RecordOf(320), octets40, 320), Hex(octets40));
    EXPECT_EQ(EncodedAs(320, Hex(octets40)), Hex(octets40));
    // B8F47Ch: 11 * 2^20 + 8 * 2^16 + 62588
    EXPECT_EQ(EncodedAs(64, "12121212"), "0000000000b8f47c");
    EXPECT_EQ(EncodedAs(64, "18446744073709551615"), "ffffffffffffffff");
    EXPECT_EQ(EncodedAs(8, "12"), "0c");
}

TEST(BySize, IsAnUnsignedNumberUpTo64Bits) {
    EXPECT_EQ(FromBus("1 bit", {0x01}), "1");
    EXPECT_EQ(FromBus("4 bits", {0x0F}), "15");
    EXPECT_EQ(FromBus("8 bits", {0xFF}), "255");
    EXPECT_EQ(FromBus("16 bits", {0x0C, 0x1A}), "3098");
    EXPECT_EQ(FromBus("64 bits", Bytes(8, 0xFF)), "18446744073709551615");
    EXPECT_EQ(ToBus("1 bit", "1"), "01");
    EXPECT_EQ(ToBus("4 bits", "15"), "0f");
    EXPECT_EQ(ToBus("16 bits", "3098"), "0c1a");
    EXPECT_EQ(ToBus("24 bits", "1"), "000001");
    EXPECT_EQ(ToBus("64 bits", "18446744073709551615"), "ffffffffffffffff");
}

TEST(BySize, MasksTheBitsAboveASmallValue) {
    EXPECT_EQ(FromBus("1 bit", {0xFE}), "0");
    EXPECT_EQ(FromBus("4 bits", {0xF5}), "5");
}

TEST(BySize, IsHexadecimalAbove64Bits) {
    EXPECT_EQ(FromBus("72 bits", {0x00, 1, 2, 3, 4, 5, 6, 7, 0xAB}), "0001020304050607ab");
    EXPECT_EQ(ToBus("72 bits", "0001020304050607ab"), "0001020304050607ab");
    EXPECT_EQ(ToBus("72 bits", "0001020304050607AB"), "0001020304050607ab");
    EXPECT_EQ(ToBus("72 bits", "000000000000000001"), "000000000000000001");
    EXPECT_EQ(ToBus("112 bits", "0000000000000000000000001e10"), "0000000000000000000000001e10");
}

TEST(BySize, RefusesDigitsOfAnotherNumber) {
    EXPECT_EQ(ToBus("72 bits", "0001020304050607a"), kRefused);
    EXPECT_EQ(ToBus("72 bits", "0001020304050607abcd"), kRefused);
    EXPECT_EQ(ToBus("72 bits", "5"), kRefused);
    EXPECT_EQ(ToBus("72 bits", "0001020304050607ag"), kRefused);
    EXPECT_EQ(WhyNotToBus("72 bits", "5"),
              "72 bits: '5' does not have the 18 hexadecimal digits of this size");
}

// 33 octets are 264 bits, which the record holds as 8.
TEST(BySize, KnowsTheTrueSizeOfValuesAbove255Bits) {
    const Bytes octets(33, 0x5A);
    EXPECT_EQ(FromBus(Dpt("8 bits"), octets, 264), Hex(octets));
    EXPECT_EQ(FromBus(Dpt("8 bits"), octets, 272), kRefused);
    TAVVALUE value;
    value.SetText(Hex(octets));
    KnxStack::GroupValue groupValue;
    ASSERT_TRUE(Datapoint::Encode(Dpt("8 bits"), value, groupValue));
    EXPECT_EQ(groupValue.GetDefinedSize(), 264U);
    EXPECT_EQ(groupValue.GetRawData().ToString(), Hex(octets));
}

TEST(BySize, RefusesWhatDoesNotFit) {
    EXPECT_EQ(ToBus("1 bit", "2"), kRefused);
    EXPECT_EQ(ToBus("4 bits", "16"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "256"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "-1"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "1.5"), kRefused);
    EXPECT_EQ(ToBus("8 bits", "on"), kRefused);
    EXPECT_EQ(ToBus("8 bits", ""), kRefused);
    EXPECT_EQ(ToBus("64 bits", "18446744073709551616"), kRefused);
    EXPECT_EQ(WhyNotToBus("8 bits", "300"), "8 bits: 300 is above 255");
}

TEST(BySize, RefusesSizesThatNoGroupValueHas) {
    EXPECT_EQ(ToBus("0 bits", "1"), kRefused);
    EXPECT_EQ(ToBus("12 bits", "1"), kRefused);
    EXPECT_EQ(FromBus(Dpt("0 bits"), {0x01}, 8), kRefused);
    EXPECT_EQ(FromBus("0 bits", {}), kRefused);
    EXPECT_EQ(FromBus(Dpt("8 bits"), {0x01}, 4), kRefused);
    EXPECT_EQ(FromBus(Dpt("16 bits"), {0x01}, 16), kRefused);
    EXPECT_EQ(FromBus(Dpt("1 bit"), Bytes(33, 1), 257), kRefused);
    EXPECT_EQ(FromBus(Dpt("4 bits"), Bytes(33, 1), 260), kRefused);
    EXPECT_EQ(WhyNotToBus("0 bits", "1"), "0 bits: a group value cannot have this size");
}
