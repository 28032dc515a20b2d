#include "TunnelLoad.h"

#include "LoadTunnel.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <stdexcept>

namespace TunnelLoad {

namespace {

using std::chrono::seconds;

/// All tunnels on one thread.
class Load {
public:
    explicit Load(const Settings& settings);
    ~Load() { close(m_epoll); }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    Result Run();

private:
    static constexpr seconds kPatience{60};

    void Wait(TimePoint until);
    void Receive(Tunnel& tunnel);
    Result Summary(TimePoint start) const;

    const Settings m_settings;
    const int m_epoll;
    std::vector<std::unique_ptr<Tunnel>> m_tunnels; // writers first
    bool m_writes = true;
    TimePoint m_lastDatagram{};
    TimePoint m_lastConfirmation{};
};

Load::Load(const Settings& settings) : m_settings(settings), m_epoll(epoll_create1(EPOLL_CLOEXEC)) {
    std::vector<std::uint16_t> writers;
    for (unsigned index = 0; index < settings.writers + settings.listeners; ++index) {
        const bool writes = index < settings.writers;
        m_tunnels.push_back(std::make_unique<Tunnel>(settings, writes ? std::optional(index) : std::nullopt,
                                                     writes ? milliseconds(0) : settings.listenerPause));
        Tunnel& tunnel = *m_tunnels.back();
        if (writes)
            writers.push_back(tunnel.Address());
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = &tunnel;
        if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, tunnel.Descriptor(), &event) != 0)
            Fail("epoll");
    }
    for (const auto& tunnel : m_tunnels)
        tunnel->Know(writers);
}

Result Load::Run() {
    const auto start = Clock::now();
    m_lastConfirmation = start;
    for (unsigned writer = 0; writer < m_settings.writers; ++writer)
        m_tunnels[writer]->WriteNext(Clock::now());
    const auto end = start + m_settings.duration;
    while (Clock::now() < end)
        Wait(end);
    m_writes = false;
    for (const auto& tunnel : m_tunnels)
        tunnel->HurryUp();
    m_lastDatagram = Clock::now();
    const auto latest = m_lastDatagram + kPatience;
    while (Clock::now() < m_lastDatagram + m_settings.quiet) {
        if (Clock::now() > latest)
            throw std::runtime_error("a minute after the last number telegrams still come");
        Wait(m_lastDatagram + m_settings.quiet);
    }
    return Summary(start);
}

void Load::Wait(TimePoint until) {
    for (const auto& tunnel : m_tunnels) {
        tunnel->OnTime(Clock::now());
        if (const auto next = tunnel->NextTime())
            until = std::min(until, *next);
    }
    std::array<epoll_event, 64> events{};
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
    const int count = epoll_wait(m_epoll, events.data(), static_cast<int>(events.size()),
                                 static_cast<int>(std::max<std::int64_t>(0, left)));
    for (int index = 0; index < count; ++index)
        Receive(*static_cast<Tunnel*>(events[static_cast<std::size_t>(index)].data.ptr));
}

/// One datagram, then the others get their turn: whoever answers at once would have the server to itself.
void Load::Receive(Tunnel& tunnel) {
    std::array<std::uint8_t, 512> datagram;
    const auto size = recv(tunnel.Descriptor(), datagram.data(), datagram.size(), 0);
    if (size < 0)
        return;
    const auto now = Clock::now();
    m_lastDatagram = now;
    if (!tunnel.OnDatagram(now, Octets(datagram.data(), static_cast<std::size_t>(size))))
        return;
    m_lastConfirmation = now;
    if (m_writes)
        tunnel.WriteNext(Clock::now());
}

Result Load::Summary(TimePoint start) const {
    Result result;
    result.writing = m_lastConfirmation - start;
    std::vector<std::uint32_t> sent;
    for (unsigned writer = 0; writer < m_settings.writers; ++writer)
        sent.push_back(m_tunnels[writer]->Sent());
    for (const auto& tunnel : m_tunnels) {
        result.telegrams += tunnel->Sent();
        result.acknowledged.Add(tunnel->acknowledged);
        result.confirmed.Add(tunnel->confirmed);
        result.tunnels.push_back(tunnel->Finish(sent));
    }
    return result;
}

} // namespace

void Durations::Add(const Durations& others) {
    m_microseconds.insert(m_microseconds.end(), others.m_microseconds.begin(), others.m_microseconds.end());
}

double Durations::Percentile(int percent) const {
    if (m_microseconds.empty())
        return 0;
    auto sorted = m_microseconds;
    const auto place = std::min(sorted.size() - 1, sorted.size() * static_cast<std::size_t>(percent) / 100);
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(place), sorted.end());
    return static_cast<double>(sorted[place]);
}

Result Run(const Settings& settings) {
    return Load(settings).Run();
}

} // namespace TunnelLoad
