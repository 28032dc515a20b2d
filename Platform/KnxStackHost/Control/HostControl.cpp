#include "KnxStackHost/Control/HostControl.h"

#include "KnxStackHost/Control/ControlCommands.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <chrono>
#include <utility>

namespace KnxStackHost {

using KnxFrames::LData;

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Control");
    return logger;
}

log4cplus::Logger& MonitorLog() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Monitor");
    return logger;
}

} // namespace

HostControl::HostControl(boost::asio::io_context& context, const Configuration& configuration,
                         DeviceManagement& management, BusRouter& router, Sources sources)
    : m_tunnels(configuration.server.tunnels), m_bus(configuration.routing ? "routing" : "interface"),
      m_management(management), m_router(router), m_sources(std::move(sources)) {
    if (configuration.control)
        m_server.emplace(context, *configuration.control, static_cast<ControlTarget&>(*this));
}

void HostControl::Start() {
    if (m_server)
        m_server->Start();
}

void HostControl::Stop() {
    if (m_server)
        m_server->Stop();
}

void HostControl::OnTelegram(const LData& telegram, Origin origin) {
    const bool isWatched = m_server && m_server->IsWatched();
    const bool isLogged = MonitorLog().isEnabledFor(log4cplus::DEBUG_LOG_LEVEL);
    if (!isWatched && !isLogged)
        return; // the usual case costs nothing
    const auto words = Describe(telegram, m_addressBook);
    if (isLogged)
        LOG4CPLUS_DEBUG(MonitorLog(), MonitorLine(words));
    if (isWatched)
        m_server->Publish(TelegramMessage(telegram, words, TextOf(origin), std::chrono::system_clock::now()));
}

std::string HostControl::TextOf(Origin origin) const {
    switch (origin.kind) {
    case Origin::Kind::Tunnel: return fmt::format("tunnel {}", m_tunnels.at(origin.tunnel).ToString());
    case Origin::Kind::Interface: return m_bus;
    case Origin::Kind::Device: return "device";
    case Origin::Kind::Management: return "management";
    case Origin::Kind::Control: break;
    }
    return "control";
}

std::string HostControl::SendToGroup(const LData& telegram) {
    if (!m_router.FitsGroup(telegram)) {
        const auto* const entry = m_addressBook.Find(telegram.GroupDestination());
        return fmt::format("the group object of {} has another size than this value{}",
                           telegram.GroupDestination().ToString(),
                           entry != nullptr && entry->dpt
                               ? fmt::format("; its datapoint type is {}", Datapoint::ToString(*entry->dpt))
                               : std::string());
    }
    auto sent = telegram;
    sent.source = m_management.Address();
    Report("sends", sent);
    m_router.FromControl(sent);
    return {};
}

std::string HostControl::Inject(const LData& telegram) {
    if (m_router.IsOwn(telegram.source))
        return fmt::format("{} is an address of this host: nothing from the bus has it",
                           telegram.source.ToString());
    Report("injects", telegram);
    m_router.Inject(telegram);
    return {};
}

/// A script that sends much does not fill the log.
void HostControl::Report(const char* what, const LData& telegram) {
    if (!m_lines.Take(std::chrono::steady_clock::now()))
        return;
    auto line = fmt::format("a control client {} {}", what, MonitorLine(Describe(telegram, m_addressBook)));
    if (m_lines.IsUsedUp())
        line += " (further lines about control clients come once a minute)";
    LOG4CPLUS_INFO(Log(), line);
}

} // namespace KnxStackHost
