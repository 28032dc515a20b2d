// What a TunnelServer's clients ask of its interface to the bus, through their tunnels.

#include "KnxIp/TunnelServerImplementation.h"

#include <utility>

namespace KnxIp {

using KnxFrames::FrameError;
using Value = KnxFrames::FixedOctets<2>;

namespace {

constexpr std::uint8_t kCemi = 3;             // as the active type
constexpr std::uint16_t kCemiAlone = 1U << 2; // of the supported types

Value Number16(std::uint16_t number) {
    Value value;
    value.Append16(number);
    return value;
}

Value Flag(bool flag) {
    return {static_cast<std::uint8_t>(flag ? 1 : 0)};
}

} // namespace

void TunnelServer::Implementation::SetInterface(TimePoint now, const InterfaceInformation& interface) {
    const bool wasConnected = std::exchange(m_interface, interface).isConnected;
    const int status = m_config.extended.status & ~ExtendedDeviceInformation::kMediumOffline;
    m_config.extended.status = static_cast<std::uint8_t>(
        interface.isConnected ? status : status | ExtendedDeviceInformation::kMediumOffline);
    if (wasConnected == interface.isConnected)
        return;
    for (Tunnel& tunnel : m_tunnels) {
        if (tunnel.isOpen && tunnel.tellsChanges)
            Send(now, tunnel,
                 {ServiceType::TunnellingFeatureInfo, InterfaceFeature::BusConnection, FeatureResult::Success,
                  Flag(interface.isConnected)});
    }
}

void TunnelServer::Implementation::On(TimePoint now, const Peer& from, const TunnellingFeature& frame) {
    const bool isSet = frame.service == ServiceType::TunnellingFeatureSet;
    if (!isSet && frame.service != ServiceType::TunnellingFeatureGet) {
        m_listener.OnRefusedDatagram(
            from.endpoint, FrameError::Unsupported("a frame that is not for a server was sent to one", 2));
        return;
    }
    Tunnel* const tunnel = FindTunnel(frame.channel, from);
    if (tunnel == nullptr || !Accept(now, from, *tunnel, frame.sequence))
        return;
    WaitingFeature answer{ServiceType::TunnellingFeatureResponse, frame.feature, FeatureResult::Success, {}};
    if (isSet)
        answer.result = Set(*tunnel, frame.feature, frame.value);
    const auto value = ValueOf(*tunnel, frame.feature);
    if (!value)
        answer.result = FeatureResult::AddressVoid;
    else if (answer.result == FeatureResult::Success)
        answer.value = *value;
    Send(now, *tunnel, answer);
}

std::optional<Value> TunnelServer::Implementation::ValueOf(const Tunnel& tunnel,
                                                           InterfaceFeature feature) const {
    switch (feature) {
    case InterfaceFeature::SupportedEmiTypes: return Number16(kCemiAlone);
    case InterfaceFeature::DeviceDescriptor: return Number16(m_config.extended.deviceDescriptor);
    case InterfaceFeature::BusConnection: return Flag(m_interface.isConnected);
    case InterfaceFeature::Manufacturer: return Number16(m_interface.manufacturer);
    case InterfaceFeature::ActiveEmiType: return Value{kCemi};
    case InterfaceFeature::IndividualAddress: return Number16(tunnel.address.raw);
    case InterfaceFeature::MaximumApduLength: return Number16(m_config.extended.apduLength);
    case InterfaceFeature::InfoServiceEnable: return Flag(tunnel.tellsChanges);
    }
    return std::nullopt;
}

/// Only the client's own wish can be set: the addresses of the tunnels are the configuration's.
FeatureResult TunnelServer::Implementation::Set(Tunnel& tunnel, InterfaceFeature feature, Octets value) {
    if (feature != InterfaceFeature::InfoServiceEnable)
        return FeatureResult::ReadOnly;
    if (value.size() != 1)
        return FeatureResult::TypeConflict;
    if (value[0] > 1)
        return FeatureResult::DataVoid;
    tunnel.tellsChanges = value[0] != 0;
    return FeatureResult::Success;
}

void TunnelServer::Implementation::Send(TimePoint now, Tunnel& tunnel, const WaitingFeature& feature) {
    if (tunnel.peer.IsStream()) {
        SendTo(tunnel.peer.Data(),
               WriteFrame(TunnellingFeature{feature.service, tunnel.channel, tunnel.streamSequence++,
                                            feature.feature, feature.result, feature.value.View()}));
        return;
    }
    // A client that asks on while it acknowledges nothing gets no answer to what it asked first.
    if (tunnel.features.Size() == kMostFeatures)
        tunnel.features.PopFront();
    tunnel.features.PushBack(feature);
    SendNext(now, tunnel);
}

} // namespace KnxIp
