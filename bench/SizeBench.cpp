// An installation with 1,000 and with 65,534 group objects, each bound to a data point: resident memory of
// both daemons, before and after a telegram to each, and how long it takes to read its configuration.
#include "Figure.h"
#include "Installation.h"
#include "Placement.h"
#include "Sockets.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace Bench;

constexpr unsigned kFew = 1000;
constexpr unsigned kAll = 65534;
constexpr int kReadings = 5;

void WriteConfiguration(const std::string& directory, unsigned objects) {
    std::ofstream host(directory + "/knxstackd.json");
    host << R"({"device":{"individualAddress":"1.1.250"},
"server":{"address":"127.0.0.1","tunnels":["1.1.251"]},
"interfaceObjects":[{"type":3,"properties":[{"id":201,"dataType":17,"value":"00"}]}],
"applicationProgram":{"library":"libdscknxappprg.so","settings":{"DscInstanceId":"KNX"}},
"project":"project.json","groupObjects":[)";
    std::ofstream project(directory + "/project.json");
    project << R"({"version":1,"device":"bench","knx":{"identification":"id","interfaceObject":3,
"properties":[{"id":201,"name":"time mode","dataType":17,"elements":1}]},"dataPoints":[)";
    for (unsigned number = 1; number <= objects; ++number) {
        const char* const comma = number == 1 ? "\n" : ",\n";
        host << comma << R"({"number":)" << number << R"(,"name":"Counter of room )" << number
             << R"(","dpt":"12.001","flags":"CWTU","addresses":[")" << (number >> 11) << '/'
             << (number >> 8 & 7) << '/' << (number & 255) << "\"]}";
        project << comma << R"({"id":)" << 2000 + number << R"(,"name":"Room.Counter.)" << number
                << R"(","dpt":"12.001","knx":{"co":)" << number << "}}";
    }
    host << "]}\n";
    project << "]}\n";
}

/// A telegram to each group object; until the last one's value is in the device stack.
void WriteToEach(const Installation& installation, unsigned objects) {
    {
        RawTunnel tunnel(installation.KnxPort());
        for (unsigned number = 1; number <= objects; ++number) {
            tunnel.Send(GroupWrite(static_cast<std::uint16_t>(number), {1, 2, 3, 4}));
            tunnel.AwaitConfirmation();
        }
    }
    LineSocket lines(installation.Socket());
    const auto request = R"({"jsonrpc":"2.0","id":1,"method":"getValue","params":{"id":)" +
                         std::to_string(2000 + objects) + "}}";
    for (unsigned tries = 0; tries < 300; ++tries) {
        lines.WriteLine(request);
        if (lines.ReadLine().find("16909060") != std::string::npos)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    throw std::runtime_error("the last value is not in the device stack after 30 s");
}

struct Size {
    unsigned objects;
    Figure reading; // of the configuration
    long host = 0;  // KiB
    long hostAfter = 0;
    long deviceStack = 0;
    long deviceStackAfter = 0;
};

void Measure(Size& size) {
    const Installation installation(
        [&size](const std::string& directory) { WriteConfiguration(directory, size.objects); });
    size.host = installation.HostResidentKiB();
    size.deviceStack = installation.DeviceStackResidentKiB();
    WriteToEach(installation, size.objects);
    size.hostAfter = installation.HostResidentKiB();
    size.deviceStackAfter = installation.DeviceStackResidentKiB();
    auto arguments = installation.HostArguments();
    arguments.emplace_back("--check-config");
    for (int reading = 0; reading < kReadings; ++reading) {
        const auto start = Clock::now();
        if (Child(Side::Measured, arguments, -1).Wait() != 0)
            throw std::runtime_error("the configuration is refused");
        size.reading.Add(Clock::now() - start);
    }
}

/// A line: the figure for few and for all objects, what each further object costs in a smaller unit, and by
/// how much all need more.
void Show(const char* what, double few, double all, double smallerUnits) {
    const double each = (all - few) * smallerUnits / (kAll - kFew);
    std::printf("%-44s %10.1f %10.1f %10.1f %8.2f\n", what, few, all, each, all / few);
}

void Show(const char* what, const Size& few, const Size& all, long Size::*memory) {
    Show(what, static_cast<double>(few.*memory), static_cast<double>(all.*memory), 1024);
}

} // namespace

int main() {
    RunOn(Side::Measuring);
    Size few{kFew, {}};
    Size all{kAll, {}};
    Measure(few);
    Measure(all);
    std::printf("%-44s %10u %10u %10s %8s\n", "Group objects", kFew, kAll, "each", "ratio");
    Show("knxstackd, resident KiB (each: octets)", few, all, &Size::host);
    Show("after a telegram to each", few, all, &Size::hostAfter);
    Show("devicestackd, resident KiB (each: octets)", few, all, &Size::deviceStack);
    Show("after a telegram to each", few, all, &Size::deviceStackAfter);
    Show("reading the configuration, ms (each: us)", few.reading.Percentile(50) / 1e3,
         all.reading.Percentile(50) / 1e3, 1e3);
    return 0;
}
