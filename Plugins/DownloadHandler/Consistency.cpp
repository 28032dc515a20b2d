#include "Consistency.h"

#include "KnxStack/IInterfaceObject.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace Download {

namespace {

using ProjectFile::Project;
using ProjectFile::Property;
using Vesk::KnxAppPrg::CoDescriptorDataMap;
using Vesk::KnxAppPrg::InterfaceObjectMap;

/// A property and the key of the objects that it is registered on.
struct Definition {
    std::uint16_t object;
    const Property* property;
};

std::vector<Definition> DefinitionsOf(const Project& project) {
    std::vector<Definition> definitions;
    for (const Property& property : project.properties) {
        definitions.push_back({project.interfaceObject, &property});
    }
    for (const ProjectFile::ExtendedProperty& extended : project.extendedProperties) {
        definitions.push_back({extended.objectType, &extended.property});
    }
    return definitions;
}

bool HasObject(const InterfaceObjectMap& interfaceObjects, std::uint16_t key) {
    const auto found = interfaceObjects.find(key);
    return found != interfaceObjects.end() &&
           std::any_of(found->second.begin(), found->second.end(), [](auto* object) { return object; });
}

bool HasProperty(const InterfaceObjectMap& interfaceObjects, const Definition& definition) {
    const auto found = interfaceObjects.find(definition.object);
    return found != interfaceObjects.end() &&
           std::any_of(found->second.begin(), found->second.end(), [&](KnxStack::IInterfaceObject* object) {
               return object && object->GetProperty(definition.property->id);
           });
}

} // namespace

std::string CoFault(const Project& project, const CoDescriptorDataMap& coDescriptors) {
    const auto communicates = [&](std::uint16_t co) {
        const auto found = coDescriptors.find(co);
        return co == 0 || (found != coDescriptors.end() && found->second.communicationEnabled != 0);
    };
    const auto fault = [&](const std::string& user, std::uint16_t co) {
        return fmt::format("{}: CO {} is not one of the {} group objects with communication", user, co,
                           coDescriptors.size());
    };
    for (const ProjectFile::TimeCo& timeCo : project.timeCos) {
        if (!communicates(timeCo.co)) {
            return fault("the clock", timeCo.co);
        }
    }
    for (const ProjectFile::DataPoint& point : project.dataPoints) {
        if (!point.knx) {
            continue;
        }
        for (const std::uint16_t co : {point.knx->readCo, point.knx->writeCo}) {
            if (!communicates(co)) {
                return fault(fmt::format("data point {} \"{}\"", point.id, point.name), co);
            }
        }
    }
    return {};
}

std::string InterfaceObjectFault(const Project& project, const Project* current,
                                 const InterfaceObjectMap& interfaceObjects) {
    if (project.interfaceObject != 0 && !HasObject(interfaceObjects, project.interfaceObject)) {
        return fmt::format("the device does not have the application program's own interface object {}",
                           project.interfaceObject);
    }
    const std::vector<Definition> former = current ? DefinitionsOf(*current) : std::vector<Definition>();
    for (const Definition& definition : DefinitionsOf(project)) {
        const Property& property = *definition.property;
        const auto known = std::find_if(former.begin(), former.end(), [&](const Definition& candidate) {
            return candidate.object == definition.object && candidate.property->id == property.id;
        });
        if (known == former.end() || !HasProperty(interfaceObjects, definition)) {
            continue;
        }
        const Property& registered = *known->property;
        if (registered.dataType != property.dataType || registered.elements != property.elements) {
            return fmt::format(
                "property {} of interface object {} has data type {} and {} elements and would "
                "get {} and {}; give the new one an id of its own",
                property.id, definition.object, registered.dataType, registered.elements, property.dataType,
                property.elements);
        }
    }
    return {};
}

} // namespace Download
