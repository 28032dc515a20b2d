#include "DeviceStackServer/Core.h"

#include <fmt/format.h>

#include <algorithm>

namespace DeviceStackServer {

/// The application that is asked for the identity's data points; null when it is not there.
Client* Core::FindOwner(const std::string& identity) {
    auto* client = m_clients.FindIdentity(identity);
    return client && client->field ? client : nullptr;
}

/// The same; when it is not there, the asker is told.
Client* Core::FindOwnerOrFail(const Asker& asker, const std::string& identity) {
    auto* owner = FindOwner(identity);
    if (!owner)
        Fail(asker, DeviceStack::kNotReady, fmt::format("its owner {} is not connected", identity));
    return owner;
}

/// A write waits for an owner that is not there, or has not finished its start: either may be a matter of
/// seconds, after a restart of this process or of the other.
void Core::AskToWrite(Client& client, const Asker& asker, DataPointEntry& entry, std::string text) {
    const auto& identity = entry.point->owner;
    const auto* owner = FindOwner(identity);
    const bool ready = owner && owner->window.IsOpen();
    const auto waiting = m_waitingWrites.find(identity);
    if (!ready && waiting != m_waitingWrites.end() && waiting->second >= kMaxWaitingWrites)
        return Fail(asker, DeviceStack::kNotReady,
                    fmt::format("too many writes wait for the start of {}", identity));
    const auto number = ++m_lastNumber;
    auto& job = m_writes[number];
    job = {asker, client.origin, entry.Id(), entry.point->urn, std::move(text), identity, 0, {}};
    if (ready)
        return SendWrite(number, job, owner->connection, IEnvironment::Kind::Event);
    ++m_waitingWrites[identity];
    job.deadline = m_deadlines.Add(m_now.monotonic + kStartWait, [this, number, identity] {
        FailWrite(number, DeviceStack::kNotReady,
                  FindOwner(identity) ? "its owner has not finished its start"
                                      : fmt::format("its owner {} is not connected", identity));
    });
}

void Core::SendWrite(std::uint64_t number, WriteJob& job, Connection owner, IEnvironment::Kind kind) {
    job.asked = owner;
    m_deadlines.Cancel(job.deadline);
    job.deadline = m_deadlines.Add(m_now.monotonic + kOwnerWait, [this, number] { OnWriteLate(number); });
    OpenQuestion(job.asker.connection);
    Send(owner, ToLine(std::to_string(number), DeviceStack::WriteValue{job.dataPoint, job.urn, job.text}),
         kind);
}

/// The asker waits no longer. Of each data point the newest such write is kept until its owner answers or
/// leaves, so that there are no more than data points.
void Core::OnWriteLate(std::uint64_t number) {
    auto& job = m_writes.at(number);
    Fail(job.asker, DeviceStack::kNoAnswer, "its owner gave no answer in time");
    CloseQuestion(job.asker.connection);
    job.asker = {};
    DropLateWrite(job.dataPoint, number);
    m_lateWrites.emplace(job.dataPoint, number);
}

/// Forgets the late write to the data point if it is older than the write with the number `before`.
void Core::DropLateWrite(std::uint32_t dataPoint, std::uint64_t before) {
    const auto late = m_lateWrites.find(dataPoint);
    if (late != m_lateWrites.end() && late->second < before)
        TakeWrite(m_writes.find(late->second));
}

Core::WriteJob Core::TakeWrite(std::map<std::uint64_t, WriteJob>::iterator found) {
    const auto number = found->first;
    auto job = std::move(found->second);
    m_writes.erase(found);
    m_deadlines.Cancel(job.deadline);
    if (job.asked != 0)
        CloseQuestion(job.asker.connection);
    else if (const auto waiting = m_waitingWrites.find(job.owner); --waiting->second == 0)
        m_waitingWrites.erase(waiting);
    if (const auto late = m_lateWrites.find(job.dataPoint);
        late != m_lateWrites.end() && late->second == number)
        m_lateWrites.erase(late);
    return job;
}

/// One more of the connection's requests depends on an owner.
void Core::OpenQuestion(Connection asker) {
    auto* client = m_clients.Find(asker);
    if (!client || ++client->openQuestions <= kMaxOpenQuestions || client->paused)
        return;
    client->paused = true;
    m_environment.SetPaused(asker, true);
}

void Core::CloseQuestion(Connection asker) {
    auto* client = m_clients.Find(asker);
    if (!client || --client->openQuestions > kMaxOpenQuestions / 2 || !client->paused)
        return;
    client->paused = false;
    m_environment.SetPaused(asker, false);
}

void Core::FailWrite(std::uint64_t number, int code, std::string message) {
    const auto found = m_writes.find(number);
    if (found == m_writes.end())
        return;
    const auto job = TakeWrite(found);
    Fail(job.asker, code, std::move(message));
}

void Core::OnWriteAnswer(std::uint64_t number, bool handled) {
    const auto job = TakeWrite(m_writes.find(number));
    if (!handled)
        return Fail(job.asker, DeviceStack::kNoAnswer, "its owner refused the value");
    auto* entry = m_store.FindById(job.dataPoint);
    if (!entry || entry->point->urn != job.urn)
        return Fail(job.asker, DeviceStack::kNoSuchDataPoint, job.urn + " is no longer in the project");
    DropLateWrite(job.dataPoint, number); // an older value must not replace this one later
    const auto* owner = m_clients.Find(job.asked);
    Record(*entry, job.text, job.origin, owner ? *owner->origin : std::string());
    Answer(job.asker, ReplyLine(job.asker.id, DeviceStack::SetValueResult{entry->change}));
}

void Core::AskToRead(const Asker& asker, DataPointEntry& entry) {
    const auto* owner = FindOwnerOrFail(asker, entry.point->owner);
    if (!owner)
        return;
    if (!owner->window.IsOpen())
        return Fail(asker, DeviceStack::kNotReady, "its owner has not finished its start");
    auto& job = m_reads[entry.Id()];
    const auto number = ++m_lastNumber;
    const auto dataPoint = entry.Id();
    const auto wait = asker.request.empty() ? kGetValueWait : kOwnerWait;
    job.waiters[number] = {asker, m_deadlines.Add(m_now.monotonic + wait, [this, dataPoint, number] {
                               auto& waiters = m_reads.at(dataPoint).waiters;
                               const auto waiter = waiters.extract(number);
                               CloseQuestion(waiter.mapped().asker.connection);
                               Fail(waiter.mapped().asker, DeviceStack::kNoAnswer,
                                    "its owner gave no answer in time");
                           })};
    OpenQuestion(asker.connection);
    // While a question is open, everybody waits for the same answer.
    if (job.ask == 0) {
        job.owner = owner->connection;
        SendRead(job, entry);
    }
}

void Core::SendRead(ReadJob& job, const DataPointEntry& entry) {
    const auto dataPoint = entry.Id();
    job.ask = ++m_lastNumber;
    m_readAsks[job.ask] = dataPoint;
    job.deadline =
        m_deadlines.Add(m_now.monotonic + kOwnerWait, [this, dataPoint] { OnReadJobEnds(dataPoint); });
    Send(job.owner, ToLine(std::to_string(job.ask), DeviceStack::ReadValue{dataPoint, entry.point->urn}));
}

/// The owner has not answered. Whoever asked later than it was asked gets a question of his own.
void Core::OnReadJobEnds(std::uint32_t dataPoint) {
    auto& job = m_reads.at(dataPoint);
    const auto* entry = m_store.FindById(dataPoint);
    m_readAsks.erase(job.ask);
    const bool late = std::any_of(job.waiters.begin(), job.waiters.end(), [&](const auto& waiter) {
        return waiter.second.deadline.due > m_now.monotonic;
    });
    if (late && entry)
        SendRead(job, *entry);
    else
        FailReads(dataPoint, DeviceStack::kNoAnswer, "its owner gave no answer in time");
}

Core::ReadJob Core::TakeRead(std::map<std::uint32_t, ReadJob>::iterator found) {
    auto job = std::move(found->second);
    m_reads.erase(found);
    m_readAsks.erase(job.ask);
    m_deadlines.Cancel(job.deadline);
    for (auto& [number, waiter] : job.waiters) {
        m_deadlines.Cancel(waiter.deadline);
        CloseQuestion(waiter.asker.connection);
    }
    return job;
}

void Core::FailReads(std::uint32_t dataPoint, int code, const std::string& message) {
    const auto found = m_reads.find(dataPoint);
    if (found == m_reads.end())
        return;
    const auto job = TakeRead(found);
    for (const auto& [number, waiter] : job.waiters)
        Fail(waiter.asker, code, message);
}

void Core::CompleteReads(DataPointEntry& entry, bool byOwner) {
    const auto found = m_reads.find(entry.Id());
    if (found == m_reads.end())
        return;
    if (entry.text.empty()) {
        if (byOwner)
            FailReads(entry.Id(), DeviceStack::kNoAnswer, "its owner has no value");
        return;
    }
    const auto job = TakeRead(found);
    for (const auto& [number, waiter] : job.waiters)
        AnswerValue(waiter.asker, entry);
}

/// The connection answers no more: what it was asked fails. Writes that it was not yet asked go on waiting.
void Core::DropOwner(Connection owner) {
    std::vector<std::uint64_t> writes;
    for (const auto& [number, job] : m_writes) {
        if (job.asked == owner)
            writes.push_back(number);
    }
    for (const auto number : writes)
        FailWrite(number, DeviceStack::kNotReady, "its owner has left");
    std::vector<std::uint32_t> reads;
    for (const auto& [dataPoint, job] : m_reads) {
        if (job.owner == owner)
            reads.push_back(dataPoint);
    }
    for (const auto dataPoint : reads)
        FailReads(dataPoint, DeviceStack::kNotReady, "its owner has left");
}

/// The application has finished its start: it hears what changed meanwhile, then what was written to it. Both
/// follow from its own announcement and are bounded, so they do not count as events.
void Core::OpenWindow(Client& client) {
    std::vector<DataPointEntry*> entries;
    for (const auto id : client.held) {
        if (auto* entry = m_store.FindById(id))
            entries.push_back(entry);
    }
    client.held.clear();
    std::sort(entries.begin(), entries.end(),
              [](const auto* a, const auto* b) { return a->change < b->change; });
    for (auto* entry : entries) {
        Line line;
        SendChange(client, *entry, line, IEnvironment::Kind::Answer);
    }
    SendWaitingWrites(client);
}

void Core::SendWaitingWrites(const Client& owner) {
    for (auto& [number, job] : m_writes) {
        if (job.asked == 0 && job.owner == *owner.origin)
            SendWrite(number, job, owner.connection, IEnvironment::Kind::Answer);
    }
    m_waitingWrites.erase(*owner.origin);
}

} // namespace DeviceStackServer
