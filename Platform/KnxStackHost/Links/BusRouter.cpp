#include "KnxStackHost/Links/BusRouter.h"

#include "KnxDevice/GroupTraffic.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>

namespace KnxStackHost {

using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Bus");
    return logger;
}

const char* FlagRefusal(GroupServiceKind kind) {
    switch (kind) {
    case GroupServiceKind::Read:
        return "no group object with this group address answers reads (flags C and R)";
    case GroupServiceKind::Response:
        return "no group object with this group address takes responses (flags C and U)";
    case GroupServiceKind::Write: break;
    }
    return "no group object with this group address takes writes (flags C and W)";
}

} // namespace

BusRouter::BusRouter(IndividualAddress own, std::span<const IndividualAddress> tunnels,
                     const KnxDevice::GroupObjects& objects, BusPorts& ports)
    : m_tunnels(tunnels.begin(), tunnels.end()), m_filter(tunnels), m_objects(objects), m_ports(ports) {
    SetOwnAddress(own);
}

void BusRouter::SetOwnAddress(IndividualAddress own) {
    m_own = own;
    m_inside = m_tunnels;
    m_inside.push_back(own);
    std::sort(m_inside.begin(), m_inside.end());
}

// To the own device last: waking its thread costs more than the others need, and their timers run.

void BusRouter::FromTunnel(std::uint8_t tunnel, const LData& telegram) {
    if (telegram.source != m_tunnels.at(tunnel) && IsOwn(telegram.source)) {
        ReportUnusable(telegram, "a client of a tunnel sends back what came from here");
        return;
    }
    m_filter.HeardFrom(tunnel, telegram.source);
    m_ports.ToMonitor(telegram, {Origin::Kind::Tunnel, tunnel});
    PassToTunnels(telegram, tunnel);
    PassToInterface(telegram);
    PassToDevice(telegram, 0);
}

void BusRouter::FromInterface(const LData& telegram) {
    if (IsOwn(telegram.source)) {
        ReportUnusable(telegram, "the interface sends back what came from here");
        return;
    }
    m_filter.HeardElsewhere(telegram.source);
    m_ports.ToMonitor(telegram, {Origin::Kind::Interface});
    PassToTunnels(telegram, std::nullopt);
    PassToDevice(telegram, 0);
}

void BusRouter::FromDevice(LData telegram, std::uint16_t sender) {
    telegram.source = m_own;
    m_ports.ToMonitor(telegram, {Origin::Kind::Device});
    PassToTunnels(telegram, std::nullopt);
    PassToInterface(telegram);
    PassToDevice(telegram, sender);
}

void BusRouter::FromManagement(LData telegram) {
    telegram.source = m_own;
    m_ports.ToMonitor(telegram, {Origin::Kind::Management});
    PassToTunnels(telegram, std::nullopt);
    PassToInterface(telegram);
}

void BusRouter::FromControl(LData telegram) {
    telegram.source = m_own;
    m_ports.ToMonitor(telegram, {Origin::Kind::Control});
    PassToTunnels(telegram, std::nullopt);
    PassToInterface(telegram);
    PassToDevice(telegram, 0);
}

void BusRouter::Inject(const LData& telegram) {
    m_ports.ToMonitor(telegram, {Origin::Kind::Control});
    PassToTunnels(telegram, std::nullopt);
    PassToDevice(telegram, 0);
}

bool BusRouter::IsOwn(IndividualAddress address) const {
    return std::binary_search(m_inside.begin(), m_inside.end(), address);
}

bool BusRouter::FitsGroup(const LData& telegram) const {
    const auto service = KnxFrames::ReadGroupService(telegram.tpdu);
    if (!service)
        return false;
    const auto reception = KnxDevice::Receive(*m_objects.Tables(), telegram.GroupDestination(), *service);
    return reception.wrongLength == 0 || !reception.objects.empty();
}

void BusRouter::PassToTunnels(const LData& telegram, std::optional<std::uint8_t> except) {
    if (telegram.IsToGroup()) {
        m_ports.ToTunnels(telegram, except);
        return;
    }
    const auto destination = telegram.IndividualDestination();
    if (destination == m_own)
        return;
    const auto tunnel = m_filter.TunnelTo(destination);
    if (!tunnel)
        m_ports.ToTunnels(telegram, except);
    else if (tunnel != except)
        m_ports.ToTunnel(telegram, *tunnel);
}

void BusRouter::PassToInterface(const LData& telegram) {
    const auto isInside = [this](IndividualAddress address) {
        return address == m_own || m_filter.TunnelTo(address);
    };
    if (telegram.IsToGroup() || !isInside(telegram.IndividualDestination()))
        m_ports.ToInterface(telegram);
}

void BusRouter::PassToDevice(const LData& telegram, std::uint16_t sender) {
    if (!telegram.IsGroupData()) {
        const bool forDevice =
            telegram.IsToGroup() ? telegram.destination == 0 : telegram.IndividualDestination() == m_own;
        if (forDevice)
            m_ports.ToManagement(telegram);
        return;
    }
    const auto service = KnxFrames::ReadGroupService(telegram.tpdu);
    if (!service) {
        ReportUnusable(telegram, service.Error().cause);
        return;
    }
    const auto tables = m_objects.Tables();
    const auto reception = KnxDevice::Receive(*tables, telegram.GroupDestination(), *service, sender);
    if (!reception.listened && sender == 0)
        ReportUnheard(m_unknown, telegram, "no group object has this group address");
    if (reception.objects.empty() && reception.refusedByFlags != 0 && sender == 0)
        ReportUnheard(m_refusedByFlags, telegram, FlagRefusal(service->kind));
    if (reception.wrongLength != 0)
        ReportUnusable(telegram, "the value has another length than the group object");
    for (const auto object : reception.objects) {
        Callback callback;
        callback.object = object;
        callback.kind = service->kind;
        if (service->kind != GroupServiceKind::Read)
            callback.value = KnxDevice::ValueFor(tables->Object(object), *service);
        m_ports.ToProgram(std::move(callback));
    }
}

void BusRouter::ReportUnusable(const LData& telegram, const char* cause) {
    const auto verdict = m_unusable.Count(telegram.source.raw, cause);
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(), fmt::format("{}: {}{}", KnxFrames::Describe(telegram), cause, Suffix(verdict)));
}

void BusRouter::ReportUnheard(Notices& notices, const LData& telegram, const char* cause) {
    const auto verdict = notices.Count(telegram.source.raw, cause);
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_INFO(Log(), fmt::format("{}: {}{}", KnxFrames::Describe(telegram), cause, Suffix(verdict)));
}

void BusRouter::ReportCounts() const {
    if (m_unknown.Total() + m_refusedByFlags.Total() + m_unusable.Total() != 0)
        LOG4CPLUS_INFO(Log(),
                       fmt::format("{} telegrams had a group address that no group object has, {} were "
                                   "refused by flags, {} could not be used",
                                   m_unknown.Total(), m_refusedByFlags.Total(), m_unusable.Total()));
}

} // namespace KnxStackHost
