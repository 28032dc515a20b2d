// What a TunnelServer says about itself, and to whom.

#include "KnxIp/TunnelServerImplementation.h"

#include <algorithm>

namespace KnxIp {

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const SearchRequest& request) {
    const Peer to = AnswerTo(request.discovery, from);
    SendTo(to, WriteFrame(SearchResponse{OwnHpai(to), {m_config.device, m_config.families, {}, {}}}));
}

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const SearchRequestExtended& request) {
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
    SendTo(to, WriteFrame(SearchResponseExtended{OwnHpai(to), description}));
}

void TunnelServer::Implementation::On(TimePoint, const Peer& from, const DescriptionRequest& request) {
    DeviceDescription description{m_config.device, m_config.families, {}, {}};
    const bool isVersion2 =
        std::any_of(m_config.families.begin(), m_config.families.end(), [](const ServiceFamily& each) {
            return each.family == ServiceFamily::kCore && each.version >= 2;
        });
    if (isVersion2) {
        description.extended = m_config.extended;
        description.tunnelling = DescribeTunnels();
    }
    SendTo(AnswerTo(request.control, from), WriteFrame(DescriptionResponse{description}));
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
