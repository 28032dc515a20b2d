#include "Definitions.h"

#include <gmock/gmock.h>

namespace KnxDevice {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string RefusalOf(const std::vector<GroupObjectDefinition>& definitions) {
    try {
        TableOf(definitions);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return {};
}

TEST(GroupObjectTable, WithoutDefinitionsHasNoObjects) {
    const GroupObjectTable table;
    EXPECT_EQ(0u, table.Count());
    EXPECT_FALSE(table.Object(0).Exists());
    EXPECT_FALSE(table.Object(1).Exists());
    EXPECT_FALSE(table.Object(65535).Exists());
    EXPECT_THAT(table.ObjectsAt(GroupAddress(1)), IsEmpty());
}

TEST(GroupObjectTable, KeepsGroupAddressesSortedAndOnce) {
    const auto table = TableOf({Define(1, 1, "CWT", {0x0903, 0x0901}), Define(2, 8, "CW", {0x0902, 0x0901})});
    EXPECT_EQ(3u, table.Object(1).sendingConnection) << "of 0903h, behind 0901h and 0902h";
    EXPECT_EQ(2u, table.Object(2).sendingConnection);
    EXPECT_THAT(table.ObjectsAt(GroupAddress(0x0901)), ElementsAre(1, 2));
    EXPECT_EQ(2u, table.Count());
}

TEST(GroupObjectTable, IsEqualToOneThatMeansTheSame) {
    const auto one = Define(1, 1, "CWT", {0x0903, 0x0901});
    const auto table = TableOf({one, Define(2, 8, "CW", {0x0902})});
    EXPECT_EQ(table, TableOf({Define(2, 8, "CW", {0x0902}), one}));
    EXPECT_NE(table, TableOf({one}));
    EXPECT_NE(table, TableOf({one, Define(2, 8, "CW", {0x0904})}));
    EXPECT_NE(table, TableOf({one, Define(2, 8, "CWU", {0x0902})}));
    EXPECT_NE(table, TableOf({one, Define(2, 16, "CW", {0x0902})}));
    EXPECT_NE(table, TableOf({Define(1, 1, "CWT", {0x0901, 0x0903}), Define(2, 8, "CW", {0x0902})}));
    EXPECT_NE(table, TableOf({one, Define(2, 8, "CW", {0x0902, 0x0903})}));
}

TEST(GroupObjectTable, SendsToTheFirstAddressNotTheSmallest) {
    const auto table = TableOf({Define(1, 1, "CWT", {0x0903, 0x0901}), Define(2, 1, "CW", {})});
    EXPECT_EQ(GroupAddress(0x0903), table.SendingAddress(table.Object(1)));
    EXPECT_EQ(GroupAddress(0), table.SendingAddress(table.Object(2)));
    EXPECT_EQ(GroupAddress(0), table.SendingAddress(table.Object(3)));
}

TEST(GroupObjectTable, FindsAllObjectsOfAnAddressInAscendingOrder) {
    const auto table =
        TableOf({Define(7, 1, "CW", {5, 6}), Define(3, 1, "CW", {6}), Define(5, 1, "CW", {7, 6, 5})});
    EXPECT_THAT(table.ObjectsAt(GroupAddress(5)), ElementsAre(5, 7));
    EXPECT_THAT(table.ObjectsAt(GroupAddress(6)), ElementsAre(3, 5, 7));
    EXPECT_THAT(table.ObjectsAt(GroupAddress(7)), ElementsAre(5));
    EXPECT_THAT(table.ObjectsAt(GroupAddress(4)), IsEmpty());
    EXPECT_THAT(table.ObjectsAt(GroupAddress(8)), IsEmpty());
}

TEST(GroupObjectTable, HasNoObjectInGapsAndBehindTheLast) {
    const auto table = TableOf({Define(2, 14 * 8, "C", {1}), Define(9, 7, "C", {2})});
    EXPECT_FALSE(table.Object(1).Exists());
    EXPECT_TRUE(table.Object(2).Exists());
    EXPECT_FALSE(table.Object(8).Exists());
    EXPECT_TRUE(table.Object(9).Exists());
    EXPECT_FALSE(table.Object(10).Exists());
    EXPECT_EQ(14u, table.Object(2).Bytes());
    EXPECT_EQ(1u, table.Object(9).Bytes());
}

TEST(GroupObjectTable, TakesEveryPossibleNumberAndAddress) {
    std::vector<GroupObjectDefinition> definitions;
    for (std::uint32_t number = 1; number <= GroupObjectTable::kMaxObject; ++number)
        definitions.push_back(Define(static_cast<std::uint16_t>(number), 8, "CWT",
                                     {static_cast<std::uint16_t>(65535 - number), 65535}));
    const auto table = TableOf(definitions);
    EXPECT_EQ(65534u, table.Count());
    EXPECT_EQ(65534u, table.Object(1).sendingConnection);
    EXPECT_EQ(1u, table.Object(65534).sendingConnection);
    EXPECT_THAT(table.ObjectsAt(GroupAddress(1)), ElementsAre(65534));
    EXPECT_THAT(table.ObjectsAt(GroupAddress(65534)), ElementsAre(1));
    EXPECT_EQ(65534u, table.ObjectsAt(GroupAddress(65535)).size());
    EXPECT_EQ(GroupAddress(1), table.SendingAddress(table.Object(65534)));
}

TEST(GroupObjectTable, RefusesImpossibleNumbers) {
    EXPECT_THAT(RefusalOf({Define(0, 1, "C", {})}),
                HasSubstr("group object 0: the number must be 1 to 65534"));
    EXPECT_THAT(RefusalOf({Define(65535, 1, "C", {})}), HasSubstr("group object 65535"));
    EXPECT_THAT(RefusalOf({Define(4, 1, "C", {}), Define(4, 1, "C", {})}),
                HasSubstr("group object 4: the number is used twice"));
}

TEST(GroupObjectTable, RefusesImpossibleSizes) {
    for (const unsigned bits : {0u, 9u, 15u, 254u * 8u})
        EXPECT_THAT(RefusalOf({Define(1, bits, "C", {})}), HasSubstr("group object 1: a value cannot have"));
    for (const unsigned bits : {1u, 7u, 8u, 24u, 253u * 8u})
        EXPECT_EQ("", RefusalOf({Define(1, bits, "C", {})}));
}

TEST(GroupObjectTable, RefusesBroadcastAndRepeatedAddresses) {
    EXPECT_THAT(RefusalOf({Define(1, 1, "C", {3, 0})}), HasSubstr("broadcast"));
    EXPECT_THAT(RefusalOf({Define(1, 1, "C", {3, 4, 3})}), HasSubstr("listed twice"));
}

} // namespace
} // namespace KnxDevice
