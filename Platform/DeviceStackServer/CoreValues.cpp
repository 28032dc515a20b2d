#include "DeviceStackServer/Core.h"

#include <fmt/format.h>

namespace DeviceStackServer {
namespace {

namespace FixedId = ProjectFile::FixedId;

std::string Describe(const DeviceStack::DataPointName& name) {
    using By = DeviceStack::DataPointName::By;
    switch (name.by) {
    case By::Id: return fmt::format("the id {}", name.id);
    case By::Urn: return fmt::format("the URN {}", name.text);
    case By::Name: break;
    }
    return fmt::format("the name {}", name.text);
}

} // namespace

DataPointEntry* Core::FindOrFail(const Asker& asker, const DeviceStack::DataPointName& name) {
    auto* entry = m_store.Find(name);
    if (!entry)
        Fail(asker, DeviceStack::kNoSuchDataPoint, "no data point has " + Describe(name));
    return entry;
}

/// True for the owner, and for the KNX application program where the bus is bound to the data point: neither
/// is bound by the access that others have.
bool Core::Serves(const Client& client, const ProjectFile::DataPoint& point) const {
    if (!client.registered || point.IsFixed())
        return false;
    return *client.origin == point.owner || (point.knx && *client.origin == m_store.Project().knxOwner);
}

std::string Core::CheckText(const DeviceStack::SetValue& message, const ProjectFile::DataPoint& point,
                            bool serves, std::string& text) const {
    // What comes from the side that has the device is what the device sent, even when nobody may send it
    // there.
    if (!text.empty())
        return m_check(point.dpt, serves ? ValueSource::Device : ValueSource::Writer, text);
    if (serves || (message.readInternal && message.response))
        return {};
    return "null is only taken with both readInternal and response, to mark the value invalid";
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::SetValue& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    auto* entry = FindOrFail(asker, message.dataPoint);
    if (!entry)
        return;
    const auto& point = *entry->point;
    const bool serves = Serves(client, point);
    if (!serves && !MayWrite(point.access))
        return Fail(asker, DeviceStack::kAccessDenied, point.urn + " may not be written");
    auto text = message.value;
    if (const auto reason = CheckText(message, point, serves, text); !reason.empty())
        return Fail(asker, DeviceStack::kValueDoesNotFit, reason);
    if (point.id == FixedId::kRestart || point.id == FixedId::kClock) {
        const bool triggers = !message.response && !text.empty();
        auto answer = ReplyLine(id, DeviceStack::SetValueResult{m_store.LastChange()});
        if (triggers && point.id == FixedId::kClock)
            SetClock(client, asker, text);
        else if (triggers && text != "0")
            TryRestart(client, asker, std::move(answer));
        else
            Answer(asker, std::move(answer));
        return;
    }
    const bool isOwner = client.registered && *client.origin == point.owner;
    if (!message.readInternal && !message.response && !isOwner && !point.owner.empty())
        return AskToWrite(client, asker, *entry, std::move(text));
    Record(*entry, std::move(text), client.origin);
    Answer(asker, ReplyLine(id, DeviceStack::SetValueResult{entry->change}));
}

void Core::Record(DataPointEntry& entry, std::string text, SharedText origin, const std::string& knownTo) {
    const bool byOwner = *origin == entry.point->owner;
    m_store.Record(entry, std::move(text), std::move(origin), m_now.utc);
    entry.knownTo = knownTo;
    if (entry.point->persistent)
        m_environment.ValuesChanged();
    Publish(entry);
    CompleteReads(entry, byOwner);
}

void Core::Publish(DataPointEntry& entry) {
    Line line;
    for (auto& [connection, client] : m_clients.All())
        SendChange(client, entry, line, IEnvironment::Kind::Event);
}

/// Tells one client of the entry's value, or keeps it for the end of its start. `line` is the message, made
/// when the first client needs it.
void Core::SendChange(Client& client, DataPointEntry& entry, Line& line, IEnvironment::Kind kind) {
    if (!client.events)
        return;
    if (!client.window.IsOpen()) {
        client.held.insert(entry.Id());
        return;
    }
    if (*client.origin == *entry.origin || (client.registered && *client.origin == entry.knownTo))
        return;
    if (!line) {
        RefreshClock(entry);
        line = std::make_shared<const std::string>(ToLine(entry.ToMessage()));
    }
    m_environment.Send(client.connection, line, kind);
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::GetValue& message) {
    Get(client, {client.connection, id, {}, 0, {}}, message.dataPoint, message.readInternal);
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::RequestValue& message) {
    Asker asker{client.connection, id, {}, 0, {}};
    const auto* entry = FindOrFail(asker, message.dataPoint);
    if (!entry)
        return;
    asker.request = fmt::format("getValue#{}", ++m_lastNumber);
    asker.dataPoint = entry->Id();
    asker.urn = entry->point->urn;
    Answer(asker, ReplyLine(id, DeviceStack::RequestValueResult{asker.request}));
    Get(client, asker, message.dataPoint, message.readInternal);
}

void Core::Get(Client& client, const Asker& asker, const DeviceStack::DataPointName& name,
               bool readInternal) {
    auto* entry = FindOrFail(asker, name);
    if (!entry)
        return;
    const auto& point = *entry->point;
    if (!MayRead(point.access) && !Serves(client, point))
        return Fail(asker, DeviceStack::kAccessDenied, point.urn + " may not be read");
    RefreshClock(*entry);
    if (!entry->text.empty())
        return AnswerValue(asker, *entry);
    const bool isOwner = client.registered && *client.origin == point.owner;
    if (readInternal || isOwner || point.owner.empty())
        return Fail(asker, DeviceStack::kNoValue, point.urn + " has no value");
    AskToRead(asker, *entry);
}

void Core::AnswerValue(const Asker& asker, DataPointEntry& entry) {
    if (asker.request.empty())
        return Answer(asker, ReplyLine(asker.id, entry.ToMessage()));
    Send(asker.connection, ToLine(DeviceStack::ValueAnswered{asker.request, asker.dataPoint, asker.urn,
                                                             entry.text, std::nullopt}));
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::GetUrn& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    if (const auto* entry = FindOrFail(asker, DeviceStack::DataPointName::OfId(message.id)))
        Answer(asker, ReplyLine(id, DeviceStack::GetUrnResult{entry->point->urn}));
}

void Core::Handle(Client& client, const std::string& id, const DeviceStack::GetId& message) {
    const Asker asker{client.connection, id, {}, 0, {}};
    if (const auto* entry = FindOrFail(asker, DeviceStack::DataPointName::OfUrn(message.urn)))
        Answer(asker, ReplyLine(id, DeviceStack::GetIdResult{entry->Id()}));
}

} // namespace DeviceStackServer
