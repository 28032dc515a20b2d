#include "DeviceStackServer/Core.h"

#include <fmt/format.h>

#include <algorithm>

namespace DeviceStackServer {

/// The application that is to be asked; when it is not there, the asker is told and the result is null.
Client* Core::ReadyOwner(const Asker& asker, const std::string& owner) {
    auto* client = m_clients.FindIdentity(owner);
    if (client && client->field)
        return client;
    Fail(asker, DeviceStack::kNotReady, fmt::format("its owner {} is not connected", owner));
    return nullptr;
}

void Core::AskToWrite(Client& client, const Asker& asker, DataPointEntry& entry, std::string text) {
    auto* owner = ReadyOwner(asker, entry.point->owner);
    if (!owner)
        return;
    if (!owner->window.IsOpen() && owner->waitingWrites >= kMaxWaitingWrites)
        return Fail(asker, DeviceStack::kNotReady,
                    fmt::format("too many writes wait for the start of {}", entry.point->owner));
    const auto number = ++m_lastNumber;
    auto& job = m_writes[number];
    job = {asker, client.origin, entry.Id(), entry.point->urn, std::move(text), owner->connection, false, {}};
    if (owner->window.IsOpen())
        return SendWrite(number, job);
    ++owner->waitingWrites;
    job.deadline = m_deadlines.Add(m_now.monotonic + kStartWait, [this, number] {
        FailWrite(number, DeviceStack::kNotReady, "its owner has not finished its start");
    });
}

void Core::SendWrite(std::uint64_t number, WriteJob& job) {
    job.asked = true;
    m_deadlines.Cancel(job.deadline);
    job.deadline = m_deadlines.Add(m_now.monotonic + kOwnerWait, [this, number] {
        FailWrite(number, DeviceStack::kNoAnswer, "its owner gave no answer in time");
    });
    Send(job.owner,
         ToLine(std::to_string(number), DeviceStack::WriteValue{job.dataPoint, job.urn, job.text}));
}

Core::WriteJob Core::TakeWrite(std::map<std::uint64_t, WriteJob>::iterator found) {
    auto job = std::move(found->second);
    m_writes.erase(found);
    m_deadlines.Cancel(job.deadline);
    if (auto* owner = m_clients.Find(job.owner); owner && !job.asked)
        --owner->waitingWrites;
    return job;
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
    const auto* owner = m_clients.Find(job.owner);
    Record(*entry, job.text, job.origin, owner ? *owner->origin : std::string());
    Answer(job.asker, ReplyLine(job.asker.id, DeviceStack::SetValueResult{entry->change}));
}

void Core::AskToRead(const Asker& asker, DataPointEntry& entry) {
    const auto* owner = ReadyOwner(asker, entry.point->owner);
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
                               Fail(waiter.mapped().asker, DeviceStack::kNoAnswer,
                                    "its owner gave no answer in time");
                           })};
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
    for (auto& [number, waiter] : job.waiters)
        m_deadlines.Cancel(waiter.deadline);
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

/// The connection answers no more: what waits for it fails.
void Core::DropOwner(Connection owner) {
    std::vector<std::uint64_t> writes;
    for (const auto& [number, job] : m_writes) {
        if (job.owner == owner)
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

/// The application has finished its start: it hears what changed meanwhile, then what was written to it.
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
        SendChange(client, *entry, line);
    }
    for (auto& [number, job] : m_writes) {
        if (job.owner == client.connection && !job.asked)
            SendWrite(number, job);
    }
    client.waitingWrites = 0;
}

} // namespace DeviceStackServer
