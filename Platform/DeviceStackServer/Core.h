// The state machine of the device stack: what each message of a client does.
#pragma once

#include "DeviceStackProtocol/Messages.h"
#include "DeviceStackServer/Client.h"
#include "DeviceStackServer/DataPointStore.h"
#include "DeviceStackServer/DeadlineQueue.h"
#include "DeviceStackServer/DeviceClock.h"
#include "DeviceStackServer/IEnvironment.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace DeviceStackServer {

/// Data points, connections and what goes on between them. Opens no socket, reads no clock: lines and time
/// in, lines and wishes out. Not synchronised; IEnvironment is called from inside the operations.
class Core {
public:
    struct Settings {
        std::string server;  ///< names this run
        std::string version; ///< of the program; value of the data point 1001
        std::string deviceId;
        std::string configPath;     ///< directory of the project file
        Seconds clockInterval{600}; ///< 0 = the clock is not reported regularly
        std::size_t historyLimit = 16;
    };

    /// How long things are waited for.
    static constexpr Milliseconds kGetValueWait{1000};      ///< by the caller of getValue
    static constexpr Milliseconds kOwnerWait{2000};         ///< for an owner's answer
    static constexpr Milliseconds kStartWait{10000};        ///< by a write, for the owner's start
    static constexpr Milliseconds kRestartPause{10000};     ///< between two restarts
    static constexpr std::size_t kMaxWaitingWrites = 10000; ///< for the start of one owner

    /// With more open questions to owners, no further messages are taken from a connection, until half of
    /// them are answered: a fast writer never fills the queue of a slow owner.
    static constexpr std::size_t kMaxOpenQuestions = 256;

    Core(Settings settings, IEnvironment& environment, ValueCheck check, DeviceClock::ZoneOffset zoneOffset);

    /// Takes over a project; to be called once before everything else, later by ReloadProject(). "" or why
    /// the project is refused; the former one is then still in force.
    std::string SetProject(std::shared_ptr<const ProjectFile::Project> project, Instant now);

    /// Tells everybody that the project file was looked at; `result` is "ok" or the cause of its refusal.
    void AnnounceProject(const std::string& result, Instant now);

    void OnConnected(Connection connection, long pid);
    void OnLine(Connection connection, std::string_view line, Instant now);
    void OnDisconnected(Connection connection, Instant now);

    /// True while the connection has a question open or listens to events, so that it is worth keeping when
    /// its peer sends no more.
    bool IsWaiting(Connection connection);

    /// To be called at NextDeadline() and whenever the system clock was set or the zone's offset changed.
    void OnTimer(Instant now);
    std::optional<Milliseconds> NextDeadline() const { return m_deadlines.Next(); }
    const DeviceClock& Clock() const { return m_clock; }

    /// What was read from the state files; before SetProject().
    void Restore(StateImage image) { m_stored = std::move(image); }

    /// What belongs into the state files.
    const StateImage& CurrentState();

private:
    /// Who waits for an answer: a getValue or setValue, or a requestValue.
    struct Asker {
        Connection connection = 0;
        std::string id;              // of the message; "" for a notification
        std::string request;         // of a requestValue; its answer comes as a notification
        std::uint32_t dataPoint = 0; // with `request`, as is the next
        std::string urn;
    };

    /// A write on its way to the owner. One that the owner did not answer in time is kept without its asker:
    /// the owner may have done it all the same, and says so later.
    struct WriteJob {
        Asker asker;
        SharedText origin; // who wrote
        std::uint32_t dataPoint = 0;
        std::string urn;
        std::string text;
        std::string owner;    // identity
        Connection asked = 0; // of the owner, once it was asked; 0: the write waits for its start
        DeadlineQueue::Token deadline;
    };

    /// A data point whose owner was asked for its value.
    struct ReadJob {
        struct Waiter {
            Asker asker;
            DeadlineQueue::Token deadline;
        };
        std::uint64_t ask = 0; // number of the request to the owner
        Connection owner = 0;
        DeadlineQueue::Token deadline;
        std::map<std::uint64_t, Waiter> waiters;
    };

    // Core.cpp
    void Answer(const Asker& asker, std::string line);
    void Fail(const Asker& asker, int code, std::string message);
    void Send(Connection connection, std::string line, IEnvironment::Kind kind = IEnvironment::Kind::Event);
    void SendToListeners(const std::string& line, Connection except);
    void Handle(Client& client, const std::string& id, const DeviceStack::Error& error);
    void Handle(Client& client, const std::string& id, const DeviceStack::Reply& reply);

    // CoreRegistration.cpp
    void Handle(Client& client, const std::string& id, const DeviceStack::Register& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::Subscribe& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::SetValueFormat& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::GetConfiguration& message);
    bool ClaimIdentity(Client& client, const Asker& asker, const std::string& identity);
    void Resume(Client& client, const std::optional<std::uint64_t>& lastChange, const std::string& server);
    void UpdateReady();

    // CoreValues.cpp
    void Handle(Client& client, const std::string& id, const DeviceStack::SetValue& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::GetValue& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::RequestValue& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::GetUrn& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::GetId& message);
    bool Serves(const Client& client, const ProjectFile::DataPoint& point) const;
    DataPointEntry* FindOrFail(const Asker& asker, const DeviceStack::DataPointName& name);
    void Get(Client& client, const Asker& asker, const DeviceStack::DataPointName& name, bool readInternal);
    void AnswerValue(const Asker& asker, DataPointEntry& entry);
    std::string CheckText(const DeviceStack::SetValue& message, const ProjectFile::DataPoint& point,
                          bool serves, std::string& text) const;
    void Record(DataPointEntry& entry, std::string text, SharedText origin, const std::string& knownTo = {});
    void Publish(DataPointEntry& entry);
    void SendChange(Client& client, DataPointEntry& entry, Line& line, IEnvironment::Kind kind);

    // CoreOwners.cpp
    void AskToWrite(Client& client, const Asker& asker, DataPointEntry& entry, std::string text);
    void AskToRead(const Asker& asker, DataPointEntry& entry);
    void SendWrite(std::uint64_t number, WriteJob& job, Connection owner, IEnvironment::Kind kind);
    void OnWriteLate(std::uint64_t number);
    void DropLateWrite(std::uint32_t dataPoint, std::uint64_t before);
    void SendWaitingWrites(const Client& owner);
    void SendRead(ReadJob& job, const DataPointEntry& entry);
    void OnReadJobEnds(std::uint32_t dataPoint);
    void OnWriteAnswer(std::uint64_t number, bool handled);
    void CompleteReads(DataPointEntry& entry, bool byOwner);
    void FailReads(std::uint32_t dataPoint, int code, const std::string& message);
    void FailWrite(std::uint64_t number, int code, std::string message);
    WriteJob TakeWrite(std::map<std::uint64_t, WriteJob>::iterator found);
    ReadJob TakeRead(std::map<std::uint32_t, ReadJob>::iterator found);
    void DropOwner(Connection owner);
    void OpenQuestion(Connection asker);
    void CloseQuestion(Connection asker);
    void OpenWindow(Client& client);
    Client* FindOwner(const std::string& identity);
    Client* FindOwnerOrFail(const Asker& asker, const std::string& identity);

    // CoreCommands.cpp
    void Handle(Client& client, const std::string& id, const DeviceStack::Command& message);
    void Handle(Client& client, const std::string& id, const DeviceStack::SetConfiguration& message);
    void EmitEvent(Client& client, const Asker& asker, const DeviceStack::Command& message);
    void OnApplicationEvent(Client& client, const std::string& eventType);
    void TryRestart(Client& client, const Asker& asker, std::string answer);
    void AnswerProcessView(const Client& client, const Asker& asker);
    void AnswerHistory(Client& client, const Asker& asker, const DeviceStack::Command& message);

    // CoreClock.cpp
    void SetClock(Client& client, const Asker& asker, const std::string& text);
    void ReportClock(const SharedText& origin);
    void ScheduleClock();
    void RefreshClock(DataPointEntry& entry) const;

    const Settings m_settings;
    IEnvironment& m_environment;
    const ValueCheck m_check;
    const SharedText m_self; // origin of what the device stack writes
    DeviceClock m_clock;
    DataPointStore m_store;
    StateImage m_stored;
    ClientTable m_clients;
    DeadlineQueue m_deadlines;
    std::map<std::uint64_t, WriteJob> m_writes; // by the number of the request to the owner
    std::map<std::string, std::size_t>
        m_waitingWrites; // by owner, those in m_writes that it was not yet asked
    std::map<std::uint32_t, std::uint64_t> m_lateWrites; // by data point, those in m_writes without an asker
    std::map<std::uint32_t, ReadJob> m_reads;            // by data point
    std::map<std::uint64_t, std::uint32_t> m_readAsks;   // number of the request -> data point
    std::uint64_t m_lastNumber = 0;                      // of requests, waiters and requestValue texts
    std::optional<Milliseconds> m_lastRestart;
    DeadlineQueue::Token m_clockReport;
    Instant m_now; // of the operation that runs
};

} // namespace DeviceStackServer
