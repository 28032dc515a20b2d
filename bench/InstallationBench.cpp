// A whole installation over its sockets: telegrams through a tunnel, from the bus to somebody who watches a
// data point, a group read answered, from tunnel to tunnel. Beside them, in the same run, what the machine
// itself needs: a UDP round trip, a relay that only copies, and handing over between two threads.
#include "Installation.h"
#include "Sockets.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace Bench;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 3000;
constexpr std::uint16_t kCounterGroup = 5 << 11 | 0 << 8 | 2; // 5/0/2, Door.Count, two octets
constexpr std::uint16_t kStatusGroup = 0 << 11 | 2 << 8 | 2;  // 0/2/2, House.Status, may be read

struct Figure {
    double p50 = 0; // microseconds
    double p99 = 0;
};

/// Times `round` often; it returns when what is timed was over, and may tidy up after that. Rounds of the
/// figures are not interleaved, so quote ratios of one run only.
Figure Measure(const char* what, const std::function<Clock::time_point(int)>& round) {
    for (int warmUp = 0; warmUp < kRounds / 10; ++warmUp)
        round(warmUp);
    std::vector<double> microseconds;
    for (int number = 0; number < kRounds; ++number) {
        const auto start = Clock::now();
        microseconds.push_back(std::chrono::duration<double, std::micro>(round(number) - start).count());
    }
    std::sort(microseconds.begin(), microseconds.end());
    const Figure figure{microseconds[kRounds / 2], microseconds[kRounds * 99 / 100]};
    std::printf("%-58s %9.1f %9.1f\n", what, figure.p50, figure.p99);
    return figure;
}

/// Sends every datagram to `target`, or back to where it came from, until it gets an empty one.
class Relay {
public:
    explicit Relay(std::uint16_t target) : m_thread([this, target] { Run(target); }) {}
    ~Relay() {
        UdpSocket().SendTo(m_socket.Port(), {});
        m_thread.join();
    }
    std::uint16_t Port() const { return m_socket.Port(); }

private:
    void Run(std::uint16_t target) {
        for (;;) {
            std::uint16_t from = 0;
            const Octets datagram = m_socket.Receive(from);
            if (datagram.empty())
                return;
            m_socket.SendTo(target != 0 ? target : from, datagram);
        }
    }

    UdpSocket m_socket;
    std::thread m_thread;
};

Figure MeasureRoundTrip() {
    const Relay echo(0);
    UdpSocket socket;
    const Octets datagram(24);
    return Measure("UDP round trip on loopback", [&](int) {
        std::uint16_t from = 0;
        socket.SendTo(echo.Port(), datagram);
        socket.Receive(from);
        return Clock::now();
    });
}

Figure MeasureBareRelay() {
    UdpSocket sender;
    UdpSocket receiver;
    const Relay relay(receiver.Port());
    const Octets datagram(24);
    return Measure("UDP datagram through a bare relay", [&](int) {
        std::uint16_t from = 0;
        sender.SendTo(relay.Port(), datagram);
        receiver.Receive(from);
        return Clock::now();
    });
}

Figure MeasureHandOver() {
    std::mutex mutex;
    std::condition_variable changed;
    int turn = 0; // even: ours; odd: the other thread's; -1: end
    std::thread other([&] {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [&] { return turn % 2 != 0; });
            if (turn < 0)
                return;
            ++turn;
            changed.notify_one();
        }
    });
    const Figure figure = Measure("hand-over to a thread and back", [&](int) {
        std::unique_lock lock(mutex);
        ++turn;
        changed.notify_one();
        changed.wait(lock, [&] { return turn % 2 == 0; });
        return Clock::now();
    });
    {
        const std::lock_guard lock(mutex);
        turn = -1;
    }
    changed.notify_one();
    other.join();
    return figure;
}

Octets Counter(int number) {
    return {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

Figure MeasureTunnelRequest(const Installation& installation) {
    RawTunnel tunnel(installation.KnxPort());
    const Figure figure = Measure("group write until acknowledged and confirmed", [&](int number) {
        tunnel.Send(GroupWrite(kCounterGroup, Counter(number)));
        tunnel.AwaitConfirmation();
        return Clock::now();
    });
    std::printf("%-58s %9.0f\n", "telegrams per second through one tunnel", 1e6 / figure.p50);
    return figure;
}

Figure MeasureWatch(const Installation& installation) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0)
        return {};
    const Child watch({Program("dsctl"), "--socket", installation.Socket(), "--json", "watch", "Door.Count"},
                      pipeEnds[1]);
    close(pipeEnds[1]);
    LineSocket lines(pipeEnds[0]);
    std::this_thread::sleep_for(std::chrono::seconds(1)); // it subscribes
    RawTunnel tunnel(installation.KnxPort());
    return Measure("group write until the line of dsctl watch", [&](int number) {
        tunnel.Send(GroupWrite(kCounterGroup, Counter(number)));
        lines.ReadLine();
        const auto end = Clock::now();
        tunnel.AwaitConfirmation();
        return end;
    });
}

Figure MeasureSubscriber(const Installation& installation) {
    LineSocket lines(installation.Socket());
    lines.WriteLine(R"({"jsonrpc":"2.0","id":1,"method":"subscribe","params":{}})");
    lines.ReadLine();
    RawTunnel tunnel(installation.KnxPort());
    return Measure("group write until a subscriber hears the change", [&](int number) {
        tunnel.Send(GroupWrite(kCounterGroup, Counter(number)));
        while (lines.ReadLine().find("Door.Count") == std::string::npos) {
        }
        const auto end = Clock::now();
        tunnel.AwaitConfirmation();
        return end;
    });
}

Figure MeasureRead(const Installation& installation) {
    RawTunnel tunnel(installation.KnxPort());
    return Measure("group read until it is answered", [&](int) {
        tunnel.Send(GroupRead(kStatusGroup));
        tunnel.AwaitIndication();
        return Clock::now();
    });
}

Figure MeasureTunnelToTunnel(const Installation& installation) {
    RawTunnel sender(installation.KnxPort());
    RawTunnel receiver(installation.KnxPort());
    return Measure("group write until another tunnel has it", [&](int number) {
        sender.Send(GroupWrite(kCounterGroup, Counter(number)));
        receiver.AwaitIndication();
        const auto end = Clock::now();
        sender.AwaitConfirmation();
        return end;
    });
}

void Show(const char* what, double measured, double budget) {
    std::printf("%-58s %9.2f ", what, measured);
    if (budget > 0)
        std::printf("%9.2f%s\n", budget, measured <= budget ? "" : "  exceeded");
    else
        std::printf("%9s\n", "-");
}

} // namespace

int main() {
    signal(SIGPIPE, SIG_IGN);
    const Installation installation;
    std::printf("%-58s %9s %9s\n", "Microseconds", "p50", "p99");
    const Figure roundTrip = MeasureRoundTrip();
    const Figure bareRelay = MeasureBareRelay();
    const Figure handOver = MeasureHandOver();
    const Figure request = MeasureTunnelRequest(installation);
    const Figure subscriber = MeasureSubscriber(installation);
    const Figure watch = MeasureWatch(installation);
    const Figure read = MeasureRead(installation);
    const Figure relay = MeasureTunnelToTunnel(installation);

    std::printf("\n%-58s %9s %9s\n", "Ratio of p50", "measured", "budget");
    Show("tunnel request / round trip", request.p50 / roundTrip.p50, 0);
    Show("bus to a subscriber / round trip", subscriber.p50 / roundTrip.p50, 3);
    Show("bus to dsctl watch / round trip", watch.p50 / roundTrip.p50, 0);
    Show("read answered / round trip", read.p50 / roundTrip.p50, 3);
    Show("tunnel to tunnel / bare relay", relay.p50 / bareRelay.p50, 1.5);
    Show("hand-over / round trip", handOver.p50 / roundTrip.p50, 0);
    std::printf("\n%-58s %9ld KiB\n", "resident memory of the host", installation.HostResidentKiB());
    return 0;
}
