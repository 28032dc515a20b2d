// From a Project to the text of a project file.
#include "ProjectFile/FixedDataPoints.h"
#include "ProjectFile/Project.h"
#include "ValueConverter/DatapointTypes.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/string.hpp>

#include <algorithm>

namespace ProjectFile {

namespace json = boost::json;

namespace {

json::string Text(std::string_view text) {
    return json::string(text.data(), text.size());
}

json::object PropertyObject(const Property& property) {
    json::object object;
    object["id"] = property.id;
    if (!property.name.empty()) {
        object["name"] = Text(property.name);
    }
    object["dataType"] = property.dataType;
    if (property.elements != 1) {
        object["elements"] = property.elements;
    }
    return object;
}

json::object ExtendedPropertyObject(const ExtendedProperty& extended) {
    json::object object = PropertyObject(extended.property);
    object["objectType"] = extended.objectType;
    if (extended.instances != 1) {
        object["instances"] = extended.instances;
    }
    return object;
}

json::object TimeCoObject(const TimeCo& timeCo) {
    return {{"co", timeCo.co}, {"dpt", Text(Datapoint::ToString({timeCo.dpt.main, timeCo.dpt.sub}))}};
}

template <typename Items, typename ToObject>
void AddList(json::object& object, std::string_view name, const Items& items, ToObject toObject) {
    if (!items.empty()) {
        json::array& list = object[name].emplace_array();
        std::transform(items.begin(), items.end(), std::back_inserter(list), toObject);
    }
}

json::object KnxObject(const Project& project) {
    json::object knx;
    if (project.identification == Identification::Urn) {
        knx["identification"] = "urn";
    }
    if (project.knxOwner != Project::kDefaultKnxOwner) {
        knx["owner"] = Text(project.knxOwner);
    }
    AddList(knx, "timeCos", project.timeCos, TimeCoObject);
    if (project.translationRange != CoRange{}) {
        knx["translationRange"] = json::array{project.translationRange.first, project.translationRange.last};
    }
    if (project.interfaceObject != 0) {
        knx["interfaceObject"] = project.interfaceObject;
    }
    AddList(knx, "properties", project.properties, PropertyObject);
    AddList(knx, "extendedProperties", project.extendedProperties, ExtendedPropertyObject);
    return knx;
}

json::object BindingObject(const KnxBinding& binding, std::uint32_t id) {
    json::object object;
    if (binding.readCo == binding.writeCo) {
        object["co"] = binding.readCo;
    } else {
        json::object& directions = object["co"].emplace_object();
        if (binding.readCo != 0) {
            directions["read"] = binding.readCo;
        }
        if (binding.writeCo != 0) {
            directions["write"] = binding.writeCo;
        }
    }
    const KnxBinding defaults = DefaultBinding(id);
    if (binding.event != defaults.event) {
        object["event"] = binding.event;
    }
    if (binding.readInternal != defaults.readInternal) {
        object["readInternal"] = binding.readInternal;
    }
    return object;
}

/// The members that only data points without a fixed role have.
void AddFreeMembers(json::object& object, const Project& project, const DataPoint& point) {
    object["name"] = Text(point.name);
    object["dpt"] = Text(point.dptText);
    const auto number = Datapoint::Parse(point.dptText);
    const Datapoint::Type* type = number ? Datapoint::Find(*number) : nullptr;
    if (!type || point.unit != type->unit) {
        object["unit"] = Text(point.unit);
    }
    if (point.access != Access::ReadWrite) {
        object["access"] = Text(ToText(point.access));
    }
    if (point.initial) {
        object["initial"] = Text(*point.initial);
    }
    if (point.persistent) {
        object["persistent"] = true;
    }
    if (point.owner != project.DefaultOwner(point)) {
        object["owner"] = Text(point.owner);
    }
}

json::object PointObject(const Project& project, const DataPoint& point,
                         std::string_view defaultDescription) {
    json::object object;
    object["id"] = point.id;
    if (!point.IsFixed()) {
        AddFreeMembers(object, project, point);
    }
    if (point.description != defaultDescription) {
        object["description"] = Text(point.description);
    }
    if (point.knx) {
        object["knx"] = BindingObject(*point.knx, point.id);
    }
    return object;
}

} // namespace

std::string WriteProject(const Project& project) {
    const std::vector<DataPoint> fixed = FixedDataPoints(project.device);
    std::string text = "{\n\"version\":1,\n\"device\":" + json::serialize(Text(project.device));
    if (const json::object knx = KnxObject(project); !knx.empty()) {
        text += ",\n\"knx\":" + json::serialize(knx);
    }
    text += ",\n\"dataPoints\":[";
    const char* separator = "\n";
    for (const DataPoint& point : project.dataPoints) {
        const std::string_view description =
            point.IsFixed() ? std::string_view(fixed[point.id - FixedId::kFirst].description) : "";
        const json::object object = PointObject(project, point, description);
        if (point.IsFixed() && object.size() == 1) {
            continue; // it is as it would be without being listed
        }
        text += separator + json::serialize(object);
        separator = ",\n";
    }
    return text + "\n]\n}\n";
}

} // namespace ProjectFile
