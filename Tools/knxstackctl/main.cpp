#include "Connection.h"
#include "Verbs.h"

#include "Tools/support/StandardOutput.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <system_error>

namespace {

using KnxStackCtl::ExitCode;

constexpr const char* kFooter = R"(Examples:
  knxstackctl status                  the device: address, load states, program, uptime
  knxstackctl links                   tunnels with their clients, the interface, counters
  knxstackctl monitor                 every telegram as it passes
  knxstackctl monitor --count 1       wait for one and end
  knxstackctl --json monitor          the same for programs: one JSON object per line
  knxstackctl progmode                whether programming mode is on
  knxstackctl progmode on
  knxstackctl write 1/2/3 1.001 1     a group telegram of this device
  knxstackctl write 3/0/1 9.001 -2.5
  knxstackctl write 5/0/1 16.001 -- '-x-'
                                      a text that begins with a minus and is no number
  knxstackctl read 3/0/1              ask a group for its value, wait 2 s for the answer
  knxstackctl inject 29 00 bc e0 11 04 0a 03 01 00 81
                                      a cEMI frame as if it had come from the bus

Group addresses: 1/2/3, 1/515 or 2563. Datapoint types: 9.001 or any other spelling; values are written as for
'dsctl convert --to-bus', and 'dsctl types 9.001' shows an example.

A line of the monitor has time, source, destination with the name of its group object, service, datapoint type, value
and octets. Names and datapoint types are those of the group objects in knxstackd's configuration.

Exit status:
  0  done
  1  refused, or nobody answered; the cause is one line on standard error
  2  the command line is wrong
  3  no knxstackd there, or it does not answer
  4  standard output cannot be written

Environment:
  KNXSTACKD_SOCKET  the socket, when --socket does not name it)";

std::string SocketPath() {
    const char* path = std::getenv("KNXSTACKD_SOCKET");
    return path != nullptr && *path != '\0' ? path : "/run/knxstackd/knxstackd.sock";
}

std::string CheckCount(const std::string& text) {
    const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    return isNumber && text.find_first_not_of('0') != std::string::npos ? "" : text + " is no number above 0";
}

/// The command line; what is to be done is in `verb` after it was parsed.
struct CommandLine {
    KnxStackCtl::Options options;
    std::uint64_t count = 0;
    std::string mode;
    KnxStackCtl::WriteSettings write;
    KnxStackCtl::ReadSettings read;
    std::vector<std::string> octets;
    std::function<ExitCode()> verb;
};

void DescribeLooking(CLI::App& app, CommandLine& line) {
    app.add_subcommand("status", "Show the device and its application program")->callback([&line] {
        line.verb = [&line] { return KnxStackCtl::Status(line.options); };
    });
    app.add_subcommand("links", "Show tunnels, interface and counters")->callback([&line] {
        line.verb = [&line] { return KnxStackCtl::Links(line.options); };
    });
    auto* monitor = app.add_subcommand("monitor", "Print telegrams as they pass");
    monitor->add_option("--count", line.count, "End after that many lines")
        ->check(CheckCount)
        ->option_text("N");
    monitor->callback(
        [&line] { line.verb = [&line] { return KnxStackCtl::Monitor(line.options, line.count); }; });
}

void DescribeDoing(CLI::App& app, CommandLine& line) {
    constexpr const char* kGroup = "Group address, 1/2/3";
    auto* progmode = app.add_subcommand("progmode", "Switch programming mode, or say how it is");
    progmode->add_option("MODE", line.mode, "on or off; without it nothing changes")
        ->check(CLI::IsMember({"on", "off"}))
        ->option_text(" ");
    progmode->callback([&line] {
        line.verb = [&line] {
            return KnxStackCtl::ProgMode(line.options,
                                         line.mode.empty() ? std::nullopt : std::optional(line.mode == "on"));
        };
    });
    auto* write = app.add_subcommand("write", "Send a value to a group");
    write->add_option("GROUPADDRESS", line.write.address, kGroup)->required()->option_text(" ");
    write->add_option("DPT", line.write.dpt, "Datapoint type, 9.001")->required()->option_text(" ");
    write->add_option("VALUE", line.write.value, "Value text")->required()->option_text(" ");
    write->callback(
        [&line] { line.verb = [&line] { return KnxStackCtl::Write(line.options, line.write); }; });
    auto* read = app.add_subcommand("read", "Ask a group for its value and print the first answer");
    read->add_option("GROUPADDRESS", line.read.address, kGroup)->required()->option_text(" ");
    read->add_option("--timeout", line.read.timeout, "Seconds to wait for the answer")
        ->check(CLI::Range(0.0, 3600.0))
        ->option_text("S [2]");
    read->callback([&line] { line.verb = [&line] { return KnxStackCtl::Read(line.options, line.read); }; });
    auto* inject = app.add_subcommand("inject", "Let a telegram come from the bus");
    inject->add_option("HEX", line.octets, "Octets of a cEMI frame, L_Data")->required()->option_text(" ");
    inject->callback(
        [&line] { line.verb = [&line] { return KnxStackCtl::Inject(line.options, line.octets); }; });
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    CLI::App app("Shows and switches a running KNX stack host, and what passes on its bus.", "knxstackctl");
    app.footer(kFooter);
    app.set_version_flag("--version", "knxstackctl " KNXSTACKCTL_VERSION);
    app.require_subcommand(1);
    app.fallthrough();

    CommandLine line;
    line.options.socketPath = SocketPath();
    app.add_option("--socket", line.options.socketPath, "Control socket of knxstackd")->option_text("PATH");
    app.add_flag("--json", line.options.json, "One JSON object per line instead of text for people");
    DescribeLooking(app, line);
    DescribeDoing(app, line);

    try {
        app.parse(argc, argv);
        const auto code = line.verb();
        return Tools::FlushOutput("knxstackctl") ? code : KnxStackCtl::kNoOutput;
    } catch (const CLI::ParseError& error) {
        const bool done = app.exit(error) == 0; // help or version
        return !done                               ? KnxStackCtl::kUsage
               : Tools::FlushOutput("knxstackctl") ? KnxStackCtl::kOk
                                                   : KnxStackCtl::kNoOutput;
    } catch (const KnxStackCtl::NotThere& error) {
        fmt::print(stderr, "knxstackctl: {}\n", error.what());
        return KnxStackCtl::kNotThere;
    } catch (const KnxStackCtl::Refusal& refusal) {
        fmt::print(stderr, "knxstackctl: {}\n", refusal.what());
        return refusal.IsWrongRequest() ? KnxStackCtl::kUsage : KnxStackCtl::kRefused;
    } catch (const std::system_error& error) { // of fmt::print
        Tools::ReportOutput("knxstackctl", error.code().value());
        return KnxStackCtl::kNoOutput;
    }
}
