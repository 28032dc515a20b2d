// The multicast bus against any datagrams in any time.

#include "Script.h"

#include "KnxIp/RoutingLink.h"

namespace {

using namespace KnxIp;

class Host : public RoutingLinkListener {
public:
    Host() : m_link(Config(), *this) {}

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        const auto frame = ReadFrame(datagram);
        Fuzz::Check(to == Config().group && static_cast<bool>(frame));
        if (std::holds_alternative<RoutingBusy>(*frame))
            CheckPause(m_lastBusy, RoutingLink::kBusyWait);
        else if (std::holds_alternative<RoutingLostMessage>(*frame))
            CheckPause(m_lastLost, RoutingLink::kLostPause);
        else
            CheckPause(m_lastSent, std::chrono::milliseconds(20));
    }
    void OnTelegram(const KnxFrames::LData& telegram) override {
        Fuzz::Check(telegram.code == KnxFrames::MessageCode::LDataInd);
        m_link.Send(m_now, telegram);
    }
    void OnLostMessages(const Endpoint&, std::uint16_t) override {}
    void OnBusy(const Endpoint&, std::chrono::milliseconds) override {}
    void OnQueueOverflow() override {}
    void OnRefusedDatagram(const Endpoint&, const KnxFrames::FrameError&) override {}
    bool IsOwnEndpoint(const Endpoint& from) override { return from.address == 0xC0A80100; }

    /// Actors 0 to 2 are members of the group, 0 this one itself; 3 sends a telegram, or cannot keep up:
    /// nothing asks for a pause, one octet is how many were lost.
    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_link, m_now, step.pause);
        if (step.actor != 3)
            m_link.OnDatagram(m_now, {0xC0A80100 + step.actor, 3671}, step.octets);
        else if (step.octets.empty())
            m_link.ReportBusy(m_now);
        else if (step.octets.size() == 1)
            m_link.ReportLost(m_now, step.octets[0] * 1000U);
        else if (const auto telegram = KnxFrames::ParseLData(step.octets))
            m_link.Send(m_now, *telegram);
        Fuzz::Check(m_link.Waiting() <= kQueueLimit);
    }

    /// Everything leaves in the end: the longest silence is known, however many have asked for it, and losses
    /// are told a second apart.
    void Finish() {
        while (const auto next = m_link.NextTime()) {
            m_now = std::max(m_now, *next);
            const auto waiting = m_link.Waiting();
            const auto lastLost = m_lastLost;
            m_link.OnTime(m_now);
            Fuzz::Check(m_link.Waiting() + 1 == waiting || m_lastLost != lastLost);
        }
    }

private:
    void CheckPause(TimePoint& last, std::chrono::milliseconds pause) const {
        Fuzz::Check(m_now - last >= pause);
        last = m_now;
    }

    static constexpr std::size_t kQueueLimit = 3;

    static RoutingLinkConfig Config() {
        RoutingLinkConfig config;
        config.queueLimit = kQueueLimit;
        config.random = [] { return 1.0; };
        return config;
    }

    TimePoint m_now{std::chrono::hours(1)};
    TimePoint m_lastSent{};
    TimePoint m_lastBusy{};
    TimePoint m_lastLost{};
    RoutingLink m_link;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::Play<Host>(data, size);
}
