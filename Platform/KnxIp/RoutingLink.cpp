#include "KnxIp/RoutingLink.h"

#include "KnxIp/BusyPause.h"
#include "KnxIp/OverloadReports.h"
#include "KnxIp/SendQueue.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace KnxIp {
namespace {

using KnxFrames::FrameError;
using KnxFrames::LData;
using KnxFrames::MessageCode;
using std::chrono::milliseconds;

constexpr unsigned kHighestRate = 1000;

/// The datagrams that were sent last, to know them again.
class SentDatagrams {
public:
    void Add(TimePoint now, const Datagram& datagram) {
        m_entries[m_next] = {datagram, now + RoutingLink::kEchoTime};
        m_next = (m_next + 1) % m_entries.size();
    }

    struct Entry {
        Datagram datagram;
        TimePoint until{};
    };

    /// One of them with this content, null without.
    Entry* Find(TimePoint now, Octets datagram) {
        const auto found = std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& each) {
            return now < each.until && std::ranges::equal(each.datagram.View(), datagram);
        });
        return found == m_entries.end() ? nullptr : &*found;
    }

private:
    std::array<Entry, 128> m_entries; // more than come back late on any machine
    std::size_t m_next = 0;
};

} // namespace

class RoutingLink::Implementation {
public:
    Implementation(RoutingLinkConfig config, RoutingLinkListener& listener)
        : m_config(std::move(config)), m_listener(listener), m_queue(m_config.queueLimit) {
        if (!m_config.group.IsSpecified() || m_config.group.address >> 28 != 0xE)
            throw std::invalid_argument("routing needs a multicast group with a port");
        if (m_config.rate == 0 || m_config.rate > kHighestRate)
            throw std::invalid_argument("the rate of routing is not 1 to 1000 telegrams a second");
        if (m_config.queueLimit == 0)
            throw std::invalid_argument("the queue limit of routing is 0");
    }

    void OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
        auto frame = ReadFrame(datagram);
        if (!frame) {
            m_listener.OnRefusedDatagram(from, frame.Error());
            return;
        }
        if (auto* sent = m_sent.Find(now, datagram); sent != nullptr && m_listener.IsOwnEndpoint(from)) {
            sent->until = {}; // it comes back once
            ++m_counters.own;
            return;
        }
        std::visit([&](const auto& content) { On(now, from, content); }, *frame);
    }

    void OnTime(TimePoint now) {
        SendLost(now);
        SendWaiting(now);
    }

    std::optional<TimePoint> NextTime() const {
        const auto lost = m_overload.NextLost();
        if (m_queue.IsEmpty())
            return lost;
        const auto next = std::max(m_nextSend, m_pause.Until());
        return lost ? std::min(*lost, next) : next;
    }

    void ReportBusy(TimePoint now) {
        if (!m_overload.TakeBusy(now))
            return;
        ++m_counters.pauses;
        RoutingBusy busy;
        busy.waitTime = static_cast<std::uint16_t>(kBusyWait.count());
        SendToGroup(now, WriteFrame(busy));
    }

    void ReportLost(TimePoint now, unsigned count) {
        m_counters.lostHere += count;
        m_overload.AddLost(count);
        SendLost(now);
    }

    bool Send(TimePoint now, const LData& telegram) {
        LData indication = telegram;
        indication.code = MessageCode::LDataInd;
        const SendQueue::PushResult pushed = m_queue.Push(indication);
        if (pushed.wasFull) {
            ++m_counters.dropped;
            if (pushed.beginsBurst)
                m_listener.OnQueueOverflow();
        }
        SendWaiting(now);
        return pushed.isIn;
    }

    std::size_t Waiting() const { return m_queue.Size(); }
    const RoutingLinkCounters& Counters() const { return m_counters; }

private:
    void On(TimePoint, const Endpoint& from, const RoutingIndication& indication) {
        const auto telegram = KnxFrames::ParseLData(indication.cemi);
        if (!telegram) {
            m_listener.OnRefusedDatagram(from, telegram.Error());
        } else if (telegram->code != MessageCode::LDataInd) {
            m_listener.OnRefusedDatagram(from, FrameError::Unsupported("a router sent no L_Data.ind", 0));
        } else {
            ++m_counters.received;
            m_listener.OnTelegram(*telegram);
        }
    }

    void On(TimePoint now, const Endpoint& from, const RoutingBusy& busy) {
        if (busy.control != 0)
            return;
        ++m_counters.busy;
        const milliseconds wait(busy.waitTime);
        m_pause.OnBusy(now, wait, m_config.random ? m_config.random() : 0.0);
        m_listener.OnBusy(from, wait);
    }

    void On(TimePoint, const Endpoint& from, const RoutingLostMessage& message) {
        m_counters.lost += message.lost;
        m_listener.OnLostMessages(from, message.lost);
    }

    /// Searches come to the same group, and are the server's affair.
    template <class T>
    void On(TimePoint, const Endpoint& from, const T&) {
        m_listener.OnRefusedDatagram(from, FrameError::Unsupported("the frame is none of routing", 2));
    }

    void SendWaiting(TimePoint now) {
        // At most one: the next is due later.
        if (m_queue.IsEmpty() || now < m_nextSend || now < m_pause.Until())
            return;
        const LData telegram = m_queue.Pop().telegram;
        if (m_queue.IsEmpty())
            m_queue.EndBurst();
        Datagram datagram;
        WriteRoutingIndication(telegram, datagram);
        m_nextSend = now + std::chrono::microseconds(1'000'000 / m_config.rate);
        ++m_counters.sent;
        SendToGroup(now, datagram);
    }

    void SendLost(TimePoint now) {
        if (const auto lost = m_overload.TakeLost(now); lost != 0)
            SendToGroup(now, WriteFrame(RoutingLostMessage{0, lost}));
    }

    void SendToGroup(TimePoint now, const Datagram& datagram) {
        m_sent.Add(now, datagram);
        m_listener.SendDatagram(m_config.group, datagram);
    }

    const RoutingLinkConfig m_config;
    RoutingLinkListener& m_listener;
    SendQueue m_queue;
    TimePoint m_nextSend{}; // not before
    BusyPause m_pause;
    OverloadReports m_overload;
    SentDatagrams m_sent;
    RoutingLinkCounters m_counters;
};

RoutingLink::RoutingLink(RoutingLinkConfig config, RoutingLinkListener& listener)
    : m_implementation(std::make_unique<Implementation>(std::move(config), listener)) {}

RoutingLink::~RoutingLink() = default;

void RoutingLink::OnDatagram(TimePoint now, const Endpoint& from, Octets datagram) {
    m_implementation->OnDatagram(now, from, datagram);
}

void RoutingLink::OnTime(TimePoint now) {
    m_implementation->OnTime(now);
}

std::optional<TimePoint> RoutingLink::NextTime() const {
    return m_implementation->NextTime();
}

bool RoutingLink::Send(TimePoint now, const LData& telegram) {
    return m_implementation->Send(now, telegram);
}

void RoutingLink::ReportBusy(TimePoint now) {
    m_implementation->ReportBusy(now);
}

void RoutingLink::ReportLost(TimePoint now, unsigned count) {
    m_implementation->ReportLost(now, count);
}

std::size_t RoutingLink::Waiting() const {
    return m_implementation->Waiting();
}

const RoutingLinkCounters& RoutingLink::Counters() const {
    return m_implementation->Counters();
}

} // namespace KnxIp
