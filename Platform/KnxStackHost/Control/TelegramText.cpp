#include "KnxStackHost/Control/TelegramText.h"

#include "KnxFrames/Apdu.h"
#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace KnxStackHost {

using KnxFrames::GroupService;
using KnxFrames::GroupServiceKind;
using KnxFrames::LData;
using KnxFrames::TpduKind;
using KnxStack::BinaryData;

namespace {

constexpr unsigned kBitsInApci = 6; // a value of so many bits has no octets of its own

/// A name that brought control characters along would break the line.
std::string OneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; },
        ' ');
    return text;
}

KnxFrames::Octets ValueOctets(const GroupService& service) {
    return service.IsShort() ? KnxFrames::Octets{&service.shortValue, 1} : service.longValue;
}

std::string_view ValueNameOf(const Datapoint::Type& type, const std::string& text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc{} && end == text.data() + text.size();
    return isNumber ? Datapoint::ValueName(type, number) : std::string_view();
}

void DecodeValue(const GroupService& service, Datapoint::Number number, TelegramWords& words) {
    const auto* type = Datapoint::Find(number);
    const unsigned bits = type == nullptr ? 0 : Datapoint::SizeInBits(*type);
    const auto octets = ValueOctets(service);
    // A type of varying length takes what has come.
    const bool fits = bits == 0
                          ? !service.IsShort()
                          : service.IsShort() == (bits <= kBitsInApci) && octets.size() == (bits + 7) / 8;
    if (!fits) {
        words.fault = fmt::format("the value has another length than {}", words.dpt);
        return;
    }
    TAVVALUE value;
    const KnxStack::GroupValue onBus(BinaryData(octets),
                                     bits == 0 ? static_cast<unsigned>(octets.size()) * 8 : bits);
    if (const auto outcome = Datapoint::Decode(Datapoint::ToKnxDpt(number), onBus, value); !outcome) {
        words.fault = OneLine(outcome.reason);
        return;
    }
    value.Serialize(words.value, true);
    if (words.value.empty())
        words.fault = fmt::format("{} has no value for this", words.dpt);
    else if (type != nullptr) {
        words.valueName = ValueNameOf(*type, words.value);
        words.unit = type->unit;
    }
}

void DescribeGroup(const GroupService& service, TelegramWords& words,
                   const std::optional<Datapoint::Number>& dpt) {
    words.service = KnxFrames::ToString(service.kind);
    if (service.kind == GroupServiceKind::Read)
        return;
    words.raw = BinaryData(ValueOctets(service)).ToString();
    if (dpt)
        DecodeValue(service, *dpt, words);
}

/// Transport and application layer of what is no group communication.
void DescribeManagement(const LData& telegram, TpduKind kind, TelegramWords& words) {
    words.service = KnxFrames::ToString(kind);
    const bool isNumbered = kind == TpduKind::DataConnected || kind == TpduKind::Ack || kind == TpduKind::Nak;
    if (isNumbered)
        words.service += fmt::format(" {}", KnxFrames::TpduSequence(telegram.tpdu));
    words.raw = BinaryData(telegram.tpdu.View()).ToString();
    if (const auto apdu = KnxFrames::ReadApdu(telegram.tpdu))
        words.service += fmt::format(" {}", KnxFrames::ToString(apdu->service));
}

} // namespace

AddressBook::AddressBook(std::span<const ConfiguredObject> objects) {
    for (const auto& object : objects)
        for (const auto address : object.definition.groupAddresses)
            m_entries.push_back({address, OneLine(object.name), object.dpt});
    std::stable_sort(m_entries.begin(), m_entries.end(),
                     [](const Entry& a, const Entry& b) { return a.address < b.address; });
    std::vector<Entry> merged;
    for (auto& entry : m_entries) {
        if (merged.empty() || merged.back().address != entry.address) {
            merged.push_back(std::move(entry));
            continue;
        }
        auto& first = merged.back();
        if (first.name.empty())
            first.name = std::move(entry.name);
        if (!first.dpt)
            first.dpt = entry.dpt;
    }
    merged.shrink_to_fit();
    m_entries = std::move(merged);
}

const AddressBook::Entry* AddressBook::Find(KnxFrames::GroupAddress address) const {
    const auto found = std::lower_bound(
        m_entries.begin(), m_entries.end(), address,
        [](const Entry& entry, KnxFrames::GroupAddress wanted) { return entry.address < wanted; });
    return found != m_entries.end() && found->address == address ? &*found : nullptr;
}

TelegramWords Describe(const LData& telegram, const AddressBook& book) {
    TelegramWords words;
    words.source = telegram.source.ToString();
    const auto kind = telegram.Kind();
    if (!telegram.IsToGroup())
        words.destination = telegram.IndividualDestination().ToString();
    else if (telegram.destination == 0)
        words.destination = "broadcast";
    else
        words.destination = telegram.GroupDestination().ToString();
    if (kind == TpduKind::DataGroup) {
        const auto* entry = book.Find(telegram.GroupDestination());
        if (entry != nullptr) {
            words.name = entry->name;
            words.dpt = entry->dpt ? Datapoint::ToString(*entry->dpt) : "";
        }
        if (const auto service = KnxFrames::ReadGroupService(telegram.tpdu)) {
            DescribeGroup(*service, words, entry != nullptr ? entry->dpt : std::nullopt);
            return words;
        }
    }
    DescribeManagement(telegram, kind, words);
    return words;
}

std::string MonitorLine(const TelegramWords& words) {
    auto line = fmt::format("{} -> {}", words.source, words.destination);
    if (!words.name.empty())
        line += fmt::format(" \"{}\"", words.name);
    line += "  " + words.service;
    if (!words.dpt.empty())
        line += "  " + words.dpt;
    if (!words.value.empty())
        line += "  " + words.value;
    if (!words.valueName.empty())
        line += fmt::format(" ({})", words.valueName);
    if (!words.unit.empty())
        line += " " + words.unit;
    if (!words.fault.empty())
        line += fmt::format("  ({})", words.fault);
    if (!words.raw.empty())
        line += fmt::format("  [{}]", words.raw);
    return line;
}

EncodedValue EncodeWrite(const std::string& dpt, const std::string& value) {
    const auto number = Datapoint::Parse(dpt);
    if (!number)
        return {{}, fmt::format("\"{}\" is no datapoint type; write it as 9.001", dpt)};
    if (Datapoint::Find(*number) == nullptr)
        return {{}, fmt::format("{} is no known datapoint type", Datapoint::ToString(*number))};
    TAVVALUE decoded;
    decoded.Deserialize(value);
    KnxStack::GroupValue encoded;
    if (const auto outcome = Datapoint::Encode(Datapoint::ToKnxDpt(*number), decoded, encoded); !outcome)
        return {{}, outcome.reason};
    constexpr auto kWrite = GroupServiceKind::Write;
    if (encoded.GetDefinedSize() <= kBitsInApci)
        return {KnxFrames::MakeGroupShortValue(kWrite, encoded.GetAsUnsigned8()), {}};
    const auto tpdu = KnxFrames::MakeGroupLongValue(kWrite, encoded.GetRawData().Bytes());
    if (!tpdu)
        return {{}, tpdu.Error().cause};
    return {*tpdu, {}};
}

std::optional<std::vector<std::uint8_t>> OctetsOf(std::string_view digits) {
    std::vector<std::uint8_t> octets;
    for (std::size_t i = 0; i < digits.size();) {
        if (digits[i] == ' ' || digits[i] == ':') {
            ++i;
            continue;
        }
        std::uint8_t octet = 0;
        const auto* const begin = digits.data() + i;
        const auto* const end = digits.data() + std::min(i + 2, digits.size());
        const auto [stop, error] = std::from_chars(begin, end, octet, 16);
        if (error != std::errc{} || stop != begin + 2)
            return std::nullopt;
        octets.push_back(octet);
        i += 2;
    }
    return octets;
}

} // namespace KnxStackHost
