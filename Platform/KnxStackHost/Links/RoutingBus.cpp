#include "KnxStackHost/Links/RoutingBus.h"

#include "KnxStackHost/Links/LinkThread.h"
#include "KnxStackHost/Links/MissingNetwork.h"

#include <boost/system/system_error.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <utility>

namespace KnxStackHost {

using KnxIp::Endpoint;

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

TimePoint Now() {
    return std::chrono::steady_clock::now();
}

/// Not a message about other telegrams.
bool IsTelegram(KnxIp::Octets datagram) {
    constexpr unsigned kService = 2; // where it stands
    return (datagram[kService] << 8 | datagram[kService + 1]) ==
           static_cast<int>(KnxIp::ServiceType::RoutingIndication);
}

} // namespace

RoutingBus::RoutingBus(boost::asio::io_context& context, const Configuration& configuration,
                       OnTelegramFrom received)
    : m_context(context), m_file(configuration.file), m_settings(configuration.routing.value()),
      m_group(EndpointOf(m_settings.group, KnxIp::kStandardPort)), m_received(std::move(received)),
      m_socket(context,
               [this](const Endpoint& from, KnxFrames::Octets datagram) {
                   m_link.OnDatagram(Now(), from, datagram);
                   m_deadline.Set(m_link.NextTime());
               }),
      m_deadline(context, [this] { return OnTime(); }), m_link(LinkConfig(), *this) {
    Open();
}

void RoutingBus::Open() {
    try {
        m_socket.OpenGroup(m_group, EndpointOf(m_settings.interface, 0).address);
        m_socket.SendToGroups();
    } catch (const boost::system::system_error& error) {
        throw LinkError(fmt::format(
            "/routing: the multicast group {} cannot be joined on {}: {}; choose another \"interface\"",
            m_settings.group, m_settings.interface.empty() ? "any interface" : m_settings.interface,
            error.code().message()));
    }
}

KnxIp::RoutingLinkConfig RoutingBus::LinkConfig() {
    KnxIp::RoutingLinkConfig config;
    config.group = m_group;
    config.rate = m_settings.rate;
    config.random = [this] { return std::uniform_real_distribution<double>()(m_random); };
    return config;
}

void RoutingBus::Start() {
    m_socket.Start();
    if (!IsJoined()) {
        LOG4CPLUS_WARN(Log(), GroupNotYetJoined(m_file + ": /routing", "interface", m_settings.interface,
                                                m_group.ToString(), m_socket.GroupFault()));
        return;
    }
    LOG4CPLUS_INFO(Log(), fmt::format("joined the KNX bus in the multicast group {}; at most {} telegrams "
                                      "a second go there",
                                      m_group.ToString(), m_settings.rate));
}

void RoutingBus::Stop() {
    const auto counters = Counters();
    LOG4CPLUS_INFO(
        Log(),
        fmt::format("multicast group {}: {} telegrams sent and {} received, {} dropped, {} waiting; "
                    "{} times busy, {} telegrams lost by others; {} own datagrams came back, {} "
                    "others were none of routing, {} were refused; {} pauses asked for, {} telegrams lost "
                    "by clients here",
                    m_group.ToString(), counters.sent, counters.received, counters.dropped, m_link.Waiting(),
                    counters.busy, counters.lost, counters.own, m_foreign, m_refused.Total(), counters.pauses,
                    counters.lostHere));
}

/// Nobody gets what the system does not take: it counts as lost.
KnxIp::RoutingLinkCounters RoutingBus::Counters() const {
    auto counters = m_link.Counters();
    counters.sent -= m_unsent;
    counters.dropped += m_unsent;
    return counters;
}

RoutingStatus RoutingBus::Status() const {
    return {m_group.ToString(), m_link.Waiting(), Counters(),
            GroupFaultText(m_settings.interface, m_socket.GroupFault())};
}

void RoutingBus::Send(const KnxFrames::LData& telegram) {
    m_link.Send(Now(), telegram);
    m_deadline.Set(m_link.NextTime());
    AfterWork();
}

void RoutingBus::OnPassedOn(KnxIp::Backlog backlog) {
    if (backlog.isNearlyFull)
        m_link.ReportBusy(Now());
    if (backlog.hasOverflowed)
        m_link.ReportLost(Now(), 1);
}

std::optional<TimePoint> RoutingBus::OnTime() {
    m_link.OnTime(Now());
    AfterWork();
    return m_link.NextTime();
}

void RoutingBus::AfterWork() {
    if (const auto dropped = m_drops.TakeEnd(m_link.Waiting(), m_link.Counters().dropped))
        LOG4CPLUS_WARN(Log(),
                       fmt::format("the multicast group {} has caught up; {} telegrams to it were dropped",
                                   m_group.ToString(), *dropped));
}

void RoutingBus::SendDatagram(const Endpoint& to, KnxIp::Octets datagram) {
    if (!m_socket.Send(to, datagram) && IsTelegram(datagram))
        ++m_unsent;
}

void RoutingBus::OnTelegram(const KnxFrames::LData& telegram) {
    m_received(telegram);
}

void RoutingBus::OnLostMessages(const Endpoint& from, std::uint16_t lost) {
    const auto verdict = m_lost.Count(from.address, "lost");
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(),
                       fmt::format("{}: has lost {} telegrams{}", from.ToString(), lost, Suffix(verdict)));
}

void RoutingBus::OnBusy(const Endpoint& from, std::chrono::milliseconds wait) {
    const auto verdict = m_busy.Count(from.address, "busy");
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_INFO(Log(), fmt::format("{}: is busy and asks for a pause of {} ms; telegrams wait{}",
                                          from.ToString(), wait.count(), Suffix(verdict)));
}

void RoutingBus::OnQueueOverflow() {
    m_drops.Begin();
    LOG4CPLUS_WARN(
        Log(), fmt::format("more telegrams for the multicast group {} than may be sent; waiting telegrams "
                           "are dropped, the oldest of the lowest priority first",
                           m_group.ToString()));
}

void RoutingBus::OnRefusedDatagram(const Endpoint& from, const KnxFrames::FrameError& error) {
    // The group is everybody's: clients search in it, too.
    if (error.kind == KnxFrames::FrameError::Kind::Unsupported) {
        ++m_foreign;
        return;
    }
    const auto verdict = m_refused.Count(from.address, error.cause);
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(), fmt::format("{}: a datagram was refused at octet {}: {}{}", from.ToString(),
                                          error.offset, error.cause, Suffix(verdict)));
}

bool RoutingBus::IsOwnEndpoint(const Endpoint& from) {
    if (from.port != m_group.port)
        return false;
    const auto configured = EndpointOf(m_settings.interface, 0).address;
    return from.address == (configured != 0 ? configured : LocalAddressTowards(m_context, m_group));
}

} // namespace KnxStackHost
