#include "KnxDevice/PropertyAccess.h"

#include "KnxDevice/PropertyDataTypes.h"

#include <algorithm>

namespace KnxDevice {

using KnxStack::BinaryData;
using KnxStack::PropertyId;

namespace {

std::vector<std::uint8_t> CountOf(std::size_t elements) {
    return {static_cast<std::uint8_t>(elements >> 8), static_cast<std::uint8_t>(elements)};
}

/// Octets of one element. A value of variable length is one element, whatever it holds.
std::size_t ElementSize(const PropertyDescription& property, std::size_t valueSize) {
    const auto size = SizeOfPropertyElement(property.dataType);
    return size.IsVariable() ? std::max<std::size_t>(valueSize, 1) : std::max<std::size_t>(size.least, 1);
}

std::optional<std::vector<std::uint8_t>> Extract(const PropertyDescription& property, Octets value,
                                                 ElementRange elements) {
    const auto elementSize = ElementSize(property, value.size());
    const auto there = value.size() / elementSize;
    if (elements.start == 0)
        return elements.count == 1 ? std::optional(CountOf(there)) : std::nullopt;
    if (elements.count == 0 || elements.start + elements.count - 1u > there)
        return std::nullopt;
    const auto part = value.subspan((elements.start - 1u) * elementSize, elements.count * elementSize);
    return std::vector<std::uint8_t>(part.begin(), part.end());
}

/// Puts the elements into the whole value, unless they do not fit.
WriteResult Insert(const PropertyDescription& property, std::vector<std::uint8_t>& value,
                   ElementRange elements, Octets octets) {
    const auto size = SizeOfPropertyElement(property.dataType);
    if (elements.start == 0 || elements.count == 0 ||
        elements.start + elements.count - 1u > property.mostElements)
        return WriteResult::NoSuchElement;
    if (size.IsVariable()) {
        if (property.mostElements != 1 || !size.Fits(octets.size(), 1))
            return WriteResult::WrongLength;
        value.assign(octets.begin(), octets.end());
        return WriteResult::Done;
    }
    if (octets.size() != std::size_t{size.least} * elements.count)
        return WriteResult::WrongLength;
    // All elements are there once one of them is.
    value.resize(std::size_t{size.least} * property.mostElements);
    std::copy(octets.begin(), octets.end(),
              value.begin() + static_cast<std::ptrdiff_t>((elements.start - 1u) * size.least));
    return WriteResult::Done;
}

/// Whether `level` may write it.
WriteResult Admit(const PropertyDescription& property, AccessLevel level) {
    if (!property.writeEnabled)
        return WriteResult::ReadOnly;
    return level <= property.writeLevel ? WriteResult::Done : WriteResult::Denied;
}

WriteResult WriteStandard(const StandardProperty& property, ElementRange elements, Octets octets) {
    if (property.description.dataType == kControl) { // an event, not the state that is read
        if (elements.start != 1 || elements.count != 1)
            return WriteResult::NoSuchElement;
        return octets.empty() ? WriteResult::WrongLength : property.write(octets);
    }
    std::vector<std::uint8_t> scratch;
    const auto former = property.read(scratch);
    std::vector<std::uint8_t> value(former.begin(), former.end());
    const auto result = Insert(property.description, value, elements, octets);
    return result == WriteResult::Done ? property.write(value) : result;
}

} // namespace

PropertyAccess::PropertyAccess(Device& device)
    : m_device(device), m_standard(MakeStandardProperties(device)) {}

const StandardProperty* PropertyAccess::FindStandard(std::size_t object, PropertyId id) const {
    if (object >= m_standard.size())
        return nullptr;
    const auto& properties = m_standard[object];
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [id](const StandardProperty& each) { return each.description.id == id; });
    return found == properties.end() ? nullptr : &*found;
}

std::optional<std::vector<std::uint8_t>>
PropertyAccess::Read(std::size_t object, PropertyId id, ElementRange elements, AccessLevel level) const {
    if (const auto* standard = FindStandard(object, id)) {
        std::vector<std::uint8_t> scratch;
        return level <= standard->description.readLevel
                   ? Extract(standard->description, standard->read(scratch), elements)
                   : std::nullopt;
    }
    auto* const made = m_device.Objects().At(object);
    if (id == kObjectType && made != nullptr)
        return Extract({.id = id, .dataType = kUnsignedInt},
                       CountOf(m_device.Objects().IdentityAt(object).type), elements);
    const auto* const property = made == nullptr ? nullptr : made->FindShown(id);
    if (property == nullptr || level > property->Describe(id).readLevel)
        return std::nullopt;
    return Extract(property->Describe(id), property->GetValue().Bytes(), elements);
}

WriteResult PropertyAccess::Write(std::size_t object, PropertyId id, ElementRange elements, Octets octets,
                                  AccessLevel level) {
    if (const auto* standard = FindStandard(object, id)) {
        const auto admitted = Admit(standard->description, level);
        return admitted == WriteResult::Done ? WriteStandard(*standard, elements, octets) : admitted;
    }
    auto* const made = m_device.Objects().At(object);
    if (id == kObjectType && made != nullptr)
        return WriteResult::ReadOnly;
    auto* const property = made == nullptr ? nullptr : made->FindShown(id);
    if (property == nullptr)
        return WriteResult::NoSuchProperty;
    const auto admitted = Admit(property->Describe(id), level);
    if (admitted != WriteResult::Done)
        return admitted;
    const auto former = property->GetValue();
    std::vector<std::uint8_t> value(former.Bytes().begin(), former.Bytes().end());
    const auto result = Insert(property->Describe(id), value, elements, octets);
    if (result != WriteResult::Done)
        return result;
    property->SetValue(BinaryData(value));
    if (property->IsPersistent())
        m_device.PropertyWritten();
    return result;
}

std::optional<PropertyAccess::Place> PropertyAccess::Describe(std::size_t object, PropertyId id,
                                                              std::uint8_t index) const {
    auto* const made = m_device.Objects().At(object);
    if (made == nullptr)
        return std::nullopt;
    std::vector<PropertyDescription> all;
    if (object < m_standard.size()) {
        for (const auto& each : m_standard[object])
            all.push_back(each.description);
    } else {
        all.push_back({.id = kObjectType, .dataType = kUnsignedInt});
    }
    for (const auto shown : made->ShownIds()) {
        const auto* const property = made->FindShown(shown);
        const bool hidden = std::any_of(
            all.begin(), all.end(), [shown](const PropertyDescription& each) { return each.id == shown; });
        if (property != nullptr && !hidden)
            all.push_back(property->Describe(shown));
    }
    for (std::size_t place = 0; place < all.size() && place < 256; ++place)
        if (id != 0 ? all[place].id == id : place == index)
            return Place{all[place], static_cast<std::uint8_t>(place)};
    return std::nullopt;
}

std::optional<std::size_t> PropertyAccess::FindObject(std::uint16_t type, std::uint16_t instance) const {
    const auto& objects = m_device.Objects();
    for (std::size_t index = 0; index < objects.Count(); ++index)
        if (objects.IdentityAt(index) == InterfaceObjects::Identity{type, instance})
            return index;
    return std::nullopt;
}

} // namespace KnxDevice
