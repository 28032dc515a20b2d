// The application program as the project file describes it.
#pragma once

#include "ProjectFile/Project.h"
#include "Vesk/IKnxAppPrgHandler.h"

#include <log4cplus/logger.h>

#include <memory>
#include <mutex>
#include <string>

/// Answers from one immutable project, each question in constant time; Reload() puts another one in its place
/// beside running questions. Until Initialize() has read a project nothing is known.
///
/// A KNXDPT that comes with a size and without a main number is filled only when the data point's type has
/// that size; otherwise it stays as it is, so that the value is converted by its size.
class ProjectHandler final : public Vesk::IKnxAppPrgHandler {
public:
    /// `configFile` is the project file; a relative path counts from the directory at this moment.
    explicit ProjectHandler(const std::string& configFile);

    bool Initialize() override;
    std::uint32_t GetIDFromCO(std::uint16_t co, KNXDPT& dpt) override;
    std::string GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) override;
    std::uint16_t GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) override;
    std::uint16_t GetCOFromUrn(const std::string& urn, bool reading, KNXDPT& dpt) override;
    bool IsKnxEventDataPoint(std::uint32_t id) override;
    bool IsKnxEventDataPoint(const std::string& urn) override;
    bool IsOxnReadInternalDataPoint(std::uint32_t id) override;
    bool IsOxnReadInternalDataPoint(const std::string& urn) override;
    /// The same COs for both directions: every one may be sent to and may set the clock.
    std::uint16_t GetTimeCoByIndex(std::uint32_t index, bool writing, KNXDPT& dpt) override;
    std::uint32_t GetInterfaceObjectId() override;
    std::uint32_t GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType, std::string& name,
                                     std::uint16_t& elementCount) override;
    /// The type of the first extended property.
    std::uint32_t GetExtendedInterfaceObjectType() override;
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> GetExtendedProperties() override;
    std::pair<std::uint16_t, std::uint16_t> GetGroupAddressTranslationRange() override;
    bool GetUseUrns() override;
    bool Reload() override;

private:
    using ProjectPointer = std::shared_ptr<const ProjectFile::Project>;

    ProjectPointer Current() const;

    /// Reads the file; on success its project is the current one. Otherwise logs one ERROR that begins with
    /// `operation`.
    bool Load(const char* operation);

    const std::string m_configFile; // absolute; "" when none is configured
    const log4cplus::Logger m_logger;

    mutable std::mutex m_mutex; // guards the pointer below, held only to copy or to replace it
    ProjectPointer m_project;   // never null
};
