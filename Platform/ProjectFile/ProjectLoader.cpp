#include "ProjectFile/ProjectLoader.h"

#include "ProjectFile/FixedDataPoints.h"
#include "ProjectFile/NameRules.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace ProjectFile {

namespace json = boost::json;

namespace {
constexpr std::uint64_t kVersion = 1; // of the file's format
} // namespace

Project Loader::Load(const json::value& root) {
    if (!root.is_object()) {
        m_errors.Add("/", "must be an object with \"version\", \"device\" and \"dataPoints\"");
        return {};
    }
    JsonMembers members(root.get_object(), "", m_errors, {"version", "device", "knx", "dataPoints"});
    if (members.Require("version")) {
        const auto version = members.Number("version", 1, 0xFFFF'FFFF);
        if (version && *version != kVersion) {
            m_errors.Add(members.PlaceOf("version"),
                         fmt::format("{} is a version that this program does not know; it reads version {}",
                                     *version, kVersion));
        }
    }
    if (members.Require("device")) {
        m_project.device = members.Text("device").value_or("");
        if (const std::string fault = DeviceFault(m_project.device); !fault.empty()) {
            m_errors.Add(members.PlaceOf("device"), fault);
        }
    }
    m_project.dataPoints = FixedDataPoints(m_project.device);
    for (const DataPoint& fixed : m_project.dataPoints) {
        m_placeOfName[fixed.name] = fmt::format("the fixed data point {}", fixed.id);
    }
    if (const json::object* knx = members.Object("knx")) {
        ReadKnx(*knx);
    }
    if (members.Require("dataPoints")) {
        if (const json::array* points = members.Array("dataPoints")) {
            for (std::size_t i = 0; i < points->size(); ++i) {
                ReadDataPoint((*points)[i], Place(members.PlaceOf("dataPoints"), i));
            }
        }
    }
    BindClock();
    CheckPlacesOfCos();
    return std::move(m_project);
}

void Loader::ReadKnx(const json::object& object) {
    JsonMembers knx(object, "/knx", m_errors,
                    {"identification", "owner", "timeCos", "translationRange", "interfaceObject",
                     "properties", "extendedProperties"});
    if (const auto identification = knx.Text("identification")) {
        if (*identification != "id" && *identification != "urn") {
            m_errors.Add(knx.PlaceOf("identification"), "must be \"id\" or \"urn\"");
        }
        m_project.identification = *identification == "urn" ? Identification::Urn : Identification::Id;
    }
    if (const auto owner = knx.Text("owner")) {
        m_project.knxOwner = *owner;
        if (!IsIdentity(*owner)) {
            m_errors.Add(
                knx.PlaceOf("owner"),
                "must be an identity \"name::type::instance\" of letters (a to z), digits, '.', '_' and '-'");
        }
    }
    if (const json::array* timeCos = knx.Array("timeCos")) {
        ReadTimeCos(knx, *timeCos);
    }
    if (const json::array* range = knx.Array("translationRange")) {
        ReadTranslationRange(knx.PlaceOf("translationRange"), *range);
    }
    ReadProperties(knx);
}

void Loader::ReadTimeCos(const JsonMembers& knx, const json::array& timeCos) {
    for (std::size_t i = 0; i < timeCos.size(); ++i) {
        const std::string place = Place(knx.PlaceOf("timeCos"), i);
        if (!timeCos[i].is_object()) {
            m_errors.Add(place, "must be an object with \"co\" and \"dpt\"");
            continue;
        }
        JsonMembers members(timeCos[i].get_object(), place, m_errors, {"co", "dpt"});
        members.Require("co");
        const auto co = members.Number("co", 1, kMaxCo);
        const auto type = ReadType(members);
        if (!co || !type) {
            continue;
        }
        if (type->main != 10 && type->main != 11 && type->main != 19) {
            m_errors.Add(members.PlaceOf("dpt"),
                         "a time CO carries 10.001 (time), 11.001 (date) or 19.001 (both)");
            continue;
        }
        m_project.timeCos.push_back({static_cast<std::uint16_t>(*co), Datapoint::ToKnxDpt(*type)});
        m_timeCoPlaces.push_back(members.PlaceOf("co"));
    }
}

void Loader::ReadTranslationRange(const std::string& place, const json::array& range) {
    if (range.size() != 2) {
        m_errors.Add(place, "must be two numbers, the first and the last CO: [900, 910]");
        return;
    }
    const auto first = NumberOf(range[0], Place(place, std::size_t{0}), 1, kMaxCo, m_errors);
    const auto last = NumberOf(range[1], Place(place, std::size_t{1}), 1, kMaxCo, m_errors);
    if (!first || !last) {
        return;
    }
    if (*first > *last) {
        m_errors.Add(place, fmt::format("the first CO, {}, is behind the last, {}", *first, *last));
        return;
    }
    m_project.translationRange = {static_cast<std::uint16_t>(*first), static_cast<std::uint16_t>(*last)};
}

std::optional<Property> Loader::ReadProperty(JsonMembers& members) {
    Property property;
    bool complete = members.Require("id");
    complete = members.Require("dataType") && complete;
    const auto id = members.Number("id", 1, 0xFFFF);
    const auto dataType = members.Number("dataType", 0, 0xFF);
    property.name = members.Text("name").value_or("");
    property.elements = static_cast<std::uint16_t>(members.Number("elements", 1, 0xFFFF).value_or(1));
    if (!complete || !id || !dataType) {
        return std::nullopt;
    }
    property.id = static_cast<std::uint16_t>(*id);
    property.dataType = static_cast<std::uint8_t>(*dataType);
    return property;
}

void Loader::ReadProperties(JsonMembers& knx) {
    m_project.interfaceObject =
        static_cast<std::uint16_t>(knx.Number("interfaceObject", 0, 0xFFFF).value_or(0));
    const auto forEach = [&](std::string_view name, const auto& read) {
        const json::array* list = knx.Array(name);
        for (std::size_t i = 0; list && i < list->size(); ++i) {
            const std::string place = Place(knx.PlaceOf(name), i);
            if ((*list)[i].is_object()) {
                read((*list)[i].get_object(), place);
            } else {
                m_errors.Add(place, "must be an object that describes a property");
            }
        }
    };
    forEach("properties", [this](const json::object& object, const std::string& place) {
        JsonMembers members(object, place, m_errors, {"id", "name", "dataType", "elements"});
        if (auto property = ReadProperty(members)) {
            m_project.properties.push_back(std::move(*property));
        }
    });
    if (!m_project.properties.empty() && m_project.interfaceObject == 0) {
        m_errors.Add(knx.PlaceOf("properties"),
                     "properties need the \"interfaceObject\" that they belong to");
    }
    forEach("extendedProperties", [this](const json::object& object, const std::string& place) {
        JsonMembers members(object, place, m_errors,
                            {"id", "name", "dataType", "elements", "objectType", "instances"});
        members.Require("objectType");
        const auto objectType = members.Number("objectType", 1, 0xFFFF);
        const auto instances = members.Number("instances", 0, 0xFF);
        auto property = ReadProperty(members);
        if (property && objectType) {
            m_project.extendedProperties.push_back({std::move(*property),
                                                    static_cast<std::uint16_t>(*objectType),
                                                    static_cast<std::uint16_t>(instances.value_or(1))});
        }
    });
}

std::optional<Datapoint::Number> Loader::ReadType(JsonMembers& members) {
    members.Require("dpt");
    const auto text = members.Text("dpt");
    if (!text) {
        return std::nullopt;
    }
    const auto type = Datapoint::Parse(*text);
    if (!type) {
        m_errors.Add(members.PlaceOf("dpt"),
                     fmt::format("\"{}\" is no datapoint type; write it like 9.001", *text));
    } else if (!Datapoint::Find(*type)) {
        m_errors.Add(members.PlaceOf("dpt"),
                     fmt::format("datapoint type {} is not known; 'dsctl types' lists all", *text));
        return std::nullopt;
    }
    return type;
}

/// The clock and the time COs belong together: the clock's own CO is one of them, and a clock without a CO of
/// its own answers with the first of them, so that its changes are sent.
void Loader::BindClock() {
    DataPoint& clock = Clock();
    if (!m_project.timeCos.empty()) {
        if (!clock.knx) {
            clock.knx = KnxBinding{.readInternal = true};
        }
        if (clock.knx->readCo == 0 && clock.knx->writeCo == 0) {
            clock.knx->readCo = clock.knx->writeCo = m_project.timeCos.front().co;
        }
    }
    if (!clock.knx) {
        return;
    }
    for (const std::uint16_t co : {clock.knx->writeCo, clock.knx->readCo}) {
        const bool listed = std::any_of(m_project.timeCos.begin(), m_project.timeCos.end(),
                                        [co](const TimeCo& timeCo) { return timeCo.co == co; });
        if (co != 0 && !listed) {
            m_project.timeCos.push_back({co, clock.dpt});
            m_timeCoPlaces.push_back(Place(Place(m_placeOfId[clock.id], "knx"), "co"));
        }
    }
}

void Loader::CheckPlacesOfCos() {
    for (std::size_t i = 0; i < m_project.timeCos.size(); ++i) {
        ClaimCo(m_project.timeCos[i].co, m_timeCoPlaces[i], m_timeCoPlaces[i]);
    }
    for (const DataPoint& point : m_project.dataPoints) {
        if (!point.knx || point.id == FixedId::kClock) {
            continue;
        }
        const std::string place = Place(Place(m_placeOfId[point.id], "knx"), "co");
        const std::string holder = fmt::format("{} (\"{}\")", m_placeOfId[point.id], point.name);
        ClaimCo(point.knx->readCo, place, holder);
        if (point.knx->writeCo != point.knx->readCo) {
            ClaimCo(point.knx->writeCo, place, holder);
        }
    }
}

void Loader::ClaimCo(std::uint16_t co, const std::string& place, const std::string& holder) {
    if (co == 0) {
        return;
    }
    if (m_project.translationRange.Contains(co)) {
        m_errors.Add(
            place, fmt::format("CO {} is in the translation range {} to {}; its telegrams would never reach "
                               "the data point",
                               co, m_project.translationRange.first, m_project.translationRange.last));
    }
    if (const auto [former, isNew] = m_holderOfCo.try_emplace(co, holder); !isNew) {
        m_errors.Add(place, fmt::format("CO {} is already taken by {}", co, former->second));
    }
}

LoadResult ParseProject(std::string_view text, const std::string& fileName) {
    ErrorList errors(fileName);
    LoadResult result;
    if (const auto root = ParseJson(text, errors)) {
        auto project = std::make_shared<Project>(Loader(errors).Load(*root));
        if (errors.Empty()) {
            project->BuildIndex();
            result.project = std::move(project);
        }
    }
    result.errors = errors.Take();
    return result;
}

LoadResult LoadProject(const std::string& path) {
    std::string text;
    std::ifstream file(path, std::ios::binary);
    const bool opened = file.is_open();
    for (char block[65536]; file.read(block, sizeof block) || file.gcount() > 0;) {
        text.append(block, static_cast<std::size_t>(file.gcount()));
    }
    if (!opened || file.bad()) {
        return {nullptr, {fmt::format("{}: cannot be read: {}", path, std::strerror(errno))}};
    }
    return ParseProject(text, path);
}

} // namespace ProjectFile
