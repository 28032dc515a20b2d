#include "DeviceStackProtocol/Json.h"
#include "DeviceStackServer/Core.h"
#include "ProjectFile/NameRules.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

namespace DeviceStackServer {

namespace FixedId = ProjectFile::FixedId;

void Core::Handle(Client& client, const std::string& id, const DeviceStack::Register& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    const std::pair<const char*, const std::string*> parts[] = {
        {"name", &message.name}, {"type", &message.type}, {"instance", &message.instance}};
    for (const auto& [member, part] : parts) {
        if (const auto fault = ProjectFile::IdentityPartFault(*part); !fault.empty())
            return Fail(asker, DeviceStack::kInvalidParams, fmt::format("member '{}' {}", member, fault));
    }
    const auto identity = Identity(message.name, message.type, message.instance);
    if (!ClaimIdentity(client, asker, identity))
        return;
    if (client.registered && *client.origin != identity)
        DropOwner(client.connection);
    client.registered = true;
    client.origin = std::make_shared<const std::string>(identity);
    client.name = message.name;
    client.type = message.type;
    client.instance = message.instance;
    client.events = message.events;
    client.field = message.field;
    client.startWindow = message.field && message.startWindow;
    client.held.clear();
    if (client.startWindow)
        client.window.Close();
    else
        client.window.Open();
    LOG4CPLUS_INFO(log4cplus::Logger::getInstance("DeviceStack.Server"),
                   identity << " is registered (connection " << client.connection << ", process "
                            << client.pid << ").");
    Answer(asker,
           ReplyLine(id, DeviceStack::RegisterResult{identity, m_settings.server, m_store.LastChange()}));
    Resume(client, message.lastChange, message.server);
    if (client.field && client.window.IsOpen())
        SendWaitingWrites(client);
    UpdateReady();
}

/// True when the identity is free, if only because its holder no longer exists.
bool Core::ClaimIdentity(Client& client, const Asker& asker, const std::string& identity) {
    const auto* holder = m_clients.FindIdentity(identity);
    if (!holder || holder == &client)
        return true;
    const auto connection = holder->connection;
    const auto pid = holder->pid;
    if (m_environment.ReleaseIfDead(connection))
        return true;
    auto message = fmt::format("{} is in use by process {} (connection {})", identity, pid, connection);
    LOG4CPLUS_WARN(log4cplus::Logger::getInstance("DeviceStack.Server"),
                   "Process " << client.pid << " is refused: " << message << '.');
    Fail(asker, DeviceStack::kIdentityInUse, std::move(message));
    return false;
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::Subscribe& message) {
    client.events = true;
    Answer({client.connection, id, {}, 0, {}},
           ReplyLine(id, DeviceStack::RegisterResult{"", m_settings.server, m_store.LastChange()}));
    Resume(client, message.lastChange, message.server);
}

/// However many there are, at most one for each data point: they count as part of the answer, so that a peer
/// that reads is not cut off for what it asked.
void Core::Resume(Client& client, const std::optional<std::uint64_t>& lastChange, const std::string& server) {
    if (!client.events || server.empty())
        return;
    const bool sameRun = server == m_settings.server;
    if (sameRun && !lastChange)
        return;
    for (auto* entry : m_store.ChangedSince(sameRun ? *lastChange : 0)) {
        Line line;
        SendChange(client, *entry, line, IEnvironment::Kind::Answer);
    }
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::SetValueFormat& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    if (message.format != "Native")
        return Fail(asker, DeviceStack::kInvalidParams, "member 'format' must be \"Native\"");
    Answer(asker, DeviceStack::ReplyLine(id, "{}"));
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::GetConfiguration& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    if (message.scope != 1)
        return Fail(asker, DeviceStack::kInvalidParams, "member 'scope' must be 1");
    std::string ipc;
    DeviceStack::JsonObject members(ipc);
    members.Text("DeviceId", m_settings.deviceId).Text("DeviceStackConfigPath", m_settings.configPath);
    if (client.registered) {
        const auto path = m_environment.MakeUserDataPath(client);
        if (!path.empty())
            members.Text("UserDataPath", path);
    }
    members.End();
    std::string configuration;
    DeviceStack::JsonObject(configuration)
        .Raw("ipc", ipc)
        .Text("device", m_store.Project().device)
        .Text("server", m_settings.server)
        .Text("version", m_settings.version)
        .End();
    Answer(asker, DeviceStack::ReplyLine(id, configuration));
}

/// Brings "ready" and "state" in line with the KNX application program. It asks for both itself at the end of
/// its start, so it is not told of them as well.
void Core::UpdateReady() {
    const auto& knxOwner = m_store.Project().knxOwner;
    const auto* program = m_clients.FindIdentity(knxOwner);
    const bool registered = program && program->field;
    const bool loaded = registered && program->window.IsLoaded();
    const std::pair<std::uint32_t, const char*> values[] = {
        {FixedId::kReady, loaded ? "1" : "0"},
        {FixedId::kState, loaded       ? "1"
                          : registered ? "2"
                                       : "0"},
    };
    for (const auto& [id, text] : values) {
        auto& entry = *m_store.FindById(id);
        if (entry.text != text)
            Record(entry, text, m_self, knxOwner);
    }
}

} // namespace DeviceStackServer
