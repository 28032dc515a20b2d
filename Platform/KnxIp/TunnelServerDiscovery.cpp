// What a TunnelServer says about itself, and to whom.

#include "KnxIp/TunnelServerImplementation.h"

#include <algorithm>

namespace KnxIp {

/// Whether an endpoint named in a request fits the way that it came; refused otherwise.
bool TunnelServer::Implementation::IsOfItsWay(const Peer& from, const Hpai& hpai) {
    const bool isOfIt = from.IsStream() ? hpai == Hpai{{}, Hpai::kTcp} : hpai.protocol == Hpai::kUdp;
    if (!isOfIt)
        m_listener.OnRefusedDatagram(from.endpoint,
                                     KnxFrames::FrameError::Unsupported(
                                         from.IsStream() ? "an endpoint in a stream is not 0.0.0.0:0 over TCP"
                                                         : "an endpoint in a datagram is not one of UDP",
                                         6));
    return isOfIt;
}

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const SearchRequest& request) {
    if (from.IsStream()) {
        m_listener.OnRefusedDatagram(
            from.endpoint, KnxFrames::FrameError::Unsupported("a basic search came in a stream", 2));
        return;
    }
    if (!IsOfItsWay(from, request.discovery))
        return;
    const Peer to = AnswerTo(request.discovery, from);
    SendTo(to, WriteFrame(SearchResponse{OwnHpai(to), {m_config.device, m_config.families, {}, {}}}));
}

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const SearchRequestExtended& request) {
    if (!IsOfItsWay(from, request.discovery))
        return;
    DeviceDescription description{m_config.device, m_config.families, {}, {}};
    bool hasWish = false;
    const auto take = [&](std::uint8_t block) {
        switch (static_cast<DescriptionType>(block)) {
        case DescriptionType::ExtendedDeviceInformation: description.extended = m_config.extended; break;
        case DescriptionType::TunnellingInformation: description.tunnelling = DescribeTunnels(); break;
        default: break; // always there, or not to be had
        }
    };
    Octets parameters = request.parameters;
    while (const auto parameter = TakeSearchParameter(parameters)) {
        if (parameter->type == SearchParameter::Type::RequestDibs) {
            hasWish = true;
            std::for_each(parameter->data.begin(), parameter->data.end(), take);
        } else if (!Fulfils(*parameter)) {
            return;
        }
    }
    if (!hasWish) {
        description.extended = m_config.extended;
        description.tunnelling = DescribeTunnels();
    }
    const Peer to = AnswerTo(request.discovery, from);
    // The control endpoint by UDP, also in a stream: whoever is there knows the other.
    SendTo(to, WriteFrame(SearchResponseExtended{OwnHpai({to.endpoint}), description}));
}

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const DescriptionRequest& request) {
    if (IsOfItsWay(from, request.control))
        SendTo(AnswerTo(request.control, from),
               WriteFrame(DescriptionResponse{{m_config.device, m_config.families, {}, {}}}));
}

/// Whether a search with this condition is to be answered.
bool TunnelServer::Implementation::Fulfils(const SearchParameter& condition) const {
    const Octets data = condition.data;
    switch (condition.type) {
    case SearchParameter::Type::ProgrammingMode:
        if (data.empty())
            return m_config.device.programmingMode;
        break;
    case SearchParameter::Type::MacAddress:
        if (data.size() == m_config.device.mac.size())
            return std::equal(data.begin(), data.end(), m_config.device.mac.begin());
        break;
    case SearchParameter::Type::Service:
        if (data.size() == 2)
            return std::any_of(
                m_config.families.begin(), m_config.families.end(),
                [&](const ServiceFamily& each) { return each.family == data[0] && each.version >= data[1]; });
        break;
    case SearchParameter::Type::RequestDibs: break;
    }
    return !condition.mandatory; // not understood
}

TunnellingInformation TunnelServer::Implementation::DescribeTunnels() const {
    using Slot = TunnellingInformation::Slot;
    TunnellingInformation information;
    information.apduLength = m_config.extended.apduLength;
    for (const Tunnel& tunnel : m_tunnels) {
        const int status = Slot::kUsable | Slot::kAuthorised | (tunnel.isOpen ? 0 : Slot::kFree);
        information.slots.push_back({tunnel.address, static_cast<std::uint16_t>(status)});
    }
    return information;
}

} // namespace KnxIp
