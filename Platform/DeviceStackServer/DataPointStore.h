// The data points of the project and their values.
#pragma once

#include "DeviceStackProtocol/Messages.h"
#include "DeviceStackServer/Instant.h"
#include "DeviceStackServer/StateImage.h"
#include "ProjectFile/Project.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace DeviceStackServer {

/// A text that many values share: the identity that wrote them.
using SharedText = std::shared_ptr<const std::string>;

struct HistoryEntry {
    std::string text;
    SharedText origin;
    Milliseconds utc{};
    std::uint64_t change = 0;
};

/// The last values of a data point, oldest first, bounded.
class History {
public:
    void Add(HistoryEntry entry, std::size_t limit);
    std::size_t Size() const { return m_entries.size(); }
    const HistoryEntry& At(std::size_t index) const {
        return m_entries[(m_oldest + index) % m_entries.size()];
    }

private:
    std::vector<HistoryEntry> m_entries; // a ring once it is full
    std::size_t m_oldest = 0;
};

/// One data point and its value. "" as text is null.
struct DataPointEntry {
    const ProjectFile::DataPoint* point = nullptr;
    std::string text;
    SharedText origin;
    Milliseconds utc{};
    std::uint64_t change = 0; ///< number of the change that gave the value; 0 = restored or initial
    std::string knownTo;      ///< identity that was handed the value as the owner, so it needs no report
    History history;          ///< without null values

    std::uint32_t Id() const { return point->id; }
    DeviceStack::ValueChanged ToMessage() const;
};

/// Where a value comes from, and with that what it may be.
enum class ValueSource {
    Writer, ///< somebody's wish: a value of the type
    Device, ///< what a device has sent: whatever its octets can hold, also values that the type reserves
};

/// Why a value text does not fit a datapoint type; "" when it does. May bring the text into the type's own
/// spelling.
using ValueCheck = std::function<std::string(const KNXDPT& dpt, ValueSource source, std::string& text)>;

/// Holds the entries of one project at a time. Not synchronised.
class DataPointStore {
public:
    /// `historyLimit`: values kept for each data point.
    DataPointStore(ValueCheck check, std::size_t historyLimit);

    /// Takes over a project. A data point that was there before, by its URN, keeps its value and history if
    /// the value fits its type; else a value of `stored` counts, else its initial value. `stored` is brought
    /// up to date first, so that a data point that is gone may come back with its value. Restored and initial
    /// values are no changes.
    void SetProject(std::shared_ptr<const ProjectFile::Project> project, StateImage& stored,
                    Milliseconds utc);

    bool HasProject() const { return m_project != nullptr; }

    const ProjectFile::Project& Project() const { return *m_project; }

    /// Null when there is no such data point. Entries stay in place until the next SetProject().
    DataPointEntry* Find(const DeviceStack::DataPointName& name);
    DataPointEntry* FindById(std::uint32_t id);

    /// Replaces the value as a new change. `text` is checked by the caller.
    void Record(DataPointEntry& entry, std::string text, SharedText origin, Milliseconds utc);

    /// The same without history, for what the device stack counts itself.
    void RecordQuietly(DataPointEntry& entry, std::string text, SharedText origin, Milliseconds utc);

    /// Number of the last change in this run.
    std::uint64_t LastChange() const { return m_lastChange; }

    /// All entries that changed after `change`, in the order of their changes.
    std::vector<DataPointEntry*> ChangedSince(std::uint64_t change);

    /// All entries by ascending id.
    std::vector<const DataPointEntry*> ById() const;

    /// Brings the values of the project's data points in `image` up to date; others stay.
    void Save(StateImage& image) const;

private:
    void FillFromBefore(DataPointEntry& entry, DataPointEntry& before);
    void FillFromStored(DataPointEntry& entry, const StateImage& stored);
    std::string InitialText(const ProjectFile::DataPoint& point) const;

    const ValueCheck m_check;
    const std::size_t m_historyLimit;
    const SharedText m_self;
    std::shared_ptr<const ProjectFile::Project> m_project;
    std::vector<DataPointEntry> m_entries; // in the order of m_project->dataPoints
    std::uint64_t m_lastChange = 0;
};

} // namespace DeviceStackServer
