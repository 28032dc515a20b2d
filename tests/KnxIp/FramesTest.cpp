#include "KnxIp/Frames.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KnxIp {
namespace {

using Bytes = std::vector<std::uint8_t>;
using KnxFrames::FrameError;
using KnxFrames::IndividualAddress;

Bytes ToBytes(const Datagram& datagram) {
    return {datagram.Data(), datagram.Data() + datagram.Size()};
}

// The vectors are put together by hand from the frame formats of KNXnet/IP: header of 6 octets (size, version
// 1.0, service, total length), then the body. HPAI: size 8, protocol 1 (UDP), address, port. The client is
// 192.168.1.10 with port 50000 (C350h) for control and 50001 (C351h) for data, the server 192.168.1.2:3671
// (0E57h).

const Hpai kClientControl{{0xC0A8010A, 50000}};
const Hpai kClientData{{0xC0A8010A, 50001}};
const Hpai kServer{{0xC0A80102, 3671}};

const Bytes kConnectRequest = {0x06, 0x10, 0x02, 0x05, 0x00, 0x1A,              // header, 26
                               0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x50,  // control
                               0x08, 0x01, 0xC0, 0xA8, 0x01, 0x0A, 0xC3, 0x51,  // data
                               0x04, 0x04, 0x02, 0x00};                         // tunnel, link layer
const Bytes kConnectResponse = {0x06, 0x10, 0x02, 0x06, 0x00, 0x14,             // header, 20
                                0x15, 0x00,                                     // channel, status
                                0x08, 0x01, 0xC0, 0xA8, 0x01, 0x02, 0x0E, 0x57, // data
                                0x04, 0x04, 0x11, 0xFA};                        // tunnel, 1.1.250
const Bytes kTunnellingRequest = {0x06, 0x10, 0x04, 0x20, 0x00, 0x15,           // header, 21
                                  0x04, 0x15, 0x07, 0x00,                       // channel, sequence
                                  0x29, 0x00, 0xBC, 0xE0, 0x11, 0x04, 0x0A, 0x03, 0x01, 0x00, 0x81}; // cEMI

TEST(Frames, ReadsAndWritesAConnectRequest) {
    const auto frame = ReadFrame(kConnectRequest);
    ASSERT_TRUE(frame) << frame.Error().cause;
    const auto& request = std::get<ConnectRequest>(*frame);
    EXPECT_EQ(request.control, kClientControl);
    EXPECT_EQ(request.data, kClientData);
    EXPECT_EQ(request.connectionType, ConnectRequest::kTunnelConnection);
    EXPECT_EQ(request.layer, ConnectRequest::kLinkLayer);
    EXPECT_EQ(request.wantedAddress, IndividualAddress());
    EXPECT_EQ(ToBytes(WriteFrame(request)), kConnectRequest);
}

TEST(Frames, ReadsAndWritesAConnectResponse) {
    const auto frame = ReadFrame(kConnectResponse);
    ASSERT_TRUE(frame) << frame.Error().cause;
    const auto& response = std::get<ConnectResponse>(*frame);
    EXPECT_EQ(response, (ConnectResponse{0x15, Status::NoError, kServer, IndividualAddress(1, 1, 250)}));
    EXPECT_EQ(ToBytes(WriteFrame(response)), kConnectResponse);
}

TEST(Frames, ReadsAndWritesATunnellingRequest) {
    const auto frame = ReadFrame(kTunnellingRequest);
    ASSERT_TRUE(frame) << frame.Error().cause;
    const auto& request = std::get<TunnellingRequest>(*frame);
    EXPECT_EQ(request.channel, 0x15);
    EXPECT_EQ(request.sequence, 7);
    EXPECT_EQ(ToBytes(WriteFrame(request)), kTunnellingRequest);
    const auto telegram = KnxFrames::ParseLData(request.cemi);
    ASSERT_TRUE(telegram);
    Datagram direct;
    WriteTunnellingRequest(0x15, 7, *telegram, direct);
    EXPECT_EQ(ToBytes(direct), kTunnellingRequest);
}

} // namespace
} // namespace KnxIp
