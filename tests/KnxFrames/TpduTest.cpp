#include "KnxFrames/Tpdu.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace KnxFrames {
namespace {

constexpr bool kToGroup = true;
constexpr bool kToDevice = false;

struct KindCase {
    Tpdu tpdu;
    bool toGroup;
    std::uint16_t destination;
    TpduKind kind;
};

TEST(Tpdu, ClassifiesEveryTransportService) {
    // Transport control octet: data/control, numbered, four bits sequence number, two bits service or APCI.
    const std::vector<KindCase> cases = {
        {{0x00, 0x80}, kToGroup, 0x0A03, TpduKind::DataGroup},
        {{0x00, 0xC0}, kToGroup, 0x0000, TpduKind::DataBroadcast},
        {{0x04, 0x80}, kToGroup, 0x0A03, TpduKind::DataTagGroup},
        {{0x03, 0x00}, kToDevice, 0x1104, TpduKind::DataIndividual},
        {{0x47, 0x00}, kToDevice, 0x1104, TpduKind::DataConnected},
        {{0x80}, kToDevice, 0x1104, TpduKind::Connect},
        {{0x81}, kToDevice, 0x1104, TpduKind::Disconnect},
        {{0xC2}, kToDevice, 0x1104, TpduKind::Ack},
        {{0xFE}, kToDevice, 0x1104, TpduKind::Ack},
        {{0xC7}, kToDevice, 0x1104, TpduKind::Nak},
        // What no service looks like: control to a group, numbered group data, reserved sequence bits, a data
        // unit without APCI, a control unit with data behind it, nothing at all.
        {{0x80}, kToGroup, 0x0A03, TpduKind::Unknown},
        {{0x40, 0x80}, kToGroup, 0x0A03, TpduKind::Unknown},
        {{0x08, 0x80}, kToGroup, 0x0A03, TpduKind::Unknown},
        {{0x04, 0x80}, kToDevice, 0x1104, TpduKind::Unknown},
        {{0x00}, kToGroup, 0x0A03, TpduKind::Unknown},
        {{0x80, 0x00}, kToDevice, 0x1104, TpduKind::Unknown},
        {{0x82}, kToDevice, 0x1104, TpduKind::Unknown},
        {{0xC0}, kToDevice, 0x1104, TpduKind::Unknown},
        {{}, kToGroup, 0x0A03, TpduKind::Unknown}};
    for (std::size_t index = 0; index < cases.size(); ++index)
        EXPECT_EQ(ClassifyTpdu(cases[index].tpdu, cases[index].toGroup, cases[index].destination),
                  cases[index].kind)
            << "case " << index;
}

TEST(Tpdu, ReadsTheSequenceNumber) {
    EXPECT_EQ(TpduSequence({0x47, 0x00}), 1);
    EXPECT_EQ(TpduSequence({0xFE}), 15);
    EXPECT_EQ(TpduSequence({0x00, 0x80}), 0);
    EXPECT_EQ(TpduSequence({}), 0);
}

TEST(Tpdu, ReadsTheApciAcrossTheTwoOctets) {
    EXPECT_EQ(Apci({0x03, 0xD5}), 0x3D5); // A_PropertyValue_Read
    EXPECT_EQ(Apci({0x47, 0x00}), 0x300); // A_DeviceDescriptor_Read in a numbered unit
    EXPECT_EQ(Apci({0x80}), 0xFFFF);
    EXPECT_EQ(Apci({0x00}), 0xFFFF);
    EXPECT_EQ(Apci({}), 0xFFFF);
}

TEST(GroupService, ReadsAShortValueFromTheApciOctet) {
    const Tpdu tpdu{0x00, 0x81};
    const auto service = ReadGroupService(tpdu);
    ASSERT_TRUE(service);
    EXPECT_EQ(service->kind, GroupServiceKind::Write);
    EXPECT_TRUE(service->IsShort());
    EXPECT_EQ(service->shortValue, 1);
    EXPECT_TRUE(service->longValue.empty());
}

TEST(GroupService, AllSixBitsOfAShortValueCount) {
    const Tpdu tpdu{0x00, 0x7F};
    const auto service = ReadGroupService(tpdu);
    ASSERT_TRUE(service);
    EXPECT_EQ(service->kind, GroupServiceKind::Response);
    EXPECT_EQ(service->shortValue, 0x3F);
}

TEST(GroupService, ReadsALongValueBehindTheApciOctet) {
    // 21.00 degrees as 9.001 is 0C1Ah.
    const Tpdu tpdu{0x00, 0x80, 0x0C, 0x1A};
    const auto service = ReadGroupService(tpdu);
    ASSERT_TRUE(service);
    EXPECT_FALSE(service->IsShort());
    EXPECT_EQ(service->shortValue, 0);
    EXPECT_EQ(std::vector<std::uint8_t>(service->longValue.begin(), service->longValue.end()),
              (std::vector<std::uint8_t>{0x0C, 0x1A}));
}

TEST(GroupService, ReadsARead) {
    const Tpdu tpdu{0x00, 0x00};
    const auto service = ReadGroupService(tpdu);
    ASSERT_TRUE(service);
    EXPECT_EQ(service->kind, GroupServiceKind::Read);
    EXPECT_FALSE(service->IsShort());
}

TEST(GroupService, SeparatesMalformedFromUnsupported) {
    const auto refuse = [](const Tpdu& tpdu) {
        const auto service = ReadGroupService(tpdu);
        EXPECT_FALSE(service);
        return service ? FrameError{} : service.Error();
    };
    EXPECT_STREQ(refuse({}).cause, "a group telegram has fewer than two octets");
    EXPECT_STREQ(refuse({0x00}).cause, "a group telegram has fewer than two octets");
    EXPECT_EQ(refuse({0x00}).kind, FrameError::Kind::Malformed);
    EXPECT_STREQ(refuse({0x00, 0x00, 0x01}).cause, "a group read carries a value");
    EXPECT_EQ(refuse({0x00, 0x00, 0x01}).kind, FrameError::Kind::Malformed);
    EXPECT_STREQ(refuse({0x03, 0xD5}).cause, "not a group service of the application layer");
    EXPECT_EQ(refuse({0x03, 0xD5}).kind, FrameError::Kind::Unsupported);
    EXPECT_EQ(refuse({0x00, 0xC0}).kind, FrameError::Kind::Unsupported);
    EXPECT_STREQ(refuse({0x47, 0x00}).cause, "not group data of the transport layer");
    EXPECT_EQ(refuse({0x04, 0x80}).kind, FrameError::Kind::Unsupported);
}

TEST(GroupService, MakesTheOctetsThatItReads) {
    EXPECT_EQ(MakeGroupRead(), (Tpdu{0x00, 0x00}));
    EXPECT_EQ(MakeGroupShortValue(GroupServiceKind::Write, 1), (Tpdu{0x00, 0x81}));
    EXPECT_EQ(MakeGroupShortValue(GroupServiceKind::Response, 0xFF), (Tpdu{0x00, 0x7F}));
    const std::vector<std::uint8_t> value = {0x0C, 0x1A};
    const auto made = MakeGroupLongValue(GroupServiceKind::Response, value);
    ASSERT_TRUE(made);
    EXPECT_EQ(*made, (Tpdu{0x00, 0x40, 0x0C, 0x1A}));
}

TEST(GroupService, LongValuesOfEverySizeSurvive) {
    std::vector<std::uint8_t> value;
    for (std::size_t size = 1; size <= kLongestGroupValue; ++size) {
        value.resize(size);
        std::iota(value.begin(), value.end(), static_cast<std::uint8_t>(size));
        const auto made = MakeGroupLongValue(GroupServiceKind::Write, value);
        ASSERT_TRUE(made) << size;
        const auto service = ReadGroupService(*made);
        ASSERT_TRUE(service) << size;
        EXPECT_TRUE(
            std::equal(value.begin(), value.end(), service->longValue.begin(), service->longValue.end()))
            << size;
    }
}

TEST(GroupService, RefusesAnEmptyAndATooLongValue) {
    const auto empty = MakeGroupLongValue(GroupServiceKind::Write, {});
    ASSERT_FALSE(empty);
    EXPECT_STREQ(empty.Error().cause, "a group value has no octets");
    const std::vector<std::uint8_t> value(kLongestGroupValue + 1);
    const auto tooLong = MakeGroupLongValue(GroupServiceKind::Write, value);
    ASSERT_FALSE(tooLong);
    EXPECT_STREQ(tooLong.Error().cause, "a group value has more than 253 octets");
}

} // namespace
} // namespace KnxFrames
