#include "KnxPropertyHandler.h"

#include "DscKnxAppPrg.h"
#include "KnxStack/IInterfaceObjectProperty.h"
#include "KnxStack/IPropertyService.h"

#include <log4cplus/loggingmacros.h>

#include <string>
#include <utility>

namespace {

constexpr int kNotPersistent = 0;
constexpr int kWriteEnabled = 1;
constexpr int kActive = 1;

void RegisterProperty(const KnxPropertyHandler::InterfaceObjectList& objects,
                      const KnxPropertyHandler::ExtendedProperty& property, const log4cplus::Logger& logger) {
    unsigned count = 0;
    for (KnxStack::IInterfaceObject* const object : objects) {
        KnxStack::IInterfaceObjectProperty* const created =
            property.elementCount > 1
                ? object->CreateArrayProperty(property.propertyId, property.dataType, property.elementCount,
                                              kNotPersistent, kWriteEnabled)
                : object->CreateProperty(property.propertyId, property.dataType, kNotPersistent,
                                         kWriteEnabled);
        if (created != nullptr) {
            ++count;
            created->SetActive(kActive);
        } else {
            LOG4CPLUS_ERROR(logger, "Error register property oid=" << property.objectType
                                                                   << ", pid=" << property.propertyId
                                                                   << ", name=\"" << property.name << "\"");
        }
    }
    // Kept: order and quoting differ from the line above; log filters of integrators match both as they are.
    if (count > 0)
        LOG4CPLUS_INFO(logger, "Registered property oid=" << property.objectType << ", count=" << count
                                                          << ", pid=" << property.propertyId
                                                          << ", name=" << property.name);
}

} // namespace

KnxPropertyHandler::KnxPropertyHandler(DscKnxAppPrg& owner)
    : appPrg(owner), logger(log4cplus::Logger::getInstance("KnxStack.DscKnxAppPrg.KnxPropertyHandler")) {}

KnxPropertyHandler::~KnxPropertyHandler() {
    Exit();
}

bool KnxPropertyHandler::Init(KnxStack::IPropertyService* service, InterfaceObjectMap& map) {
    if (propertyService != nullptr)
        Exit();
    propertyService = service;
    if (service == nullptr) {
        LOG4CPLUS_ERROR(logger, "Property service is NULL.");
        return false;
    }
    map.clear();

    const std::uint32_t id =
        appPrg.Handlers().Ask([](const auto& handlers) { return handlers.GetInterfaceObjectId(); });
    if (id != 0) {
        interfaceObject = service->GetInterfaceObjectById(id);
        if (interfaceObject == nullptr) {
            LOG4CPLUS_ERROR(logger, "Failed to get interface object type " << id);
            return false;
        }
        map[id] = {interfaceObject};
        RegisterKnxProperties(static_cast<unsigned short>(id));
    }

    const std::vector<ExtendedProperty> properties =
        appPrg.Handlers().Ask([](const auto& handlers) { return handlers.GetExtendedProperties(); });
    for (const ExtendedProperty& property : properties) {
        if (!ProvideExtendedObjects(property, map)) {
            LOG4CPLUS_ERROR(logger,
                            "Error creating extended interface object with type = " << property.objectType);
            return false;
        }
    }
    RegisterExtendedKnxProperties(map, properties);
    return true;
}

bool KnxPropertyHandler::ProvideExtendedObjects(const ExtendedProperty& property,
                                                InterfaceObjectMap& map) const {
    if (property.instanceCount == 0 || map.contains(property.objectType))
        return true;
    InterfaceObjectList objects;
    bool created = false;
    for (std::uint32_t instance = 1; instance <= property.instanceCount; ++instance) {
        KnxStack::IInterfaceObject* object = nullptr;
        if (!created) // behind the first one that is missing there are no others to be found
            object = propertyService->GetInterfaceObject(property.objectType,
                                                         static_cast<std::uint16_t>(instance));
        if (object == nullptr) {
            object = propertyService->CreateInterfaceObject(property.objectType);
            created = true;
        }
        if (object == nullptr)
            return false;
        objects.push_back(object);
    }
    map[property.objectType] = std::move(objects);
    return true;
}

void KnxPropertyHandler::RegisterKnxProperties(unsigned short objectId) const {
    if (objectId == 0 || propertyService == nullptr || interfaceObject == nullptr)
        return;
    for (std::uint32_t index = 1;; ++index) {
        ExtendedProperty property;
        const std::uint32_t id = appPrg.Handlers().Ask([&](const auto& handlers) {
            return handlers.GetPropertyByIndex(index, property.dataType, property.name,
                                               property.elementCount);
        });
        if (id == 0)
            return;
        property.propertyId = static_cast<std::uint16_t>(id);
        property.objectType = objectId;
        property.instanceCount = 1;
        RegisterProperty({interfaceObject}, property, logger);
    }
}

void KnxPropertyHandler::RegisterExtendedKnxProperties(
    const InterfaceObjectMap& map, const std::vector<ExtendedProperty>& properties) const {
    for (const ExtendedProperty& property : properties) {
        if (const auto objects = map.find(property.objectType); objects != map.end())
            RegisterProperty(objects->second, property, logger);
    }
}

KnxStack::IInterfaceObjectProperty* KnxPropertyHandler::GetKnxPropertyObject(KnxStack::PropertyId id) const {
    if (interfaceObject != nullptr)
        return interfaceObject->GetProperty(id);
    // Kept: the text names the object that the property was once made for.
    LOG4CPLUS_ERROR(logger, "Error creating calculator configuration interface object");
    return nullptr;
}

void KnxPropertyHandler::Exit() {
    propertyService = nullptr;
}
