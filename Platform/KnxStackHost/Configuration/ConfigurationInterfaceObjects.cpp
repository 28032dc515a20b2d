#include "KnxDevice/Device.h"
#include "KnxDevice/PropertyDataTypes.h"
#include "KnxStackHost/Configuration/ConfigurationReader.h"

#include <fmt/format.h>

#include <charconv>
#include <set>

namespace KnxStackHost {

namespace json = boost::json;
using KnxDevice::InterfaceObject;
using KnxDevice::InterfaceObjects;
using ProjectFile::Place;

std::optional<std::vector<std::uint8_t>> ConfigurationReader::BytesOfDigits(std::string_view digits) {
    if (digits.size() % 2 != 0)
        return std::nullopt;
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        std::uint8_t byte = 0;
        const auto* const end = digits.data() + i + 2;
        if (std::from_chars(digits.data() + i, end, byte, 16).ptr != end)
            return std::nullopt;
        bytes.push_back(byte);
    }
    return bytes;
}

void ConfigurationReader::ReadInterfaceObjects(Members& root) {
    const auto* objects = root.Array("interfaceObjects");
    for (std::size_t i = 0; objects != nullptr && i < objects->size(); ++i) {
        const auto place = Place(root.PlaceOf("interfaceObjects"), i);
        if (const auto* object = (*objects)[i].if_object())
            ReadInterfaceObject(*object, place);
        else
            m_errors.Add(place, "must be an object with \"type\" and \"properties\"");
    }
    const auto count = KnxDevice::CountInterfaceObjects(m_result.interfaceObjects);
    if (count > InterfaceObjects::kMostObjects)
        m_errors.Add(
            root.PlaceOf("interfaceObjects"),
            fmt::format("the device would have {} interface objects, with the {} that every device has; "
                        "there is room for {}",
                        count, KnxDevice::kStandardObjects, InterfaceObjects::kMostObjects));
}

void ConfigurationReader::ReadInterfaceObject(const json::object& json, const std::string& place) {
    Members members(json, place, m_errors, {"type", "instances", "properties"});
    members.Require("type");
    const auto type = static_cast<std::uint16_t>(members.Number("type", 1, 0xFFFF).value_or(0));
    const auto instances = members.Number("instances", 1, InterfaceObjects::kMostObjects).value_or(1);
    KnxDevice::InterfaceObjectDefinition definition{type, 0, {}};
    std::set<std::uint16_t> known;
    const auto* properties = members.Array("properties");
    for (std::size_t i = 0; properties != nullptr && i < properties->size(); ++i) {
        const auto placeOfProperty = Place(members.PlaceOf("properties"), i);
        const auto* object = (*properties)[i].if_object();
        if (object == nullptr) {
            m_errors.Add(placeOfProperty, "must be an object with \"id\" and \"dataType\"");
            continue;
        }
        Members property(*object, placeOfProperty, m_errors, {"id", "dataType", "elements", "value"});
        definition.properties.push_back(ReadProperty(property));
        const auto id = definition.properties.back().id;
        if (id != 0 && !known.insert(id).second)
            m_errors.Add(property.PlaceOf("id"), fmt::format("the object has a property {} already", id));
    }
    if (known.size() > InterfaceObject::kMostProperties)
        m_errors.Add(members.PlaceOf("properties"),
                     fmt::format("an interface object can have at most {} properties, not {}",
                                 InterfaceObject::kMostProperties, known.size()));
    for (std::uint64_t i = 0; i < instances; ++i) {
        definition.instance = ++m_instancesOfType[type];
        m_result.interfaceObjects.push_back(definition);
    }
}

KnxDevice::PropertyDefinition ConfigurationReader::ReadProperty(Members& members) {
    KnxDevice::PropertyDefinition property;
    if (members.Require("id"))
        property.id = static_cast<std::uint16_t>(members.Number("id", 1, 0xFFFF).value_or(0));
    property.elements = static_cast<std::uint16_t>(members.Number("elements", 1, 0xFFFF).value_or(1));
    const auto dataType =
        members.Require("dataType") ? members.Number("dataType", 0, 0xFF) : std::optional<std::uint64_t>();
    if (!dataType)
        return property;
    property.dataType = static_cast<std::uint8_t>(*dataType);
    const auto size = KnxDevice::SizeOfPropertyElement(property.dataType);
    if (!size.IsUsable())
        m_errors.Add(
            members.PlaceOf("dataType"),
            fmt::format("{} is no property data type with a value; 17 to 36 have 1 to 20 bytes", *dataType));
    else
        ReadPropertyValue(members, size, property);
    return property;
}

void ConfigurationReader::ReadPropertyValue(Members& members, const KnxDevice::PropertyElementSize& size,
                                            KnxDevice::PropertyDefinition& property) {
    const auto digits = members.Text("value");
    if (!digits)
        return;
    const auto place = members.PlaceOf("value");
    const auto bytes = BytesOfDigits(*digits);
    if (!bytes) {
        m_errors.Add(place, fmt::format("\"{}\" must be bytes of two hexadecimal digits each, such as \"40\"",
                                        *digits));
        return;
    }
    property.value.emplace(*bytes);
    if (size.Fits(bytes->size(), property.elements))
        return;
    const auto least = std::size_t{size.least} * property.elements;
    const auto most = std::size_t{size.most} * property.elements;
    m_errors.Add(place, fmt::format("has {} bytes; data type {} with {} elements needs {}", bytes->size(),
                                    property.dataType, property.elements,
                                    size.IsVariable() ? fmt::format("{} to {}", least, most)
                                                      : fmt::format("{}", least)));
}

} // namespace KnxStackHost
