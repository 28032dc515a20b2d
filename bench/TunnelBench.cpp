// Telegrams through one and through sixteen tunnels of the host: how many, and how long each takes until it
// is confirmed and until the application program is called with it. In multiples of the UDP round trip on
// loopback, measured in the same run.
#include "Figure.h"
#include "Installation.h"
#include "Placement.h"
#include "Relay.h"
#include "Report.h"
#include "Sockets.h"
#include "TunnelLoad.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace Bench;

constexpr unsigned kTunnels = 16;
constexpr std::uint16_t kFirstGroup = 1 << 11; // 1/0/0

/// A server with sixteen tunnels, as many counters, and the program that notes its calls.
std::string Configuration(std::uint16_t port, const std::string& report) {
    std::string tunnels;
    std::string objects;
    for (unsigned number = 0; number < kTunnels; ++number) {
        const std::string comma = number == 0 ? "" : ",";
        tunnels += comma + "\"1.2." + std::to_string(number + 1) + "\"";
        objects += comma + R"({"number":)" + std::to_string(number + 1) +
                   R"(,"dpt":"12.001","flags":"CW","addresses":["1/0/)" + std::to_string(number) + "\"]}";
    }
    return R"({"device":{"individualAddress":"1.1.250"},"server":{"address":"127.0.0.1","port":)" +
           std::to_string(port) + R"(,"tunnels":[)" + tunnels + R"(]},"groupObjects":[)" + objects +
           R"(],"applicationProgram":{"library":")" BENCH_PROGRAM R"(","settings":{"report":")" + report +
           R"("}}})";
}

/// knxstackd alone, and what its program reports.
class Host {
public:
    Host()
        : m_port(FreeUdpPort()), m_report(MapReport(m_directory / "report")),
          m_child(Side::Measured, {Program("knxstackd"), "--config", Configure()}, -1) {
        for (unsigned tries = 0; tries < 100; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (m_report.isReady)
                return;
        }
        throw std::runtime_error("the application program is not ready after 10 s");
    }

    std::uint16_t Port() const { return m_port; }

    void Expect(std::uint32_t number) { m_report.Of(number) = 0; }
    /// Waits until the program has been called with the number that was expected; when that was.
    Clock::time_point WaitForCall(std::uint32_t number) const {
        const auto latest = Clock::now() + std::chrono::seconds(5);
        while (m_report.Of(number) == 0) {
            if (Clock::now() > latest)
                throw std::runtime_error("the application program was not called");
            std::this_thread::sleep_for(std::chrono::microseconds(10));
        }
        return Clock::time_point(std::chrono::nanoseconds(m_report.Of(number)));
    }

private:
    std::string Configure() const {
        auto file = m_directory / "knxstackd.json";
        std::ofstream(file) << Configuration(m_port, m_directory / "report");
        return file;
    }

    const Directory m_directory;
    const std::uint16_t m_port;
    Report& m_report;
    const Child m_child;
};

/// One telegram at a time.
void MeasureLatencies(Figure& confirmed, Figure& called, Host& host) {
    RawTunnel tunnel(host.Port());
    Measure(confirmed, [&](int round) {
        const auto number = static_cast<std::uint32_t>(round);
        const auto low = static_cast<std::uint8_t>(number);
        const auto high = static_cast<std::uint8_t>(number >> 8);
        host.Expect(number);
        const auto start = Clock::now();
        tunnel.Send(GroupWrite(kFirstGroup, {0, 0, high, low}));
        tunnel.AwaitConfirmation();
        const auto end = Clock::now();
        called.Add(host.WaitForCall(number) - start);
        return end;
    });
}

/// A second of what so many tunnels can do.
struct Load {
    unsigned tunnels;
    Figure microseconds; // per telegram
    TunnelLoad::Durations confirmed;

    void Measure(const Host& host) {
        TunnelLoad::Settings settings;
        settings.port = host.Port();
        settings.writers = tunnels;
        settings.firstGroup = kFirstGroup;
        settings.quiet = std::chrono::milliseconds(200);
        const auto result = TunnelLoad::Run(settings);
        microseconds.Add(result.writing.count() * 1e6 / static_cast<double>(result.telegrams));
        confirmed.Add(result.confirmed);
    }
    double PerSecond() { return 1e6 / microseconds.Percentile(50); }
};

void ShowRatio(const char* what, double median, double most) {
    std::printf("%-58s %9.2f ", what, median);
    if (most > 0)
        std::printf("%9.2f\n", most);
    else
        std::printf("%9s\n", "-");
}

} // namespace

int main() {
    RunOn(Side::Measuring);
    Host host;
    Figure roundTrip;
    Figure confirmed;
    Figure called;
    Load one{1, {}, {}};
    Load sixteen{kTunnels, {}, {}};
    for (int block = 0; block < kBlocks; ++block) {
        MeasureRoundTrip(roundTrip);
        MeasureLatencies(confirmed, called, host);
        one.Measure(host);
        sixteen.Measure(host);
    }

    ShowHead();
    Show("UDP round trip on loopback", roundTrip);
    Show("group write until acknowledged and confirmed", confirmed);
    Show("group write until the application program is called", called);
    std::printf("%-58s %9.1f %9.1f\n", "likewise confirmed, with 16 tunnels at full speed",
                sixteen.confirmed.Percentile(50), sixteen.confirmed.Percentile(99));
    std::printf("%-58s %9.0f\n", "telegrams per second through one tunnel", one.PerSecond());
    std::printf("%-58s %9.0f\n", "telegrams per second through 16 tunnels, each to all", sixteen.PerSecond());

    const double unit = roundTrip.Percentile(50);
    std::printf("\n%-58s %9s %9s\n", "Multiples of the median round trip", "p50", "p99");
    ShowRatio("round trip", 1, roundTrip.Percentile(99) / unit);
    ShowRatio("confirmed", confirmed.Percentile(50) / unit, confirmed.Percentile(99) / unit);
    ShowRatio("application program called", called.Percentile(50) / unit, called.Percentile(99) / unit);
    ShowRatio("confirmed, with 16 tunnels at full speed", sixteen.confirmed.Percentile(50) / unit,
              sixteen.confirmed.Percentile(99) / unit);
    ShowRatio("a telegram through one tunnel", one.microseconds.Percentile(50) / unit, 0);
    ShowRatio("a telegram through 16 tunnels, each to all", sixteen.microseconds.Percentile(50) / unit, 0);
    ShowRatio("likewise, for each tunnel", sixteen.microseconds.Percentile(50) / unit / kTunnels, 0);
    return 0;
}
