#include "KnxIp/FrameLayout.h"
#include "KnxIp/Frames.h"

#include <algorithm>
#include <optional>

namespace KnxIp {
namespace {

using namespace Layout;
using KnxFrames::FrameError;
using KnxFrames::Outcome;

/// Takes octets from the front. The first failure sticks: everything read after it is 0, so that a reader
/// function needs to look at the error only once, at its end.
class Cursor {
public:
    explicit Cursor(Octets octets, std::size_t offset = 0) : m_octets(octets), m_offset(offset) {}

    Octets Rest() const { return m_error ? Octets{} : m_octets; }
    std::size_t Left() const { return m_error ? 0 : m_octets.size(); }
    const std::optional<FrameError>& Error() const { return m_error; }

    void Fail(const char* cause) {
        if (!m_error)
            m_error = FrameError::Malformed(cause, m_offset);
    }

    Octets Take(std::size_t count) {
        if (Left() < count) {
            Fail("the frame ends too early");
            return {};
        }
        const Octets taken = m_octets.first(count);
        m_octets = m_octets.subspan(count);
        m_offset += count;
        return taken;
    }

    std::uint8_t Take8() {
        const Octets taken = Take(1);
        return taken.empty() ? std::uint8_t{0} : taken[0];
    }
    std::uint16_t Take16() {
        const std::uint8_t high = Take8();
        return static_cast<std::uint16_t>(high << 8 | Take8());
    }
    std::uint32_t Take32() {
        const std::uint32_t high = Take16();
        return high << 16 | Take16();
    }

    /// A block that begins with its own length, as a cursor over what follows the length. `shortest` and
    /// `longest` are the sizes allowed, the length octet included.
    Cursor TakeBlock(std::size_t shortest, std::size_t longest, const char* wrongLength) {
        const std::uint8_t length = Left() == 0 ? std::uint8_t{0} : m_octets[0];
        if (Left() == 0)
            Fail("the frame ends too early");
        else if (length < shortest || length > longest)
            Fail(wrongLength);
        const std::size_t start = m_offset;
        const Octets block = m_error ? Octets{} : Take(length);
        return block.empty() ? Cursor({}, start) : Cursor(block.subspan(1), start + 1);
    }

private:
    Octets m_octets;
    std::size_t m_offset;
    std::optional<FrameError> m_error;
};

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

template <std::size_t Size>
std::array<std::uint8_t, Size> TakeArray(Cursor& cursor) {
    std::array<std::uint8_t, Size> result{};
    const Octets taken = cursor.Take(Size);
    std::copy(taken.begin(), taken.end(), result.begin());
    return result;
}

/// ISO 8859-1 up to the first zero, as UTF-8.
std::string ToUtf8(Octets latin1) {
    std::string text;
    for (const std::uint8_t character : latin1) {
        if (character == 0)
            break;
        if (character < 0x80) {
            text += static_cast<char>(character);
        } else {
            text += static_cast<char>(0xC0 | character >> 6);
            text += static_cast<char>(0x80 | (character & 0x3F));
        }
    }
    return text;
}

DeviceInformation TakeDeviceInformation(Cursor& block) {
    DeviceInformation device;
    device.medium = block.Take8();
    device.programmingMode = (block.Take8() & kProgrammingMode) != 0;
    device.address = KnxFrames::IndividualAddress(block.Take16());
    device.projectInstallation = block.Take16();
    device.serialNumber = TakeArray<6>(block);
    device.multicast = block.Take32();
    device.mac = TakeArray<6>(block);
    device.name = ToUtf8(block.Take(kNameSize));
    return device;
}

void TakeDeviceBlock(Cursor& cursor, Cursor& block, DeviceDescription& description) {
    if (block.Left() != kDeviceInformationSize - 2U)
        cursor.Fail("the device information is not 54 octets long");
    else
        description.device = TakeDeviceInformation(block);
}

void TakeFamiliesBlock(Cursor& cursor, Cursor& block, DeviceDescription& description) {
    if (block.Left() % 2 != 0)
        cursor.Fail("the list of service families has half an entry");
    while (block.Left() >= 2) {
        const std::uint8_t family = block.Take8();
        description.families.push_back({family, block.Take8()});
    }
}

void TakeExtendedBlock(Cursor& cursor, Cursor& block, DeviceDescription& description) {
    if (block.Left() != kExtendedDeviceInformationSize - 2U) {
        cursor.Fail("the extended device information is not 8 octets long");
        return;
    }
    ExtendedDeviceInformation& extended = description.extended.emplace();
    extended.status = block.Take8();
    block.Take8();
    extended.apduLength = block.Take16();
    extended.deviceDescriptor = block.Take16();
}

void TakeTunnellingBlock(Cursor& cursor, Cursor& block, DeviceDescription& description) {
    if (block.Left() < 2 || block.Left() % kTunnellingSlotSize != kTunnellingInformationSize - 2U) {
        cursor.Fail("the tunnelling information has half a slot");
        return;
    }
    TunnellingInformation& tunnelling = description.tunnelling.emplace();
    tunnelling.apduLength = block.Take16();
    while (block.Left() > 0) {
        const KnxFrames::IndividualAddress address(block.Take16());
        tunnelling.slots.push_back({address, block.Take16()});
    }
}

/// Description information blocks up to the end of the frame. Those of other types say nothing that is used
/// here; makers add their own.
DeviceDescription TakeDescription(Cursor& cursor) {
    DeviceDescription description;
    bool hasDevice = false;
    while (cursor.Left() > 0) {
        Cursor block = cursor.TakeBlock(2, 0xFF, "a description block is shorter than its header");
        switch (static_cast<DescriptionType>(block.Take8())) {
        case DescriptionType::DeviceInformation:
            TakeDeviceBlock(cursor, block, description);
            hasDevice = true;
            break;
        case DescriptionType::ServiceFamilies: TakeFamiliesBlock(cursor, block, description); break;
        case DescriptionType::TunnellingInformation: TakeTunnellingBlock(cursor, block, description); break;
        case DescriptionType::ExtendedDeviceInformation: TakeExtendedBlock(cursor, block, description); break;
        }
    }
    if (!hasDevice)
        cursor.Fail("the device information is missing");
    return description;
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
    Cursor data = cursor.TakeBlock(kTunnelCrdSize, kTunnelCrdSize, "the response data is not 4 octets long");
    if (data.Take8() != ConnectRequest::kTunnelConnection)
        cursor.Fail("the response data is not that of a tunnel connection");
    frame.address = KnxFrames::IndividualAddress(data.Take16());
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

Frame ReadTunnellingRequest(Cursor& cursor) {
    Cursor header = cursor.TakeBlock(kConnectionHeaderSize, kConnectionHeaderSize,
                                     "the connection header is not 4 octets long");
    TunnellingRequest frame;
    frame.channel = header.Take8();
    frame.sequence = header.Take8();
    frame.cemi = cursor.Take(cursor.Left());
    return frame;
}

Frame ReadTunnellingAck(Cursor& cursor) {
    Cursor header = cursor.TakeBlock(kConnectionHeaderSize, kConnectionHeaderSize,
                                     "the connection header is not 4 octets long");
    TunnellingAck frame;
    frame.channel = header.Take8();
    frame.sequence = header.Take8();
    frame.status = static_cast<Status>(header.Take8());
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
    Reader{ServiceType::TunnellingRequest, ReadTunnellingRequest},
    Reader{ServiceType::TunnellingAck, ReadTunnellingAck},
    Reader{ServiceType::RoutingIndication, ReadRoutingIndication},
    Reader{ServiceType::RoutingLostMessage, ReadRoutingLostMessage},
    Reader{ServiceType::RoutingBusy, ReadRoutingBusy},
    Reader{ServiceType::ConnectionStateRequest, ReadConnectionStateRequest},
    Reader{ServiceType::ConnectionStateResponse, ReadConnectionStateResponse},
    Reader{ServiceType::SearchRequest, ReadSearchRequest},
    Reader{ServiceType::SearchResponse, ReadSearchResponse},
    Reader{ServiceType::SearchRequestExtended, ReadSearchRequestExtended},
    Reader{ServiceType::SearchResponseExtended, ReadSearchResponseExtended},
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
