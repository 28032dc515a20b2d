#include "DeviceStackServer/DataPointStore.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <unordered_map>

namespace DeviceStackServer {

void History::Add(HistoryEntry entry, std::size_t limit) {
    if (limit == 0)
        return;
    if (m_entries.size() < limit) {
        m_entries.push_back(std::move(entry));
        return;
    }
    m_entries[m_oldest] = std::move(entry);
    m_oldest = (m_oldest + 1) % m_entries.size();
}

DeviceStack::ValueChanged DataPointEntry::ToMessage() const {
    return {point->id, point->urn, text, origin ? *origin : std::string(), UtcText(utc), change};
}

DataPointStore::DataPointStore(ValueCheck check, std::size_t historyLimit)
    : m_check(std::move(check)), m_historyLimit(historyLimit),
      m_self(std::make_shared<const std::string>("devicestack")) {}

/// In the type's own spelling, as a written value.
std::string DataPointStore::InitialText(const ProjectFile::DataPoint& point) const {
    auto text = point.initial.value_or("");
    if (!text.empty())
        m_check(point.dpt, ValueSource::Writer, text);
    return text;
}

void DataPointStore::FillFromBefore(DataPointEntry& entry, DataPointEntry& before) {
    const auto* point = entry.point;
    std::string reason;
    if (!before.text.empty() && !point->IsFixed())
        reason = m_check(point->dpt, ValueSource::Device, before.text);
    if (!reason.empty()) {
        LOG4CPLUS_WARN(log4cplus::Logger::getInstance("DeviceStack.Server"),
                       "The value of " << point->urn
                                       << " is dropped, it does not fit its new type: " << reason);
        entry.text = InitialText(*point);
        return;
    }
    entry = std::move(before);
    entry.point = point;
}

void DataPointStore::FillFromStored(DataPointEntry& entry, const StateImage& stored) {
    const auto& point = *entry.point;
    const auto found = stored.values.find(point.urn);
    if (point.persistent && found != stored.values.end()) {
        auto text = found->second.text;
        const auto reason = text.empty() ? std::string() : m_check(point.dpt, ValueSource::Device, text);
        if (reason.empty()) {
            entry.text = std::move(text);
            entry.origin = std::make_shared<const std::string>(found->second.origin);
            entry.utc = found->second.utc;
            return;
        }
        LOG4CPLUS_WARN(log4cplus::Logger::getInstance("DeviceStack.Server"),
                       "The stored value of " << point.urn << " is dropped: " << reason);
    }
    entry.text = InitialText(point);
}

void DataPointStore::SetProject(std::shared_ptr<const ProjectFile::Project> project, StateImage& stored,
                                Milliseconds utc) {
    std::unordered_map<std::string_view, DataPointEntry*> before;
    if (m_project) {
        // A fixed data point keeps its id when the device is renamed.
        for (auto& entry : m_entries)
            before.emplace(entry.point->IsFixed() ? std::string_view(entry.point->name) : entry.point->urn,
                           &entry);
        Save(stored);
    }
    std::vector<DataPointEntry> entries(project->dataPoints.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        auto& entry = entries[i];
        entry.point = &project->dataPoints[i];
        entry.origin = m_self;
        entry.utc = utc;
        const auto found =
            before.find(entry.point->IsFixed() ? std::string_view(entry.point->name) : entry.point->urn);
        if (found != before.end())
            FillFromBefore(entry, *found->second);
        else
            FillFromStored(entry, stored);
    }
    m_entries = std::move(entries);
    m_project = std::move(project);
}

DataPointEntry* DataPointStore::FindById(std::uint32_t id) {
    const auto* point = m_project->FindById(id);
    return point ? &m_entries[static_cast<std::size_t>(point - m_project->dataPoints.data())] : nullptr;
}

DataPointEntry* DataPointStore::Find(const DeviceStack::DataPointName& name) {
    using By = DeviceStack::DataPointName::By;
    const ProjectFile::DataPoint* point = nullptr;
    switch (name.by) {
    case By::Id: point = m_project->FindById(name.id); break;
    case By::Urn: point = m_project->FindByUrn(name.text); break;
    case By::Name: point = m_project->FindByName(name.text); break;
    }
    return point ? &m_entries[static_cast<std::size_t>(point - m_project->dataPoints.data())] : nullptr;
}

void DataPointStore::RecordQuietly(DataPointEntry& entry, std::string text, SharedText origin,
                                   Milliseconds utc) {
    entry.text = std::move(text);
    entry.origin = std::move(origin);
    entry.utc = utc;
    entry.change = ++m_lastChange;
    entry.knownTo.clear();
}

void DataPointStore::Record(DataPointEntry& entry, std::string text, SharedText origin, Milliseconds utc) {
    RecordQuietly(entry, std::move(text), std::move(origin), utc);
    if (!entry.text.empty())
        entry.history.Add({entry.text, entry.origin, entry.utc, entry.change}, m_historyLimit);
}

std::vector<DataPointEntry*> DataPointStore::ChangedSince(std::uint64_t change) {
    std::vector<DataPointEntry*> changed;
    for (auto& entry : m_entries) {
        if (entry.change > change)
            changed.push_back(&entry);
    }
    std::sort(changed.begin(), changed.end(),
              [](const auto* a, const auto* b) { return a->change < b->change; });
    return changed;
}

std::vector<const DataPointEntry*> DataPointStore::ById() const {
    std::vector<const DataPointEntry*> entries;
    entries.reserve(m_entries.size());
    for (const auto& entry : m_entries)
        entries.push_back(&entry);
    std::sort(entries.begin(), entries.end(), [](const auto* a, const auto* b) { return a->Id() < b->Id(); });
    return entries;
}

void DataPointStore::Save(StateImage& image) const {
    for (const auto& entry : m_entries) {
        if (!entry.point->persistent || entry.point->IsFixed())
            image.values.erase(entry.point->urn);
        // What is still at its initial value is not stored, so that another initial value counts later.
        else if (entry.change > 0 || image.values.contains(entry.point->urn))
            image.values[entry.point->urn] = {entry.text, *entry.origin, entry.utc};
    }
}

} // namespace DeviceStackServer
