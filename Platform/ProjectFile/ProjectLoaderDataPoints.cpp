// The "dataPoints" of a project file.
#include "ProjectFile/ProjectLoader.h"

#include "KnxStack/GroupValue.h"
#include "ProjectFile/NameRules.h"
#include "Tav/TAVVALUE.h"

#include <fmt/format.h>

namespace ProjectFile {

namespace json = boost::json;

namespace {
constexpr std::uint64_t kMaxId = 0xFFFF'FFFE; // FFFFFFFFh is no valid id
} // namespace

void Loader::ReadDataPoint(const json::value& value, const std::string& place) {
    if (!value.is_object()) {
        m_errors.Add(place, "must be an object with \"id\", \"name\" and \"dpt\"");
        return;
    }
    const json::object& object = value.get_object();
    const json::value* idValue = object.if_contains("id");
    if (!idValue) {
        m_errors.Add(place, "\"id\" is missing");
        return;
    }
    const auto id = NumberOf(*idValue, Place(place, "id"), 1, kMaxId, m_errors);
    if (!id) {
        return;
    }
    DataPoint point;
    point.id = static_cast<std::uint32_t>(*id);
    if (const auto [former, isNew] = m_placeOfId.try_emplace(point.id, place); !isNew) {
        m_errors.Add(Place(place, "id"),
                     fmt::format("id {} is already taken by {}", point.id, former->second));
        return;
    }
    if (point.IsFixed()) {
        ReadFixedDataPoint(object, place, m_project.dataPoints[point.id - FixedId::kFirst]);
    } else {
        ReadFreeDataPoint(object, place, point);
        m_project.dataPoints.push_back(std::move(point));
    }
}

void Loader::ReadFixedDataPoint(const json::object& object, const std::string& place, DataPoint& point) {
    for (const auto& member : object) {
        const std::string_view name(member.key().data(), member.key().size());
        if (name != "id" && name != "knx" && name != "description") {
            m_errors.Add(
                Place(place, name),
                fmt::format("data point {} (\"{}\") is fixed; only \"knx\" and \"description\" may be given",
                            point.id, point.name));
            return;
        }
    }
    JsonMembers members(object, place, m_errors, {"id", "knx", "description"});
    if (const auto description = members.Text("description")) {
        point.description = *description;
    }
    if (const json::object* knx = members.Object("knx")) {
        ReadBinding(*knx, members.PlaceOf("knx"), point);
    }
    if (point.knx && (point.id == FixedId::kDevice || point.id == FixedId::kVersion)) {
        m_errors.Add(members.PlaceOf("knx"),
                     fmt::format("data point {} (\"{}\") is a text of any length; it cannot be bound",
                                 point.id, point.name));
    }
}

void Loader::ReadFreeDataPoint(const json::object& object, const std::string& place, DataPoint& point) {
    JsonMembers members(
        object, place, m_errors,
        {"id", "name", "dpt", "unit", "description", "access", "initial", "persistent", "owner", "knx"});
    ReadName(members, point);
    ReadValueMembers(members, point);
    if (const json::object* knx = members.Object("knx")) {
        ReadBinding(*knx, members.PlaceOf("knx"), point);
    }
    ReadOwner(members, point);
}

void Loader::ReadName(JsonMembers& members, DataPoint& point) {
    members.Require("name");
    const auto name = members.Text("name");
    if (!name) {
        return;
    }
    point.name = *name;
    point.urn = m_project.UrnPrefix() + point.name;
    if (const std::string fault = NameFault(point.name); !fault.empty()) {
        m_errors.Add(members.PlaceOf("name"), fault);
        return;
    }
    if (const auto [former, isNew] = m_placeOfName.try_emplace(point.name, members.Place()); !isNew) {
        m_errors.Add(members.PlaceOf("name"),
                     fmt::format("name \"{}\" is already taken by {}", point.name, former->second));
    }
}

void Loader::ReadValueMembers(JsonMembers& members, DataPoint& point) {
    const auto type = ReadType(members);
    if (type) {
        point.dpt = Datapoint::ToKnxDpt(*type);
        point.dptText = Datapoint::ToString(*type);
        point.unit = Datapoint::Find(*type)->unit;
    }
    point.unit = members.Text("unit").value_or(point.unit);
    point.description = members.Text("description").value_or("");
    point.persistent = members.Boolean("persistent").value_or(false);
    if (const auto access = members.Text("access")) {
        if (*access != "r" && *access != "w" && *access != "rw") {
            m_errors.Add(members.PlaceOf("access"), "must be \"r\", \"w\" or \"rw\"");
        }
        point.access = *access == "r" ? Access::Read : *access == "w" ? Access::Write : Access::ReadWrite;
    }
    point.initial = members.Text("initial");
    if (point.initial && type) {
        TAVVALUE value;
        value.Deserialize(*point.initial);
        KnxStack::GroupValue groupValue;
        if (const auto outcome = Datapoint::Encode(point.dpt, value, groupValue); !outcome) {
            m_errors.Add(members.PlaceOf("initial"), outcome.reason);
        }
    }
}

void Loader::ReadOwner(JsonMembers& members, DataPoint& point) {
    const auto owner = members.Text("owner");
    if (owner && !owner->empty() && !IsIdentity(*owner)) {
        m_errors.Add(members.PlaceOf("owner"), "must be an identity \"name::type::instance\" of letters (a "
                                               "to z), digits, '.', '_' and '-', or \"\" for nobody");
        return;
    }
    point.owner = owner ? *owner : m_project.DefaultOwner(point);
}

void Loader::ReadBinding(const json::object& object, const std::string& place, DataPoint& point) {
    JsonMembers members(object, place, m_errors, {"co", "event", "readInternal"});
    KnxBinding binding = DefaultBinding(point.id);
    binding.event = members.Boolean("event").value_or(binding.event);
    binding.readInternal = members.Boolean("readInternal").value_or(binding.readInternal);
    const bool coFollowsFromTimeCos = point.id == FixedId::kClock && !m_project.timeCos.empty();
    if (members.Has("co") || (!coFollowsFromTimeCos && members.Require("co"))) {
        ReadCos(members, binding);
    }
    point.knx = binding;
}

void Loader::ReadCos(JsonMembers& members, KnxBinding& binding) {
    const std::string place = members.PlaceOf("co");
    const json::value& value = members.At("co");
    if (!value.is_object()) {
        binding.readCo = static_cast<std::uint16_t>(NumberOf(value, place, 1, kMaxCo, m_errors).value_or(0));
        binding.writeCo = binding.readCo;
        return;
    }
    JsonMembers directions(value.get_object(), place, m_errors, {"read", "write"});
    if (!directions.Has("read") && !directions.Has("write")) {
        m_errors.Add(place, "must name a CO to \"read\", to \"write\", or both");
    }
    binding.readCo = static_cast<std::uint16_t>(directions.Number("read", 1, kMaxCo).value_or(0));
    binding.writeCo = static_cast<std::uint16_t>(directions.Number("write", 1, kMaxCo).value_or(0));
}

} // namespace ProjectFile
