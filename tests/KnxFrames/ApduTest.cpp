#include "KnxFrames/Apdu.h"

#include <gmock/gmock.h>

namespace KnxFrames {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Apdu, ServiceNumberAndDataAreReadFromNumberedAndUnnumberedData) {
    const Tpdu unnumbered{0x03, 0xD5, 0x00, 0x0B, 0x10, 0x01};
    const auto property = ReadApdu(unnumbered);
    ASSERT_TRUE(property);
    EXPECT_EQ(Service::PropertyValueRead, property->service);
    EXPECT_EQ(0, property->number);
    EXPECT_THAT(property->data, ElementsAre(0x00, 0x0B, 0x10, 0x01));

    const Tpdu numbered{0x4E, 0x0C, 0x02, 0x00}; // sequence 3
    const auto memory = ReadApdu(numbered);
    ASSERT_TRUE(memory);
    EXPECT_EQ(Service::MemoryRead, memory->service);
    EXPECT_EQ(12, memory->number);
    EXPECT_THAT(memory->data, ElementsAre(0x02, 0x00));
}

TEST(Apdu, SixLowBitsAreANumberOnlyWhereTheServiceHasOne) {
    EXPECT_EQ(63, ReadApdu({0x02, 0xBF})->number);
    EXPECT_EQ(Service::MemoryWrite, ReadApdu({0x02, 0xBF})->service);
    EXPECT_EQ(Service::UserMemoryRead, ReadApdu({0x02, 0xC0})->service);
    EXPECT_EQ(Service::UserMemoryWrite, ReadApdu({0x02, 0xC2})->service);
    EXPECT_EQ(Service::Restart, ReadApdu({0x03, 0x80})->service);
    EXPECT_EQ(Service::MasterReset, ReadApdu({0x03, 0x81})->service);
    EXPECT_FALSE(ReadApdu({0x03, 0x82}));
    EXPECT_FALSE(ReadApdu({0x01, 0x01})) << "A_IndividualAddress_Read has no number";
    EXPECT_EQ(Service::AdcResponse, ReadApdu({0x01, 0xC7})->service);
    EXPECT_EQ(Service::SystemNetworkParameterRead, ReadApdu({0x01, 0xC8})->service);
}

TEST(Apdu, WhatIsNoDataOrNoKnownServiceIsRefused) {
    EXPECT_FALSE(ReadApdu({}));
    EXPECT_FALSE(ReadApdu({0x03}));
    EXPECT_FALSE(ReadApdu({0x80, 0x00})) << "control data";
    EXPECT_FALSE(ReadApdu({0x03, 0xC0}));
    EXPECT_FALSE(ReadApdu({0x00, 0x80})) << "group communication is read elsewhere";
}

TEST(Apdu, EveryServiceIsReadAsItIsMadeAndHasAName) {
    unsigned services = 0;
    for (unsigned apci = 0; apci < 0x400; ++apci) {
        const auto service = static_cast<Service>(apci);
        const bool known = std::string_view(ToString(service)) != "unknown service";
        const auto read = ReadApdu(MakeApdu(service));
        if (known) {
            ++services;
            ASSERT_TRUE(read) << apci;
            EXPECT_EQ(service, read->service) << apci;
            EXPECT_THAT(read->data, IsEmpty());
        } else if (read) {
            EXPECT_NE(service, read->service) << "a service with a number";
        }
    }
    EXPECT_EQ(53u, services);
    EXPECT_STREQ("A_Memory_Write", ToString(Service::MemoryWrite));
}

TEST(Apdu, IsMadeWithNumberAndData) {
    const std::uint8_t data[] = {0x02, 0x00, 0xAA};
    EXPECT_THAT(MakeApdu(Service::MemoryWrite, 1, data).View(), ElementsAre(0x02, 0x81, 0x02, 0x00, 0xAA));
}

} // namespace
} // namespace KnxFrames
