#include "KnxIp/Frames.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

namespace KnxIp {
namespace {

using Bytes = std::vector<std::uint8_t>;
using KnxFrames::FrameError;
using KnxFrames::IndividualAddress;

// The vectors are put together by hand from the frame formats of KNXnet/IP: header of 6 octets (size, version
// 1.0, service, total length), then the body. HPAI: size 8, protocol 1 (UDP), address, port. The client is
// 192.168.1.10 with port 50000 (C350h) for control and 50001 (C351h) for data, the server 192.168.1.2:3671
// (0E57h).
// clang-format off

const Hpai kClientControl{{0xC0A8010A, 50000}};
const Hpai kClientData{{0xC0A8010A, 50001}};
const Hpai kServer{{0xC0A80102, 3671}};

const Bytes kSearchRequest = {0x06, 0x10, 0x02, 0x01, 0x00, 0x0E,
                              0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x50};
const Bytes kSearchResponse = {
    0x06, 0x10, 0x02, 0x02, 0x00, 0x4A,                         // header, 74
    0x08, 0x01, 0xC0, 0xA8, 0x01, 0x02, 0x0E, 0x57,             // control endpoint
    0x36, 0x01, 0x02, 0x01, 0x11, 0x00, 0x12, 0x34,             // device: TP1, programming mode, 1.1.0, project
    0x00, 0xFA, 0x01, 0x02, 0x03, 0x04,                         // serial number
    0xE0, 0x00, 0x17, 0x0C, 0x02, 0x11, 0x22, 0x33, 0x44, 0x55, // multicast, MAC
    'H', 0xE4, 'u', 's', 'e', 'r', 0, 0, 0, 0,                  // name, "Häuser" in ISO 8859-1
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0x06, 0x02, 0x02, 0x01, 0x04, 0x01};                        // families: core and tunnelling, version 1
const Bytes kDescriptionRequest = {0x06, 0x10, 0x02, 0x03, 0x00, 0x0E,
                                   0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x50};
const Bytes kConnectRequest = {0x06, 0x10, 0x02, 0x05, 0x00, 0x1A,
                               0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x50, // control
                               0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x51, // data
                               0x04, 0x04, 0x02, 0x00};                        // tunnel, link layer
/// As a client behind an address translation sends it, asking for the tunnel with the address 1.1.251.
const Bytes kConnectRequestForAddress = {0x06, 0x10, 0x02, 0x05, 0x00, 0x1C,
                                         0x08, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                         0x08, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                         0x06, 0x04, 0x02, 0x00, 0x11, 0xFB};
/// A device management connection: its information has no more than size and type.
const Bytes kManagementConnectRequest = {0x06, 0x10, 0x02, 0x05, 0x00, 0x18,
                                         0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x50,
                                         0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x51,
                                         0x02, 0x03};
const Bytes kConnectResponse = {0x06, 0x10, 0x02, 0x06, 0x00, 0x14,
                                0x15, 0x00,                                     // channel, status
                                0x08, 0x01, 0xC0, 0xA8, 0x01, 0x02, 0x0E, 0x57, // data endpoint
                                0x04, 0x04, 0x11, 0xFA};                        // tunnel, 1.1.250
const Bytes kConnectRefusal = {0x06, 0x10, 0x02, 0x06, 0x00, 0x08, 0x00, 0x24};
const Bytes kConnectionStateRequest = {0x06, 0x10, 0x02, 0x07, 0x00, 0x10, 0x15, 0x00,
                                       0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x50};
const Bytes kConnectionStateResponse = {0x06, 0x10, 0x02, 0x08, 0x00, 0x08, 0x15, 0x21};
const Bytes kDisconnectRequest = {0x06, 0x10, 0x02, 0x09, 0x00, 0x10, 0x15, 0x00,
                                  0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x50};
const Bytes kDisconnectResponse = {0x06, 0x10, 0x02, 0x0A, 0x00, 0x08, 0x15, 0x00};
const Bytes kTunnellingRequest = {0x06, 0x10, 0x04, 0x20, 0x00, 0x15,
                                  0x04, 0x15, 0x07, 0x00,                             // channel, sequence
                                  0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x0A, 0x03, 0x01, 0x00, 0x81};
const Bytes kTunnellingAck = {0x06, 0x10, 0x04, 0x21, 0x00, 0x0A, 0x04, 0x15, 0x07, 0x29};
const Bytes kFeatureGet = {0x06, 0x10, 0x04, 0x22, 0x00, 0x0C, 0x04, 0x15, 0x07, 0x00,
                           0x03, 0x00};                         // bus connection
const Bytes kFeatureResponse = {0x06, 0x10, 0x04, 0x23, 0x00, 0x0D, 0x04, 0x15, 0x07, 0x00,
                                0x08, 0xFE, 0x01};              // told of changes, wrong size
const Bytes kFeatureSet = {0x06, 0x10, 0x04, 0x24, 0x00, 0x0D, 0x04, 0x15, 0x07, 0x00,
                           0x08, 0x00, 0x01};
const Bytes kFeatureInfo = {0x06, 0x10, 0x04, 0x25, 0x00, 0x0E, 0x04, 0x15, 0x07, 0x00,
                            0x06, 0x00, 0x11, 0xFB};            // individual address
const Bytes kManagementConnectResponse = {0x06, 0x10, 0x02, 0x06, 0x00, 0x12, 0x15, 0x00,
                                          0x08, 0x01, 0xC0, 0xA8, 0x01, 0x02, 0x0E, 0x57,
                                          0x02, 0x03};
const Bytes kDeviceConfigurationRequest = {0x06, 0x10, 0x03, 0x10, 0x00, 0x11, 0x04, 0x15, 0x07, 0x00,
                                           0xFC, 0x00, 0x0B, 0x01, 0x34, 0x10, 0x01};
const Bytes kDeviceConfigurationAck = {0x06, 0x10, 0x03, 0x11, 0x00, 0x0A, 0x04, 0x15, 0x07, 0x21};
const Bytes kRoutingIndication = {0x06, 0x10, 0x05, 0x30, 0x00, 0x11,
                                  0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x0A, 0x03, 0x01, 0x00, 0x81};
const Bytes kRoutingLostMessage = {0x06, 0x10, 0x05, 0x31, 0x00, 0x0A, 0x04, 0x01, 0x00, 0x05};
const Bytes kRoutingBusy = {0x06, 0x10, 0x05, 0x32, 0x00, 0x0C, 0x06, 0x00, 0x00, 0x64, 0x00, 0x01};
// clang-format on

Bytes DescriptionResponseVector() {
    // A search response without its control endpoint.
    Bytes vector = kSearchResponse;
    vector.erase(vector.begin() + 6, vector.begin() + 14);
    vector[3] = 0x04;
    vector[5] = 0x42;
    return vector;
}

std::vector<Bytes> Vectors() {
    return {kSearchRequest,
            kSearchResponse,
            kDescriptionRequest,
            DescriptionResponseVector(),
            kConnectRequest,
            kConnectRequestForAddress,
            kManagementConnectRequest,
            kConnectResponse,
            kConnectRefusal,
            kConnectionStateRequest,
            kConnectionStateResponse,
            kDisconnectRequest,
            kDisconnectResponse,
            kTunnellingRequest,
            kTunnellingAck,
            kFeatureGet,
            kFeatureResponse,
            kFeatureSet,
            kFeatureInfo,
            kManagementConnectResponse,
            kDeviceConfigurationRequest,
            kDeviceConfigurationAck,
            kRoutingIndication,
            kRoutingLostMessage,
            kRoutingBusy};
}

Bytes ToBytes(const Datagram& datagram) {
    return {datagram.Data(), datagram.Data() + datagram.Size()};
}

template <class T>
T Read(const Bytes& vector) {
    const auto frame = ReadFrame(vector);
    EXPECT_TRUE(frame) << frame.Error().cause;
    return frame && std::holds_alternative<T>(*frame) ? std::get<T>(*frame) : T{};
}

bool IsFeature(const Bytes& vector) {
    return vector[2] == 0x04 && vector[3] >= 0x22;
}

void SetLength(Bytes& datagram) {
    datagram[4] = static_cast<std::uint8_t>(datagram.size() >> 8);
    datagram[5] = static_cast<std::uint8_t>(datagram.size() & 0xFF);
}

FrameError Refusal(const Bytes& datagram) {
    const auto frame = ReadFrame(datagram);
    EXPECT_FALSE(frame);
    return frame ? FrameError{} : frame.Error();
}

DeviceDescription Description() {
    DeviceDescription description;
    description.device.programmingMode = true;
    description.device.address = IndividualAddress(1, 1, 0);
    description.device.projectInstallation = 0x1234;
    description.device.serialNumber = {0x00, 0xFA, 0x01, 0x02, 0x03, 0x04};
    description.device.mac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    description.device.name = "H\xC3\xA4user";
    description.families = {{ServiceFamily::kCore, 1}, {ServiceFamily::kTunnelling, 1}};
    return description;
}

TEST(Frames, EveryVectorSurvivesReadingAndWriting) {
    for (const Bytes& vector : Vectors()) {
        const auto frame = ReadFrame(vector);
        ASSERT_TRUE(frame) << frame.Error().cause;
        EXPECT_EQ(ToBytes(std::visit([](const auto& each) { return WriteFrame(each); }, *frame)), vector);
    }
}

TEST(Frames, ReadsTheFieldsOfEachFrame) {
    EXPECT_EQ(Read<SearchRequest>(kSearchRequest), (SearchRequest{kClientControl}));
    EXPECT_EQ(Read<SearchResponse>(kSearchResponse), (SearchResponse{kServer, Description()}));
    EXPECT_EQ(Read<DescriptionRequest>(kDescriptionRequest), (DescriptionRequest{kClientControl}));
    EXPECT_EQ(Read<DescriptionResponse>(DescriptionResponseVector()), (DescriptionResponse{Description()}));
    EXPECT_EQ(Read<ConnectRequest>(kConnectRequest), (ConnectRequest{kClientControl, kClientData}));
    EXPECT_EQ(Read<ConnectRequest>(kConnectRequestForAddress),
              (ConnectRequest{{}, {}, 0x04, 0x02, IndividualAddress(1, 1, 251)}));
    EXPECT_EQ(Read<ConnectRequest>(kManagementConnectRequest),
              (ConnectRequest{kClientControl, kClientData, 0x03, 0, {}}));
    EXPECT_EQ(Read<ConnectResponse>(kConnectResponse),
              (ConnectResponse{0x15, Status::NoError, kServer, IndividualAddress(1, 1, 250)}));
    EXPECT_EQ(Read<ConnectResponse>(kConnectRefusal),
              (ConnectResponse{0, Status::NoMoreConnections, {}, {}}));
    EXPECT_EQ(Read<ConnectionStateRequest>(kConnectionStateRequest),
              (ConnectionStateRequest{0x15, kClientControl}));
    EXPECT_EQ(Read<ConnectionStateResponse>(kConnectionStateResponse),
              (ConnectionStateResponse{0x15, Status::ConnectionId}));
    EXPECT_EQ(Read<DisconnectRequest>(kDisconnectRequest), (DisconnectRequest{0x15, kClientControl}));
    EXPECT_EQ(Read<DisconnectResponse>(kDisconnectResponse), (DisconnectResponse{0x15, Status::NoError}));
    EXPECT_EQ(Read<TunnellingAck>(kTunnellingAck), (TunnellingAck{0x15, 7, Status::TunnellingLayer}));
    const auto response = Read<TunnellingFeature>(kFeatureResponse);
    EXPECT_EQ(response.service, ServiceType::TunnellingFeatureResponse);
    EXPECT_EQ(response.channel, 0x15);
    EXPECT_EQ(response.sequence, 7);
    EXPECT_EQ(response.feature, InterfaceFeature::InfoServiceEnable);
    EXPECT_EQ(response.result, FeatureResult::TypeConflict);
    EXPECT_EQ(Bytes(response.value.begin(), response.value.end()), Bytes{1});
    EXPECT_EQ(Read<TunnellingFeature>(kFeatureGet).feature, InterfaceFeature::BusConnection);
    EXPECT_EQ(Read<TunnellingFeature>(kFeatureInfo).value.size(), 2U);
    EXPECT_EQ(Read<DeviceConfigurationAck>(kDeviceConfigurationAck),
              (DeviceConfigurationAck{0x15, 7, Status::ConnectionId}));
    EXPECT_EQ(Read<ConnectResponse>(kManagementConnectResponse),
              (ConnectResponse{0x15, Status::NoError, kServer, {}, 0x03}));
    const auto configuration = Read<DeviceConfigurationRequest>(kDeviceConfigurationRequest);
    EXPECT_EQ(configuration.channel, 0x15);
    EXPECT_EQ(configuration.sequence, 7);
    EXPECT_EQ(Bytes(configuration.cemi.begin(), configuration.cemi.end()),
              Bytes(kDeviceConfigurationRequest.begin() + 10, kDeviceConfigurationRequest.end()));
    EXPECT_EQ(Read<RoutingLostMessage>(kRoutingLostMessage), (RoutingLostMessage{1, 5}));
    EXPECT_EQ(Read<RoutingBusy>(kRoutingBusy), (RoutingBusy{0, 100, 1}));
    const auto indication = Read<RoutingIndication>(kRoutingIndication);
    EXPECT_EQ(Bytes(indication.cemi.begin(), indication.cemi.end()),
              Bytes(kRoutingIndication.begin() + 6, kRoutingIndication.end()));
    const auto request = Read<TunnellingRequest>(kTunnellingRequest);
    EXPECT_EQ(request.channel, 0x15);
    EXPECT_EQ(request.sequence, 7);
    EXPECT_EQ(Bytes(request.cemi.begin(), request.cemi.end()),
              Bytes(kTunnellingRequest.begin() + 10, kTunnellingRequest.end()));
}

TEST(Frames, ATelegramIsWrittenIntoATunnellingRequestDirectly) {
    const auto telegram = KnxFrames::ParseLData(Octets(kTunnellingRequest).subspan(10));
    ASSERT_TRUE(telegram);
    Datagram datagram{0xFF};
    WriteTunnellingRequest(0x15, 7, *telegram, datagram);
    EXPECT_EQ(ToBytes(datagram), kTunnellingRequest);
    WriteRoutingIndication(*telegram, datagram);
    EXPECT_EQ(ToBytes(datagram), kRoutingIndication);
}

TEST(Frames, TheLongestTelegramFitsIntoADatagram) {
    const Bytes value(KnxFrames::kLongestGroupValue, 0xA5);
    const auto telegram = KnxFrames::MakeGroupTelegram(
        IndividualAddress(1, 1, 4), KnxFrames::GroupAddress(1, 2, 3),
        *KnxFrames::MakeGroupLongValue(KnxFrames::GroupServiceKind::Write, value));
    Datagram datagram;
    WriteTunnellingRequest(1, 0, telegram, datagram);
    EXPECT_EQ(datagram.Size(), 274U);
    const auto request = Read<TunnellingRequest>(ToBytes(datagram));
    const auto read = KnxFrames::ParseLData(datagram.View().subspan(10));
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, telegram);
    EXPECT_EQ(request.channel, 1);
}

TEST(Frames, EveryTruncationIsMalformed) {
    for (const Bytes& vector : Vectors()) {
        for (std::size_t size = 0; size < vector.size(); ++size) {
            // An exact copy on the heap: AddressSanitizer sees every octet that is read beyond it.
            Bytes cut(vector.begin(), vector.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(Refusal(cut).kind, FrameError::Kind::Malformed) << size;
            if (size < 6)
                continue;
            // Also when the header agrees with the cut. A tunnelling request may end anywhere behind its
            // connection header, as far as KNXnet/IP is concerned, and a refusal behind its status.
            SetLength(cut);
            const auto frame = ReadFrame(cut);
            const bool isTunnelling =
                ((vector == kTunnellingRequest || vector == kDeviceConfigurationRequest) && size >= 10) ||
                (vector == kRoutingIndication && size >= 6) || (IsFeature(vector) && size >= 12);
            const bool endsBeforeFamilies = (vector == kSearchResponse && size == 68) ||
                                            (vector == DescriptionResponseVector() && size == 60);
            EXPECT_EQ(static_cast<bool>(frame), isTunnelling || endsBeforeFamilies) << size;
        }
    }
}

TEST(Frames, OctetsBehindAFrameAreMalformed) {
    for (Bytes vector : Vectors()) {
        vector.push_back(0);
        EXPECT_STREQ(Refusal(vector).cause, "the total length is not the size of the datagram");
        if ((vector[2] == 0x04 && vector[3] == 0x20) || (vector[2] == 0x03 && vector[3] == 0x10) ||
            (vector[2] == 0x05 && vector[3] == 0x30))
            continue; // what follows the header is all cEMI
        if (IsFeature(vector) && vector[3] != 0x22)
            continue; // it is all value
        SetLength(vector);
        if (std::equal(kConnectRefusal.begin(), kConnectRefusal.begin() + 4, vector.begin()) &&
            vector[7] != 0)
            continue; // servers may fill up a refusal
        EXPECT_EQ(Refusal(vector).kind, FrameError::Kind::Malformed);
    }
}

TEST(Frames, ARefusalMayBeFilledUp) {
    Bytes vector = kConnectRefusal;
    vector.insert(vector.end(), 12, 0);
    SetLength(vector);
    EXPECT_EQ(Read<ConnectResponse>(vector).status, Status::NoMoreConnections);
}

struct RefusedCase {
    Bytes vector;
    std::size_t index;
    std::uint8_t octet;
    const char* cause;
    FrameError::Kind kind;
};

TEST(Frames, EachCauseIsNamed) {
    constexpr auto kMalformed = FrameError::Kind::Malformed;
    constexpr auto kUnsupported = FrameError::Kind::Unsupported;
    const std::vector<RefusedCase> cases = {
        {kSearchRequest, 0, 0x07, "the KNXnet/IP header is not 6 octets long", kMalformed},
        {kSearchRequest, 1, 0x20, "the KNXnet/IP version is not 1.0", kUnsupported},
        {kSearchRequest, 2, 0x05, "the KNXnet/IP service is not known", kUnsupported},
        {kSearchRequest, 4, 0x01, "the total length is not the size of the datagram", kMalformed},
        {kSearchRequest, 6, 0x07, "an HPAI is not 8 octets long", kMalformed},
        {kSearchRequest, 6, 0x00, "an HPAI is not 8 octets long", kMalformed},
        {kSearchRequest, 6, 0xFF, "an HPAI is not 8 octets long", kMalformed},
        {kSearchRequest, 7, 0x03, "the host protocol of an HPAI is neither UDP nor TCP", kMalformed},
        {kConnectRequest, 14, 0x09, "an HPAI is not 8 octets long", kMalformed},
        {kConnectRequest, 22, 0x01, "the connection request information is too short", kMalformed},
        {kConnectRequest, 22, 0x05, "the frame ends too early", kMalformed},
        {kConnectRequest, 22, 0x03, "the information of a tunnel connection is neither 4 nor 6 octets long",
         kMalformed},
        {kConnectResponse, 16, 0x05, "the response data is neither 2 nor 4 octets long", kMalformed},
        {kConnectResponse, 17, 0x03,
         "the response data is neither that of a tunnel nor of a management connection", kMalformed},
        {kSearchResponse, 14, 0x01, "a description block is shorter than its header", kMalformed},
        {kSearchResponse, 14, 0x35, "the device information is not 54 octets long", kMalformed},
        {kSearchResponse, 15, 0xFE, "the device information is missing", kMalformed},
        {kSearchResponse, 68, 0x05, "the list of service families has half an entry", kMalformed},
        {kTunnellingRequest, 6, 0x05, "the connection header is not 4 octets long", kMalformed},
        {kFeatureSet, 6, 0x05, "the connection header is not 4 octets long", kMalformed},
        {kTunnellingAck, 6, 0x03, "the connection header is not 4 octets long", kMalformed},
        {kRoutingLostMessage, 6, 0x05, "the information about lost messages is not 4 octets long",
         kMalformed},
        {kRoutingBusy, 6, 0x04, "the information about a busy router is not 6 octets long", kMalformed}};
    for (const RefusedCase& each : cases) {
        Bytes vector = each.vector;
        vector[each.index] = each.octet;
        const FrameError error = Refusal(vector);
        EXPECT_STREQ(error.cause, each.cause);
        EXPECT_EQ(error.kind, each.kind) << each.cause;
        EXPECT_LE(error.offset, vector.size()) << each.cause;
    }
}

TEST(Frames, DescriptionBlocksOfOtherTypesAreSkipped) {
    Bytes vector = kSearchResponse;
    const Bytes makersBlock = {0x05, 0xFE, 0x01, 0x02, 0x03};
    vector.insert(vector.begin() + 68, makersBlock.begin(), makersBlock.end());
    SetLength(vector);
    EXPECT_EQ(Read<SearchResponse>(vector).description, Description());
}

TEST(Frames, ALongNameIsCutAndLeavesItsEnd) {
    DescriptionResponse response{Description()};
    response.description.device.name = std::string(40, 'x');
    EXPECT_EQ(Read<DescriptionResponse>(ToBytes(WriteFrame(response))).description.device.name,
              std::string(29, 'x'));
}

TEST(Frames, CharactersOutsideLatin1BecomeQuestionMarks) {
    DescriptionResponse response{Description()};
    // U+20AC, U+00FC, U+1F4A1, and a lone continuation octet.
    response.description.device.name = "a\xE2\x82\xAC"
                                       "b\xC3\xBC"
                                       "c\xF0\x9F\x92\xA1\x80z";
    EXPECT_EQ(Read<DescriptionResponse>(ToBytes(WriteFrame(response))).description.device.name, "a?b\xC3\xBC"
                                                                                                "c?z");
}

TEST(Frames, StatusTextsAreDistinct) {
    EXPECT_STREQ(ToString(Status::NoMoreConnections), "no more connections");
    EXPECT_STREQ(ToString(Status::ConnectionId), "no such connection");
    EXPECT_STREQ(ToString(static_cast<Status>(0x77)), "unknown status");
}

TEST(Endpoint, PrintsAddressAndPort) {
    EXPECT_EQ((Endpoint{0xC0A80102, 3671}).ToString(), "192.168.1.2:3671");
    EXPECT_TRUE((Endpoint{1, 1}).IsSpecified());
    EXPECT_FALSE((Endpoint{1, 0}).IsSpecified());
    EXPECT_FALSE((Endpoint{0, 1}).IsSpecified());
}

} // namespace
} // namespace KnxIp
