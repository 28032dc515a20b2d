#include "KnxStackHost/Links/LinkThread.h"

#include "KnxDevice/GroupTraffic.h"
#include "KnxDevice/StartupReads.h"
#include "KnxStackHost/Control/HostControl.h"
#include "KnxStackHost/Device/LocalManagement.h"
#include "KnxStackHost/ExceptionText.h"
#include "KnxStackHost/Links/InterfaceLink.h"
#include "KnxStackHost/Links/NetworkChanges.h"
#include "KnxStackHost/Links/NetworkPlace.h"
#include "KnxStackHost/Links/RoutingBus.h"
#include "KnxStackHost/Links/ServerLink.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <csignal>
#include <list>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace KnxStackHost {

namespace asio = boost::asio;
using KnxFrames::LData;

namespace {

constexpr std::size_t kOutgoingLimit = 4096;

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

bool IsReadRequest(const LData& telegram) {
    const auto service = KnxFrames::ReadGroupService(telegram.tpdu);
    return service && service->kind == KnxFrames::GroupServiceKind::Read;
}

} // namespace

class LinkThread::Implementation final : private BusPorts {
public:
    explicit Implementation(const Configuration& configuration) : m_configuration(configuration) {}

    void Open(const KnxDevice::GroupObjects& objects, DeviceManagement& management,
              std::function<void(Callback)> toProgram, Requests requests) {
        m_networkChanges.Start(); // before anything asks what is there
        m_toProgram = std::move(toProgram);
        m_requests = std::move(requests);
        m_management = &management;
        m_objects = &objects;
        m_router.emplace(management.Address(), m_configuration.server.tunnels, objects,
                         static_cast<BusPorts&>(*this));
        if (m_configuration.server.enabled)
            m_server.emplace(
                m_context, m_configuration,
                [this](std::uint8_t tunnel, const LData& telegram) {
                    m_router->FromTunnel(tunnel, telegram);
                },
                [this](std::uint8_t tunnel) { m_router->OnTunnelClosed(tunnel); });
        if (m_configuration.interface)
            OpenInterface();
        if (m_configuration.routing)
            OpenRouting();
        FindPlace();
        management.SetIpFacts([this] { return GetIpFacts(); });
        if (m_server) {
            m_server->ManageBy({[this](const KnxFrames::ManagementMessage& request) {
                                    return AnswerManagement(m_management->Properties(),
                                                            m_management->Device().FreeLevel(), request);
                                },
                                [this] { m_management->Restart(); }});
        }
        OnDeviceChanged();
        m_control.emplace(m_context, m_configuration, management, *m_router,
                          HostControl::Sources{m_requests.status, [this] { return GetLinksStatus(); }});
        m_signals.emplace(m_context, SIGTERM, SIGINT, SIGHUP);
        m_signals->add(SIGUSR1);
        m_signals->add(SIGUSR2);
    }

    std::uint16_t Port() const { return m_server ? m_server->Port() : 0; }

    void Start() {
        WaitForSignal();
        if (m_server)
            m_server->Start();
        if (m_interface)
            m_interface->Start();
        if (m_routing)
            m_routing->Start();
        m_control->Start();
    }

    void Run() {
        while (!m_context.stopped()) {
            try {
                m_context.run();
            } catch (...) {
                LOG4CPLUS_ERROR(Log(), fmt::format("link thread: {}", CurrentExceptionText()));
            }
        }
    }

    void Close() {
        asio::post(m_context, [this] {
            m_context.stop(); // whatever the rest throws
            SendOutgoing();
            m_control->Stop();
            if (m_server)
                m_server->Stop();
            if (m_interface)
                m_interface->Stop();
            if (m_routing)
                m_routing->Stop();
            m_router->ReportCounts();
        });
    }

    /// Not at once: what is being passed on, and its confirmation, come first.
    void SendFromDevice(const LData& telegram) {
        asio::post(m_context, [this, telegram] { m_router->FromManagement(telegram); });
    }

    void BeginStartupReads() {
        m_reads.Begin(*m_objects->Tables());
        m_readsReported = m_reads.IsIdle();
        m_readsDeadline.Set(std::chrono::steady_clock::now());
    }

    void OnDeviceChanged() {
        m_router->SetOwnAddress(m_management->Address());
        if (!m_server)
            return;
        m_server->SetDevice(m_management->Device(), !GetIpFacts().busIsUnreachable);
        for (const auto& each : m_news.Take(m_management->Properties(), m_management->Device().FreeLevel()))
            m_server->Announce(each);
    }

    void SetAddressBook(AddressBook book) {
        asio::post(m_context,
                   [this, book = std::move(book)]() mutable { m_control->SetAddressBook(std::move(book)); });
    }

    void Post(std::function<void()> work) { asio::post(m_context, std::move(work)); }

    void After(std::chrono::milliseconds delay, std::function<void()> late) {
        asio::post(m_context, [this, delay, late = std::move(late)] {
            auto& timer = m_timers.emplace_back(m_context, delay);
            timer.async_wait([late](const boost::system::error_code& error) {
                if (!error)
                    late();
            });
        });
    }

    bool Submit(const LData& telegram, std::uint16_t sender) {
        bool first = false;
        {
            const std::lock_guard lock(m_outgoingMutex);
            if (m_outgoing.size() >= kOutgoingLimit)
                return false;
            first = m_outgoing.empty();
            m_outgoing.push_back({telegram, sender});
        }
        if (first)
            asio::post(m_context, [this] { SendOutgoing(); });
        return true;
    }

private:
    struct Outgoing {
        LData telegram;
        std::uint16_t sender;
    };

    void OpenInterface() {
        m_interface.emplace(m_context, m_configuration,
                            [this](const LData& telegram) { m_router->FromInterface(telegram); });
        m_interface->TellOfConnections([this] { OnDeviceChanged(); });
    }

    void OpenRouting() {
        if (m_server)
            m_server->ShareAddress(true); // with the group, which may have the same port
        m_routing.emplace(m_context, m_configuration, [this](const LData& telegram) { FromGroup(telegram); });
        if (m_server)
            m_server->ShareAddress(false);
    }

    void FromGroup(const LData& telegram) {
        m_backlog = {};
        m_router->FromInterface(telegram);
        m_routing->OnPassedOn(m_backlog);
    }

    void ToTunnels(const LData& telegram, std::optional<std::uint8_t> except) override {
        if (m_server)
            m_backlog |= m_server->Broadcast(telegram, except);
    }

    void ToTunnel(const LData& telegram, std::uint8_t tunnel) override {
        if (m_server)
            m_backlog |= m_server->Send(telegram, tunnel);
    }

    void ToInterface(const LData& telegram) override {
        if (m_interface)
            m_interface->Send(telegram);
        if (m_routing)
            m_routing->Send(telegram);
    }

    void ToProgram(Callback callback) override {
        if (!m_reads.IsIdle() && callback.kind != KnxFrames::GroupServiceKind::Read)
            OnValue(callback.object);
        m_toProgram(std::move(callback));
    }

    /// The object has a value now: it need not be asked for any more.
    void OnValue(std::uint16_t object) {
        m_reads.OnValue(object);
        m_readsDeadline.Set(std::chrono::steady_clock::now());
    }

    /// Somebody is there who may answer.
    bool IsOnBus() const {
        return (m_routing && m_routing->IsJoined()) || (m_interface && m_interface->IsConnected()) ||
               (m_server && m_server->HasClients());
    }

    std::optional<TimePoint> OnReadsTime() {
        constexpr std::chrono::seconds kLookAgain{1}; // while there is no bus
        const auto now = std::chrono::steady_clock::now();
        if (!m_reads.IsIdle() && !IsOnBus())
            return now + kLookAgain;
        while (const auto object = m_reads.Next(now)) {
            LData telegram;
            if (KnxDevice::ComposeStartupRead(*m_objects->Tables(), *object, telegram) ==
                KnxDevice::SendOutcome::Composed)
                m_router->FromDevice(telegram, *object);
        }
        if (m_reads.IsIdle() && !std::exchange(m_readsReported, true)) {
            const auto& result = m_reads.Result();
            LOG4CPLUS_INFO(Log(),
                           fmt::format("of {} values to be read at the start, {} are known and {} were "
                                       "not answered",
                                       result.wanted, result.known, result.unanswered));
        }
        return m_reads.NextTime(now);
    }

    void ToManagement(const LData& telegram) override {
        m_management->OnTelegram(std::chrono::steady_clock::now(), telegram);
        m_managementDeadline.Set(m_management->NextTime());
    }

    void ToMonitor(const LData& telegram, Origin origin) override { m_control->OnTelegram(telegram, origin); }

    /// Asks the kernel, which takes too long for each change of the device.
    void FindPlace() { m_place = NetworkPlaceOf(m_server ? m_server->Address() : 0); }

    void OnNetworkChanged() {
        FindPlace();
        if (m_server)
            m_server->OnNetworkChanged(m_place);
        if (m_routing)
            m_routing->OnNetworkChanged();
        OnDeviceChanged(); // its place, and whether the bus can be reached
    }

    LinksStatus GetLinksStatus() const {
        LinksStatus status;
        if (m_server)
            status.server = m_server->Status();
        if (m_interface)
            status.interface = m_interface->Status();
        if (m_routing)
            status.routing = m_routing->Status();
        status.bus = m_router->Counts();
        return status;
    }

    KnxDevice::IpFacts GetIpFacts() const {
        KnxDevice::IpFacts facts;
        if (m_server)
            facts = m_server->Facts();
        facts.place = m_place;
        if (m_interface) {
            const auto status = m_interface->Status();
            facts.busIsUnreachable = !status.connected;
            facts.sentToBus = status.counters.sent;
            facts.lostToBus = status.counters.dropped;
        }
        if (m_routing) {
            const auto status = m_routing->Status();
            facts.busIsUnreachable = !m_routing->IsJoined();
            facts.sentToBus = status.counters.sent;
            facts.lostToBus = status.counters.dropped;
        }
        return facts;
    }

    std::optional<TimePoint> OnManagementTime() {
        m_management->OnTime(std::chrono::steady_clock::now());
        return m_management->NextTime();
    }

    void SendOutgoing() {
        std::vector<Outgoing> outgoing;
        {
            const std::lock_guard lock(m_outgoingMutex);
            outgoing.swap(m_outgoing);
        }
        for (const auto& each : outgoing) {
            try {
                if (!m_reads.IsIdle() && !IsReadRequest(each.telegram))
                    OnValue(each.sender);
                m_router->FromDevice(each.telegram, each.sender);
            } catch (...) {
                LOG4CPLUS_ERROR(Log(),
                                fmt::format("{}: could not be passed on: {}",
                                            KnxFrames::Describe(each.telegram), CurrentExceptionText()));
            }
        }
    }

    void WaitForSignal() {
        m_signals->async_wait([this](const boost::system::error_code& error, int signal) {
            if (error)
                return;
            WaitForSignal(); // first: what follows may throw
            LOG4CPLUS_INFO(Log(), fmt::format("received SIG{}", ::sigabbrev_np(signal)));
            switch (signal) {
            case SIGHUP: m_requests.reload(); break;
            case SIGUSR1: m_requests.restartDevice(); break;
            case SIGUSR2: m_management->SetProgrammingMode(!m_management->IsInProgrammingMode()); break;
            default: m_requests.terminate();
            }
        });
    }

    const Configuration& m_configuration;
    std::function<void(Callback)> m_toProgram;
    Requests m_requests;

    asio::io_context m_context{1};
    std::optional<asio::signal_set> m_signals;
    std::list<asio::steady_timer> m_timers;
    DeviceManagement* m_management = nullptr;
    Deadline m_managementDeadline{m_context, [this] { return OnManagementTime(); }};
    const KnxDevice::GroupObjects* m_objects = nullptr;
    KnxDevice::StartupReads m_reads;
    bool m_readsReported = true;
    Deadline m_readsDeadline{m_context, [this] { return OnReadsTime(); }};
    std::optional<BusRouter> m_router;
    std::optional<ServerLink> m_server;
    PropertyNews m_news;
    KnxIp::Backlog m_backlog; // of what the telegram of the group that is being passed on went into
    std::optional<InterfaceLink> m_interface; // at most one of these two
    std::optional<RoutingBus> m_routing;
    KnxDevice::IpPlace m_place;
    NetworkChanges m_networkChanges{m_context, [this] { OnNetworkChanged(); }};
    std::optional<HostControl> m_control; // opened last

    std::mutex m_outgoingMutex; // guards m_outgoing
    std::vector<Outgoing> m_outgoing;
};

LinkThread::LinkThread(const Configuration& configuration)
    : m_implementation(std::make_unique<Implementation>(configuration)) {}

LinkThread::~LinkThread() = default;

void LinkThread::Open(const KnxDevice::GroupObjects& objects, DeviceManagement& management,
                      std::function<void(Callback)> toProgram, Requests requests) {
    m_implementation->Open(objects, management, std::move(toProgram), std::move(requests));
}

std::uint16_t LinkThread::Port() const {
    return m_implementation->Port();
}

void LinkThread::Start() {
    m_implementation->Start();
}

void LinkThread::Run() {
    m_implementation->Run();
}

void LinkThread::Close() {
    m_implementation->Close();
}

void LinkThread::SendFromDevice(const LData& telegram) {
    m_implementation->SendFromDevice(telegram);
}

void LinkThread::BeginStartupReads() {
    m_implementation->BeginStartupReads();
}

void LinkThread::OnDeviceChanged() {
    m_implementation->OnDeviceChanged();
}

void LinkThread::SetAddressBook(AddressBook book) {
    m_implementation->SetAddressBook(std::move(book));
}

void LinkThread::Post(std::function<void()> work) {
    m_implementation->Post(std::move(work));
}

void LinkThread::After(std::chrono::milliseconds delay, std::function<void()> late) {
    m_implementation->After(delay, std::move(late));
}

bool LinkThread::Submit(const LData& telegram, std::uint16_t sender) {
    return m_implementation->Submit(telegram, sender);
}

} // namespace KnxStackHost
