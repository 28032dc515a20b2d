// Conversion of scalar values takes nothing from the heap.
#include "../support/AllocationCounter.h"
#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"
#include "Vesk/KnxValueConverter.h"

#include <gtest/gtest.h>

#include <initializer_list>
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
