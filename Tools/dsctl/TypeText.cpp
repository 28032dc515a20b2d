#include "TypeText.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace Dsctl {

namespace {

constexpr unsigned kLongestSize = 248; // the size of a KNXDPT ends at 255

constexpr std::string_view kSpellings =
    "9.001, DPT9.001, DPT-9.001 or DPST-9-1, or 9, 9.xxx or DPT-9 for the main number alone";

/// Bits of "16bit", "16 bits"; nothing when the text is no size.
std::optional<unsigned> ReadSize(std::string_view text) {
    unsigned bits = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bits);
    if (error != std::errc{})
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    text.remove_prefix(text.starts_with(' ') ? 1 : 0);
    return text == "bit" || text == "bits" ? std::optional(bits) : std::nullopt;
}

bool IsSize(unsigned bits) {
    return bits != 0 && bits <= kLongestSize && (bits < 8 || bits % 8 == 0);
}

int DigitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// Appends the octets of one run of digits.
void AppendRun(const std::string& run, std::vector<std::uint8_t>& octets) {
    const bool isMarked = run.starts_with("0x") || run.starts_with("0X");
    auto digits = std::string_view(run).substr(isMarked ? 2 : 0);
    if (digits.empty() ||
        std::any_of(digits.begin(), digits.end(), [](char digit) { return DigitValue(digit) < 0; }))
        throw Refusal(kUsage, fmt::format("octets are hexadecimal digits, and '{}' is none", run));
    if (digits.size() % 2 != 0 && digits.size() != 1)
        throw Refusal(kUsage, fmt::format("octets have two hexadecimal digits each, and '{}' has {}", run,
                                          digits.size()));
    for (; !digits.empty(); digits.remove_prefix(std::min<std::size_t>(digits.size(), 2))) {
        int octet = 0;
        for (const char digit : digits.substr(0, 2))
            octet = octet * 16 + DigitValue(digit);
        octets.push_back(static_cast<std::uint8_t>(octet));
    }
}

/// Texts to try, the ones that suit most first. Where a text stands beside a main number, its value is more
/// telling than a number, or no number is one.
std::vector<std::string_view> Candidates(unsigned main) {
    struct Text {
        unsigned main;
        std::string_view text;
    };
    static constexpr std::array<Text, 10> s_texts{{{4, "K"},
                                                   {9, "21"},
                                                   {10, "Wed 12:00:00"},
                                                   {11, "2024-05-01"},
                                                   {14, "21.5"},
                                                   {16, "KNX"},
                                                   {19, "2024-05-01T12:00:00"},
                                                   {24, "KNX"},
                                                   {28, "KNX"},
                                                   {234, "en"}}};
    const auto* own =
        std::find_if(s_texts.begin(), s_texts.end(), [main](const Text& text) { return text.main == main; });
    if (own != s_texts.end())
        return {own->text};
    return {"50", "1", "0"};
}

std::optional<Example> Describe(const Rule& rule, const KnxStack::GroupValue& octets) {
    TAVVALUE value;
    if (!Datapoint::Decode(rule.dpt, octets, value) || value.IsNull())
        return std::nullopt;
    Example example;
    value.Serialize(example.value, true);
    example.octets = octets.GetRawData().ToString();
    return example;
}

/// The value of the octets, sent again: what does not belong to it is 0 then.
std::optional<Example> OfOctets(const Rule& rule, std::span<const std::uint8_t> octets) {
    const auto example = Describe(rule, ToGroupValue(rule, octets));
    if (!example)
        return std::nullopt;
    TAVVALUE value;
    value.Deserialize(example->value);
    KnxStack::GroupValue sent;
    return Datapoint::Encode(rule.dpt, value, sent) ? Describe(rule, sent) : std::nullopt;
}

/// For values of several fields, of which no short text is one.
std::optional<Example> OfFields(const Rule& rule) {
    constexpr std::array<std::uint8_t, 8> kNoonOfADay{124, 5, 1, 0x6C, 0, 0, 0, 0}; // 2024-05-01, a Wednesday
    constexpr unsigned kOctetsOfAnySize = kNoonOfADay.size() + 1;                   // an empty text behind it
    const unsigned size = rule.sizeInBits == 0 ? kOctetsOfAnySize : (rule.sizeInBits + 7) / 8;
    const std::vector<std::uint8_t> ones(size, 1);
    std::vector<std::uint8_t> day(size, 0);
    std::copy_n(kNoonOfADay.begin(), std::min<std::size_t>(size, kNoonOfADay.size()), day.begin());
    const auto fields = Datapoint::Fields(*rule.type);
    const bool beginsWithDate = !fields.empty() && fields.front().name == "year";
    for (const auto& octets : {beginsWithDate ? day : ones, ones, std::vector<std::uint8_t>(size, 0)}) {
        if (auto example = OfOctets(rule, octets))
            return example;
    }
    return std::nullopt;
}

} // namespace

Datapoint::Number ReadType(const std::string& text) {
    const auto number = Datapoint::Parse(text);
    if (!number)
        throw Refusal(kUsage, fmt::format("'{}' is no datapoint type; write it as {}", text, kSpellings));
    if (Datapoint::Find(*number) == nullptr)
        throw Refusal(kRefused, fmt::format("{}: no datapoint type has the main number {}; 'dsctl types' "
                                            "lists all of them",
                                            text, number->main));
    return *number;
}

Rule RuleOf(Datapoint::Number number) {
    const auto& type = *Datapoint::Find(number);
    return {Datapoint::ToString(number), Datapoint::ToKnxDpt(number), Datapoint::SizeInBits(type), &type};
}

Rule ReadRule(const std::string& text) {
    const auto bits = ReadSize(text);
    if (!bits)
        return RuleOf(ReadType(text));
    if (!IsSize(*bits))
        throw Refusal(kUsage,
                      fmt::format("'{}' is no size of a value: 1 to 7 bits, or a multiple of 8 up to {}",
                                  text, kLongestSize));
    KNXDPT dpt;
    dpt.sizeInBits = static_cast<std::uint8_t>(*bits);
    return {fmt::format("{} bits", *bits), dpt, *bits, nullptr};
}

std::vector<std::uint8_t> ReadOctets(const std::vector<std::string>& pieces) {
    constexpr std::string_view kBetween = " \t:";
    std::vector<std::uint8_t> octets;
    for (const auto& piece : pieces) {
        for (auto at = piece.find_first_not_of(kBetween); at != std::string::npos;
             at = piece.find_first_not_of(kBetween, at)) {
            const auto end = std::min(piece.find_first_of(kBetween, at), piece.size());
            AppendRun(piece.substr(at, end - at), octets);
            at = end;
        }
    }
    return octets;
}

KnxStack::GroupValue ToGroupValue(const Rule& rule, std::span<const std::uint8_t> octets) {
    const bool fits = rule.sizeInBits != 0 && octets.size() == (rule.sizeInBits + 7) / 8;
    const auto bits = fits ? rule.sizeInBits : static_cast<unsigned>(octets.size()) * 8;
    return {KnxStack::BinaryData(octets), bits};
}

Example ExampleOf(const Rule& rule) {
    for (const auto text : Candidates(rule.dpt.main)) {
        TAVVALUE value;
        value.SetText(text);
        KnxStack::GroupValue octets;
        if (!Datapoint::Encode(rule.dpt, value, octets))
            continue;
        if (auto example = Describe(rule, octets))
            return std::move(*example);
    }
    return OfFields(rule).value_or(Example{});
}

std::vector<ValueName> ValueNames(const Datapoint::Type& type) {
    std::vector<ValueName> names;
    auto rest = type.valueNames;
    while (!rest.empty()) {
        const auto end = std::min(rest.find(';'), rest.size());
        const auto entry = rest.substr(0, end);
        const auto sign = entry.find('=');
        names.push_back({entry.substr(0, sign), entry.substr(sign + 1)});
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return names;
}

} // namespace Dsctl
