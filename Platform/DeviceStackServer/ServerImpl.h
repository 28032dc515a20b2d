// The parts of the running server. Internal to the daemon.
#pragma once

#include "DaemonSupport/LocalListener.h"
#include "DeviceStackServer/Commands.h"
#include "DeviceStackServer/Core.h"
#include "DeviceStackServer/FileWatcher.h"
#include "DeviceStackServer/Server.h"
#include "DeviceStackServer/Session.h"
#include "DeviceStackServer/StateFiles.h"
#include "DeviceStackServer/SystemClock.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <csignal>
#include <map>
#include <optional>

namespace DeviceStackServer {

class Server::Impl : private IEnvironment, private ISessionOwner {
public:
    Impl(Configuration configuration, std::string version);
    ~Impl() override;

    std::string Start();
    void Run();

private:
    // IEnvironment
    void Send(Connection connection, Line line, Kind kind) override;
    void SetPaused(Connection connection, bool paused) override;
    bool ReleaseIfDead(Connection connection) override;
    void ValuesChanged() override;
    void IdsChanged() override;
    void Restart() override;
    void SwitchNtp(bool on) override;
    std::optional<Milliseconds> SetSystemClock(Seconds civil) override;
    std::string ReloadProject() override;
    std::string MakeUserDataPath(const Client& client) override;

    // ISessionOwner
    void OnLine(Session& session, std::string_view line) override;
    void OnLineTooLong(Session& session) override;
    void OnClosed(Session& session, const std::string& reason) override;
    bool IsWaiting(Session& session) override;

    std::string TakeProject(ProjectFile::LoadResult loaded);
    void WaitForSignals();
    void Accept();
    void OnConnection(Session::Socket socket);
    void ArmTimer();
    void OnClockWake();
    void SaveLater(Seconds delay);
    void SaveAgain();
    void SaveNow();

    const Configuration m_configuration;
    boost::asio::io_context m_context{1};
    Core m_core;
    StateFiles m_state;
    DaemonSupport::LocalListener m_listener{m_context, "DeviceStack.Server"};
    FileWatcher m_watcher;
    SystemClockWatch m_clockWatch;
    boost::asio::signal_set m_signals{m_context, SIGTERM, SIGINT, SIGHUP};
    std::optional<Commands> m_commands;
    boost::asio::steady_timer m_timer{m_context};
    std::optional<Milliseconds> m_armed; // what m_timer waits for
    boost::asio::steady_timer m_saveTimer{m_context};
    bool m_saving = false; // m_saveTimer runs
    bool m_valuesChanged = false;
    bool m_idsChanged = false;
    bool m_stopped = false;
    std::map<Connection, std::shared_ptr<Session>> m_sessions;
    Connection m_lastConnection = 0;
};

} // namespace DeviceStackServer
