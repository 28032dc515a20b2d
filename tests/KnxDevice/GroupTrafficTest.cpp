#include "KnxDevice/GroupTraffic.h"

#include "Definitions.h"
#include "KnxStack/GroupValue.h"

#include <gmock/gmock.h>

namespace KnxDevice {
namespace {

using testing::ElementsAre;

constexpr GroupAddress kAddress(1, 2, 3);

GroupService Short(GroupServiceKind kind, std::uint8_t value) {
    GroupService service;
    service.kind = kind;
    service.shortValue = value;
    return service;
}

GroupService Long(GroupServiceKind kind, KnxFrames::Octets value) {
    GroupService service;
    service.kind = kind;
    service.longValue = value;
    return service;
}

const GroupService kWriteOne = Short(GroupServiceKind::Write, 1);
const GroupService kResponseOne = Short(GroupServiceKind::Response, 1);
const GroupService kRead{};

KnxStack::GroupValue Value(std::initializer_list<std::uint8_t> bytes, unsigned bits) {
    return {KnxStack::BinaryData(bytes), bits};
}

TEST(Receive, GoesByTheFlagsOfEachObject) {
    const auto at = kAddress.raw;
    const auto table =
        TableOf({Define(1, 1, "CW", {at}), Define(2, 1, "CU", {at}), Define(3, 1, "CR", {at}),
                 Define(4, 1, "WUR", {at}), Define(5, 1, "CRWTU", {at}), Define(6, 1, "C", {at})});
    const auto written = Receive(table, kAddress, kWriteOne);
    EXPECT_THAT(written.objects, ElementsAre(1, 5));
    EXPECT_EQ(4u, written.refusedByFlags);
    EXPECT_THAT(Receive(table, kAddress, kResponseOne).objects, ElementsAre(2, 5));
    EXPECT_THAT(Receive(table, kAddress, kRead).objects, ElementsAre(3, 5)) << "each object answers";
}

TEST(Receive, TellsAnUnknownAddressFromARefusal) {
    const auto table = TableOf({Define(1, 1, "C", {kAddress.raw})});
    EXPECT_TRUE(Receive(table, kAddress, kWriteOne).listened);
    const auto unknown = Receive(table, GroupAddress(1, 2, 4), kWriteOne);
    EXPECT_FALSE(unknown.listened);
    EXPECT_EQ(0u, unknown.refusedByFlags);
}

struct LengthCase {
    unsigned objectBits;
    std::size_t octets; ///< 0: a value inside the APCI
    bool taken;
};

TEST(Receive, RefusesAndCountsTheWrongLength) {
    const LengthCase cases[] = {{1, 0, true},     {6, 0, true},     {7, 0, false},    {8, 0, false},
                                {1, 1, false},    {6, 1, false},    {7, 1, true},     {8, 1, true},
                                {8, 2, false},    {16, 1, false},   {16, 2, true},    {112, 14, true},
                                {112, 13, false}, {112, 15, false}, {2024, 253, true}};
    const std::vector<std::uint8_t> octets(253, 0);
    for (const auto& c : cases) {
        const auto table = TableOf({Define(1, c.objectBits, "CW", {kAddress.raw})});
        const auto service =
            c.octets == 0 ? kWriteOne : Long(GroupServiceKind::Write, {octets.data(), c.octets});
        const auto result = Receive(table, kAddress, service);
        EXPECT_EQ(c.taken ? 1u : 0u, result.objects.size())
            << c.objectBits << " bits, " << c.octets << " octets";
        EXPECT_EQ(c.taken ? 0u : 1u, result.wrongLength)
            << c.objectBits << " bits, " << c.octets << " octets";
    }
}

TEST(Receive, JudgesTheLengthForEachObjectAlone) {
    const auto table = TableOf({Define(1, 8, "CW", {kAddress.raw}), Define(2, 16, "CW", {kAddress.raw})});
    const std::uint8_t octets[] = {1, 2};
    const auto result = Receive(table, kAddress, Long(GroupServiceKind::Write, octets));
    EXPECT_THAT(result.objects, ElementsAre(2));
    EXPECT_EQ(1u, result.wrongLength);
}

TEST(Receive, AShorterValueFitsAnObjectThatFillsItUp) {
    auto text = Define(1, 24, "CW", {kAddress.raw});
    text.fillsUp = true;
    const auto table = TableOf({text});
    const std::uint8_t octets[] = {'a', 'b', 'c', 'd'};
    for (std::size_t length = 1; length <= 4; ++length) {
        const auto service = Long(GroupServiceKind::Write, {octets, length});
        EXPECT_EQ(length <= 3 ? 1u : 0u, Receive(table, kAddress, service).objects.size()) << length;
    }
    EXPECT_EQ(1u, Receive(table, kAddress, kWriteOne).wrongLength) << "inside the APCI";
}

TEST(Receive, AReadHasNoLength) {
    const auto table = TableOf({Define(1, 32, "CR", {kAddress.raw})});
    EXPECT_THAT(Receive(table, kAddress, kRead).objects, ElementsAre(1));
}

TEST(Receive, OwnTelegramReachesOtherObjectsButNotItsSender) {
    auto deaf = Define(3, 1, "CW", {kAddress.raw});
    deaf.ownTelegrams = false;
    const auto table =
        TableOf({Define(1, 1, "CWT", {kAddress.raw}), Define(2, 1, "CW", {7, kAddress.raw}), deaf});
    EXPECT_THAT(Receive(table, kAddress, kWriteOne, 1).objects, ElementsAre(2));
    EXPECT_THAT(Receive(table, kAddress, kWriteOne).objects, ElementsAre(1, 2, 3));
}

TEST(ValueFor, CutsSmallValuesToTheObjectsBits) {
    const auto table = TableOf({Define(1, 1, "CW", {1}), Define(4, 4, "CW", {1}), Define(7, 7, "CW", {1})});
    const auto service = Short(GroupServiceKind::Write, 0x2D);
    EXPECT_EQ(Value({0x01}, 1), ValueFor(table.Object(1), service));
    EXPECT_EQ(Value({0x0D}, 4), ValueFor(table.Object(4), service));
    const std::uint8_t octet[] = {0xAB};
    EXPECT_EQ(Value({0x2B}, 7), ValueFor(table.Object(7), Long(GroupServiceKind::Write, octet)));
}

TEST(ValueFor, KeepsBytesInTelegramOrder) {
    const auto table = TableOf({Define(1, 24, "CW", {1})});
    const std::uint8_t octets[] = {0x12, 0x34, 0x56};
    EXPECT_EQ(Value({0x12, 0x34, 0x56}, 24),
              ValueFor(table.Object(1), Long(GroupServiceKind::Write, octets)));
}

TEST(ValueFor, FillsAShorterTextUp) {
    auto text = Define(1, 32, "CW", {1});
    text.fillsUp = true;
    const auto table = TableOf({text});
    const std::uint8_t octets[] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(Value({'a', 'b', 0, 0}, 32),
              ValueFor(table.Object(1), Long(GroupServiceKind::Write, {octets, 2})));
    EXPECT_EQ(Value({'a', 'b', 'c', 'd'}, 32),
              ValueFor(table.Object(1), Long(GroupServiceKind::Write, octets)));
}

// Four bytes: a text of three and its NUL has just room, one of four goes without.
TEST(ComposeValue, FillsAShorterTextUpAndSparesTheNulOfAFullOne) {
    auto text = Define(1, 32, "CT", {1});
    text.fillsUp = true;
    const auto table = TableOf({text, Define(2, 32, "CT", {1})});
    const auto write = GroupServiceKind::Write;
    KnxFrames::LData telegram;
    ASSERT_EQ(SendOutcome::Composed, ComposeValue(table, 1, write, Value({'a', 0}, 16), telegram));
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x80, 'a', 0, 0, 0}), telegram.tpdu);
    ASSERT_EQ(SendOutcome::Composed, ComposeValue(table, 1, write, Value({'a', 'b', 'c', 0}, 32), telegram));
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x80, 'a', 'b', 'c', 0}), telegram.tpdu);
    ASSERT_EQ(SendOutcome::Composed,
              ComposeValue(table, 1, write, Value({'a', 'b', 'c', 'd', 0}, 40), telegram));
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x80, 'a', 'b', 'c', 'd'}), telegram.tpdu);

    const auto untouched = telegram;
    EXPECT_EQ(SendOutcome::WrongSize,
              ComposeValue(table, 1, write, Value({'a', 'b', 'c', 'd', 'e'}, 40), telegram));
    EXPECT_EQ(SendOutcome::WrongSize,
              ComposeValue(table, 1, write, Value({'a', 'b', 'c', 'd', 'e', 0}, 48), telegram));
    EXPECT_EQ(SendOutcome::WrongSize, ComposeValue(table, 1, write, Value({}, 0), telegram));
    EXPECT_EQ(SendOutcome::WrongSize, ComposeValue(table, 1, write, Value({1}, 4), telegram));
    EXPECT_EQ(SendOutcome::WrongSize, ComposeValue(table, 2, write, Value({'a', 0}, 16), telegram));
    EXPECT_EQ(untouched, telegram);
}

TEST(ComposeValue, UsesSendingAddressAndPriority) {
    auto definition = Define(1, 16, "CT", {0x1234, kAddress.raw});
    definition.priority = Priority::Urgent;
    const auto table = TableOf({definition});
    KnxFrames::LData telegram;
    ASSERT_EQ(SendOutcome::Composed,
              ComposeValue(table, 1, GroupServiceKind::Write, Value({0x0C, 0x1A}, 16), telegram));
    EXPECT_EQ(KnxFrames::MessageCode::LDataReq, telegram.code);
    EXPECT_TRUE(telegram.IsToGroup());
    EXPECT_EQ(0x1234, telegram.destination);
    EXPECT_EQ(Priority::Urgent, telegram.GetPriority());
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x80, 0x0C, 0x1A}), telegram.tpdu);
}

TEST(ComposeValue, PutsUpToSixBitsIntoTheApci) {
    const auto table = TableOf({Define(6, 6, "CT", {1}), Define(7, 7, "CT", {1})});
    KnxFrames::LData telegram;
    ASSERT_EQ(SendOutcome::Composed,
              ComposeValue(table, 6, GroupServiceKind::Write, Value({0x3F}, 6), telegram));
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0xBF}), telegram.tpdu);
    ASSERT_EQ(SendOutcome::Composed,
              ComposeValue(table, 7, GroupServiceKind::Write, Value({0x7F}, 7), telegram));
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x80, 0x7F}), telegram.tpdu);
}

TEST(ComposeValue, RefusesAnotherSizeThanTheObjects) {
    const auto table = TableOf({Define(1, 8, "CT", {1}), Define(2, 1, "CT", {1})});
    KnxFrames::LData telegram;
    const auto untouched = telegram;
    const auto write = GroupServiceKind::Write;
    EXPECT_EQ(SendOutcome::WrongSize, ComposeValue(table, 1, write, Value({1, 2}, 16), telegram));
    EXPECT_EQ(SendOutcome::WrongSize, ComposeValue(table, 1, write, Value({1}, 7), telegram));
    EXPECT_EQ(SendOutcome::WrongSize, ComposeValue(table, 1, write, Value({}, 8), telegram));
    EXPECT_EQ(SendOutcome::WrongSize, ComposeValue(table, 2, write, Value({2}, 1), telegram));
    EXPECT_EQ(untouched, telegram);
}

TEST(ComposeValue, RefusesWhatMayNotOrCannotBeSent) {
    const auto table = TableOf({Define(1, 1, "CRWU", {1}), Define(2, 1, "T", {1}), Define(3, 1, "CT", {})});
    KnxFrames::LData telegram;
    const auto one = Value({1}, 1);
    const auto write = GroupServiceKind::Write;
    EXPECT_EQ(SendOutcome::MayNotTransmit, ComposeValue(table, 1, write, one, telegram));
    EXPECT_EQ(SendOutcome::MayNotTransmit, ComposeValue(table, 2, write, one, telegram));
    EXPECT_EQ(SendOutcome::NoAddress, ComposeValue(table, 3, write, one, telegram));
    EXPECT_EQ(SendOutcome::NoSuchObject, ComposeValue(table, 4, write, one, telegram));
    EXPECT_EQ(SendOutcome::NoSuchObject, ComposeValue(table, 65535, write, one, telegram));
}

TEST(ComposeValue, AnswersAReadWithTheReadFlagAlone) {
    const auto table = TableOf({Define(1, 1, "CR", {0x1111, kAddress.raw})});
    KnxFrames::LData telegram;
    ASSERT_EQ(SendOutcome::Composed,
              ComposeValue(table, 1, GroupServiceKind::Response, Value({1}, 1), telegram));
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x41}), telegram.tpdu);
    EXPECT_EQ(0x1111, telegram.destination) << "the sending address, whichever address the read came to";
}

TEST(ComposeRead, AsksAtTheSendingAddress) {
    const auto table =
        TableOf({Define(1, 32, "CT", {kAddress.raw, 2}), Define(2, 32, "CRU", {kAddress.raw})});
    KnxFrames::LData telegram;
    ASSERT_EQ(SendOutcome::Composed, ComposeRead(table, 1, telegram));
    EXPECT_EQ(kAddress, telegram.GroupDestination());
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x00}), telegram.tpdu);
    EXPECT_EQ(SendOutcome::MayNotTransmit, ComposeRead(table, 2, telegram));
    EXPECT_EQ(SendOutcome::NoSuchObject, ComposeRead(table, 0, telegram));
}

} // namespace
} // namespace KnxDevice
