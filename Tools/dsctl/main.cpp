#include "Connection.h"
#include "TypeText.h"
#include "TypeVerbs.h"
#include "Verbs.h"

#include "DeviceStackProtocol/SocketPath.h"

#include "Tools/support/StandardOutput.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cstdio>
#include <system_error>

namespace {

constexpr const char* kFooter = R"(Examples:
  dsctl list                          every data point with its value
  dsctl list 'Kitchen.*' 2001         those whose name matches, and one by ID
  dsctl get Kitchen.Light             by name,
  dsctl get 2001                      by ID
  dsctl get urn:oxn:dp:house:Kitchen.Light
  dsctl set Kitchen.Light 1
  dsctl set Kitchen.Setpoint -2.5
  dsctl set Kitchen.Label '""'        the empty text
  dsctl set Kitchen.Label -- '-x-'    a text that begins with a minus and is no number
  dsctl watch                         every change as it happens
  dsctl watch 'Kitchen.*' --count 1   wait for one change and end
  dsctl watch --events                what applications announce, too
  dsctl --json watch                  the same for programs: one JSON object per line
  dsctl types                         every datapoint type: which fits, in which unit
  dsctl types 9                       those of a main number
  dsctl types 20.102                  one of them: its range, names of values, an example
  dsctl convert 9.001 0c 1a           the value in a telegram's octets
  dsctl convert 9.001 --to-bus -2.5   the octets of a value
  dsctl convert 16bit 0c1a            without a type: by size

Patterns: digits are an ID, urn:... is a URN, anything else a name. One with *, ? or [ covers the whole name or URN,
another name is found anywhere in a data point's name; in names case does not count.

Datapoint types: 9.001, DPT9.001, DPT-9.001, DPST-9-1; 9, 9.xxx or DPT-9 when only the main number is known. Types and
convert need no device stack. Octets are hexadecimal digits, also with blanks, colons or 0x; a value of less than 8 bits
is one octet. A value is written to the bus as it is set: 'dsctl types' shows the form of its text by an example.

Exit status:
  0  done
  1  refused, not found or no value; the cause is one line on standard error
  2  the command line is wrong
  3  no device stack there, or it does not answer
  4  standard output cannot be written

Environment:
  DEVICESTACK_SOCKET  the socket, when --socket does not name it)";

CLI::App* AddTypes(CLI::App& app, std::optional<std::string>& type) {
    auto* types = app.add_subcommand("types", "List datapoint types, or all that is known of one");
    types->add_option("TYPE", type, "9.001, or 9 for those of a main number; all without it")
        ->option_text(" ");
    return types;
}

CLI::App* AddConvert(CLI::App& app, Dsctl::ConvertSettings& settings) {
    auto* convert = app.add_subcommand("convert", "Convert one value from the bus, or to it");
    convert->add_option("TYPE", settings.type, "Datapoint type, or a size such as 16bit")
        ->required()
        ->option_text(" ");
    auto* octets = convert->add_option("HEX", settings.octets, "Octets as they are in a telegram");
    octets->option_text(" ");
    auto* text = convert->add_option("--to-bus", settings.text, "Value text to convert to octets");
    text->option_text("TEXT")->excludes(octets);
    convert->add_flag("--standard-resolution", settings.standardResolution,
                      "13.002 in m³/h with four decimals, not as an integer of 0.0001 m³/h");
    convert->callback([octets, text] {
        if (octets->empty() && text->empty())
            throw CLI::RequiredError("HEX or --to-bus");
    });
    return convert;
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

    CLI::App app("Lists, reads, writes and watches the data points of a device stack; knows datapoint types.",
                 "dsctl");
    app.footer(kFooter);
    app.set_version_flag("--version", "dsctl " DSCTL_VERSION);
    app.require_subcommand(1);
    app.fallthrough();

    Dsctl::Options options;
    options.socketPath = DeviceStack::ClientSocketPath();
    app.add_option("--socket", options.socketPath, "Socket of the device stack")->option_text("PATH");
    app.add_flag("--json", options.json, "One JSON object per line instead of text for people");

    std::vector<std::string> names;
    std::string dataPoint;
    std::string value;
    Dsctl::WatchSettings watched;
    constexpr const char* kDataPoint = "Name, ID or URN of a data point";

    auto* list = app.add_subcommand("list", "List data points");
    list->add_option("PATTERN", names, "Names, IDs or URNs to list; all without it")->option_text(" ");
    auto* get = app.add_subcommand("get", "Print values");
    get->add_option("DATAPOINT", names, kDataPoint)->required()->option_text(" ");
    auto* set = app.add_subcommand("set", "Set a value and wait for the result");
    set->add_option("DATAPOINT", dataPoint, kDataPoint)->required()->option_text(" ");
    set->add_option("VALUE", value, "Value text; '\"\"' is the empty text")->required()->option_text(" ");
    auto* watch = app.add_subcommand("watch", "Print changes as they happen");
    watch->add_option("PATTERN", watched.patterns, "Names, IDs or URNs to watch; all without it")
        ->option_text(" ");
    watch->add_flag("--events", watched.events, "Print what applications announce, too");
    watch->add_option("--count", watched.count, "End after that many lines")
        ->check([](const std::string& text) {
            const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
            return isNumber && text.find_first_not_of('0') != std::string::npos
                       ? ""
                       : text + " is no number above 0";
        })
        ->option_text("N");

    std::optional<std::string> type;
    auto* types = AddTypes(app, type);
    Dsctl::ConvertSettings conversion;
    auto* convert = AddConvert(app, conversion);

    const auto run = [&] {
        app.parse(argc, argv);
        if (list->parsed())
            return Dsctl::List(options, names);
        if (get->parsed())
            return Dsctl::Get(options, names);
        if (set->parsed())
            return Dsctl::Set(options, dataPoint, value);
        if (types->parsed())
            return Dsctl::Types(options, type);
        if (convert->parsed())
            return Dsctl::Convert(options, conversion);
        return Dsctl::Watch(options, watched);
    };
    try {
        const auto code = run();
        return Tools::FlushOutput("dsctl") ? code : Dsctl::kNoOutput;
    } catch (const CLI::ParseError& error) {
        const bool done = app.exit(error) == 0; // help or version
        return !done ? Dsctl::kUsage : Tools::FlushOutput("dsctl") ? Dsctl::kOk : Dsctl::kNoOutput;
    } catch (const Dsctl::NotThere& error) {
        fmt::print(stderr, "dsctl: {}\n", error.what());
        return Dsctl::kNotThere;
    } catch (const Dsctl::Refusal& refusal) {
        fmt::print(stderr, "dsctl: {}\n", refusal.what());
        return refusal.Code();
    } catch (const std::system_error& error) { // of fmt::print
        Tools::ReportOutput("dsctl", error.code().value());
        return Dsctl::kNoOutput;
    }
}
