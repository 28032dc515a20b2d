#include "KnxFrames/Cemi.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KnxFrames {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The vectors are put together by hand, octet by octet, from the message format of cEMI L_Data: message code,
// length of additional information (and the information), control fields 1 and 2, source, destination, length
// (octets behind the first one of the TPDU), TPDU.

/// 1.1.4 (1104h) writes 1 to 1/2/3 (0A03h): standard frame, low priority, 6 hops.
const Bytes kSwitchOn = {0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x0A, 0x03, 0x01, 0x00, 0x81};
/// The same as a request with source 0.0.0, as clients send it that leave the source to the interface.
const Bytes kSwitchOnRequest = {0x11, 0x00, 0xBC, 0xE0, 0x00, 0x00, 0x0A, 0x03, 0x01, 0x00, 0x81};
/// Negative confirmation (bit 0 of control field 1) of an urgent telegram (10b) to 31/7/255 with 7 hops.
const Bytes kNegativeConfirmation = {0x2E, 0x00, 0xB9, 0xF0, 0x11, 0x04, 0xFF, 0xFF, 0x01, 0x00, 0x80};
/// Repeated (bit 5 clear) read of 0/0/1 with normal priority (01b) and an acknowledge request (bit 1).
const Bytes kRepeatedRead = {0x29, 0x00, 0x96, 0xD0, 0x12, 0x01, 0x00, 0x01, 0x01, 0x00, 0x00};
/// The longest standard frame: 14 octets of text ("KNX is OK" and zeros, 16.001) to 3/0/9.
const Bytes kText = {0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x18, 0x09, 0x0F, 0x00, 0x80, 'K', 'N',
                     'X',  ' ',  'i',  's',  ' ',  'O',  'K',  0,    0,    0,    0,    0};
/// An extended frame (bit 7 of control field 1 clear) with 15 octets of value.
const Bytes kExtended = {0x29, 0x00, 0x3C, 0xE0, 0x11, 0x04, 0x18, 0x09, 0x10, 0x00, 0x80, 1,  2,
                         3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14, 15};
/// T_Connect from 1.1.250 to 1.1.4: to a device (bit 7 of control field 2 clear), system priority, length 0.
const Bytes kConnect = {0x11, 0x00, 0xB0, 0x60, 0x11, 0xFA, 0x11, 0x04, 0x00, 0x80};
/// A_DeviceDescriptor_Read over the connection, sequence number 0.
const Bytes kConnectedData = {0x11, 0x00, 0xB0, 0x60, 0x11, 0xFA, 0x11, 0x04, 0x01, 0x43, 0x00};
/// A_IndividualAddress_Read as system broadcast (bit 4 of control field 1 clear) to group 0.
const Bytes kSystemBroadcast = {0x29, 0x00, 0xA0, 0xE0, 0x11, 0xFA, 0x00, 0x00, 0x01, 0x01, 0x00};

const std::vector<Bytes> kVectors = {
    kSwitchOn, kSwitchOnRequest, kNegativeConfirmation, kRepeatedRead,   kText,
    kExtended, kConnect,         kConnectedData,        kSystemBroadcast};

Bytes Encoded(const LData& frame) {
    CemiOctets octets;
    EncodeCemi(frame, octets);
    return {octets.Data(), octets.Data() + octets.Size()};
}

LData Parsed(const Bytes& octets) {
    auto parsed = ParseLData(octets);
    EXPECT_TRUE(parsed) << parsed.Error().cause;
    return parsed ? *parsed : LData{};
}

TEST(Cemi, ReadsAGroupWrite) {
    const LData frame = Parsed(kSwitchOn);
    EXPECT_EQ(frame.code, MessageCode::LDataInd);
    EXPECT_EQ(frame.control1, 0xBC);
    EXPECT_EQ(frame.control2, 0xE0);
    EXPECT_FALSE(frame.HasConfirmError());
    EXPECT_EQ(frame.GetPriority(), Priority::Low);
    EXPECT_TRUE(frame.IsToGroup());
    EXPECT_EQ(frame.source.ToString(), "1.1.4");
    EXPECT_EQ(frame.GroupDestination().ToString(), "1/2/3");
    EXPECT_EQ(frame.tpdu, (Tpdu{0x00, 0x81}));
    EXPECT_TRUE(frame.IsGroupData());
}

TEST(Cemi, ReadsTheControlFields) {
    const LData confirmation = Parsed(kNegativeConfirmation);
    EXPECT_EQ(confirmation.code, MessageCode::LDataCon);
    EXPECT_TRUE(confirmation.HasConfirmError());
    EXPECT_EQ(confirmation.GetPriority(), Priority::Urgent);
    EXPECT_EQ(confirmation.control2, 0xF0);
    EXPECT_EQ(confirmation.GroupDestination().ToString(), "31/7/255");

    const LData repeated = Parsed(kRepeatedRead);
    EXPECT_EQ(repeated.control1, 0x96);
    EXPECT_EQ(repeated.GetPriority(), Priority::Normal);
    EXPECT_EQ(repeated.control2, 0xD0);

    const LData broadcast = Parsed(kSystemBroadcast);
    EXPECT_EQ(broadcast.control1 & LData::kBroadcast, 0);
    EXPECT_EQ(broadcast.Kind(), TpduKind::DataBroadcast);
    EXPECT_FALSE(broadcast.IsGroupData());
}

TEST(Cemi, ReadsPointToPointTelegrams) {
    const LData connect = Parsed(kConnect);
    EXPECT_FALSE(connect.IsToGroup());
    EXPECT_EQ(connect.IndividualDestination().ToString(), "1.1.4");
    EXPECT_EQ(connect.Kind(), TpduKind::Connect);
    EXPECT_EQ(connect.tpdu.Size(), 1U);
    EXPECT_EQ(Parsed(kConnectedData).Kind(), TpduKind::DataConnected);
}

TEST(Cemi, EveryVectorSurvivesReadingAndWriting) {
    for (const Bytes& vector : kVectors)
        EXPECT_EQ(Encoded(Parsed(vector)), vector);
}

TEST(Cemi, EveryPairOfControlFieldsSurvives) {
    for (unsigned control = 0; control <= 0xFFFF; ++control) {
        Bytes vector = kSwitchOn;
        vector[2] = static_cast<std::uint8_t>(control >> 8);
        vector[3] = static_cast<std::uint8_t>(control & 0xFF);
        const auto parsed = ParseLData(vector);
        ASSERT_TRUE(parsed);
        CemiOctets octets;
        EncodeCemi(*parsed, octets);
        ASSERT_EQ(octets, CemiOctets(Octets(vector)));
    }
}

TEST(Cemi, EveryTruncationIsMalformed) {
    for (const Bytes& vector : kVectors) {
        for (std::size_t size = 0; size < vector.size(); ++size) {
            // An exact copy on the heap: AddressSanitizer sees every octet that is read beyond it.
            const Bytes cut(vector.begin(), vector.begin() + static_cast<std::ptrdiff_t>(size));
            const auto parsed = ParseCemi(cut);
            ASSERT_FALSE(parsed) << "size " << size;
            EXPECT_EQ(parsed.Error().kind, FrameError::Kind::Malformed) << "size " << size;
            EXPECT_LE(parsed.Error().offset, size) << "size " << size;
        }
    }
}

TEST(Cemi, OctetsBehindTheTpduAreMalformed) {
    for (Bytes vector : kVectors) {
        vector.push_back(0);
        const auto parsed = ParseCemi(vector);
        ASSERT_FALSE(parsed);
        EXPECT_STREQ(parsed.Error().cause, "octets follow the TPDU");
        EXPECT_EQ(parsed.Error().offset, vector.size() - 1);
    }
}

TEST(Cemi, EachCauseIsNamed) {
    const auto refuse = [](const Bytes& octets) {
        const auto parsed = ParseCemi(octets);
        EXPECT_FALSE(parsed);
        return std::string(parsed ? "" : parsed.Error().cause);
    };
    EXPECT_EQ(refuse({}), "the cEMI message is empty");
    EXPECT_EQ(refuse({0x29}), "the length of the additional information is missing");
    EXPECT_EQ(refuse({0x29, 0xFF, 0xBC}), "the L_Data message ends within its header");
    EXPECT_EQ(refuse({0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x0A, 0x03, 0xFF, 0x00, 0x81}),
              "the length octet is the escape code FFh");
    EXPECT_EQ(refuse({0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x0A, 0x03, 0x02, 0x00, 0x81}),
              "the TPDU is shorter than its length octet says");
    const auto unknown = ParseCemi(Bytes{0x00, 0x00});
    ASSERT_FALSE(unknown);
    EXPECT_EQ(unknown.Error().kind, FrameError::Kind::Unsupported);
    EXPECT_STREQ(unknown.Error().cause, "the cEMI message code is not known");
}

TEST(Cemi, AdditionalInformationIsSkipped) {
    // Two entries: type 03h (busmonitor status), 1 octet; type 04h (time stamp), 2 octets.
    Bytes vector = kSwitchOn;
    vector[1] = 7;
    const Bytes information = {0x03, 0x01, 0x00, 0x04, 0x02, 0x12, 0x34};
    vector.insert(vector.begin() + 2, information.begin(), information.end());
    EXPECT_EQ(Encoded(Parsed(vector)), kSwitchOn);
    for (std::size_t size = 0; size < vector.size(); ++size)
        EXPECT_FALSE(ParseCemi(Bytes(vector.begin(), vector.begin() + static_cast<std::ptrdiff_t>(size))))
            << size;
}

TEST(Cemi, ALongTpduInAStandardFrameBecomesAnExtendedFrame) {
    Bytes vector = kExtended;
    vector[2] |= LData::kStandardFrame;
    EXPECT_EQ(Encoded(Parsed(vector)), kExtended);
}

TEST(Cemi, AShortTpduInAnExtendedFrameStaysExtended) {
    Bytes vector = kSwitchOn;
    vector[2] = 0x3C;
    EXPECT_EQ(Encoded(Parsed(vector)), vector);
}

TEST(Cemi, ValuesOfEverySizeSurvive) {
    for (std::size_t size = 1; size <= kLongestGroupValue; ++size) {
        const Bytes value(size, static_cast<std::uint8_t>(size));
        const LData frame = MakeGroupTelegram(IndividualAddress(1, 1, 4), GroupAddress(1, 2, 3),
                                              *MakeGroupLongValue(GroupServiceKind::Write, value));
        const Bytes encoded = Encoded(frame);
        ASSERT_EQ(encoded.size(), 11 + size);
        EXPECT_EQ((encoded[2] & LData::kStandardFrame) != 0, size <= 14) << size;
        EXPECT_EQ(Parsed(encoded), frame) << size;
    }
}

TEST(Cemi, MakesAGroupTelegram) {
    const LData frame = MakeGroupTelegram(IndividualAddress(), GroupAddress(1, 2, 3),
                                          MakeGroupShortValue(GroupServiceKind::Write, 1));
    EXPECT_EQ(Encoded(frame), kSwitchOnRequest);
    EXPECT_EQ(MakeGroupTelegram(IndividualAddress(), GroupAddress(1, 2, 3), MakeGroupRead(), Priority::Urgent)
                  .control1,
              0xB8);
}

TEST(Cemi, SettersChangeOnlyTheirBits) {
    LData frame = Parsed(kRepeatedRead);
    frame.SetPriority(Priority::Low);
    EXPECT_EQ(frame.control1, 0x9E);
    frame.SetConfirmError(true);
    EXPECT_EQ(frame.control1, 0x9F);
    frame.SetConfirmError(false);
    EXPECT_EQ(frame.control1, 0x9E);
    EXPECT_EQ(frame.control2, 0xD0);
}

TEST(Cemi, OtherServicesAreRecognised) {
    const auto parsed = ParseCemi(Bytes{0xF1});
    ASSERT_TRUE(parsed);
    const auto* other = std::get_if<OtherCemi>(&*parsed);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->code, MessageCode::MResetReq);
    EXPECT_STREQ(ToString(other->code), "M_Reset.req");
    EXPECT_STREQ(ToString(static_cast<MessageCode>(0)), "unknown");

    const auto asLData = ParseLData(Bytes{0xF1});
    ASSERT_FALSE(asLData);
    EXPECT_EQ(asLData.Error().kind, FrameError::Kind::Unsupported);
    EXPECT_STREQ(asLData.Error().cause, "the cEMI message is not L_Data");
}

TEST(Cemi, DescribesTelegramsForLogs) {
    EXPECT_EQ(Describe(Parsed(kSwitchOn)), "1.1.4 -> 1/2/3 GroupValue_Write 01");
    EXPECT_EQ(Describe(Parsed(kRepeatedRead)), "1.2.1 -> 0/0/1 GroupValue_Read");
    EXPECT_EQ(Describe(Parsed(kText)), "1.1.4 -> 3/0/9 GroupValue_Write 4b4e58206973204f4b0000000000");
    EXPECT_EQ(Describe(Parsed(kConnect)), "1.1.250 -> 1.1.4 T_Connect 80");
    EXPECT_EQ(Describe(Parsed(kSystemBroadcast)), "1.1.250 -> 0/0/0 T_Data_Broadcast 0100");
}

} // namespace
} // namespace KnxFrames
