// The multicast bus against any datagrams in any time.

#include "Script.h"

#include "KnxIp/RoutingLink.h"

namespace {

using namespace KnxIp;

class Host : public RoutingLinkListener {
public:
    Host() : m_link(Config(), *this) {}

    void SendDatagram(const Endpoint& to, Octets datagram) override {
        Fuzz::Check(to == Config().group && static_cast<bool>(ReadFrame(datagram)));
        Fuzz::Check(m_now - m_lastSent >= std::chrono::milliseconds(20));
        m_lastSent = m_now;
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

    /// Actors 0 to 2 are members of the group, 0 this one itself; 3 sends a telegram.
    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_link, m_now, step.pause);
        if (step.actor != 3)
            m_link.OnDatagram(m_now, {0xC0A80100 + step.actor, 3671}, step.octets);
        else if (const auto telegram = KnxFrames::ParseLData(step.octets))
            m_link.Send(m_now, *telegram);
        Fuzz::Check(m_link.Waiting() <= kQueueLimit);
    }

    /// Everything leaves in the end: the longest silence is known, however many have asked for it.
    void Finish() {
        while (const auto next = m_link.NextTime()) {
            m_now = std::max(m_now, *next);
            const auto waiting = m_link.Waiting();
            m_link.OnTime(m_now);
            Fuzz::Check(m_link.Waiting() + 1 == waiting);
        }
    }

private:
    static constexpr std::size_t kQueueLimit = 3;

    static RoutingLinkConfig Config() {
        RoutingLinkConfig config;
        config.queueLimit = kQueueLimit;
        config.random = [] { return 1.0; };
        return config;
    }

    TimePoint m_now{std::chrono::hours(1)};
    TimePoint m_lastSent{};
    RoutingLink m_link;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Host host;
    Octets input(data, size);
    while (const auto step = Fuzz::TakeStep(input))
        host.Do(*step);
    host.Finish();
    return 0;
}
