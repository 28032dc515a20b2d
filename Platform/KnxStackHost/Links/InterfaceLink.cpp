#include "KnxStackHost/Links/InterfaceLink.h"

#include "KnxStackHost/Links/LinkThread.h"
#include "KnxStackHost/Links/MissingNetwork.h"

#include <boost/system/system_error.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

namespace KnxStackHost {

using KnxIp::Endpoint;
using KnxIp::LinkFailure;
using std::chrono::milliseconds;

namespace {

constexpr std::chrono::seconds kLookUpPause{10};

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

TimePoint Now() {
    return std::chrono::steady_clock::now();
}

std::string WhyNot(LinkFailure failure, KnxIp::Status status) {
    if (status == KnxIp::Status::NoError)
        return KnxIp::ToString(failure);
    return fmt::format("{}: {}", KnxIp::ToString(failure), KnxIp::ToString(status));
}

} // namespace

InterfaceLink::InterfaceLink(boost::asio::io_context& context, const Configuration& configuration,
                             OnTelegramFrom received)
    : m_context(context), m_file(configuration.file), m_settings(configuration.interface.value()),
      m_localAddress(EndpointOf(m_settings.localAddress, 0).address), m_received(std::move(received)),
      m_socket(context,
               [this](const Endpoint& from, KnxFrames::Octets datagram) {
                   m_client.OnDatagram(Now(), from, datagram);
                   m_deadline.Set(m_client.NextTime());
                   AfterWork();
               }),
      m_stream(context, StreamEvents()), m_nameLookUp(context), m_lookUpAgain(context),
      m_deadline(context, [this] { return OnTime(); }), m_client(ClientConfig(), *this) {
    if (m_settings.tcp)
        return;
    try {
        m_socket.Open({m_localAddress, 0});
    } catch (const boost::system::system_error& error) {
        throw LinkError(fmt::format("/interface/localAddress: the local address {} cannot be used: {}",
                                    m_settings.localAddress, error.code().message()));
    }
}

void InterfaceLink::Start() {
    if (!m_settings.tcp)
        m_socket.Start();
    m_wasAbsent = m_absenceReported = !IsAddressHere(m_context, m_localAddress);
    if (m_absenceReported)
        LOG4CPLUS_WARN(
            Log(), AddressNotYetHere(m_file + ": /interface/localAddress", m_settings.localAddress,
                                     fmt::format("the KNX/IP interface {} is tried until one has", Name())));
    LOG4CPLUS_INFO(Log(), fmt::format("connecting to the KNX/IP interface {}", Name()));
    m_client.Start(Now());
    if (IsIpv4Address(m_settings.host))
        SetServer(EndpointOf(m_settings.host, m_settings.port));
    LookUp();
}

void InterfaceLink::Stop() {
    m_stopped = true;
    m_nameLookUp.Cancel();
    m_lookUpAgain.cancel();
    m_client.Stop();
    ReportCounts();
}

InterfaceStatus InterfaceLink::Status() const {
    return {Name(), m_client.IsConnected(), m_client.Address(), m_client.Waiting(), m_client.Counters(),
            m_fault};
}

void InterfaceLink::Send(const KnxFrames::LData& telegram) {
    m_client.Send(Now(), telegram);
    m_deadline.Set(m_client.NextTime());
}

/// Finds out where the interface is, or where it has moved to. An answer may take longer than a try to
/// connect.
void InterfaceLink::LookUp() {
    if (IsIpv4Address(m_settings.host) || std::exchange(m_lookingUp, true))
        return;
    m_nameLookUp.Start(m_settings.host, [this](const LookedUp& result) {
        m_lookingUp = false;
        OnLookedUp(result);
    });
}

void InterfaceLink::OnLookedUp(const LookedUp& result) {
    const bool isKnown = m_server.IsSpecified();
    if (result.address != 0) {
        if (isKnown && result.address != m_server.address)
            LOG4CPLUS_INFO(Log(), fmt::format("the KNX/IP interface {} has moved to {}", Name(),
                                              Endpoint{result.address, m_settings.port}.ToString()));
        SetServer({result.address, m_settings.port});
        return;
    }
    if (isKnown)
        return; // where it was; asked again after the next try to connect
    m_fault = "its name is not known: " + result.cause;
    if (!std::exchange(m_failureReported, true))
        LOG4CPLUS_WARN(Log(), fmt::format("the KNX/IP interface {} is not known: {}; telegrams to it wait, "
                                          "and it is looked up again every {} s",
                                          Name(), result.cause, kLookUpPause.count()));
    m_lookUpAgain.expires_after(kLookUpPause);
    m_lookUpAgain.async_wait([this](const boost::system::error_code& cancelled) {
        if (!cancelled)
            LookUp();
    });
}

KnxIp::TunnelClientConfig InterfaceLink::ClientConfig() {
    KnxIp::TunnelClientConfig config;
    config.tcp = m_settings.tcp;
    config.nat = m_settings.nat;
    config.jitter = [this] { return std::uniform_real_distribution<double>()(m_random); };
    return config;
}

void InterfaceLink::SetServer(const Endpoint& server) {
    m_server = server;
    m_client.SetServer(Now(), server);
    m_deadline.Set(m_client.NextTime());
}

std::optional<TimePoint> InterfaceLink::OnTime() {
    m_client.OnTime(Now());
    AfterWork();
    return m_client.NextTime();
}

void InterfaceLink::AfterWork() {
    if (const auto dropped = m_drops.TakeEnd(m_client.Waiting(), m_client.Counters().dropped))
        LOG4CPLUS_WARN(Log(),
                       fmt::format("the KNX/IP interface {} has caught up; {} telegrams to it were dropped",
                                   Name(), *dropped));
}

void InterfaceLink::ReportCounts() {
    const auto& counters = m_client.Counters();
    LOG4CPLUS_INFO(
        Log(),
        fmt::format(
            "KNX/IP interface {}: {} connections so far; {} telegrams sent and {} received, {} "
            "dropped, {} waiting, {} not acknowledged, {} not confirmed, {} refused on the bus; {} datagrams "
            "refused",
            Name(), counters.connections, counters.sent, counters.received, counters.dropped,
            m_client.Waiting(), counters.noAck, counters.noConfirmation, counters.negativeConfirm,
            m_refused.Total()));
}

std::string InterfaceLink::Name() const {
    return fmt::format("{}:{}{}", m_settings.host, m_settings.port, m_settings.tcp ? " over TCP" : "");
}

void InterfaceLink::SendDatagram(const Endpoint& to, KnxIp::Octets datagram) {
    m_mayHaveLeft = m_socket.Send(to, datagram);
}

TcpClient::Events InterfaceLink::StreamEvents() {
    const auto afterwards = [this] {
        m_deadline.Set(m_client.NextTime());
        AfterWork();
    };
    return {[this, afterwards] {
                m_client.OnStreamOpened(Now());
                afterwards();
            },
            [this, afterwards](KnxFrames::Octets octets) {
                m_client.OnStreamOctets(Now(), octets);
                afterwards();
            },
            [this, afterwards] {
                m_client.OnStreamClosed(Now());
                afterwards();
            }};
}

void InterfaceLink::OpenStream(const Endpoint& server) {
    m_stream.Open(server, m_localAddress);
}

void InterfaceLink::SendToStream(KnxIp::Octets frame) {
    m_stream.Send(frame);
}

void InterfaceLink::CloseStream() {
    m_stream.Close();
}

void InterfaceLink::OnTelegram(const KnxFrames::LData& telegram) {
    m_received(telegram);
}

void InterfaceLink::OnConnected(KnxFrames::IndividualAddress address) {
    m_failureReported = false;
    m_absenceReported = false;
    m_fault.clear();
    LOG4CPLUS_INFO(Log(),
                   fmt::format("connected to the KNX/IP interface {} as {}", Name(), address.ToString()));
    if (m_client.Counters().connections > 1)
        ReportCounts();
    if (m_connection)
        m_connection();
}

void InterfaceLink::OnDisconnected(LinkFailure failure, milliseconds) {
    if (m_stopped)
        return;
    LookUp();
    m_fault = KnxIp::ToString(failure);
    LOG4CPLUS_WARN(Log(),
                   fmt::format("the connection to the KNX/IP interface {} has ended: {}; connecting again",
                               Name(), m_fault));
    if (m_connection)
        m_connection();
}

void InterfaceLink::OnConnectFailed(LinkFailure failure, KnxIp::Status status, milliseconds retryIn) {
    LookUp();
    const bool isAbsent = !IsAddressHere(m_context, m_localAddress);
    m_fault = isAbsent ? AddressFaultText(m_settings.localAddress) : WhyNot(failure, status);
    const auto text = fmt::format("no connection to the KNX/IP interface {}: {}; next try in {} ms", Name(),
                                  m_fault, retryIn.count());
    const bool mayHaveBegunWithoutAddress = std::exchange(m_wasAbsent, isAbsent) && !isAbsent;
    if (mayHaveBegunWithoutAddress || std::exchange(isAbsent ? m_absenceReported : m_failureReported, true))
        LOG4CPLUS_DEBUG(Log(), text);
    else
        LOG4CPLUS_WARN(Log(), text << " (further ones until there is a connection are not reported)");
}

void InterfaceLink::OnSendFailed(const KnxFrames::LData& telegram, KnxIp::SendFailure failure) {
    const auto verdict = m_sendFailures.Count(telegram.destination, KnxIp::ToString(failure));
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(),
                       fmt::format("{}: may not have reached the bus: {}{}", KnxFrames::Describe(telegram),
                                   KnxIp::ToString(failure), Suffix(verdict)));
}

void InterfaceLink::OnQueueOverflow() {
    m_drops.Begin();
    LOG4CPLUS_WARN(Log(),
                   fmt::format("the KNX/IP interface {} does not keep up; waiting telegrams are dropped, the "
                               "oldest of the lowest priority first",
                               Name()));
}

void InterfaceLink::OnRefusedDatagram(const Endpoint& from, const KnxFrames::FrameError& error) {
    const auto verdict = m_refused.Count(from.address, error.cause);
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(), fmt::format("{}: a datagram was refused at octet {}: {}{}", from.ToString(),
                                          error.offset, error.cause, Suffix(verdict)));
}

Endpoint InterfaceLink::LocalEndpoint() {
    const auto local = m_socket.Local();
    return local.address != 0 ? local : Endpoint{LocalAddressTowards(m_context, m_server), local.port};
}

} // namespace KnxStackHost
