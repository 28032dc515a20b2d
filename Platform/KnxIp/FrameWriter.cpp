#include "KnxIp/FrameLayout.h"
#include "KnxIp/Frames.h"

#include <algorithm>

namespace KnxIp {
namespace {

using namespace Layout;

/// Begins a frame; EndFrame() fills in the total length.
Datagram BeginFrame(ServiceType service) {
    Datagram out;
    out.Append(kHeaderSize);
    out.Append(kVersion);
    out.Append16(static_cast<std::uint16_t>(service));
    out.Append16(0);
    return out;
}

void EndFrame(Datagram& out) {
    out[4] = static_cast<std::uint8_t>(out.Size() >> 8);
    out[5] = static_cast<std::uint8_t>(out.Size() & 0xFF);
}

void Append32(Datagram& out, std::uint32_t number) {
    out.Append16(static_cast<std::uint16_t>(number >> 16));
    out.Append16(static_cast<std::uint16_t>(number & 0xFFFF));
}

void Append(Datagram& out, const Hpai& hpai) {
    out.Append(kHpaiSize);
    out.Append(hpai.protocol);
    Append32(out, hpai.endpoint.address);
    out.Append16(hpai.endpoint.port);
}

/// UTF-8 as 30 octets of ISO 8859-1, filled with zeros; the last one is always zero, as receivers expect an
/// end.
void AppendName(Datagram& out, const std::string& utf8) {
    const std::size_t end = out.Size() + kNameSize;
    for (std::size_t index = 0; index < utf8.size() && out.Size() < end - 1;) {
        const auto lead = static_cast<std::uint8_t>(utf8[index++]);
        std::uint8_t second = 0;
        while (index < utf8.size() && (utf8[index] & 0xC0) == 0x80) {
            if (second == 0)
                second = static_cast<std::uint8_t>(utf8[index]);
            ++index;
        }
        if (lead < 0x80)
            out.Append(lead);
        else if (lead == 0xC2 || lead == 0xC3)
            out.Append(static_cast<std::uint8_t>((lead & 0x03) << 6 | (second & 0x3F)));
        else
            out.Append('?');
    }
    while (out.Size() < end)
        out.Append(0);
}

void BeginBlock(Datagram& out, std::size_t size, DescriptionType type) {
    out.Append(static_cast<std::uint8_t>(size));
    out.Append(static_cast<std::uint8_t>(type));
}

void Append(Datagram& out, const DeviceInformation& device) {
    BeginBlock(out, kDeviceInformationSize, DescriptionType::DeviceInformation);
    out.Append(device.medium);
    out.Append(device.programmingMode ? kProgrammingMode : std::uint8_t{0});
    out.Append16(device.address.raw);
    out.Append16(device.projectInstallation);
    out.Append(Octets(device.serialNumber));
    Append32(out, device.multicast);
    out.Append(Octets(device.mac));
    AppendName(out, device.name);
}

void Append(Datagram& out, const ExtendedDeviceInformation& extended) {
    BeginBlock(out, kExtendedDeviceInformationSize, DescriptionType::ExtendedDeviceInformation);
    out.Append(extended.status);
    out.Append(0);
    out.Append16(extended.apduLength);
    out.Append16(extended.deviceDescriptor);
}

void Append(Datagram& out, const TunnellingInformation& tunnelling) {
    const std::size_t slots = std::min(tunnelling.slots.size(), TunnellingInformation::kMostSlots);
    BeginBlock(out, kTunnellingInformationSize + slots * kTunnellingSlotSize,
               DescriptionType::TunnellingInformation);
    out.Append16(tunnelling.apduLength);
    for (std::size_t index = 0; index < slots; ++index) {
        out.Append16(tunnelling.slots[index].address.raw);
        out.Append16(tunnelling.slots[index].status);
    }
}

void Append(Datagram& out, const DeviceDescription& description) {
    Append(out, description.device);
    const std::size_t families = std::min(description.families.size(), kMostFamilies);
    BeginBlock(out, 2 + 2 * families, DescriptionType::ServiceFamilies);
    for (std::size_t index = 0; index < families; ++index) {
        out.Append(description.families[index].family);
        out.Append(description.families[index].version);
    }
    if (description.extended)
        Append(out, *description.extended);
    if (description.tunnelling)
        Append(out, *description.tunnelling);
}

Datagram WriteChannelRequest(ServiceType service, std::uint8_t channel, const Hpai& control) {
    Datagram out = BeginFrame(service);
    out.Append(channel);
    out.Append(0);
    Append(out, control);
    EndFrame(out);
    return out;
}

Datagram WriteChannelResponse(ServiceType service, std::uint8_t channel, Status status) {
    Datagram out = BeginFrame(service);
    out.Append(channel);
    out.Append(static_cast<std::uint8_t>(status));
    EndFrame(out);
    return out;
}

void AppendConnectionHeader(Datagram& out, std::uint8_t channel, std::uint8_t sequence, std::uint8_t last) {
    out.Append(kConnectionHeaderSize);
    out.Append(channel);
    out.Append(sequence);
    out.Append(last);
}

} // namespace

Datagram WriteFrame(const SearchRequest& frame) {
    Datagram out = BeginFrame(ServiceType::SearchRequest);
    Append(out, frame.discovery);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const SearchResponse& frame) {
    Datagram out = BeginFrame(ServiceType::SearchResponse);
    Append(out, frame.control);
    Append(out, frame.description);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const SearchRequestExtended& frame) {
    Datagram out = BeginFrame(ServiceType::SearchRequestExtended);
    Append(out, frame.discovery);
    out.Append(frame.parameters);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const SearchResponseExtended& frame) {
    Datagram out = BeginFrame(ServiceType::SearchResponseExtended);
    Append(out, frame.control);
    Append(out, frame.description);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const DescriptionRequest& frame) {
    Datagram out = BeginFrame(ServiceType::DescriptionRequest);
    Append(out, frame.control);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const DescriptionResponse& frame) {
    Datagram out = BeginFrame(ServiceType::DescriptionResponse);
    Append(out, frame.description);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const ConnectRequest& frame) {
    Datagram out = BeginFrame(ServiceType::ConnectRequest);
    Append(out, frame.control);
    Append(out, frame.data);
    if (frame.connectionType != ConnectRequest::kTunnelConnection) {
        out.Append(2);
        out.Append(frame.connectionType);
    } else {
        const bool wantsAddress = frame.wantedAddress.raw != 0;
        out.Append(wantsAddress ? kTunnelCriWithAddressSize : kTunnelCriSize);
        out.Append(frame.connectionType);
        out.Append(frame.layer);
        out.Append(0);
        if (wantsAddress)
            out.Append16(frame.wantedAddress.raw);
    }
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const ConnectResponse& frame) {
    Datagram out = BeginFrame(ServiceType::ConnectResponse);
    out.Append(frame.channel);
    out.Append(static_cast<std::uint8_t>(frame.status));
    if (frame.status == Status::NoError) {
        Append(out, frame.data);
        const bool isTunnel = frame.connectionType == ConnectRequest::kTunnelConnection;
        out.Append(isTunnel ? kTunnelCrdSize : kManagementCrdSize);
        out.Append(frame.connectionType);
        if (isTunnel)
            out.Append16(frame.address.raw);
    }
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const ConnectionStateRequest& frame) {
    return WriteChannelRequest(ServiceType::ConnectionStateRequest, frame.channel, frame.control);
}

Datagram WriteFrame(const ConnectionStateResponse& frame) {
    return WriteChannelResponse(ServiceType::ConnectionStateResponse, frame.channel, frame.status);
}

Datagram WriteFrame(const DisconnectRequest& frame) {
    return WriteChannelRequest(ServiceType::DisconnectRequest, frame.channel, frame.control);
}

Datagram WriteFrame(const DisconnectResponse& frame) {
    return WriteChannelResponse(ServiceType::DisconnectResponse, frame.channel, frame.status);
}

Datagram WriteFrame(const TunnellingAck& frame) {
    Datagram out = BeginFrame(ServiceType::TunnellingAck);
    AppendConnectionHeader(out, frame.channel, frame.sequence, static_cast<std::uint8_t>(frame.status));
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const TunnellingRequest& frame) {
    Datagram out = BeginFrame(ServiceType::TunnellingRequest);
    AppendConnectionHeader(out, frame.channel, frame.sequence, 0);
    out.Append(frame.cemi);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const TunnellingFeature& frame) {
    Datagram out = BeginFrame(frame.service);
    AppendConnectionHeader(out, frame.channel, frame.sequence, 0);
    out.Append(static_cast<std::uint8_t>(frame.feature));
    out.Append(static_cast<std::uint8_t>(frame.result));
    out.Append(frame.value);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const DeviceConfigurationRequest& frame) {
    Datagram out = BeginFrame(ServiceType::DeviceConfigurationRequest);
    AppendConnectionHeader(out, frame.channel, frame.sequence, 0);
    out.Append(frame.cemi);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const DeviceConfigurationAck& frame) {
    Datagram out = BeginFrame(ServiceType::DeviceConfigurationAck);
    AppendConnectionHeader(out, frame.channel, frame.sequence, static_cast<std::uint8_t>(frame.status));
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const RoutingIndication& frame) {
    Datagram out = BeginFrame(ServiceType::RoutingIndication);
    out.Append(frame.cemi);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const RoutingLostMessage& frame) {
    Datagram out = BeginFrame(ServiceType::RoutingLostMessage);
    out.Append(kRoutingLostMessageSize);
    out.Append(frame.deviceState);
    out.Append16(frame.lost);
    EndFrame(out);
    return out;
}

Datagram WriteFrame(const RoutingBusy& frame) {
    Datagram out = BeginFrame(ServiceType::RoutingBusy);
    out.Append(kRoutingBusySize);
    out.Append(frame.deviceState);
    out.Append16(frame.waitTime);
    out.Append16(frame.control);
    EndFrame(out);
    return out;
}

void WriteRoutingIndication(const KnxFrames::LData& telegram, Datagram& out) {
    out = BeginFrame(ServiceType::RoutingIndication);
    KnxFrames::EncodeCemi(telegram, out);
    EndFrame(out);
}

void WriteTunnellingRequest(std::uint8_t channel, std::uint8_t sequence, const KnxFrames::LData& telegram,
                            Datagram& out) {
    out = BeginFrame(ServiceType::TunnellingRequest);
    AppendConnectionHeader(out, channel, sequence, 0);
    KnxFrames::EncodeCemi(telegram, out);
    EndFrame(out);
}

} // namespace KnxIp
