#include "TypeVerbs.h"

#include "TypeText.h"

#include "DeviceStackProtocol/Json.h"
#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"

#include <fmt/format.h>

#include <charconv>

namespace Dsctl {

namespace {

Rule ReadRule(const ConvertSettings& settings) {
    auto rule = Dsctl::ReadRule(settings.type);
    if (settings.standardResolution) {
        if (rule.dpt.main != 13 || rule.dpt.sub != 2)
            throw Refusal(kUsage,
                          fmt::format("--standard-resolution is for 13.002, and not for {}", rule.name));
        rule.dpt.reserved = Datapoint::kStandardResolution;
    }
    return rule;
}

KnxStack::GroupValue ToBus(const Rule& rule, const std::string& text) {
    TAVVALUE value;
    value.Deserialize(text);
    KnxStack::GroupValue octets;
    if (const auto outcome = Datapoint::Encode(rule.dpt, value, octets); !outcome)
        throw Refusal(kRefused, outcome.reason);
    return octets;
}

/// The text of the value, empty for null.
std::string FromBus(const Rule& rule, const KnxStack::GroupValue& octets) {
    TAVVALUE value;
    if (const auto outcome = Datapoint::Decode(rule.dpt, octets, value); !outcome)
        throw Refusal(kRefused, outcome.reason);
    std::string text;
    value.Serialize(text, true);
    return text;
}

/// What the table calls the value; empty where it has no name.
std::string_view NameOf(const Rule& rule, const std::string& text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc{} && end == text.data() + text.size();
    return isNumber && rule.type != nullptr ? Datapoint::ValueName(*rule.type, number) : std::string_view();
}

} // namespace

ExitCode Convert(const Options& options, const ConvertSettings& settings) {
    const auto rule = ReadRule(settings);
    const auto onBus =
        settings.text ? ToBus(rule, *settings.text) : ToGroupValue(rule, ReadOctets(settings.octets));
    const auto octets = onBus.GetRawData().ToString();
    // A text to the bus is read back: the value that it has there may be the nearest one.
    const auto text = FromBus(rule, onBus);
    if (text.empty())
        throw Refusal(kRefused, fmt::format("{}: {} has no value", rule.name, octets));
    if (!options.json) {
        fmt::print("{}\n", settings.text ? octets : text);
        return kOk;
    }
    std::string json;
    DeviceStack::JsonObject(json)
        .Text("dpt", rule.name)
        .Text("octets", octets)
        .Text("value", text)
        .Text("unit", rule.type != nullptr ? rule.type->unit : "")
        .Text("valueName", NameOf(rule, text))
        .End();
    fmt::print("{}\n", json);
    return kOk;
}

} // namespace Dsctl
