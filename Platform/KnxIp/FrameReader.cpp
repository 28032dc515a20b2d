#include "KnxIp/FrameCursor.h"
#include "KnxIp/FrameLayout.h"
#include "KnxIp/Frames.h"

#include <algorithm>
#include <optional>

namespace KnxIp {
namespace {

using namespace Layout;
using KnxFrames::FrameError;
using KnxFrames::Outcome;

using Cursor = FrameCursor;

Hpai TakeHpai(Cursor& cursor) {
    Cursor block = cursor.TakeBlock(kHpaiSize, kHpaiSize, "an HPAI is not 8 octets long");
    Hpai hpai;
    hpai.protocol = block.Take8();
    hpai.endpoint.address = block.Take32();
    hpai.endpoint.port = block.Take16();
    if (hpai.protocol != Hpai::kUdp && hpai.protocol != Hpai::kTcp)
        cursor.Fail("the host protocol of an HPAI is neither UDP nor TCP");
    return hpai;
}

std::uint8_t TakeChannelAndReserved(Cursor& cursor) {
    const std::uint8_t channel = cursor.Take8();
    cursor.Take8();
    return channel;
}

Frame ReadSearchRequest(Cursor& cursor) {
    return SearchRequest{TakeHpai(cursor)};
}

Frame ReadSearchResponse(Cursor& cursor) {
    SearchResponse frame;
    frame.control = TakeHpai(cursor);
    frame.description = TakeDescription(cursor);
    return frame;
}

Frame ReadSearchRequestExtended(Cursor& cursor) {
    SearchRequestExtended frame;
    frame.discovery = TakeHpai(cursor);
    frame.parameters = cursor.Rest();
    while (cursor.Left() > 0)
        cursor.TakeBlock(2, 0xFF, "a search parameter is shorter than its header");
    return frame;
}

Frame ReadSearchResponseExtended(Cursor& cursor) {
    SearchResponseExtended frame;
    frame.control = TakeHpai(cursor);
    frame.description = TakeDescription(cursor);
    return frame;
}

Frame ReadDescriptionRequest(Cursor& cursor) {
    return DescriptionRequest{TakeHpai(cursor)};
}

Frame ReadDescriptionResponse(Cursor& cursor) {
    return DescriptionResponse{TakeDescription(cursor)};
}

Frame ReadConnectRequest(Cursor& cursor) {
    ConnectRequest frame;
    frame.control = TakeHpai(cursor);
    frame.data = TakeHpai(cursor);
    Cursor information = cursor.TakeBlock(2, 0xFF, "the connection request information is too short");
    frame.connectionType = information.Take8();
    frame.layer = 0;
    if (frame.connectionType != ConnectRequest::kTunnelConnection)
        return frame;
    if (information.Left() != kTunnelCriSize - 2U && information.Left() != kTunnelCriWithAddressSize - 2U) {
        cursor.Fail("the information of a tunnel connection is neither 4 nor 6 octets long");
        return frame;
    }
    frame.layer = information.Take8();
    information.Take8();
    if (information.Left() > 0)
        frame.wantedAddress = KnxFrames::IndividualAddress(information.Take16());
    return frame;
}

Frame ReadConnectResponse(Cursor& cursor) {
    ConnectResponse frame;
    frame.channel = cursor.Take8();
    frame.status = static_cast<Status>(cursor.Take8());
    if (frame.status != Status::NoError) {
        // Some servers end here, others fill the rest with zeros.
        cursor.Take(cursor.Left());
        return frame;
    }
    frame.data = TakeHpai(cursor);
    Cursor data = cursor.TakeBlock(kManagementCrdSize, kTunnelCrdSize,
                                   "the response data is neither 2 nor 4 octets long");
    frame.connectionType = data.Take8();
    if (frame.connectionType == ConnectRequest::kTunnelConnection && data.Left() == 2)
        frame.address = KnxFrames::IndividualAddress(data.Take16());
    else if (frame.connectionType != ConnectRequest::kManagementConnection || data.Left() != 0)
        cursor.Fail("the response data is neither that of a tunnel nor of a management connection");
    return frame;
}

Frame ReadConnectionStateRequest(Cursor& cursor) {
    ConnectionStateRequest frame;
    frame.channel = TakeChannelAndReserved(cursor);
    frame.control = TakeHpai(cursor);
    return frame;
}

Frame ReadConnectionStateResponse(Cursor& cursor) {
    const std::uint8_t channel = cursor.Take8();
    return ConnectionStateResponse{channel, static_cast<Status>(cursor.Take8())};
}

Frame ReadDisconnectRequest(Cursor& cursor) {
    DisconnectRequest frame;
    frame.channel = TakeChannelAndReserved(cursor);
    frame.control = TakeHpai(cursor);
    return frame;
}

Frame ReadDisconnectResponse(Cursor& cursor) {
    const std::uint8_t channel = cursor.Take8();
    return DisconnectResponse{channel, static_cast<Status>(cursor.Take8())};
}

/// A request for the bus or for the device.
template <class Request>
Frame ReadRequest(Cursor& cursor) {
    Cursor header = cursor.TakeBlock(kConnectionHeaderSize, kConnectionHeaderSize,
                                     "the connection header is not 4 octets long");
    Request frame;
    frame.channel = header.Take8();
    frame.sequence = header.Take8();
    frame.cemi = cursor.Take(cursor.Left());
    return frame;
}

template <class Ack>
Frame ReadAck(Cursor& cursor) {
    Cursor header = cursor.TakeBlock(kConnectionHeaderSize, kConnectionHeaderSize,
                                     "the connection header is not 4 octets long");
    Ack frame;
    frame.channel = header.Take8();
    frame.sequence = header.Take8();
    frame.status = static_cast<Status>(header.Take8());
    return frame;
}

template <ServiceType service>
Frame ReadFeature(Cursor& cursor) {
    Cursor header = cursor.TakeBlock(kConnectionHeaderSize, kConnectionHeaderSize,
                                     "the connection header is not 4 octets long");
    TunnellingFeature frame;
    frame.service = service;
    frame.channel = header.Take8();
    frame.sequence = header.Take8();
    frame.feature = static_cast<InterfaceFeature>(cursor.Take8());
    const std::uint8_t result = cursor.Take8();
    if (service == ServiceType::TunnellingFeatureResponse)
        frame.result = static_cast<FeatureResult>(result);
    if (service != ServiceType::TunnellingFeatureGet)
        frame.value = cursor.Take(cursor.Left());
    return frame;
}

Frame ReadRoutingIndication(Cursor& cursor) {
    return RoutingIndication{cursor.Take(cursor.Left())};
}

Frame ReadRoutingLostMessage(Cursor& cursor) {
    Cursor block = cursor.TakeBlock(kRoutingLostMessageSize, kRoutingLostMessageSize,
                                    "the information about lost messages is not 4 octets long");
    RoutingLostMessage frame;
    frame.deviceState = block.Take8();
    frame.lost = block.Take16();
    return frame;
}

Frame ReadRoutingBusy(Cursor& cursor) {
    Cursor block = cursor.TakeBlock(kRoutingBusySize, kRoutingBusySize,
                                    "the information about a busy router is not 6 octets long");
    RoutingBusy frame;
    frame.deviceState = block.Take8();
    frame.waitTime = block.Take16();
    frame.control = block.Take16();
    return frame;
}

struct Reader {
    ServiceType service;
    Frame (*read)(Cursor&);
};

constexpr std::array kReaders = {
    Reader{ServiceType::TunnellingRequest, ReadRequest<TunnellingRequest>},
    Reader{ServiceType::TunnellingAck, ReadAck<TunnellingAck>},
    Reader{ServiceType::DeviceConfigurationRequest, ReadRequest<DeviceConfigurationRequest>},
    Reader{ServiceType::DeviceConfigurationAck, ReadAck<DeviceConfigurationAck>},
    Reader{ServiceType::RoutingIndication, ReadRoutingIndication},
    Reader{ServiceType::RoutingLostMessage, ReadRoutingLostMessage},
    Reader{ServiceType::RoutingBusy, ReadRoutingBusy},
    Reader{ServiceType::ConnectionStateRequest, ReadConnectionStateRequest},
    Reader{ServiceType::ConnectionStateResponse, ReadConnectionStateResponse},
    Reader{ServiceType::SearchRequest, ReadSearchRequest},
    Reader{ServiceType::SearchResponse, ReadSearchResponse},
    Reader{ServiceType::SearchRequestExtended, ReadSearchRequestExtended},
    Reader{ServiceType::SearchResponseExtended, ReadSearchResponseExtended},
    Reader{ServiceType::TunnellingFeatureGet, ReadFeature<ServiceType::TunnellingFeatureGet>},
    Reader{ServiceType::TunnellingFeatureResponse, ReadFeature<ServiceType::TunnellingFeatureResponse>},
    Reader{ServiceType::TunnellingFeatureSet, ReadFeature<ServiceType::TunnellingFeatureSet>},
    Reader{ServiceType::TunnellingFeatureInfo, ReadFeature<ServiceType::TunnellingFeatureInfo>},
    Reader{ServiceType::DescriptionRequest, ReadDescriptionRequest},
    Reader{ServiceType::DescriptionResponse, ReadDescriptionResponse},
    Reader{ServiceType::ConnectRequest, ReadConnectRequest},
    Reader{ServiceType::ConnectResponse, ReadConnectResponse},
    Reader{ServiceType::DisconnectRequest, ReadDisconnectRequest},
    Reader{ServiceType::DisconnectResponse, ReadDisconnectResponse},
};

} // namespace

std::optional<SearchParameter> TakeSearchParameter(Octets& parameters) {
    if (parameters.size() < 2 || parameters[0] < 2 || parameters[0] > parameters.size())
        return std::nullopt;
    SearchParameter parameter;
    parameter.mandatory = (parameters[1] & kMandatoryParameter) != 0;
    parameter.type = static_cast<SearchParameter::Type>(parameters[1] & ~kMandatoryParameter);
    parameter.data = parameters.subspan(2, parameters[0] - 2U);
    parameters = parameters.subspan(parameters[0]);
    return parameter;
}

Outcome<Frame> ReadFrame(Octets datagram) {
    Cursor cursor(datagram);
    const std::uint8_t headerSize = cursor.Take8();
    const std::uint8_t version = cursor.Take8();
    const auto service = static_cast<ServiceType>(cursor.Take16());
    const std::uint16_t totalLength = cursor.Take16();
    if (cursor.Error())
        return FrameError::Malformed("the datagram is shorter than a KNXnet/IP header", datagram.size());
    if (headerSize != kHeaderSize)
        return FrameError::Malformed("the KNXnet/IP header is not 6 octets long", 0);
    if (version != kVersion)
        return FrameError::Unsupported("the KNXnet/IP version is not 1.0", 1);
    if (totalLength != datagram.size())
        return FrameError::Malformed("the total length is not the size of the datagram", 4);
    const auto* reader = std::find_if(kReaders.begin(), kReaders.end(),
                                      [service](const Reader& each) { return each.service == service; });
    if (reader == kReaders.end())
        return FrameError::Unsupported("the KNXnet/IP service is not known", 2);
    Frame frame = reader->read(cursor);
    if (cursor.Error())
        return *cursor.Error();
    if (cursor.Left() > 0)
        return FrameError::Malformed("octets follow the frame", datagram.size() - cursor.Left());
    return frame;
}

} // namespace KnxIp
