#include "KnxStackHost/Control/TelegramText.h"

#include <gmock/gmock.h>

namespace KnxStackHost {
namespace {

using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using KnxFrames::Tpdu;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr IndividualAddress kSensor(1, 1, 4);

ConfiguredObject Object(const char* name, const char* dpt, std::vector<GroupAddress> addresses) {
    ConfiguredObject object;
    object.name = name;
    object.dpt = Datapoint::Parse(dpt);
    object.definition.groupAddresses = std::move(addresses);
    return object;
}

AddressBook Book() {
    const std::vector<ConfiguredObject> objects{
        Object("", "", {GroupAddress(1, 2, 3)}),
        Object("light", "1.001", {GroupAddress(1, 2, 3)}),
        Object("other name", "5.001", {GroupAddress(1, 2, 3)}),
        Object("temperature", "9.001", {GroupAddress(1, 2, 5), GroupAddress(1, 2, 4)}),
        Object("text\nof two lines", "28.001", {GroupAddress(2, 0, 1)}),
        Object("byte", "", {GroupAddress(31, 7, 255)}),
        Object("blinds", "2.001", {GroupAddress(2, 0, 2)}),
    };
    return AddressBook(objects);
}

std::string LineOf(GroupAddress to, const Tpdu& tpdu) {
    return MonitorLine(Describe(KnxFrames::MakeGroupTelegram(kSensor, to, tpdu), Book()));
}

Tpdu Octets(GroupServiceKind kind, std::vector<std::uint8_t> value) {
    return *KnxFrames::MakeGroupLongValue(kind, value);
}

std::string LineTo(IndividualAddress to, const Tpdu& tpdu) {
    LData telegram;
    telegram.control2 = 0x60;
    telegram.source = kSensor;
    telegram.destination = to.raw;
    telegram.tpdu = tpdu;
    return MonitorLine(Describe(telegram, Book()));
}

TEST(MonitorLine, HasSourceDestinationNameServiceTypeValueUnitAndOctets) {
    EXPECT_EQ("1.1.4 -> 1/2/4 \"temperature\"  GroupValue_Write  9.001  21 °C  [0c1a]",
              LineOf(GroupAddress(1, 2, 4), Octets(GroupServiceKind::Write, {0x0C, 0x1A})));
    EXPECT_EQ("1.1.4 -> 1/2/5 \"temperature\"  GroupValue_Response  9.001  -2.5 °C  [8706]",
              LineOf(GroupAddress(1, 2, 5), Octets(GroupServiceKind::Response, {0x87, 0x06})));
}

TEST(MonitorLine, NamesAValueThatTheTypeHasANameFor) {
    EXPECT_EQ("1.1.4 -> 1/2/3 \"light\"  GroupValue_Write  1.001  1 (On)  [01]",
              LineOf(GroupAddress(1, 2, 3), KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, 1)));
}

TEST(MonitorLine, AReadHasNoValue) {
    EXPECT_EQ("1.1.4 -> 1/2/3 \"light\"  GroupValue_Read  1.001",
              LineOf(GroupAddress(1, 2, 3), KnxFrames::MakeGroupRead()));
}

TEST(MonitorLine, WithoutATypeTheOctetsStandAlone) {
    EXPECT_EQ("1.1.4 -> 31/7/255 \"byte\"  GroupValue_Write  [ff]",
              LineOf(GroupAddress(31, 7, 255), Octets(GroupServiceKind::Write, {0xFF})));
    EXPECT_EQ("1.1.4 -> 9/1/1  GroupValue_Write  [3f]",
              LineOf(GroupAddress(9, 1, 1), KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, 0x3F)));
}

TEST(MonitorLine, AValueThatDoesNotFitItsTypeSaysSo) {
    EXPECT_EQ("1.1.4 -> 1/2/3 \"light\"  GroupValue_Write  1.001  (the value has another length than 1.001)  "
              "[01]",
              LineOf(GroupAddress(1, 2, 3), Octets(GroupServiceKind::Write, {1})));
    EXPECT_EQ("1.1.4 -> 1/2/4 \"temperature\"  GroupValue_Write  9.001  (the value has another length than "
              "9.001)  [01]",
              LineOf(GroupAddress(1, 2, 4), KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, 1)));
    EXPECT_THAT(LineOf(GroupAddress(1, 2, 4), Octets(GroupServiceKind::Write, {0x7F, 0xFF})),
                HasSubstr("  9.001  (9.001 has no value for this)  [7fff]"));
}

TEST(MonitorLine, IsOneLineWhateverIsInNameAndValue) {
    EXPECT_EQ("1.1.4 -> 2/0/1 \"text of two lines\"  GroupValue_Write  28.001  \"a\\u000ab\"  [610a6200]",
              LineOf(GroupAddress(2, 0, 1), Octets(GroupServiceKind::Write, {'a', '\n', 'b', 0})));
}

TEST(MonitorLine, DescribesWhatIsNoGroupCommunication) {
    constexpr IndividualAddress kDevice(1, 1, 250);
    EXPECT_EQ("1.1.4 -> 1.1.250  T_Connect  [80]", LineTo(kDevice, {0x80}));
    EXPECT_EQ("1.1.4 -> 1.1.250  T_ACK 3  [ce]", LineTo(kDevice, {0xCE}));
    EXPECT_EQ("1.1.4 -> 1.1.250  T_Data_Connected 1 A_DeviceDescriptor_Read  [4700]",
              LineTo(kDevice, {0x47, 0x00}));
    EXPECT_EQ("1.1.4 -> 1.1.250  T_Data_Individual A_PropertyValue_Read  [03d5000b1001]",
              LineTo(kDevice, {0x03, 0xD5, 0x00, 0x0B, 0x10, 0x01}));
    EXPECT_EQ("1.1.4 -> broadcast  T_Data_Broadcast A_IndividualAddress_Read  [0100]",
              LineOf(GroupAddress(), {0x01, 0x00}));
    EXPECT_EQ("1.1.4 -> 1/2/3 \"light\"  T_Data_Group A_PropertyValue_Read  1.001  [03d5]",
              LineOf(GroupAddress(1, 2, 3), {0x03, 0xD5}));
    EXPECT_EQ("1.1.4 -> 1.1.250  unknown service  [8001]", LineTo(kDevice, {0x80, 0x01}));
}

TEST(AddressBook, TakesNameAndTypeOfTheFirstObjectThatHasThem) {
    const auto book = Book();
    const auto* entry = book.Find(GroupAddress(1, 2, 3));
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ("light", entry->name);
    EXPECT_EQ((Datapoint::Number{1, 1}), entry->dpt);
    EXPECT_EQ(nullptr, book.Find(GroupAddress(1, 2, 6)));
    EXPECT_EQ(nullptr, AddressBook().Find(GroupAddress(1, 2, 3)));
}

TEST(EncodeWrite, TakesTheValueTextOfADatapoint) {
    EXPECT_EQ(Tpdu({0x00, 0x81}), EncodeWrite("1.001", "1").tpdu);
    EXPECT_EQ(Tpdu({0x00, 0x80, 0x87, 0x06}), EncodeWrite("DPT-9.001", "-2.5").tpdu);
    EXPECT_EQ(Tpdu({0x00, 0x80, 0x80}), EncodeWrite("5.001", "50").tpdu);
    EXPECT_EQ("", EncodeWrite("5.001", "50").refusal);
}

TEST(EncodeWrite, SaysWhyNot) {
    EXPECT_EQ("\"temperature\" is no datapoint type; write it as 9.001",
              EncodeWrite("temperature", "1").refusal);
    EXPECT_EQ("99.001 is no known datapoint type", EncodeWrite("99.001", "1").refusal);
    EXPECT_EQ("9.001: 700000 is above 670433.28 °C", EncodeWrite("9.001", "700000").refusal);
    EXPECT_THAT(EncodeWrite("1.001", "warm").refusal, StartsWith("1.001: "));
    EXPECT_TRUE(EncodeWrite("1.001", "warm").tpdu.IsEmpty());
}

TEST(OctetsOf, TakesPairsOfDigits) {
    EXPECT_THAT(OctetsOf("2900 bc:E0").value(), ElementsAre(0x29, 0x00, 0xBC, 0xE0));
    EXPECT_THAT(OctetsOf("").value(), ElementsAre());
    for (const auto* text : {"2", "290", "2g", "0x29", "29,00", "+1", "-1"})
        EXPECT_FALSE(OctetsOf(text)) << text;
}

} // namespace
} // namespace KnxStackHost
