#include "KnxStackHost/Configuration/ConfigurationReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace KnxStackHost {

namespace json = boost::json;
using KnxDevice::Flag;
using KnxDevice::GroupObjectDefinition;
using KnxDevice::GroupObjectTable;
using KnxDevice::Priority;
using ProjectFile::Place;

namespace {

struct FlagLetter {
    char letter;
    Flag flag;
};
constexpr std::array<FlagLetter, 6> kFlagLetters = {{{'C', Flag::Communication},
                                                     {'R', Flag::Read},
                                                     {'W', Flag::Write},
                                                     {'T', Flag::Transmit},
                                                     {'U', Flag::Update},
                                                     {'I', Flag::ReadOnInit}}};

struct PriorityName {
    std::string_view name;
    Priority priority;
};
constexpr std::array<PriorityName, 4> kPriorityNames = {{{"system", Priority::System},
                                                         {"normal", Priority::Normal},
                                                         {"urgent", Priority::Urgent},
                                                         {"low", Priority::Low}}};

} // namespace

void ConfigurationReader::ReadGroupObjects(Members& root) {
    const auto* objects = root.Array("groupObjects");
    for (std::size_t i = 0; objects != nullptr && i < objects->size(); ++i) {
        const auto place = Place(root.PlaceOf("groupObjects"), i);
        if (const auto* object = (*objects)[i].if_object())
            ReadGroupObject(*object, place);
        else
            m_errors.Add(place, "must be an object with \"number\", \"flags\", and \"dpt\" or \"size\"");
    }
}

void ConfigurationReader::ReadGroupObject(const json::object& json, const std::string& place) {
    Members members(json, place, m_errors,
                    {"number", "name", "dpt", "size", "flags", "priority", "addresses", "ownTelegrams"});
    ConfiguredObject object;
    members.Require("number");
    if (const auto number = members.Number("number", 1, GroupObjectTable::kMaxObject)) {
        object.definition.number = static_cast<std::uint16_t>(*number);
        const auto [known, isNew] = m_placeOfObject.emplace(object.definition.number, place);
        if (!isNew)
            m_errors.Add(members.PlaceOf("number"),
                         fmt::format("{} is taken by {} already", *number, known->second));
    }
    object.name = members.Text("name").value_or("");
    ReadSize(members, object);
    ReadFlags(members, object.definition);
    ReadPriority(members, object.definition);
    ReadAddresses(members, object.definition);
    object.definition.ownTelegrams = members.Boolean("ownTelegrams").value_or(true);
    m_result.groupObjects.push_back(std::move(object));
}

void ConfigurationReader::ReadSize(Members& members, ConfiguredObject& object) {
    if (!members.Has("dpt") && !members.Has("size"))
        m_errors.Add(members.Place(), "\"dpt\" or \"size\" is missing");
    auto& bits = object.definition.sizeInBits;
    if (const auto size = members.Number("size", 1, std::uint64_t{GroupObjectTable::kMaxValueBytes} * 8)) {
        bits = static_cast<unsigned>(*size);
        if (bits > 7 && bits % 8 != 0)
            m_errors.Add(members.PlaceOf("size"), "must be 1 to 7 bits or a multiple of 8");
    }
    const auto text = members.Text("dpt");
    if (!text)
        return;
    object.dpt = Datapoint::Parse(*text);
    const auto* type = object.dpt ? Datapoint::Find(*object.dpt) : nullptr;
    if (type == nullptr) {
        m_errors.Add(
            members.PlaceOf("dpt"),
            fmt::format("\"{}\" is no known datapoint type; write it like 9.001, or give the \"size\" alone",
                        *text));
        return;
    }
    const auto typeBits = Datapoint::SizeInBits(*type);
    if (typeBits == 0 && bits == 0)
        m_errors.Add(members.PlaceOf("dpt"),
                     fmt::format("{} has values of different length; give the \"size\" too", *text));
    else if (typeBits != 0 && bits != 0 && bits != typeBits)
        m_errors.Add(members.PlaceOf("size"),
                     fmt::format("{} bits, but a value of {} has {}", bits, *text, typeBits));
    if (typeBits != 0)
        bits = typeBits;
    object.definition.fillsUp = typeBits == 0;
}

void ConfigurationReader::ReadFlags(Members& members, GroupObjectDefinition& definition) {
    members.Require("flags");
    const auto letters = members.Text("flags").value_or("");
    for (const char letter : letters) {
        const auto known = std::find_if(kFlagLetters.begin(), kFlagLetters.end(),
                                        [letter](const FlagLetter& entry) { return entry.letter == letter; });
        if (known == kFlagLetters.end() || definition.flags.Has(known->flag)) {
            m_errors.Add(
                members.PlaceOf("flags"),
                fmt::format("\"{}\" must consist of the letters C, R, W, T, U and I, each at most once",
                            letters));
            return;
        }
        definition.flags = definition.flags.With(known->flag);
    }
}

void ConfigurationReader::ReadPriority(Members& members, GroupObjectDefinition& definition) {
    const auto text = members.Text("priority");
    if (!text)
        return;
    const auto known = std::find_if(kPriorityNames.begin(), kPriorityNames.end(),
                                    [&text](const PriorityName& entry) { return entry.name == *text; });
    if (known == kPriorityNames.end())
        m_errors.Add(members.PlaceOf("priority"), "must be \"system\", \"normal\", \"urgent\" or \"low\"");
    else
        definition.priority = known->priority;
}

void ConfigurationReader::ReadAddresses(Members& members, GroupObjectDefinition& definition) {
    const auto* addresses = members.Array("addresses");
    auto& known = definition.groupAddresses;
    for (std::size_t i = 0; addresses != nullptr && i < addresses->size(); ++i) {
        const auto place = Place(members.PlaceOf("addresses"), i);
        const auto* text = (*addresses)[i].if_string();
        if (text == nullptr) {
            m_errors.Add(place, "must be a group address such as \"1/2/3\"");
            continue;
        }
        const std::string_view written(text->data(), text->size());
        const auto address = KnxFrames::GroupAddress::Parse(written);
        if (!address)
            m_errors.Add(place,
                         fmt::format("\"{}\" is no group address: {}", written, address.Error().cause));
        else if (address->raw == 0)
            m_errors.Add(place, "0/0/0 is the broadcast address, no group");
        else if (std::find(known.begin(), known.end(), *address) != known.end())
            m_errors.Add(place, fmt::format("{} is listed already", written));
        else
            known.push_back(*address);
    }
}

} // namespace KnxStackHost
