// The KNX properties that the plug-ins want: their registration on the interface objects of the KNX stack.
#pragma once

#include "KnxStack/IInterfaceObject.h"
#include "Vesk/KnxAppPrg.h"

#include <log4cplus/logger.h>

#include <cstdint>
#include <vector>

class DscKnxAppPrg;

namespace KnxStack {
class IInterfaceObjectProperty;
class IPropertyService;
} // namespace KnxStack

/// Provides the program's own interface object and further ("extended") ones, as the plug-ins describe them,
/// and registers properties on them. Objects and properties belong to the stack and are never deleted here.
/// Init comes on the host's thread and must not overlap with any other operation; GetKnxPropertyObject on the
/// init thread.
class KnxPropertyHandler {
public:
    using InterfaceObjectList = std::vector<KnxStack::IInterfaceObject*>; // owned by the stack
    /// By the id of the program's own object, and by the type of further ones.
    using InterfaceObjectMap = Vesk::KnxAppPrg::InterfaceObjectMap;
    using ExtendedProperty = Vesk::KnxAppPrg::ExtendedProperty;

    /// The owner is asked for its plug-ins; it outlives the handler.
    explicit KnxPropertyHandler(DscKnxAppPrg& owner);
    ~KnxPropertyHandler();
    KnxPropertyHandler(const KnxPropertyHandler&) = delete;
    KnxPropertyHandler& operator=(const KnxPropertyHandler&) = delete;

    /// Sets up all interface objects and properties; `map` is cleared and filled with the objects. False when
    /// there is no service (the map then stays as it is), when the stack does not have the program's own
    /// object, or when it cannot create a further one; what was registered until then stays. A single
    /// property that cannot be created is only logged. `service` is borrowed until Exit.
    bool Init(KnxStack::IPropertyService* service, InterfaceObjectMap& map);

    /// Registers the properties of the program's own interface object, which the plug-ins number from 1.
    void RegisterKnxProperties(unsigned short objectId) const;

    /// Registers each property on the objects that the map has for its object type.
    void RegisterExtendedKnxProperties(const InterfaceObjectMap& map,
                                       const std::vector<ExtendedProperty>& properties) const;

    /// The property of the program's own interface object; null when there is no such object or property.
    KnxStack::IInterfaceObjectProperty* GetKnxPropertyObject(KnxStack::PropertyId id) const;

    /// Forgets the property service; objects and the caller's map stay as they are.
    void Exit();

private:
    bool ProvideExtendedObjects(const ExtendedProperty& property, InterfaceObjectMap& map) const;

    DscKnxAppPrg& appPrg;
    KnxStack::IPropertyService* propertyService = nullptr; // not owned; null before Init and after Exit
    KnxStack::IInterfaceObject* interfaceObject = nullptr; // not owned
    mutable log4cplus::Logger logger; // the log macros copy a const logger, also for what is not logged
};
