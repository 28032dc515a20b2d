// A whole installation over its sockets: telegrams through a tunnel, from the bus to somebody who watches a
// data point, a group read answered, from tunnel to tunnel. Beside them, in the same run, what the machine
// itself needs: a UDP round trip, a relay that only copies, and handing over between two threads.
#include "Figure.h"
#include "Installation.h"
#include "Placement.h"
#include "Relay.h"
#include "Sockets.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace {

using namespace Bench;
constexpr std::uint16_t kCounterGroup = 5 << 11 | 0 << 8 | 2; // 5/0/2, Door.Count, two octets
constexpr std::uint16_t kStatusGroup = 0 << 11 | 2 << 8 | 2;  // 0/2/2, House.Status, may be read

void MeasureBareRelay(Figure& figure) {
    UdpSocket sender;
    UdpSocket receiver;
    const Relay relay(receiver.Port());
    const Octets datagram(24);
    Measure(figure, [&](int) {
        std::uint16_t from = 0;
        sender.SendTo(relay.Port(), datagram);
        receiver.Receive(from);
        return Clock::now();
    });
}

void MeasureHandOver(Figure& figure) {
    std::mutex mutex;
    std::condition_variable changed;
    int turn = 0; // even: ours; odd: the other thread's; -1: end
    std::thread other([&] {
        RunOn(Side::Measured);
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [&] { return turn % 2 != 0; });
            if (turn < 0)
                return;
            ++turn;
            changed.notify_one();
        }
    });
    Measure(figure, [&](int) {
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
}

Octets Counter(int number) {
    return {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

void MeasureTunnelRequest(Figure& figure, const Installation& installation) {
    RawTunnel tunnel(installation.KnxPort());
    Measure(figure, [&](int number) {
        tunnel.Send(GroupWrite(kCounterGroup, Counter(number)));
        tunnel.AwaitConfirmation();
        return Clock::now();
    });
}

void MeasureWatch(Figure& figure, const Installation& installation) {
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    const Child watch(Side::Measuring,
                      {Program("dsctl"), "--socket", installation.Socket(), "--json", "watch", "Door.Count"},
                      pipeEnds[1]);
    close(pipeEnds[1]);
    LineSocket lines(pipeEnds[0]);
    std::this_thread::sleep_for(std::chrono::seconds(1)); // it subscribes
    RawTunnel tunnel(installation.KnxPort());
    Measure(figure, [&](int number) {
        tunnel.Send(GroupWrite(kCounterGroup, Counter(number)));
        lines.ReadLine();
        const auto end = Clock::now();
        tunnel.AwaitConfirmation();
        return end;
    });
}

/// Somebody who hears of every change in the device stack.
class Subscriber {
public:
    explicit Subscriber(const Installation& installation) : m_lines(installation.Socket()) {
        m_lines.WriteLine(R"({"jsonrpc":"2.0","id":1,"method":"subscribe","params":{}})");
        m_lines.ReadLine();
    }
    void AwaitCounter() {
        while (m_lines.ReadLine().find("Door.Count") == std::string::npos) {
        }
    }

private:
    LineSocket m_lines;
};

void MeasureSubscriber(Figure& figure, const Installation& installation) {
    Subscriber subscriber(installation);
    RawTunnel tunnel(installation.KnxPort());
    Measure(figure, [&](int number) {
        tunnel.Send(GroupWrite(kCounterGroup, Counter(number)));
        subscriber.AwaitCounter();
        const auto end = Clock::now();
        tunnel.AwaitConfirmation();
        return end;
    });
}

void MeasureRead(Figure& figure, const Installation& installation) {
    RawTunnel tunnel(installation.KnxPort());
    Measure(figure, [&](int) {
        tunnel.Send(GroupRead(kStatusGroup));
        tunnel.AwaitIndication();
        return Clock::now();
    });
}

void MeasureTunnelToTunnel(Figure& figure, const Installation& installation) {
    RawTunnel sender(installation.KnxPort());
    RawTunnel receiver(installation.KnxPort());
    Subscriber subscriber(installation);
    Measure(figure, [&](int number) {
        sender.Send(GroupWrite(kCounterGroup, Counter(number)));
        receiver.AwaitIndication();
        const auto end = Clock::now();
        sender.AwaitConfirmation();
        subscriber.AwaitCounter(); // the bare relay has nothing left to do either when its next round begins
        return end;
    });
}

void ShowRatio(const char* what, double measured, double budget) {
    std::printf("%-58s %9.2f ", what, measured);
    if (budget > 0)
        std::printf("%9.2f%s\n", budget, measured <= budget ? "" : "  exceeded");
    else
        std::printf("%9s\n", "-");
}

} // namespace

int main() {
    signal(SIGPIPE, SIG_IGN);
    RunOn(Side::Measuring);
    const Installation installation;
    Figure roundTrip;
    Figure bareRelay;
    Figure handOver;
    Figure request;
    Figure subscriber;
    Figure watch;
    Figure read;
    Figure relay;
    // In turn, block by block: whatever else the machine does meets all of them.
    for (int block = 0; block < kBlocks; ++block) {
        MeasureRoundTrip(roundTrip);
        MeasureBareRelay(bareRelay);
        MeasureHandOver(handOver);
        MeasureTunnelRequest(request, installation);
        MeasureSubscriber(subscriber, installation);
        MeasureWatch(watch, installation);
        MeasureRead(read, installation);
        MeasureTunnelToTunnel(relay, installation);
    }

    ShowHead();
    Show("UDP round trip on loopback", roundTrip);
    Show("UDP datagram through a bare relay", bareRelay);
    Show("hand-over to a thread and back", handOver);
    Show("group write until acknowledged and confirmed", request);
    Show("group write until a subscriber hears the change", subscriber);
    Show("group write until the line of dsctl watch", watch);
    Show("group read until it is answered", read);
    Show("group write until another tunnel has it", relay);
    std::printf("%-58s %9.0f\n", "telegrams per second through one tunnel", 1e6 / request.Percentile(50));

    const double bare = roundTrip.Percentile(50);
    std::printf("\n%-58s %9s %9s\n", "Ratio of p50", "measured", "budget");
    ShowRatio("tunnel request / round trip", request.Percentile(50) / bare, 0);
    ShowRatio("bus to a subscriber / round trip", subscriber.Percentile(50) / bare, 3);
    ShowRatio("bus to dsctl watch / round trip", watch.Percentile(50) / bare, 0);
    ShowRatio("read answered / round trip", read.Percentile(50) / bare, 3);
    ShowRatio("tunnel to tunnel / bare relay", relay.Percentile(50) / bareRelay.Percentile(50), 1.5);
    ShowRatio("hand-over / round trip", handOver.Percentile(50) / bare, 0);
    std::printf("\n%-58s %9ld KiB\n", "resident memory of the host", installation.HostResidentKiB());
    return 0;
}
