// Frames of KNXnet/IP: search, description, connection, tunnelling, device management and routing.
#pragma once

#include "KnxFrames/Addresses.h"
#include "KnxFrames/Cemi.h"
#include "KnxFrames/FixedOctets.h"
#include "KnxFrames/Outcome.h"
#include "KnxIp/Endpoint.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace KnxIp {

using KnxFrames::Octets;

/// Service type identifiers that are read and written here.
enum class ServiceType : std::uint16_t {
    SearchRequest = 0x0201,
    SearchResponse = 0x0202,
    DescriptionRequest = 0x0203,
    DescriptionResponse = 0x0204,
    ConnectRequest = 0x0205,
    ConnectResponse = 0x0206,
    ConnectionStateRequest = 0x0207,
    ConnectionStateResponse = 0x0208,
    DisconnectRequest = 0x0209,
    DisconnectResponse = 0x020A,
    SearchRequestExtended = 0x020B,
    SearchResponseExtended = 0x020C,
    DeviceConfigurationRequest = 0x0310,
    DeviceConfigurationAck = 0x0311,
    TunnellingRequest = 0x0420,
    TunnellingAck = 0x0421,
    TunnellingFeatureGet = 0x0422,
    TunnellingFeatureResponse = 0x0423,
    TunnellingFeatureSet = 0x0424,
    TunnellingFeatureInfo = 0x0425,
    RoutingIndication = 0x0530,
    RoutingLostMessage = 0x0531,
    RoutingBusy = 0x0532,
};

/// Status codes of responses and acknowledgements. A received number that is not listed is kept as it is.
enum class Status : std::uint8_t {
    NoError = 0x00,
    HostProtocolType = 0x01,
    VersionNotSupported = 0x02,
    SequenceNumber = 0x04,
    Error = 0x0F,
    ConnectionId = 0x21,
    ConnectionType = 0x22,
    ConnectionOption = 0x23,
    NoMoreConnections = 0x24,
    DataConnection = 0x26,
    KnxConnection = 0x27,
    TunnellingLayer = 0x29,
    NoTunnellingAddress = 0x2D,
    ConnectionInUse = 0x2E,
};

/// What the status means, for people: "no more connections"; "unknown status" for a number not listed.
const char* ToString(Status status);

/// Host protocol address information: where the sender wants to be answered. protocol 1 is UDP, 2 is TCP.
struct Hpai {
    static constexpr std::uint8_t kUdp = 1;
    static constexpr std::uint8_t kTcp = 2;

    Endpoint endpoint;
    std::uint8_t protocol = kUdp;

    bool operator==(const Hpai& other) const = default;
};

/// The device information block of a description.
struct DeviceInformation {
    static constexpr std::uint8_t kMediumTp1 = 0x02;
    static constexpr std::uint8_t kMediumIp = 0x20;

    std::uint8_t medium = kMediumTp1;
    bool programmingMode = false;
    KnxFrames::IndividualAddress address;
    std::uint16_t projectInstallation = 0;
    std::array<std::uint8_t, 6> serialNumber{};
    std::uint32_t multicast = kStandardMulticast; ///< 0 when the device does no routing
    std::array<std::uint8_t, 6> mac{};
    /// UTF-8. On the wire ISO 8859-1 and at most 30 characters: others become '?', what is too long is cut.
    std::string name;

    bool operator==(const DeviceInformation& other) const = default;
};

/// A service family and its version in the block of supported services.
struct ServiceFamily {
    static constexpr std::uint8_t kCore = 0x02;
    static constexpr std::uint8_t kManagement = 0x03;
    static constexpr std::uint8_t kTunnelling = 0x04;
    static constexpr std::uint8_t kRouting = 0x05;

    std::uint8_t family = 0;
    std::uint8_t version = 1;

    bool operator==(const ServiceFamily& other) const = default;
};

/// The block of extended device information.
struct ExtendedDeviceInformation {
    static constexpr std::uint8_t kMediumOffline = 0x01;

    std::uint8_t status = 0;                 ///< kMediumOffline: the bus cannot be reached
    std::uint16_t apduLength = 254;          ///< of the longest APDU that the device takes
    std::uint16_t deviceDescriptor = 0x57B0; ///< type 0

    bool operator==(const ExtendedDeviceInformation& other) const = default;
};

/// The block about a server's tunnels.
struct TunnellingInformation {
    struct Slot {
        static constexpr std::uint16_t kFree = 0x0001;
        static constexpr std::uint16_t kAuthorised = 0x0002;
        static constexpr std::uint16_t kUsable = 0x0004;

        KnxFrames::IndividualAddress address;
        std::uint16_t status = 0; ///< sum of the above

        bool operator==(const Slot& other) const = default;
    };

    /// As many as the block has room for.
    static constexpr std::size_t kMostSlots = 62;

    std::uint16_t apduLength = 254; ///< of the longest APDU that passes a tunnel
    std::vector<Slot> slots;        ///< at most kMostSlots are written

    bool operator==(const TunnellingInformation& other) const = default;
};

/// Types of description information blocks.
enum class DescriptionType : std::uint8_t {
    DeviceInformation = 0x01,
    ServiceFamilies = 0x02,
    TunnellingInformation = 0x07,
    ExtendedDeviceInformation = 0x08,
};

/// What a server says about itself. Blocks of other types are skipped when reading.
struct DeviceDescription {
    DeviceInformation device;
    std::vector<ServiceFamily> families; ///< at most 16 are written
    std::optional<ExtendedDeviceInformation> extended;
    std::optional<TunnellingInformation> tunnelling;

    bool operator==(const DeviceDescription& other) const = default;
};

struct SearchRequest {
    Hpai discovery;
    bool operator==(const SearchRequest& other) const = default;
};

struct SearchResponse {
    Hpai control;
    DeviceDescription description;
    bool operator==(const SearchResponse& other) const = default;
};

/// One search request parameter: a condition for an answer, or a wish for its content.
struct SearchParameter {
    enum class Type : std::uint8_t {
        ProgrammingMode = 0x01, ///< the server is in programming mode; no data
        MacAddress = 0x02,      ///< the server has this one: 6 octets
        Service = 0x03,     ///< the server supports a family in a version or a later one: an octet for each
        RequestDibs = 0x04, ///< blocks that the client wants to see: a type in each octet, 0 for none
    };

    Type type{};            ///< also one that is not listed
    bool mandatory = false; ///< a server that does not know the type does not answer
    Octets data;
};

struct SearchRequestExtended {
    Hpai discovery;
    /// The parameters as on the wire, all of them whole. Points into the datagram that was read; valid as
    /// long as that.
    Octets parameters;
};

/// Takes a parameter from the front of SearchRequestExtended::parameters; empty at their end, and when the
/// next one is not whole.
std::optional<SearchParameter> TakeSearchParameter(Octets& parameters);

struct SearchResponseExtended {
    Hpai control;
    DeviceDescription description;
    bool operator==(const SearchResponseExtended& other) const = default;
};

struct DescriptionRequest {
    Hpai control;
    bool operator==(const DescriptionRequest& other) const = default;
};

struct DescriptionResponse {
    DeviceDescription description;
    bool operator==(const DescriptionResponse& other) const = default;
};

struct ConnectRequest {
    static constexpr std::uint8_t kManagementConnection = 0x03;
    static constexpr std::uint8_t kTunnelConnection = 0x04;
    static constexpr std::uint8_t kLinkLayer = 0x02;

    Hpai control;
    Hpai data;
    std::uint8_t connectionType = kTunnelConnection;
    std::uint8_t layer = kLinkLayer;              ///< of a tunnel connection, else 0
    KnxFrames::IndividualAddress wantedAddress{}; ///< of a tunnel connection; 0.0.0 = any

    bool operator==(const ConnectRequest& other) const = default;
};

struct ConnectResponse {
    std::uint8_t channel = 0;
    Status status = Status::NoError;
    Hpai data;                                                       ///< only without error
    KnxFrames::IndividualAddress address;                            ///< of the tunnel, only without error
    std::uint8_t connectionType = ConnectRequest::kTunnelConnection; ///< only without error

    bool operator==(const ConnectResponse& other) const = default;
};

struct ConnectionStateRequest {
    std::uint8_t channel = 0;
    Hpai control;
    bool operator==(const ConnectionStateRequest& other) const = default;
};

struct ConnectionStateResponse {
    std::uint8_t channel = 0;
    Status status = Status::NoError;
    bool operator==(const ConnectionStateResponse& other) const = default;
};

struct DisconnectRequest {
    std::uint8_t channel = 0;
    Hpai control;
    bool operator==(const DisconnectRequest& other) const = default;
};

struct DisconnectResponse {
    std::uint8_t channel = 0;
    Status status = Status::NoError;
    bool operator==(const DisconnectResponse& other) const = default;
};

struct TunnellingRequest {
    std::uint8_t channel = 0;
    std::uint8_t sequence = 0;
    Octets cemi; ///< points into the datagram that was read; valid as long as that
};

struct TunnellingAck {
    std::uint8_t channel = 0;
    std::uint8_t sequence = 0;
    Status status = Status::NoError;
    bool operator==(const TunnellingAck& other) const = default;
};

/// What a server's interface to the bus can be asked for through a tunnel (tunnelling, version 2); the size
/// of its value stands behind each.
enum class InterfaceFeature : std::uint8_t {
    SupportedEmiTypes = 0x01, ///< 2: a bit for each, cEMI is bit 2
    DeviceDescriptor = 0x02,  ///< 2: of type 0
    BusConnection = 0x03,     ///< 1: whether the bus can be reached
    Manufacturer = 0x04,      ///< 2
    ActiveEmiType = 0x05,     ///< 1: 3 is cEMI
    IndividualAddress = 0x06, ///< 2: of the tunnel
    MaximumApduLength = 0x07, ///< 2: octets
    InfoServiceEnable = 0x08, ///< 1: whether the client is told of changes
};

/// What became of a request for a feature: return codes of KNX Standard 3/7/1.
enum class FeatureResult : std::uint8_t {
    Success = 0x00,
    DataVoid = 0xF8,     ///< the value cannot be one of the feature
    ReadOnly = 0xFB,     ///< the feature cannot be set
    AddressVoid = 0xFD,  ///< there is no such feature
    TypeConflict = 0xFE, ///< the value has a wrong size
};

/// A feature is asked for, set, given in answer to either, or told to a client because it has changed.
struct TunnellingFeature {
    ServiceType service = ServiceType::TunnellingFeatureGet; ///< one of the four
    std::uint8_t channel = 0;
    std::uint8_t sequence = 0;
    InterfaceFeature feature{};                    ///< also one that is not listed
    FeatureResult result = FeatureResult::Success; ///< of a response
    Octets value; ///< not of a Get; points into the datagram that was read, valid as long as that
};

struct DeviceConfigurationRequest {
    std::uint8_t channel = 0;
    std::uint8_t sequence = 0;
    Octets cemi; ///< points into the datagram that was read; valid as long as that
};

struct DeviceConfigurationAck {
    std::uint8_t channel = 0;
    std::uint8_t sequence = 0;
    Status status = Status::NoError;
    bool operator==(const DeviceConfigurationAck& other) const = default;
};

/// A telegram to everybody in the multicast group.
struct RoutingIndication {
    Octets cemi; ///< points into the datagram that was read; valid as long as that
};

/// A router or device could not pass on telegrams.
struct RoutingLostMessage {
    std::uint8_t deviceState = 0;
    std::uint16_t lost = 0; ///< telegrams, since its last such message
    bool operator==(const RoutingLostMessage& other) const = default;
};

/// A router or device is about to lose telegrams unless everybody is silent for a while.
struct RoutingBusy {
    std::uint8_t deviceState = 0;
    std::uint16_t waitTime = 100; ///< in milliseconds
    std::uint16_t control = 0;    ///< 0: for everybody
    bool operator==(const RoutingBusy& other) const = default;
};

using Frame =
    std::variant<SearchRequest, SearchResponse, DescriptionRequest, DescriptionResponse, ConnectRequest,
                 ConnectResponse, ConnectionStateRequest, ConnectionStateResponse, DisconnectRequest,
                 DisconnectResponse, SearchRequestExtended, SearchResponseExtended, TunnellingRequest,
                 TunnellingAck, TunnellingFeature, DeviceConfigurationRequest, DeviceConfigurationAck,
                 RoutingIndication, RoutingLostMessage, RoutingBusy>;

/// Reads one datagram; its size must be the total length in its header. Unsupported: another service, another
/// version of the protocol. Malformed: everything that does not add up.
KnxFrames::Outcome<Frame> ReadFrame(Octets datagram);

/// The longest datagram written here is an answer to an extended search about 62 tunnels, of 362 octets.
using Datagram = KnxFrames::FixedOctets<384>;

Datagram WriteFrame(const SearchRequest& frame);
Datagram WriteFrame(const SearchResponse& frame);
/// `frame.parameters` of at most 256 octets.
Datagram WriteFrame(const SearchRequestExtended& frame);
Datagram WriteFrame(const SearchResponseExtended& frame);
Datagram WriteFrame(const DescriptionRequest& frame);
Datagram WriteFrame(const DescriptionResponse& frame);
Datagram WriteFrame(const ConnectRequest& frame);
Datagram WriteFrame(const ConnectResponse& frame);
Datagram WriteFrame(const ConnectionStateRequest& frame);
Datagram WriteFrame(const ConnectionStateResponse& frame);
Datagram WriteFrame(const DisconnectRequest& frame);
Datagram WriteFrame(const DisconnectResponse& frame);
Datagram WriteFrame(const TunnellingAck& frame);
/// `frame.value` of at most KnxFrames::kLongestCemi octets.
Datagram WriteFrame(const TunnellingFeature& frame);
Datagram WriteFrame(const DeviceConfigurationAck& frame);
Datagram WriteFrame(const RoutingLostMessage& frame);
Datagram WriteFrame(const RoutingBusy& frame);
/// `frame.cemi` of at most KnxFrames::kLongestCemi octets, here and below.
Datagram WriteFrame(const TunnellingRequest& frame);
Datagram WriteFrame(const DeviceConfigurationRequest& frame);
Datagram WriteFrame(const RoutingIndication& frame);
/// A routing indication with `telegram`, likewise without an intermediate copy.
void WriteRoutingIndication(const KnxFrames::LData& telegram, Datagram& out);
/// A tunnelling request with `telegram`, without an intermediate copy. Replaces the content of `out`.
void WriteTunnellingRequest(std::uint8_t channel, std::uint8_t sequence, const KnxFrames::LData& telegram,
                            Datagram& out);

} // namespace KnxIp
