// Conversion of scalar values takes nothing from the heap.
#include "../support/AllocationCounter.h"
#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"
#include "Vesk/KnxValueConverter.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <random>
#include <string>
#include <utility>

namespace {

template <typename Work>
std::size_t AllocationsOf(Work work) {
    const auto before = CountAllocations();
    work();
    return CountAllocations() - before;
}

struct Scalar {
    Datapoint::Number type;
    std::initializer_list<std::uint8_t> octets;
    const char* text;
};

const Scalar s_scalars[] = {
    {{1, 1}, {0x01}, "1"},
    {{5, 1}, {0x80}, "50.2"},
    {{5, 10}, {0x80}, "128"},
    {{8, 10}, {0x04, 0xD2}, "12.34"},
    {{9, 1}, {0x0C, 0x33}, "21.5"},
    {{9, 1}, {0x7F, 0xFE}, "670433.28"},
    {{10, 1}, {0x6C, 0x00, 0x00}, "Wed 12:00:00"},
    {{11, 1}, {0x01, 0x05, 0x18}, "2024-05-01"},
    {{12, 1}, {0xFF, 0xFF, 0xFF, 0xFF}, "4294967295"},
    {{13, 1}, {0x80, 0x00, 0x00, 0x00}, "-2147483648"},
    {{14, 68}, {0x41, 0xAC, 0x00, 0x00}, "21.5"},
    {{17, 1}, {0x05}, "6"},
    {{18, 1}, {0x85}, "-6"},
    {{20, 102}, {0x01}, "1"},
    {{21, 1}, {0x15}, "21"},
    {{22, 101}, {0x40, 0x01}, "16385"},
    {{23, 1}, {0x03}, "3"},
    {{29, 10}, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}, "-2"},
    {{30, 1010}, {0x80, 0x00, 0x01}, "8388609"},
    {{31, 101}, {0x07}, "7"},
};

TEST(Allocation, IsCounted) {
    std::string text;
    EXPECT_GT(AllocationsOf([&] { text.assign(100, 'x'); }), 0U);
}

TEST(Allocation, ScalarsTakeNoneFromTheBusAndToIt) {
    const Vesk::KnxValueConverter converter;
    for (const auto& scalar : s_scalars) {
        auto dpt = Datapoint::ToKnxDpt(scalar.type);
        const KnxStack::GroupValue fromBus(KnxStack::BinaryData(scalar.octets),
                                           Datapoint::SizeInBits(*Datapoint::Find(scalar.type)));
        TAVVALUE value;
        bool done = false;
        EXPECT_EQ(AllocationsOf([&] { done = converter.FromKnxValue(dpt, fromBus, value); }), 0U)
            << scalar.text;
        EXPECT_TRUE(done) << scalar.text;
        std::string text;
        value.Serialize(text, true);
        EXPECT_EQ(text, scalar.text);
        KnxStack::GroupValue toBus;
        EXPECT_EQ(AllocationsOf([&] { done = converter.ToKnxValue(dpt, value, toBus); }), 0U) << scalar.text;
        EXPECT_TRUE(done) << scalar.text;
        EXPECT_EQ(toBus, fromBus) << scalar.text;
    }
}

// The most that a value with this text may take: none where a string holds it in place, else its own.
std::size_t AllocationsOfText(const std::string& text) {
    return text.size() > std::string().capacity() ? 1 : 0;
}

// A value from the bus and back. False where the octets are refused, which takes nothing either.
bool ConvertScalar(KNXDPT dpt, const KnxStack::GroupValue& fromBus, const char* name) {
    const Vesk::KnxValueConverter converter;
    TAVVALUE value;
    bool done = false;
    const auto decoding = AllocationsOf([&] { done = converter.FromKnxValue(dpt, fromBus, value); });
    std::string text;
    value.Serialize(text, true);
    EXPECT_LE(decoding, done ? AllocationsOfText(text) : 0) << name << ' ' << text;
    if (!done || value.IsNull()) {
        return done;
    }
    TAVVALUE read;
    read.Deserialize(text);
    KnxStack::GroupValue toBus;
    EXPECT_EQ(AllocationsOf([&] { converter.ToKnxValue(dpt, read, toBus); }), 0U) << name << ' ' << text;
    // A number that holds no text yet is printed first.
    const auto encoding = AllocationsOf([&] { converter.ToKnxValue(dpt, value, toBus); });
    EXPECT_LE(encoding, AllocationsOfText(text)) << name << ' ' << text;
    return true;
}

bool IsComposite(const Datapoint::Type& type) {
    return type.main == 2 || type.main == 3 || type.main == 15 || (type.main == 6 && type.sub == 20) ||
           (type.main >= 25 && type.main <= 27) || (type.main >= 200 && type.main != 234);
}

KnxStack::BinaryData RandomOctets(unsigned bits, std::mt19937& random) {
    KnxStack::BinaryData octets;
    for (unsigned at = 0; at < bits; at += 8) {
        octets.Append(static_cast<std::uint8_t>(random()));
    }
    return octets;
}

// A type of one value, with whatever octets it takes; those of variable length with as many as a group value
// holds in place.
TEST(Allocation, EveryScalarTypeTakesNoneButForItsText) {
    std::mt19937 random(1);
    unsigned types = 0;
    for (const auto& type : Datapoint::AllTypes()) {
        const std::string name = Datapoint::ToString(type.GetNumber());
        const unsigned bits = Datapoint::SizeInBits(type) != 0 ? Datapoint::SizeInBits(type) : 14 * 8;
        const KNXDPT dpt = Datapoint::ToKnxDpt(type.GetNumber());
        unsigned taken = 0;
        for (int i = 0; i < 200 && !IsComposite(type); ++i) {
            taken += ConvertScalar(dpt, {RandomOctets(bits, random), bits}, name.c_str()) ? 1 : 0;
        }
        EXPECT_TRUE(taken > 0 || IsComposite(type)) << name;
        types += taken > 0 ? 1 : 0;
    }
    EXPECT_GT(types, 280U);
}

TEST(Allocation, ConversionBySizeTakesNoneButForItsText) {
    std::mt19937 random(2);
    for (const unsigned bits : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 16U, 24U, 32U, 48U, 64U, 72U, 112U}) {
        KNXDPT dpt;
        dpt.sizeInBits = static_cast<std::uint8_t>(bits);
        for (int i = 0; i < 200; ++i) {
            EXPECT_TRUE(ConvertScalar(dpt, {RandomOctets(bits, random), bits}, "by size")) << bits;
        }
    }
}

// The words of a refusal are composed only for those who ask.
TEST(Allocation, RefusalsOfScalarsTakeNoneEither) {
    const Vesk::KnxValueConverter converter;
    const std::pair<Datapoint::Number, const char*> refused[] = {{{1, 1}, "2"},      {{5, 1}, "100.1"},
                                                                 {{9, 1}, "700000"}, {{9, 1}, "abc"},
                                                                 {{14, 68}, "1e39"}, {{999, 1}, "1"}};
    for (const auto& [type, text] : refused) {
        auto dpt = Datapoint::ToKnxDpt(type);
        TAVVALUE value;
        value.Deserialize(text);
        KnxStack::GroupValue groupValue;
        bool done = true;
        EXPECT_EQ(AllocationsOf([&] { done = converter.ToKnxValue(dpt, value, groupValue); }), 0U) << text;
        EXPECT_FALSE(done) << text;
    }
}

} // namespace
