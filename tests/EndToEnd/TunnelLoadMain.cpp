// Puts a load on a KNXnet/IP server and says in one JSON object what came of it.
#include "TunnelLoad.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

namespace {

void Print(const char* name, const TunnelLoad::Durations& durations) {
    std::printf("\"%s\":{\"count\":%zu,\"p50\":%.1f,\"p99\":%.1f,\"longest\":%.1f},", name, durations.Count(),
                durations.Percentile(50), durations.Percentile(99), durations.Percentile(100));
}

void Print(const TunnelLoad::TunnelResult& tunnel, bool first) {
    const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("%s{\"address\":\"%s\",\"sent\":%llu,\"heard\":%llu,\"others\":%llu,\"missing\":%llu,"
                "\"disorder\":%llu,"
                "\"strange\":%llu,\"repeated\":%llu,\"refused\":%llu,\"unconfirmed\":%s,\"lost\":%s}",
                first ? "" : ",", tunnel.address.c_str(), number(tunnel.sent), number(tunnel.heard),
                number(tunnel.others), number(tunnel.missing), number(tunnel.disorder),
                number(tunnel.strange), number(tunnel.repeated), number(tunnel.refused),
                tunnel.unconfirmed ? "true" : "false", tunnel.lost ? "true" : "false");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 7) {
        std::fputs("Usage: TunnelLoad PORT GROUP WRITERS LISTENERS PAUSE-MS DURATION-MS\n", stderr);
        return 2;
    }
    try {
        const auto number = [argv](int index) { return std::strtoul(argv[index], nullptr, 10); };
        TunnelLoad::Settings settings;
        settings.port = static_cast<std::uint16_t>(number(1));
        settings.firstGroup = static_cast<std::uint16_t>(number(2));
        settings.writers = static_cast<unsigned>(number(3));
        settings.listeners = static_cast<unsigned>(number(4));
        settings.listenerPause = std::chrono::milliseconds(number(5));
        settings.duration = std::chrono::milliseconds(number(6));
        const auto result = TunnelLoad::Run(settings);
        std::printf("{\"seconds\":%.3f,\"telegrams\":%llu,", result.writing.count(),
                    static_cast<unsigned long long>(result.telegrams));
        Print("acknowledged", result.acknowledged);
        Print("confirmed", result.confirmed);
        std::printf("\"tunnels\":[");
        for (const auto& tunnel : result.tunnels)
            Print(tunnel, &tunnel == &result.tunnels.front());
        std::puts("]}");
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "TunnelLoad: %s\n", error.what());
        return 1;
    }
}
