#include "FakePropertyService.h"

#include "Recorder.h"

namespace TestSupport {

void FakeProperty::SetActive(int active) {
    m_service.GetRecorder().Add("property " + m_name + " SetActive(" + std::to_string(active) + ")");
}

KnxStack::BinaryData FakeProperty::GetValue() const {
    m_service.faults.Enter("GetValue");
    const std::string who = "property " + m_name;
    InterruptionPoint(m_service.GetRecorder(), who.c_str(), "GetValue");
    m_service.GetRecorder().Add(who + " GetValue() -> " + value.ToString());
    return value;
}

void FakeProperty::SetValue(const KnxStack::BinaryData& newValue) {
    m_service.GetRecorder().Add("property " + m_name + " SetValue(" + newValue.ToString() + ")");
    value = newValue;
}

FakeProperty& FakeInterfaceObject::Add(KnxStack::PropertyId id) {
    return properties.try_emplace(id, m_service, m_name + "/" + std::to_string(id)).first->second;
}

KnxStack::IInterfaceObjectProperty*
FakeInterfaceObject::Create(const char* operation, KnxStack::PropertyId id, const std::string& arguments) {
    const bool works =
        m_service.faults.Enter(operation) && m_service.faults.Enter(operation + (" " + m_name));
    FakeProperty* const property = works ? &Add(id) : nullptr;
    m_service.GetRecorder().Add("object " + m_name + " " + operation + "(" + std::to_string(id) + ", " +
                                arguments + ")" + (works ? "" : " -> null"));
    return property;
}

KnxStack::IInterfaceObjectProperty* FakeInterfaceObject::CreateProperty(KnxStack::PropertyId id,
                                                                        std::uint8_t dataType, int persistent,
                                                                        int writeEnabled) {
    return Create("CreateProperty", id,
                  std::to_string(dataType) + ", " + std::to_string(persistent) + ", " +
                      std::to_string(writeEnabled));
}

KnxStack::IInterfaceObjectProperty*
FakeInterfaceObject::CreateArrayProperty(KnxStack::PropertyId id, std::uint8_t dataType,
                                         std::uint16_t elementCount, int persistent, int writeEnabled) {
    return Create("CreateArrayProperty", id,
                  std::to_string(dataType) + ", " + std::to_string(elementCount) + ", " +
                      std::to_string(persistent) + ", " + std::to_string(writeEnabled));
}

KnxStack::IInterfaceObjectProperty* FakeInterfaceObject::GetProperty(KnxStack::PropertyId id) {
    const auto property = m_service.faults.Enter("GetProperty") ? properties.find(id) : properties.end();
    const std::string who = "object " + m_name;
    InterruptionPoint(m_service.GetRecorder(), who.c_str(), "GetProperty");
    const bool found = property != properties.end();
    m_service.GetRecorder().Add(who + " GetProperty(" + std::to_string(id) + ")" + (found ? "" : " -> null"));
    return found ? &property->second : nullptr;
}

FakeInterfaceObject& FakePropertyService::Add(std::uint16_t type) {
    std::uint16_t instance = 1;
    while (m_objects.contains({type, instance}))
        ++instance;
    const std::string name = std::to_string(type) + "/" + std::to_string(instance);
    return m_objects.try_emplace({type, instance}, *this, name).first->second;
}

FakeInterfaceObject* FakePropertyService::Find(std::uint16_t type, std::uint32_t instance) {
    const auto object = m_objects.find({type, static_cast<std::uint16_t>(instance)});
    return object != m_objects.end() ? &object->second : nullptr;
}

FakeInterfaceObject* FakePropertyService::Answer(const std::string& call, FakeInterfaceObject* object) {
    m_recorder.Add("properties " + call + " -> " + (object != nullptr ? object->Name() : "null"));
    return object;
}

KnxStack::IInterfaceObject* FakePropertyService::CreateInterfaceObject(std::uint16_t type) {
    return Answer("CreateInterfaceObject(" + std::to_string(type) + ")",
                  faults.Enter("CreateInterfaceObject") ? &Add(type) : nullptr);
}

KnxStack::IInterfaceObject* FakePropertyService::GetInterfaceObjectById(std::uint32_t id) {
    return Answer("GetInterfaceObjectById(" + std::to_string(id) + ")",
                  faults.Enter("GetInterfaceObjectById")
                      ? Find(static_cast<std::uint16_t>(id), (id >> 16) + 1)
                      : nullptr);
}

KnxStack::IInterfaceObject* FakePropertyService::GetInterfaceObject(std::uint16_t type,
                                                                    std::uint16_t instance) {
    return Answer("GetInterfaceObject(" + std::to_string(type) + ", " + std::to_string(instance) + ")",
                  faults.Enter("GetInterfaceObject") ? Find(type, instance) : nullptr);
}

} // namespace TestSupport
