// Fixture for the registration of properties.
#pragma once

#include "KnxHandlerTest.h"

/// Plug-in A has its own object, 50001, as the stack has one.
class PropertyTest : public KnxHandlerTest {
protected:
    using ObjectMap = KnxPropertyHandler::InterfaceObjectMap;

    PropertyTest() {
        own.interfaceObjectId = 50001;
        propertyService.Add(50001);
    }

    /// Loads the plug-ins; the record then is empty.
    void Load(std::initializer_list<const char*> names = {"A"}) {
        RegisterPlugins(names);
        (program.*Reach(PrivateMembers::Connect()))();
        (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
        recorder.Clear();
    }

    /// Loads plug-in A and sets everything up.
    bool Init() {
        Load();
        return registration.Init(&propertyService, map);
    }

    KnxStack::IInterfaceObject* Object(std::uint16_t type, std::uint16_t instance = 1) {
        return &propertyService.Object(type, instance);
    }

    TestSupport::FakePlugin& own = plugins["A"];
    ObjectMap map;
    KnxPropertyHandler registration{program};
};
