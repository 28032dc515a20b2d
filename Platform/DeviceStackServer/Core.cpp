#include "DeviceStackServer/Core.h"

#include <charconv>

namespace DeviceStackServer {

using DeviceStack::Error;
namespace FixedId = ProjectFile::FixedId;

Core::Core(Settings settings, IEnvironment& environment, ValueCheck check, DeviceClock::ZoneOffset zoneOffset)
    : m_settings(std::move(settings)), m_environment(environment), m_check(check),
      m_self(std::make_shared<const std::string>("devicestack")), m_clock(std::move(zoneOffset)),
      m_store(std::move(check), m_settings.historyLimit) {}

std::string Core::SetProject(std::shared_ptr<const ProjectFile::Project> project, Instant now) {
    m_now = now;
    if (auto conflict = ProjectFile::IdConflict(m_stored.ids, *project); !conflict.empty())
        return conflict;
    const bool first = !m_store.HasProject();
    m_store.SetProject(std::move(project), m_stored, now.utc);
    if (AdoptIds(m_stored, m_store.Project()))
        m_environment.IdsChanged();
    m_store.FindById(FixedId::kDevice)->text = m_store.Project().device;
    m_store.FindById(FixedId::kVersion)->text = m_settings.version;
    if (first) {
        m_store.FindById(FixedId::kReady)->text = "0";
        m_store.FindById(FixedId::kState)->text = "0";
        m_clock.MarkReported(now);
        ScheduleClock();
    }
    UpdateReady();
    return {};
}

void Core::AnnounceProject(const std::string& result, Instant now) {
    m_now = now;
    SendToListeners(ToLine(DeviceStack::ConfigurationChanged{0, "Project", result}), 0);
}

void Core::OnConnected(Connection connection, long pid) {
    m_clients.Add(connection, pid);
}

void Core::OnLine(Connection connection, std::string_view line, Instant now) {
    m_now = now;
    auto* client = m_clients.Find(connection);
    if (!client)
        return;
    const auto received = DeviceStack::ReadApplicationLine(line);
    std::visit([&](const auto& message) { Handle(*client, received.id, message); }, received.message);
}

void Core::OnDisconnected(Connection connection, Instant now) {
    m_now = now;
    if (!m_clients.Find(connection))
        return;
    m_clients.Remove(connection);
    DropOwner(connection);
    UpdateReady();
}

bool Core::IsWaiting(Connection connection) {
    const auto* client = m_clients.Find(connection);
    if (!client)
        return false;
    if (client->events || client->field)
        return true;
    for (const auto& [number, job] : m_writes) {
        if (job.asker.connection == connection)
            return true;
    }
    for (const auto& [dataPoint, job] : m_reads) {
        for (const auto& [number, waiter] : job.waiters) {
            if (waiter.asker.connection == connection)
                return true;
        }
    }
    return false;
}

void Core::OnTimer(Instant now) {
    m_now = now;
    if (m_clock.HasJumped(now))
        ReportClock(m_self);
    m_deadlines.RunDue(now.monotonic);
}

const StateImage& Core::CurrentState() {
    m_store.Save(m_stored);
    return m_stored;
}

void Core::Send(Connection connection, std::string line, IEnvironment::Kind kind) {
    if (m_clients.Find(connection))
        m_environment.Send(connection, std::make_shared<const std::string>(std::move(line)), kind);
}

void Core::SendToListeners(const std::string& line, Connection except) {
    const auto shared = std::make_shared<const std::string>(line);
    for (const auto& [connection, client] : m_clients.All()) {
        if (client.events && connection != except)
            m_environment.Send(connection, shared, IEnvironment::Kind::Event);
    }
}

void Core::Answer(const Asker& asker, std::string line) {
    if (!asker.id.empty() && m_clients.Find(asker.connection))
        m_environment.Send(asker.connection, std::make_shared<const std::string>(std::move(line)),
                           IEnvironment::Kind::Answer);
}

void Core::Fail(const Asker& asker, int code, std::string message) {
    Error error{code, std::move(message)};
    if (asker.request.empty())
        Answer(asker, ErrorLine(asker.id, error));
    else
        Send(asker.connection,
             ToLine(DeviceStack::ValueAnswered{asker.request, asker.dataPoint, asker.urn, "", error}));
}

void Core::Handle(Client& client, const std::string& id, const Error& error) {
    // A line that is not even a message has no id to answer to; its sender is told all the same.
    const bool unreadable =
        error.code == DeviceStack::kParseError || error.code == DeviceStack::kInvalidRequest;
    Fail({client.connection, id.empty() && unreadable ? "null" : id, {}, 0, {}}, error.code, error.message);
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::Reply& reply) {
    std::uint64_t number = 0;
    const auto [end, failure] = std::from_chars(id.data(), id.data() + id.size(), number);
    if (failure != std::errc() || end != id.data() + id.size())
        return;
    DeviceStack::HandledResult result;
    const bool handled = !reply.error && ReadResult(reply.result, result) && result.handled;
    if (const auto write = m_writes.find(number);
        write != m_writes.end() && write->second.asked == client.connection) {
        OnWriteAnswer(number, handled);
        return;
    }
    // An owner that takes a read answers it with its own setValue.
    const auto read = m_readAsks.find(number);
    if (read != m_readAsks.end() && m_reads.at(read->second).owner == client.connection && !handled)
        FailReads(read->second, DeviceStack::kNoAnswer, "its owner did not take the question");
}

} // namespace DeviceStackServer
