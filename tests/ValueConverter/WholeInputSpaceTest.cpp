// Every raw value of the types from 21 on that have up to 16 bits.
#include "Convert.h"

#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

#include <string>

using namespace ConverterTest;

namespace {

struct Space {
    const char* dpt;
    unsigned mask;    // the bits that are not reserved
    unsigned allowed; // of all raw values, reserved bits included, those whose text may go to the bus
};

// Counted by hand: five bits with a meaning are 32 sums; 101 of 256 percents; all but 3 in three quarters of
// the octets; 237.600 refuses 48 of 64 addresses where ai is 1; 244.600 allows 10 * 4 * 3 * 3 * 3 * 3.
const Space s_spaces[] = {
    {"21.001", 0xFF, 32},
    {"21.002", 0xFF, 8},
    {"21.100", 0xFF, 256},
    {"21.101", 0xFF, 2},
    {"21.102", 0xFF, 256},
    {"21.103", 0xFF, 8},
    {"21.104", 0xFF, 8},
    {"21.105", 0xFF, 2},
    {"21.106", 0xFF, 16},
    {"21.601", 0xFF, 128},
    {"21.1000", 0xFF, 8},
    {"21.1001", 0xFF, 8},
    {"21.1002", 0xFF, 2},
    {"21.1010", 0xFF, 256},
    {"21.1200", 0xFF, 256},
    {"21.1201", 0xFF, 8},
    {"22.100", 0xFFFF, 256},
    {"22.101", 0xFFFF, 32768},
    {"22.1000", 0xFFFF, 16},
    {"22.1010", 0xFFFF, 65536},
    {"23.001", 0x03, 256},
    {"23.002", 0x03, 192},
    {"23.003", 0x03, 256},
    {"23.102", 0x03, 256},
    {"25.1000", 0xFF, 16},
    {"26.001", 0x7F, 256},
    {"31.101", 0x07, 256},
    {"200.100", 0x01FF, 65536},
    {"201.100", 0xFFFF, 65536},
    {"202.001", 0xFFFF, 65536},
    {"204.001", 0xFFFF, 201 * 256},
    {"207.100", 0xFFFF, 101 * 256},
    {"207.600", 0xFFFF, 65536},
    {"211.100", 0xFFFF, 101 * 256},
    {"217.001", 0xFFFF, 65536},
    {"236.001", 0xFF, 256},
    {"237.600", 0x07FF, 65536 - 32768 / 64 * 48},
    {"238.001", 0xFF, 256},
    {"238.600", 0xFF, 256},
    {"239.001", 0xFF01, 65536},
    {"244.600", 0xFFFF, 3240},
    {"246.600", 0x07FF, 65536},
    {"21.xxx", 0xFF, 256},
    {"25.xxx", 0xFF, 256},
    {"244.xxx", 0xFFFF, 65536},
};

class WholeInputSpace : public testing::TestWithParam<Space> {};

Bytes Octets(unsigned raw, bool two) {
    return two ? Bytes{static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw)}
               : Bytes{static_cast<std::uint8_t>(raw)};
}

} // namespace

TEST_P(WholeInputSpace, SurvivesTheWayToTextAndBackOrIsRefused) {
    const auto& [dpt, mask, allowed] = GetParam();
    const bool two = Datapoint::SizeInBits(*Datapoint::Find(*Datapoint::Parse(dpt))) > 8;
    unsigned taken = 0;
    for (unsigned raw = 0; raw < (two ? 0x10000U : 0x100U); ++raw) {
        const std::string text = FromBus(dpt, Octets(raw, two));
        const std::string same = Hex(Octets(raw & mask, two));
        ASSERT_EQ(AsReceived(dpt, text), same) << text;
        const std::string back = ToBus(dpt, text);
        if (back != kRefused) {
            ASSERT_EQ(back, same) << text;
            ++taken;
        }
    }
    EXPECT_EQ(taken, allowed);
}

INSTANTIATE_TEST_SUITE_P(Types, WholeInputSpace, testing::ValuesIn(s_spaces), [](const auto& space) {
    std::string name = space.param.dpt;
    name.replace(name.find('.'), 1, "_");
    return name;
});
