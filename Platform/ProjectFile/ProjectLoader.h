// From the JSON of a project file to a checked Project.
#pragma once

#include "ProjectFile/JsonMembers.h"
#include "ProjectFile/Project.h"
#include "ValueConverter/DatapointTypes.h"

#include <map>

namespace ProjectFile {

/// Builds one Project; what cannot be read is reported and left out.
class Loader {
public:
    static constexpr std::uint64_t kMaxCo = 0xFFFE; ///< FFFFh means "no CO"

    explicit Loader(ErrorList& errors) : m_errors(errors) {}

    Project Load(const boost::json::value& root);

private:
    void ReadKnx(const boost::json::object& object);
    void ReadTimeCos(const JsonMembers& knx, const boost::json::array& timeCos);
    void ReadTranslationRange(const std::string& place, const boost::json::array& range);
    void ReadProperties(JsonMembers& knx);
    std::optional<Property> ReadProperty(JsonMembers& members);
    void ReadDataPoint(const boost::json::value& value, const std::string& place);
    void ReadFixedDataPoint(const boost::json::object& object, const std::string& place, DataPoint& point);
    void ReadFreeDataPoint(const boost::json::object& object, const std::string& place, DataPoint& point);
    void ReadName(JsonMembers& members, DataPoint& point);
    void ReadValueMembers(JsonMembers& members, DataPoint& point);
    void ReadOwner(JsonMembers& members, DataPoint& point);
    void ReadBinding(const boost::json::object& object, const std::string& place, DataPoint& point);
    void ReadCos(JsonMembers& members, KnxBinding& binding);
    std::optional<Datapoint::Number> ReadType(JsonMembers& members);
    void BindClock();
    void CheckPlacesOfCos();
    void ClaimCo(std::uint16_t co, const std::string& place, const std::string& holder);

    DataPoint& Clock() { return m_project.dataPoints[FixedId::kClock - FixedId::kFirst]; }

    ErrorList& m_errors;
    Project m_project;
    std::vector<std::string> m_timeCoPlaces; // of m_project.timeCos, in the same order
    std::map<std::uint32_t, std::string> m_placeOfId;
    std::map<std::string, std::string> m_placeOfName;
    std::map<std::uint16_t, std::string> m_holderOfCo;
};

} // namespace ProjectFile
