// Interface objects and properties that record.
#pragma once

#include "Faults.h"
#include "KnxStack/BinaryData.h"
#include "KnxStack/IInterfaceObject.h"
#include "KnxStack/IInterfaceObjectProperty.h"
#include "KnxStack/IPropertyService.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace TestSupport {

class FakePropertyService;
class Recorder;

class FakeProperty : public KnxStack::IInterfaceObjectProperty {
public:
    FakeProperty(FakePropertyService& service, std::string name)
        : m_service(service), m_name(std::move(name)) {}

    KnxStack::BinaryData value;

    void SetActive(int active) override;
    KnxStack::BinaryData GetValue() const override;
    void SetValue(const KnxStack::BinaryData& newValue) override;

private:
    FakePropertyService& m_service;
    std::string m_name;
};

class FakeInterfaceObject : public KnxStack::IInterfaceObject {
public:
    FakeInterfaceObject(FakePropertyService& service, std::string name)
        : m_service(service), m_name(std::move(name)) {}

    std::map<KnxStack::PropertyId, FakeProperty> properties;

    /// A property that the object has from the start.
    FakeProperty& Add(KnxStack::PropertyId id);

    KnxStack::IInterfaceObjectProperty* CreateProperty(KnxStack::PropertyId id, std::uint8_t dataType,
                                                       int persistent, int writeEnabled) override;
    KnxStack::IInterfaceObjectProperty* CreateArrayProperty(KnxStack::PropertyId id, std::uint8_t dataType,
                                                            std::uint16_t elementCount, int persistent,
                                                            int writeEnabled) override;
    KnxStack::IInterfaceObjectProperty* GetProperty(KnxStack::PropertyId id) override;

    const std::string& Name() const { return m_name; }

private:
    KnxStack::IInterfaceObjectProperty* Create(const char* operation, KnxStack::PropertyId id,
                                               const std::string& arguments);

    FakePropertyService& m_service;
    std::string m_name;
};

/// The property service as an application program sees it. An object is named "<type>/<instance>", a property
/// "<type>/<instance>/<id>". Recorded as "properties <operation>(<arguments>) -> <object or null>", "object
/// <name> <operation>(<arguments>) -> <property or null>", "property <name> <operation>(<arguments>)".
///
/// The id of an object is its type, with the number of instances before it in the upper 16 bits.
///
/// Faults by operation name, of all objects together; a refusing operation answers null. `CreateProperty` and
/// `CreateArrayProperty` may also be refused for one object: "CreateProperty 50001/2". GetValue cannot
/// refuse. GetProperty and GetValue are interruption points, as calls that wait would be.
class FakePropertyService : public KnxStack::IPropertyService {
public:
    explicit FakePropertyService(Recorder& recorder) : m_recorder(recorder) {}

    Faults faults;

    /// An object that the stack has from the start, as the next instance of its type.
    FakeInterfaceObject& Add(std::uint16_t type);

    /// What was added or created; throws when there is no such object.
    FakeInterfaceObject& Object(std::uint16_t type, std::uint16_t instance = 1) {
        return m_objects.at({type, instance});
    }

    KnxStack::IInterfaceObject* CreateInterfaceObject(std::uint16_t type) override;
    KnxStack::IInterfaceObject* GetInterfaceObjectById(std::uint32_t id) override;
    KnxStack::IInterfaceObject* GetInterfaceObject(std::uint16_t type, std::uint16_t instance) override;

    Recorder& GetRecorder() { return m_recorder; }

private:
    FakeInterfaceObject* Answer(const std::string& call, FakeInterfaceObject* object);
    FakeInterfaceObject* Find(std::uint16_t type, std::uint32_t instance);

    Recorder& m_recorder;
    std::map<std::pair<std::uint16_t, std::uint16_t>, FakeInterfaceObject> m_objects;
};

} // namespace TestSupport
