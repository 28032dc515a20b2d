#include "ValueConverter/DatapointTypes.h"

#include "ValueConverter/Composite.h"
#include "ValueConverter/Decimal.h"
#include "ValueConverter/Floats.h"
#include "ValueConverter/Layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace Datapoint {

namespace {

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

bool Skip(std::string_view& text, std::string_view lowerCase) {
    if (text.size() < lowerCase.size() || !std::equal(lowerCase.begin(), lowerCase.end(), text.begin(),
                                                      [](char lower, char c) { return lower == Lower(c); })) {
        return false;
    }
    text.remove_prefix(lowerCase.size());
    return true;
}

std::optional<std::uint16_t> ReadNumber(std::string_view& text) {
    std::uint16_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return number;
}

bool IsWildcard(std::string_view text) {
    return text == "*" || (!text.empty() && text.find_first_not_of("xX") == std::string_view::npos);
}

// "Off" of "0=Off;1=On".
std::string_view NameIn(std::string_view names, std::int64_t value) {
    const std::string key = fmt::format("{}=", value);
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(';'), names.size());
        const std::string_view entry = names.substr(0, end);
        if (entry.starts_with(key)) {
            return entry.substr(key.size());
        }
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    return {};
}

std::string RangeText(std::int64_t minimum, std::int64_t maximum, unsigned decimals) {
    return fmt::format("{}..{}", DecimalText(minimum, decimals).View(),
                       DecimalText(maximum, decimals).View());
}

// "0..100"; empty where the field is no number, or any number.
std::string RangeOf(const Field& field) {
    if (!field.members.empty()) {
        return std::string(field.members);
    }
    const NumberForm& form = field.form;
    switch (field.kind) {
    case FieldKind::Number:
        return field.IsLimited() ? RangeText(field.minimum, field.maximum, form.decimals)
                                 : RangeText(form.Minimum(), form.Maximum(), form.decimals);
    case FieldKind::Float16: return RangeText(kFloat16Minimum, kFloat16Maximum, 2);
    default: return {};
    }
}

std::string RangeOfFields(const CompositeLayout& layout) {
    std::string text;
    for (const Field& field : layout.fields) {
        if (field.kind != FieldKind::Reserved) {
            text += text.empty() ? "" : "; ";
            text += field.name;
            const std::string range = RangeOf(field);
            text += range.empty() ? "" : " " + range;
        }
    }
    return text;
}

} // namespace

std::optional<Number> Parse(std::string_view text) {
    text = Trim(text);
    if (Skip(text, "dpst") || Skip(text, "dpt")) {
        text.remove_prefix(!text.empty() && (text.front() == '-' || text.front() == ' ') ? 1 : 0);
    }
    Number number;
    const auto main = ReadNumber(text);
    if (!main || *main == 0) {
        return std::nullopt;
    }
    number.main = *main;
    if (text.empty()) {
        return number;
    }
    if (text.front() != '.' && text.front() != '-') {
        return std::nullopt;
    }
    text.remove_prefix(1);
    if (IsWildcard(text)) {
        return number;
    }
    const auto sub = ReadNumber(text);
    if (!sub || *sub == kAnySub || !text.empty()) {
        return std::nullopt;
    }
    number.sub = *sub;
    return number;
}

std::string ToString(Number number) {
    return number.sub == kAnySub ? fmt::format("{}.xxx", number.main)
                                 : fmt::format("{}.{:03}", number.main, number.sub);
}

KNXDPT ToKnxDpt(Number number) {
    KNXDPT dpt;
    dpt.main = number.main;
    const Type* type = Find(number);
    if (type == nullptr) {
        dpt.sub = number.sub == kAnySub ? 0 : number.sub;
        return dpt;
    }
    dpt.sizeInBits = static_cast<std::uint8_t>(SizeInBits(*type));
    dpt.sub = number.sub;
    if (number.sub == kAnySub) {
        // 0 stands for "not known", unless it is a type of its own with another rule (16.000).
        dpt.sub = 0;
        if (Find({number.main, 0})->layout != type->layout) {
            const auto rows = AllTypes();
            dpt.sub = std::find_if(rows.begin(), rows.end(), [&](const Type& row) {
                          return row.main == number.main && row.layout == type->layout;
                      })->sub;
        }
    }
    return dpt;
}

unsigned SizeInBits(const Type& type) {
    return type.layout->sizeInBits;
}

std::string Range(const Type& type) {
    if (!type.members.empty()) {
        return std::string(type.members);
    }
    if (type.layout->decode == DecodeComposite) {
        return RangeOfFields(static_cast<const CompositeLayout&>(*type.layout));
    }
    return type.minimum == type.maximum ? std::string()
                                        : RangeText(type.minimum, type.maximum, type.decimals);
}

std::vector<FieldFacts> Fields(const Type& type) {
    std::vector<FieldFacts> facts;
    if (type.layout->decode == DecodeComposite) {
        for (const Field& field : static_cast<const CompositeLayout&>(*type.layout).fields) {
            facts.push_back({field.name, field.form.bits, RangeOf(field)});
        }
    }
    return facts;
}

std::string_view ValueName(const Type& type, std::int64_t value) {
    return NameIn(type.valueNames, value);
}

} // namespace Datapoint
