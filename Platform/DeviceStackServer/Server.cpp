#include "DeviceStackServer/Server.h"

#include "DaemonSupport/Memory.h"
#include "DaemonSupport/ServiceManager.h"
#include "DeviceStackServer/CheckValue.h"
#include "DeviceStackServer/ServerImpl.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <sys/stat.h>

namespace DeviceStackServer {

namespace asio = boost::asio;

namespace {

constexpr std::size_t kMaxConnections = 256;
constexpr Seconds kSaveAgain{60}; // after a failure

log4cplus::Logger Log() {
    return log4cplus::Logger::getInstance("DeviceStack.Server");
}

std::string MakeServerText() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}", random(), random());
}

std::string DirectoryOf(const std::string& path) {
    return std::filesystem::absolute(path).lexically_normal().parent_path().string();
}

} // namespace

Server::Server(Configuration configuration, std::string version)
    : m_impl(std::make_unique<Impl>(std::move(configuration), std::move(version))) {}

Server::~Server() = default;

std::string Server::Start() {
    return m_impl->Start();
}

void Server::Run() {
    m_impl->Run();
}

Server::Impl::Impl(Configuration configuration, std::string version)
    : m_configuration(std::move(configuration)),
      m_core({MakeServerText(), std::move(version), m_configuration.deviceId,
              DirectoryOf(m_configuration.project), m_configuration.clockInterval, m_configuration.history},
             *this, CheckValue, LocalOffset),
      m_state(m_configuration.stateDirectory, [this] { asio::post(m_context, [this] { SaveAgain(); }); }),
      m_watcher(m_context, [this] { ReloadProject(); }), m_clockWatch(m_context, [this] { OnClockWake(); }) {}

Server::Impl::~Impl() {
    m_state.Finish();
}

std::string Server::Impl::Start() {
    auto loaded = ProjectFile::LoadProject(m_configuration.project);
    if (!loaded)
        return loaded.Error();
    if (auto error = m_state.Open(); !error.empty())
        return error;
    StateImage state;
    if (auto error = m_state.Read(Now().utc, state); !error.empty())
        return error;
    m_core.Restore(std::move(state));
    if (auto error = TakeProject(std::move(loaded)); !error.empty())
        return error;
    if (auto error = m_listener.Open(m_configuration.socket, m_configuration.socketMode); !error.empty())
        return error;
    if (const auto error = m_watcher.Start(m_configuration.project); !error.empty())
        LOG4CPLUS_WARN(Log(), "Changes of the project are only seen on SIGHUP: " << error << '.');
    return {};
}

void Server::Impl::Run() {
    m_commands.emplace(m_context);
    WaitForSignals();
    Accept();
    OnClockWake();
    LOG4CPLUS_INFO(Log(), "Ready: " << m_configuration.project << " at " << m_configuration.socket << '.');
    DaemonSupport::NotifyServiceManager("READY=1");
    while (!m_stopped) {
        try {
            m_context.run();
        } catch (const std::exception& error) {
            LOG4CPLUS_ERROR(Log(), "A message was not carried out: " << error.what() << '.');
            ArmTimer(); // which may not have been set again
        }
    }
    DaemonSupport::NotifyServiceManager("STOPPING=1");
    m_listener.Close();
    for (const auto& [connection, session] : m_sessions)
        session->Close();
    SaveNow();
    m_state.Finish();
    LOG4CPLUS_INFO(Log(), "Ended.");
}

void Server::Impl::WaitForSignals() {
    m_signals.async_wait([this](const boost::system::error_code& error, int signal) {
        if (error)
            return;
        if (signal == SIGHUP) {
            WaitForSignals();
            ReloadProject();
            return;
        }
        LOG4CPLUS_INFO(Log(), "Ends on signal " << signal << '.');
        m_stopped = true;
        m_context.stop();
    });
}

void Server::Impl::Accept() {
    // The listener goes on whatever happens to one connection.
    m_listener.Accept([this](Session::Socket socket) {
        try {
            OnConnection(std::move(socket));
        } catch (const std::exception& error) {
            LOG4CPLUS_ERROR(Log(), "A connection is not served: " << error.what() << '.');
        }
    });
}

void Server::Impl::OnConnection(Session::Socket socket) {
    if (m_sessions.size() >= kMaxConnections) {
        LOG4CPLUS_WARN(Log(), "A connection is refused: there are " << kMaxConnections << " already.");
        return;
    }
    const auto connection = ++m_lastConnection;
    auto session =
        std::make_shared<Session>(std::move(socket), connection, static_cast<ISessionOwner&>(*this));
    m_sessions.emplace(connection, session);
    const auto pid = session->PeerPid();
    LOG4CPLUS_DEBUG(Log(), "Connection " << connection << " of process " << pid << '.');
    m_core.OnConnected(connection, pid);
    session->Start();
}

void Server::Impl::OnLine(Session& session, std::string_view line) {
    m_core.OnLine(session.GetConnection(), line, Now());
    ArmTimer();
}

void Server::Impl::OnLineTooLong(Session& session) {
    const DeviceStack::Error error{DeviceStack::kParseError, fmt::format("a message is longer than {} bytes",
                                                                         DeviceStack::kMaxRequestLine)};
    session.Send(std::make_shared<const std::string>(ErrorLine("", error)), Kind::Answer);
}

void Server::Impl::OnClosed(Session& session, const std::string& reason) {
    const auto connection = session.GetConnection();
    if (session.WasCutOff())
        LOG4CPLUS_WARN(Log(), "Connection " << connection << " is cut off: " << reason << '.');
    else
        LOG4CPLUS_DEBUG(Log(), "Connection " << connection << " has ended: " << reason << '.');
    m_sessions.erase(connection);
    m_core.OnDisconnected(connection, Now());
    ArmTimer();
}

bool Server::Impl::IsWaiting(Session& session) {
    return m_core.IsWaiting(session.GetConnection());
}

void Server::Impl::Send(Connection connection, Line line, Kind kind) {
    if (const auto found = m_sessions.find(connection); found != m_sessions.end())
        found->second->Send(std::move(line), kind);
}

void Server::Impl::SetPaused(Connection connection, bool paused) {
    if (const auto found = m_sessions.find(connection); found != m_sessions.end())
        found->second->SetPaused(paused);
}

bool Server::Impl::ReleaseIfDead(Connection connection) {
    const auto found = m_sessions.find(connection);
    if (found == m_sessions.end())
        return true;
    const auto session = found->second;
    return session->DrainIfDead();
}

void Server::Impl::ArmTimer() {
    const auto next = m_core.NextDeadline();
    if (next == m_armed)
        return;
    m_armed = next;
    m_timer.cancel();
    if (!next)
        return;
    m_timer.expires_at(std::chrono::steady_clock::time_point(*next));
    m_timer.async_wait([this](const boost::system::error_code& error) {
        if (error)
            return;
        m_armed.reset();
        m_core.OnTimer(Now());
        ArmTimer();
    });
}

void Server::Impl::OnClockWake() {
    const auto now = Now();
    const auto utc = std::chrono::floor<Seconds>(now.utc);
    const auto next = m_core.Clock().NextZoneChange(utc).value_or(utc + std::chrono::hours(24 * 365));
    if (const auto error = m_clockWatch.WaitFor(next); !error.empty())
        LOG4CPLUS_WARN(Log(), "Changes of the system clock are not seen at once: " << error << '.');
    m_core.OnTimer(now);
    ArmTimer();
}

std::string Server::Impl::TakeProject(ProjectFile::LoadResult loaded) {
    if (!loaded)
        return loaded.Error();
    auto conflict = m_core.SetProject(std::move(loaded.project), Now());
    DaemonSupport::ReturnFreeMemory(); // of reading it, and the former one's
    return conflict.empty() ? conflict : m_configuration.project + ": " + conflict;
}

std::string Server::Impl::ReloadProject() {
    auto error = TakeProject(ProjectFile::LoadProject(m_configuration.project));
    if (error.empty())
        LOG4CPLUS_INFO(Log(), "The project is " << m_configuration.project << " as it is now.");
    else
        LOG4CPLUS_ERROR(Log(), "The project stays as it was: " << error << '.');
    m_core.AnnounceProject(error.empty() ? "ok" : error, Now());
    ArmTimer();
    return error;
}

void Server::Impl::ValuesChanged() {
    m_valuesChanged = true;
    SaveLater(m_configuration.saveDelay);
}

void Server::Impl::IdsChanged() {
    m_idsChanged = true;
    SaveLater(Seconds(0));
}

/// Saves once after the delay, however much changes meanwhile.
void Server::Impl::SaveLater(Seconds delay) {
    const auto due = std::chrono::steady_clock::now() + delay;
    if (m_saving && m_saveTimer.expiry() <= due)
        return;
    m_saving = true;
    m_saveTimer.expires_at(due);
    m_saveTimer.async_wait([this](const boost::system::error_code& error) {
        if (!error)
            SaveNow();
    });
}

void Server::Impl::SaveAgain() {
    m_idsChanged = m_valuesChanged = true;
    SaveLater(kSaveAgain);
}

void Server::Impl::SaveNow() {
    m_saving = false;
    if (m_idsChanged)
        m_state.SaveIds(m_core.CurrentState());
    if (m_valuesChanged)
        m_state.SaveValues(m_core.CurrentState());
    m_idsChanged = m_valuesChanged = false;
}

void Server::Impl::Restart() {
    if (m_configuration.restartCommand.empty()) {
        LOG4CPLUS_INFO(Log(), "A restart is asked for; no command is configured for it.");
        return;
    }
    // Behind the answer, which is already in the socket or waits for its reader.
    asio::post(m_context, [this] { m_commands->Run(m_configuration.restartCommand); });
}

void Server::Impl::SwitchNtp(bool on) {
    auto command = m_configuration.ntpCommand;
    if (command.empty()) {
        LOG4CPLUS_INFO(Log(),
                       "\"Ntp\" is " << (on ? "true" : "false") << "; no command is configured for it.");
        return;
    }
    command.emplace_back(on ? "true" : "false");
    m_commands->Run(command);
}

std::optional<Milliseconds> Server::Impl::SetSystemClock(Seconds civil) {
    if (!m_configuration.setSystemClock)
        return std::nullopt;
    const auto error = DeviceStackServer::SetSystemClock(civil);
    if (error.empty())
        return Now().utc;
    LOG4CPLUS_WARN(Log(),
                   "The system clock cannot be set (" << error << "); the device's clock is set alone.");
    return std::nullopt;
}

std::string Server::Impl::MakeUserDataPath(const Client& client) {
    // A part of an identity holds no '+'.
    const auto path = std::filesystem::absolute(m_state.Directory()).lexically_normal() /
                      (client.name + '+' + client.type + '+' + client.instance);
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (!error)
        return path.string();
    LOG4CPLUS_ERROR(Log(), path.string() << " cannot be created: " << error.message() << '.');
    return {};
}

} // namespace DeviceStackServer
