#include "KnxDevice/LoadedTables.h"

#include <gmock/gmock.h>

namespace KnxDevice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

constexpr GroupAddress kFirst(1, 0, 1);  // 0801h
constexpr GroupAddress kSecond(1, 0, 2); // 0802h
constexpr GroupAddress kThird(2, 0, 0);  // 1000h

Flags FlagsOf(std::initializer_list<Flag> flags) {
    Flags result;
    for (const auto flag : flags)
        result = result.With(flag);
    return result;
}

TEST(LoadedTables, AreReadAsTheStandardHasThem) {
    // Three addresses; object 1 sends to the second and listens to the first; object 2 is one bit at the
    // third. Object 1: update 80h, transmit 40h, write 10h, communication 04h, priority low 03h = D7h, 2
    // octets = code 8. Object 2: read on init 20h, read 08h, communication 04h, priority urgent 02h = 2Eh, 1
    // bit = code 0.
    const Bytes addresses{0, 3, 0x08, 0x01, 0x08, 0x02, 0x10, 0x00};
    const Bytes associations{0, 3, 0, 2, 0, 1, 0, 1, 0, 1, 0, 3, 0, 2};
    const Bytes objects{0, 2, 0xD7, 8, 0x2E, 0};
    EXPECT_EQ(LoadFault::None, CheckAddressTable(addresses));
    EXPECT_EQ(LoadFault::None, CheckAssociationTable(associations));
    EXPECT_EQ(LoadFault::None, CheckGroupObjectTable(objects));
    const auto read = ReadLoadedTables(addresses, associations, objects);
    ASSERT_EQ(2u, read.size());
    EXPECT_EQ(1, read[0].number);
    EXPECT_EQ(16u, read[0].sizeInBits);
    EXPECT_EQ(FlagsOf({Flag::Communication, Flag::Write, Flag::Transmit, Flag::Update}), read[0].flags);
    EXPECT_EQ(Priority::Low, read[0].priority);
    EXPECT_THAT(read[0].groupAddresses, ElementsAre(kSecond, kFirst));
    EXPECT_EQ(2, read[1].number);
    EXPECT_EQ(1u, read[1].sizeInBits);
    EXPECT_EQ(FlagsOf({Flag::Communication, Flag::Read, Flag::ReadOnInit}), read[1].flags);
    EXPECT_EQ(Priority::Urgent, read[1].priority);
    EXPECT_THAT(read[1].groupAddresses, ElementsAre(kThird));

    const auto written = WriteLoadedTables(read);
    EXPECT_EQ(addresses, written.addresses);
    EXPECT_EQ(associations, written.associations);
    EXPECT_EQ(objects, written.objects);
}

TEST(LoadedTables, KnowEverySizeOfAGroupObject) {
    // Codes 0 to 6 are 1 to 7 bits; the codes of 7 to 20, in octets, are those of the standard's list; each
    // code from 21 on is an octet more.
    const std::vector<unsigned> octets{1, 2, 3, 4, 6, 8, 10, 14, 5, 7, 9, 11, 12, 13, 15, 16};
    for (unsigned code = 0; code < 255; ++code) {
        const Bytes objects{0, 1, 0x04, static_cast<std::uint8_t>(code)};
        const auto read = ReadLoadedTables({}, {}, objects);
        ASSERT_EQ(1u, read.size());
        const unsigned bits = code < 7 ? code + 1 : code < 23 ? octets[code - 7] * 8 : (code - 6) * 8;
        EXPECT_EQ(bits, read[0].sizeInBits) << code;
        EXPECT_EQ(objects, WriteLoadedTables(read).objects) << code;
        EXPECT_EQ(LoadFault::None, CheckGroupObjectTable(objects));
    }
}

TEST(LoadedTables, NumbersThatNoObjectHasAreKept) {
    const Bytes objects{0, 3, 0x00, 0xFF, 0x04, 0, 0x00, 0xFF};
    const auto read = ReadLoadedTables({}, {}, objects);
    ASSERT_EQ(1u, read.size());
    EXPECT_EQ(2, read[0].number);
    EXPECT_EQ((Bytes{0, 2, 0x00, 0xFF, 0x04, 0}), WriteLoadedTables(read).objects);
}

TEST(LoadedTables, AnAddressTableMustAscendAndFit) {
    EXPECT_EQ(LoadFault::None, CheckAddressTable({}));
    EXPECT_EQ(LoadFault::None, CheckAddressTable(Bytes{0, 0, 9, 9})) << "what is behind is not looked at";
    EXPECT_EQ(LoadFault::AddressesUnsorted, CheckAddressTable(Bytes{0, 2, 8, 2, 8, 1}));
    EXPECT_EQ(LoadFault::AddressesUnsorted, CheckAddressTable(Bytes{0, 2, 8, 1, 8, 1}));
    EXPECT_EQ(LoadFault::AddressesUnsorted, CheckAddressTable(Bytes{0, 1, 0, 0})) << "0/0/0 is no group";
    EXPECT_EQ(LoadFault::TableTooLong, CheckAddressTable(Bytes{0, 2, 8, 1, 8}));
    EXPECT_EQ(LoadFault::TableTooLong, CheckAddressTable(Bytes{0}));
    EXPECT_EQ(LoadFault::TableTooLong, CheckAddressTable(Bytes{0xFF, 0xFF}));
}

TEST(LoadedTables, AnAssociationNeedsAConnectionAndAnObject) {
    EXPECT_EQ(LoadFault::InvalidConnection, CheckAssociationTable(Bytes{0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(LoadFault::InvalidObject, CheckAssociationTable(Bytes{0, 1, 0, 1, 0, 0}));
    EXPECT_EQ(LoadFault::InvalidObject, CheckAssociationTable(Bytes{0, 1, 0, 1, 0xFF, 0xFF}));
    EXPECT_EQ(LoadFault::TableTooLong, CheckAssociationTable(Bytes{0, 1, 0, 1, 0}));
    EXPECT_EQ(LoadFault::TableTooLong, CheckGroupObjectTable(Bytes{0, 2, 4, 0, 4}));
    EXPECT_EQ(LoadFault::InvalidObject, CheckGroupObjectTable([] {
                  Bytes table(2 + 65535 * 2, 0);
                  table[0] = table[1] = 0xFF;
                  return table;
              }()));
}

TEST(LoadedTables, AssociationsWithWhatIsNotThereAreLeftOut) {
    const Bytes addresses{0, 1, 0x08, 0x01};
    const Bytes objects{0, 1, 0x04, 0};
    const Bytes associations{0, 4, 0, 2, 0, 1, 0, 1, 0, 2, 0, 1, 0, 1, 0, 1, 0, 1};
    const auto read = ReadLoadedTables(addresses, associations, objects);
    ASSERT_EQ(1u, read.size());
    EXPECT_THAT(read[0].groupAddresses, ElementsAre(kFirst));
    EXPECT_THAT(ReadLoadedTables({}, associations, {}), IsEmpty());
}

TEST(LoadedTables, ManyAddressesOfOneObjectTakeNoTime) {
    // All 65,535 of them, each twice: a comparison of each with each would take minutes.
    Bytes addresses{0xFF, 0xFF};
    Bytes associations{0xFF, 0xFF};
    for (unsigned raw = 1; raw <= 0xFFFF; ++raw) {
        addresses.insert(addresses.end(),
                         {static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw)});
        associations.insert(associations.end(),
                            {static_cast<std::uint8_t>(raw >> 8), static_cast<std::uint8_t>(raw), 0, 1});
    }
    const auto read = ReadLoadedTables(addresses, associations, Bytes{0, 1, 0x04, 0});
    ASSERT_EQ(1u, read.size());
    EXPECT_EQ(0xFFFFu, read[0].groupAddresses.size());
    EXPECT_EQ(addresses, WriteLoadedTables(read).addresses);
}

} // namespace
} // namespace KnxDevice
