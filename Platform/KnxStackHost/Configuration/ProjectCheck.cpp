#include "KnxStackHost/Configuration/ProjectCheck.h"

#include "ProjectFile/Project.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace KnxStackHost {

namespace {

using KnxDevice::Flag;
using KnxDevice::InterfaceObjectDefinition;
using ProjectFile::Project;

/// What the application program registers as: its setting "DscInstanceId" makes the last part.
std::string IdentityOfProgram(const Configuration& configuration) {
    const auto& settings = configuration.program.settings;
    const auto instance = settings.find("DscInstanceId");
    return "DscKnxAppPrg::field::" + (instance == settings.end() ? "KNX" : instance->second);
}

class Comparison {
public:
    Comparison(const Configuration& configuration, const Project& project)
        : m_interfaceObjects(configuration.interfaceObjects), m_project(project),
          m_identity(IdentityOfProgram(configuration)) {
        for (const auto& object : configuration.groupObjects)
            m_objects.emplace(object.definition.number, &object);
    }

    ProjectFindings Run() {
        CheckOwner();
        CheckInterfaceObject();
        CheckProperties();
        for (const auto& point : m_project.dataPoints) {
            if (!point.knx || point.id == ProjectFile::FixedId::kClock)
                continue; // the clock's COs are those of timeCos
            const auto user = fmt::format("data point {} \"{}\"", point.id, point.name);
            Check(user, point.knx->readCo);
            if (point.knx->writeCo != point.knx->readCo)
                Check(user, point.knx->writeCo);
        }
        for (const auto& timeCo : m_project.timeCos)
            Check("the clock", timeCo.co);
        for (const auto& [number, object] : m_objects)
            if (!m_bound.contains(number) && !m_project.translationRange.Contains(number))
                m_findings.notes.push_back(
                    fmt::format("group object {} \"{}\" is bound to no data point", number, object->name));
        return std::move(m_findings);
    }

private:
    void CheckOwner() {
        if (m_project.knxOwner != m_identity)
            m_findings.faults.push_back(
                fmt::format("/knx/owner: is {}, but the application program registers as {}; its setting "
                            "\"DscInstanceId\" and the owner must agree",
                            m_project.knxOwner, m_identity));
    }

    /// Without it the application program does not start.
    void CheckInterfaceObject() {
        const auto id = m_project.interfaceObject;
        const auto isIt = [id](const auto& object) { return IdOf(object) == id; };
        if (id != 0 && std::none_of(m_interfaceObjects.begin(), m_interfaceObjects.end(), isIt))
            m_findings.faults.push_back(fmt::format(
                "/knx/interfaceObject: the device has no interface object {}; name it in /interfaceObjects",
                id));
    }

    /// What the device has with another shape, the application program cannot register.
    void CheckProperties() {
        for (const auto& object : m_interfaceObjects) {
            if (IdOf(object) == m_project.interfaceObject)
                for (const auto& wanted : m_project.properties)
                    CheckProperty(object, wanted);
            for (const auto& wanted : m_project.extendedProperties)
                if (object.type == wanted.objectType && object.instance <= wanted.instances)
                    CheckProperty(object, wanted.property);
        }
    }

    void CheckProperty(const InterfaceObjectDefinition& object, const ProjectFile::Property& wanted) {
        for (const auto& property : object.properties)
            if (property.id == wanted.id &&
                (property.dataType != wanted.dataType || property.elements != wanted.elements))
                m_findings.faults.push_back(
                    fmt::format("interface object {}: property {}: the device has data type {} with {} "
                                "elements, the project {} with {}",
                                IdOf(object), wanted.id, property.dataType, property.elements,
                                wanted.dataType, wanted.elements));
    }

    static std::uint32_t IdOf(const InterfaceObjectDefinition& object) {
        return KnxDevice::InterfaceObjects::IdOf(object.type, object.instance);
    }

    void Check(const std::string& user, std::uint16_t co) {
        if (co == 0)
            return;
        m_bound.insert(co);
        const auto found = m_objects.find(co);
        if (found == m_objects.end()) {
            AddFault(user, co, "there is no such group object");
            return;
        }
        const auto& object = *found->second;
        if (!object.definition.flags.Has(Flag::Communication))
            AddFault(user, co, "the group object lacks flag C, so that it neither sends nor receives");
        if (m_project.translationRange.Contains(co))
            AddFault(user, co, "the CO lies in the range whose telegrams go to another application");
        if (const auto dpt = m_project.DptOfCo(co))
            CheckType(user, object, *dpt);
    }

    void CheckType(const std::string& user, const ConfiguredObject& object, const KNXDPT& dpt) {
        const auto co = object.definition.number;
        if (object.dpt && object.dpt->main != dpt.main) {
            AddFault(user, co,
                     fmt::format("the group object is a {}, the data point a {}.{:03}",
                                 Datapoint::ToString(*object.dpt), dpt.main, dpt.sub));
            return;
        }
        const auto* type = Datapoint::Find({dpt.main, dpt.sub});
        const auto bits = type == nullptr ? 0 : Datapoint::SizeInBits(*type);
        if (bits != 0 && bits != object.definition.sizeInBits)
            AddFault(user, co,
                     fmt::format("the group object has {} bits, a value of {} has {}",
                                 object.definition.sizeInBits, Datapoint::ToString(type->GetNumber()), bits));
    }

    void AddFault(const std::string& user, std::uint16_t co, const std::string& cause) {
        m_findings.faults.push_back(fmt::format("{}: CO {}: {}", user, co, cause));
    }

    const std::vector<InterfaceObjectDefinition>& m_interfaceObjects;
    const Project& m_project;
    const std::string m_identity;                               // of the application program
    std::map<std::uint16_t, const ConfiguredObject*> m_objects; // by number
    std::set<std::uint16_t> m_bound;
    ProjectFindings m_findings;
};

} // namespace

void CheckProjectFile(Configuration& configuration) {
    if (configuration.project.empty())
        return;
    const auto loaded = ProjectFile::LoadProject(configuration.project);
    if (!loaded)
        throw ConfigurationError(loaded.Error());
    configuration.translationRange = loaded.project->translationRange;
    for (auto& object : configuration.groupObjects)
        if (loaded.project->translationRange.Contains(object.definition.number))
            object.definition.ownTelegrams = false;
}

ProjectFindings CompareWithProject(const Configuration& configuration, const Project& project) {
    return Comparison(configuration, project).Run();
}

} // namespace KnxStackHost
