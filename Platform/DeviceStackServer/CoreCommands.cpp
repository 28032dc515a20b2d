#include "DeviceStackProtocol/Json.h"
#include "DeviceStackServer/Core.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

namespace DeviceStackServer {
namespace {

constexpr std::string_view kOk = R"({"response":{"result":"ok"}})";
constexpr const char* kLogger = "DeviceStack.Server";

} // namespace

void Core::Handle(Client& client, const std::string& id, const DeviceStack::Command& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    if (message.command == "EmitEvent")
        return EmitEvent(client, asker, message);
    if (message.command == "GetProcessView")
        return AnswerProcessView(client, asker);
    if (message.command == "GetHistory")
        return AnswerHistory(client, asker, message);
    if (message.command == "ReloadProject") {
        auto cause = m_environment.ReloadProject();
        if (!cause.empty())
            return Fail(asker, DeviceStack::kCommandFailed, std::move(cause));
        return Answer(asker, DeviceStack::ReplyLine(id, kOk));
    }
    if (message.command != "Restart")
        return Fail(asker, DeviceStack::kCommandFailed,
                    fmt::format("no such command: '{}'", message.command));
    if (message.type != "Device")
        return Fail(asker, DeviceStack::kInvalidParams, "command: member 'type' must be \"Device\"");
    TryRestart(client, asker, DeviceStack::ReplyLine(id, kOk));
}

void Core::EmitEvent(Client& client, const Asker& asker, const DeviceStack::Command& message) {
    if (message.eventType.empty())
        return Fail(asker, DeviceStack::kInvalidParams, "command: member 'eventType' is missing");
    auto line =
        ToLine(DeviceStack::ApplicationEvent{message.eventType, client.SenderName(), message.message});
    if (message.to.empty()) {
        Answer(asker, DeviceStack::ReplyLine(asker.id, kOk));
        SendToListeners(line, client.connection);
        return OnApplicationEvent(client, message.eventType);
    }
    const auto* receiver = m_clients.FindIdentity(message.to);
    if (!receiver)
        return Fail(asker, DeviceStack::kNoSuchApplication,
                    fmt::format("no application is registered as {}", message.to));
    Answer(asker, DeviceStack::ReplyLine(asker.id, kOk));
    Send(receiver->connection, std::move(line));
}

/// What the announcements of an application mean to the device stack itself.
void Core::OnApplicationEvent(Client& client, const std::string& eventType) {
    const bool loaded = eventType == "configurationLoaded";
    if (!client.field || (!loaded && eventType != "configurationChangeBegin"))
        return;
    if (client.startWindow && loaded) {
        const auto opensAt = client.window.OnConfigurationLoaded(m_now.monotonic);
        m_deadlines.Add(opensAt, [this, connection = client.connection] {
            auto* opened = m_clients.Find(connection);
            if (opened && opened->window.Advance(m_now.monotonic))
                OpenWindow(*opened);
        });
    } else if (client.startWindow) {
        client.window.Close();
    }
    if (*client.origin != m_store.Project().knxOwner)
        return;
    UpdateReady();
    if (loaded)
        ReportClock(m_self);
}

void Core::TryRestart(Client& client, const Asker& asker, std::string answer) {
    if (m_lastRestart && m_now.monotonic - *m_lastRestart < kRestartPause) {
        const auto seconds = std::chrono::floor<Seconds>(m_now.monotonic - *m_lastRestart).count();
        return Fail(asker, DeviceStack::kCommandFailed,
                    fmt::format("the last restart was {} s ago; there is at most one in 10 s", seconds));
    }
    m_lastRestart = m_now.monotonic;
    LOG4CPLUS_INFO(log4cplus::Logger::getInstance(kLogger),
                   *client.origin << " asks for a restart of the device.");
    Answer(asker, std::move(answer));
    SendToListeners(ToLine(DeviceStack::ConfigurationChanged{0, "Restart", "Device"}), client.connection);
    m_environment.Restart();
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::SetConfiguration& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    for (const auto& [key, value] : message.settings) {
        if (key != "Ntp")
            return Fail(asker, DeviceStack::kCommandFailed, fmt::format("no such setting: '{}'", key));
        if (value != "true" && value != "false")
            return Fail(asker, DeviceStack::kCommandFailed, "the setting 'Ntp' is \"true\" or \"false\"");
    }
    Answer(asker, DeviceStack::ReplyLine(id, "{}"));
    for (const auto& [key, value] : message.settings) {
        LOG4CPLUS_INFO(log4cplus::Logger::getInstance(kLogger),
                       *client.origin << " sets \"" << key << "\" to " << value << '.');
        SendToListeners(ToLine(DeviceStack::ConfigurationChanged{0, key, value}), client.connection);
        m_environment.SwitchNtp(value == "true");
    }
}

void Core::AnswerProcessView(const Client& client, const Asker& asker) {
    for (const auto id :
         {ProjectFile::FixedId::kClock, ProjectFile::FixedId::kClockDate, ProjectFile::FixedId::kClockTime})
        RefreshClock(*m_store.FindById(id));
    std::string view = R"({"response":{"processView":{"datapoints":[)";
    const auto entries = m_store.ById();
    view.reserve(entries.size() * 300 + 256);
    for (const auto* entry : entries) {
        const auto& point = *entry->point;
        if (view.back() == '}')
            view += ',';
        const bool readable = MayRead(point.access) || Serves(client, point);
        DeviceStack::JsonObject(view)
            .Number("id", point.id)
            .Text("urn", point.urn)
            .Text("name", point.name)
            .Text("dpt", point.dptText)
            .Text("unit", point.unit)
            .Text("description", point.description)
            .Text("access", ToText(point.access))
            .Text("owner", point.owner)
            .Boolean("persistent", point.persistent)
            .Text("value", readable ? entry->text : std::string())
            .Text("origin", *entry->origin)
            .Text("time", UtcText(entry->utc))
            .Number("change", entry->change)
            .End();
    }
    view += "]}}}";
    Answer(asker, DeviceStack::ReplyLine(asker.id, view));
}

void Core::AnswerHistory(Client& client, const Asker& asker, const DeviceStack::Command& message) {
    if (!message.dataPoint)
        return Fail(asker, DeviceStack::kInvalidParams,
                    "command: one of the members 'id', 'urn' and 'name' must name the data point");
    const auto* entry = FindOrFail(asker, *message.dataPoint);
    if (!entry)
        return;
    if (!MayRead(entry->point->access) && !Serves(client, *entry->point))
        return Fail(asker, DeviceStack::kAccessDenied, entry->point->urn + " may not be read");
    const auto& history = entry->history;
    const std::size_t size = history.Size();
    std::string text = R"({"response":{"history":[)";
    for (std::size_t i = size - std::min<std::uint64_t>(size, message.maxEntries.value_or(size)); i < size;
         ++i) {
        const auto& value = history.At(i);
        if (text.back() == '}')
            text += ',';
        DeviceStack::JsonObject(text)
            .Text("value", value.text)
            .Text("origin", *value.origin)
            .Text("time", UtcText(value.utc))
            .Number("change", value.change)
            .End();
    }
    text += "]}}";
    Answer(asker, DeviceStack::ReplyLine(asker.id, text));
}

} // namespace DeviceStackServer
