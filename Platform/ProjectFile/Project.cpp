#include "ProjectFile/Project.h"

#include "ProjectFile/JsonMembers.h"

#include <fmt/format.h>

#include <algorithm>

namespace ProjectFile {

namespace {
constexpr std::string_view kUrnBegin = "urn:oxn:dp:";
} // namespace

std::string_view ToText(Access access) {
    switch (access) {
    case Access::Read: return "r";
    case Access::Write: return "w";
    case Access::ReadWrite: break;
    }
    return "rw";
}

std::string Project::UrnPrefix() const {
    return fmt::format("{}{}:", kUrnBegin, device);
}

KnxBinding DefaultBinding(std::uint32_t id) {
    KnxBinding binding;
    // The restart trigger must never travel back to the bus: sending it there restarts the device.
    binding.event = id != FixedId::kRestart;
    binding.readInternal = id >= FixedId::kFirst && id <= FixedId::kLast;
    return binding;
}

std::string Project::DefaultOwner(const DataPoint& point) const {
    return point.knx && !point.knx->readInternal ? knxOwner : std::string();
}

bool Project::operator==(const Project& other) const {
    return device == other.device && identification == other.identification && knxOwner == other.knxOwner &&
           dataPoints == other.dataPoints && timeCos == other.timeCos &&
           translationRange == other.translationRange && interfaceObject == other.interfaceObject &&
           properties == other.properties && extendedProperties == other.extendedProperties;
}

const DataPoint* Project::FindById(std::uint32_t id) const {
    const auto found = m_byId.find(id);
    return found != m_byId.end() ? &dataPoints[found->second] : nullptr;
}

const DataPoint* Project::FindByName(std::string_view name) const {
    const auto found = m_byName.find(name);
    return found != m_byName.end() ? &dataPoints[found->second] : nullptr;
}

const DataPoint* Project::FindByUrn(std::string_view urn) const {
    if (!urn.starts_with(kUrnBegin)) {
        return nullptr;
    }
    urn.remove_prefix(kUrnBegin.size());
    if (!urn.starts_with(device)) {
        return nullptr;
    }
    urn.remove_prefix(device.size());
    if (urn.empty()) {
        return FindById(FixedId::kDevice);
    }
    const DataPoint* found = urn.front() == ':' ? FindByName(urn.substr(1)) : nullptr;
    return found && found->id != FixedId::kDevice ? found : nullptr;
}

const DataPoint* Project::FindByCo(std::uint16_t co) const {
    return co < m_byCo.size() && m_byCo[co].place != 0 ? &dataPoints[m_byCo[co].place - 1] : nullptr;
}

std::optional<KNXDPT> Project::DptOfCo(std::uint16_t co) const {
    return FindByCo(co) ? std::optional(m_byCo[co].dpt) : std::nullopt;
}

void Project::BuildIndex() {
    m_byId.clear();
    m_byName.clear();
    m_byCo.clear();
    const auto bind = [this](std::uint16_t co, std::uint32_t place, const KNXDPT& dpt) {
        if (co != 0) {
            m_byCo.resize(std::max<std::size_t>(m_byCo.size(), co + std::size_t{1}));
            m_byCo[co] = {place + 1, dpt};
        }
    };
    for (std::uint32_t place = 0; place < dataPoints.size(); ++place) {
        const DataPoint& point = dataPoints[place];
        m_byId.emplace(point.id, place);
        m_byName.emplace(point.name, place);
        if (point.knx) {
            bind(point.knx->readCo, place, point.dpt);
            bind(point.knx->writeCo, place, point.dpt);
        }
        if (point.id == FixedId::kClock) {
            for (const TimeCo& timeCo : timeCos) {
                bind(timeCo.co, place, timeCo.dpt);
            }
        }
    }
}

std::string LoadResult::Error() const {
    return FirstOf(errors);
}

} // namespace ProjectFile
