#include "ProjectHandler.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <exception>
#include <filesystem>

namespace {

using ProjectFile::DataPoint;
using ProjectFile::Project;

/// True when a value of the type can have the size, both modulo 256. A type of variable length has size 0 and
/// holds whole octets.
bool HasSize(const KNXDPT& type, std::uint8_t sizeInBits) {
    return type.sizeInBits != 0 ? type.sizeInBits == sizeInBits : sizeInBits % 8 == 0;
}

/// Answers what type a CO has. A size that the caller knows is a condition.
void FillIn(const KNXDPT& type, KNXDPT& dpt) {
    const bool sizeIsKnown = dpt.main == 0 && dpt.sizeInBits != 0;
    if (sizeIsKnown && !HasSize(type, dpt.sizeInBits)) {
        return;
    }
    dpt.main = type.main;
    dpt.sub = type.sub;
    if (!sizeIsKnown) {
        dpt.sizeInBits = type.sizeInBits;
    }
}

std::uint16_t CoOf(const Project& project, const DataPoint* point, bool reading, KNXDPT& dpt) {
    if (!point || !point->knx) {
        return ProjectHandler::kNoCo;
    }
    const std::uint16_t co = reading ? point->knx->readCo : point->knx->writeCo;
    const auto type = project.DptOfCo(co);
    if (!type) {
        return ProjectHandler::kNoCo;
    }
    FillIn(*type, dpt);
    return co;
}

bool IsEvent(const DataPoint* point) {
    return point && point->knx && point->knx->event;
}

bool IsReadInternal(const DataPoint* point) {
    return point && point->knx && point->knx->readInternal;
}

std::string AbsolutePath(const std::string& path) {
    return path.empty() ? path : std::filesystem::absolute(path).string();
}

} // namespace

ProjectHandler::ProjectHandler(const std::string& configFile)
    : m_configFile(AbsolutePath(configFile)),
      m_logger(log4cplus::Logger::getInstance("KnxStack.ProjectHandler")),
      m_project(std::make_shared<const Project>()) {}

bool ProjectHandler::Initialize() {
    return Load("Initialize()");
}

bool ProjectHandler::Reload() {
    return Load("Reload()");
}

bool ProjectHandler::Load(const char* operation) {
    try {
        if (m_configFile.empty()) {
            LOG4CPLUS_ERROR(m_logger, operation
                                          << ": No project file; name one in the attribute \"ConfigFile\" of "
                                             "\"knxappprghandlers.xml\".");
            return false;
        }
        ProjectFile::LoadResult result = ProjectFile::LoadProject(m_configFile);
        if (!result) {
            LOG4CPLUS_ERROR(m_logger, operation << ": Project refused: " << result.Error());
            return false;
        }
        LOG4CPLUS_INFO(m_logger, operation << ": Project " << m_configFile << " has "
                                           << result.project->dataPoints.size() << " data points.");
        const std::lock_guard lock(m_mutex);
        m_project.swap(result.project); // the former one is released after the lock
        return true;
    } catch (const std::exception& error) {
        LOG4CPLUS_ERROR(m_logger, operation << ": Project refused: " << m_configFile << ": " << error.what());
        return false;
    }
}

ProjectHandler::ProjectPointer ProjectHandler::Current() const {
    const std::lock_guard lock(m_mutex);
    return m_project;
}

std::uint32_t ProjectHandler::GetIDFromCO(std::uint16_t co, KNXDPT& dpt) {
    const ProjectPointer project = Current();
    const DataPoint* point = project->FindByCo(co);
    if (!point) {
        return 0;
    }
    FillIn(*project->DptOfCo(co), dpt);
    return point->id;
}

std::string ProjectHandler::GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) {
    const ProjectPointer project = Current();
    const DataPoint* point = project->FindByCo(co);
    if (!point) {
        return {};
    }
    FillIn(*project->DptOfCo(co), dpt);
    return point->name;
}

std::uint16_t ProjectHandler::GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) {
    const ProjectPointer project = Current();
    return CoOf(*project, project->FindById(id), reading, dpt);
}

std::uint16_t ProjectHandler::GetCOFromUrn(const std::string& urn, bool reading, KNXDPT& dpt) {
    const ProjectPointer project = Current();
    return CoOf(*project, project->FindByName(urn), reading, dpt);
}

bool ProjectHandler::IsKnxEventDataPoint(std::uint32_t id) {
    return IsEvent(Current()->FindById(id));
}

bool ProjectHandler::IsKnxEventDataPoint(const std::string& urn) {
    return IsEvent(Current()->FindByName(urn));
}

bool ProjectHandler::IsOxnReadInternalDataPoint(std::uint32_t id) {
    return IsReadInternal(Current()->FindById(id));
}

bool ProjectHandler::IsOxnReadInternalDataPoint(const std::string& urn) {
    return IsReadInternal(Current()->FindByName(urn));
}

std::uint16_t ProjectHandler::GetTimeCoByIndex(std::uint32_t index, bool, KNXDPT& dpt) {
    const ProjectPointer project = Current();
    if (index == 0 || index > project->timeCos.size()) {
        return kNoCo;
    }
    const ProjectFile::TimeCo& timeCo = project->timeCos[index - 1];
    FillIn(timeCo.dpt, dpt);
    return timeCo.co;
}

std::uint32_t ProjectHandler::GetInterfaceObjectId() {
    return Current()->interfaceObject;
}

std::uint32_t ProjectHandler::GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType,
                                                 std::string& name, std::uint16_t& elementCount) {
    const ProjectPointer project = Current();
    if (index == 0 || index > project->properties.size()) {
        return 0;
    }
    const ProjectFile::Property& property = project->properties[index - 1];
    dataType = property.dataType;
    name = property.name;
    elementCount = property.elements;
    return property.id;
}

std::uint32_t ProjectHandler::GetExtendedInterfaceObjectType() {
    const ProjectPointer project = Current();
    return project->extendedProperties.empty() ? 0 : project->extendedProperties.front().objectType;
}

std::vector<Vesk::KnxAppPrg::ExtendedProperty> ProjectHandler::GetExtendedProperties() {
    const ProjectPointer project = Current();
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> properties;
    properties.reserve(project->extendedProperties.size());
    for (const auto& [property, objectType, instances] : project->extendedProperties) {
        properties.push_back(
            {property.name, property.id, property.dataType, property.elements, objectType, instances});
    }
    return properties;
}

std::pair<std::uint16_t, std::uint16_t> ProjectHandler::GetGroupAddressTranslationRange() {
    const ProjectFile::CoRange range = Current()->translationRange;
    return {range.first, range.last};
}

bool ProjectHandler::GetUseUrns() {
    return Current()->identification == ProjectFile::Identification::Urn;
}
