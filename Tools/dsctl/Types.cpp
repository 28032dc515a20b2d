#include "TypeVerbs.h"

#include "Output.h"
#include "TypeText.h"

#include "DeviceStackProtocol/Json.h"

#include <fmt/format.h>

namespace Dsctl {

namespace {

std::string Bits(unsigned bits) {
    return bits == 0 ? "any" : std::to_string(bits);
}

std::string OrDash(std::string_view text) {
    return text.empty() ? "-" : std::string(text);
}

/// The range stands last: that of a value of several fields is long.
std::vector<std::string> ToRow(const Datapoint::Type& type) {
    return {Datapoint::ToString(type.GetNumber()),
            std::string(type.name),
            Bits(Datapoint::SizeInBits(type)),
            OrDash(type.unit),
            OrDash(type.resolution),
            OrDash(Datapoint::Range(type))};
}

std::string FieldsAsJson(const Datapoint::Type& type) {
    std::string json = "[";
    for (const auto& field : Datapoint::Fields(type)) {
        json += json.size() > 1 ? "," : "";
        DeviceStack::JsonObject(json)
            .Text("name", field.name)
            .Number("size", field.sizeInBits)
            .Text("range", field.range)
            .End();
    }
    return json + "]";
}

std::string ValueNamesAsJson(const Datapoint::Type& type) {
    std::string json;
    DeviceStack::JsonObject object(json);
    for (const auto& [value, name] : ValueNames(type))
        object.Text(value, name);
    object.End();
    return json;
}

std::string ToJson(Datapoint::Number number, const Datapoint::Type& type) {
    std::string example;
    const auto [value, octets] = ExampleOf(RuleOf(number));
    DeviceStack::JsonObject(example).Text("octets", octets).Text("value", value).End();

    std::string json;
    DeviceStack::JsonObject(json)
        .Text("dpt", Datapoint::ToString(number))
        .Text("name", type.name)
        .Number("size", Datapoint::SizeInBits(type))
        .Text("unit", type.unit)
        .Text("range", Datapoint::Range(type))
        .Text("resolution", type.resolution)
        .Raw("valueNames", ValueNamesAsJson(type))
        .Raw("fields", FieldsAsJson(type))
        .Raw("example", example)
        .End();
    return json;
}

/// Rows under a heading that stands beside the first of them.
void PrintUnder(std::string_view heading, const std::vector<std::vector<std::string>>& rows) {
    for (const auto& line : AlignColumns(rows)) {
        fmt::print("{:<12}{}\n", heading, line);
        heading = {};
    }
}

void PrintFact(std::string_view heading, std::string_view fact) {
    if (!fact.empty())
        fmt::print("{:<12}{}\n", heading, fact);
}

void PrintType(Datapoint::Number number, const Datapoint::Type& type) {
    const auto name = Datapoint::ToString(number);
    if (type.sub == number.sub)
        fmt::print("{}  {}\n", name, type.name);
    else
        fmt::print("{}  not in the table; values are converted by the rule of all {}\n", name,
                   Datapoint::ToString(type.GetNumber()));

    const auto bits = Datapoint::SizeInBits(type);
    PrintFact("size", bits == 0   ? "any number of octets"
                      : bits == 1 ? "1 bit"
                                  : fmt::format("{} bits", bits));
    PrintFact("unit", type.unit);
    const auto fields = Datapoint::Fields(type);
    if (fields.empty()) // else the range has the fields' names and ranges, which follow
        PrintFact("range", Datapoint::Range(type));
    PrintFact("resolution", type.resolution);
    std::vector<std::vector<std::string>> rows;
    for (const auto& [value, meaning] : ValueNames(type))
        rows.push_back({std::string(value), std::string(meaning)});
    PrintUnder("values", rows);
    rows.clear();
    for (const auto& field : fields)
        rows.push_back({field.name.empty() ? "(reserved)" : std::string(field.name),
                        Bits(field.sizeInBits) + (field.sizeInBits == 1 ? " bit" : " bits"), field.range});
    PrintUnder("fields", rows);
    const auto [value, octets] = ExampleOf(RuleOf(number));
    PrintFact("example", fmt::format("{} is {}", octets, value));
}

void PrintTypes(const Options& options, std::optional<std::uint16_t> main) {
    std::vector<std::vector<std::string>> rows{{"TYPE", "NAME", "BITS", "UNIT", "RESOLUTION", "RANGE"}};
    for (const auto& type : Datapoint::AllTypes()) {
        if (main && type.main != *main)
            continue;
        if (options.json)
            fmt::print("{}\n", ToJson(type.GetNumber(), type));
        else
            rows.push_back(ToRow(type));
    }
    if (options.json)
        return;
    for (const auto& line : AlignColumns(rows))
        fmt::print("{}\n", line);
}

} // namespace

ExitCode Types(const Options& options, const std::optional<std::string>& type) {
    if (!type) {
        PrintTypes(options, std::nullopt);
        return kOk;
    }
    const auto number = ReadType(*type);
    if (number.sub == Datapoint::kAnySub)
        PrintTypes(options, number.main);
    else if (options.json)
        fmt::print("{}\n", ToJson(number, *Datapoint::Find(number)));
    else
        PrintType(number, *Datapoint::Find(number));
    return kOk;
}

} // namespace Dsctl
