// The group objects of the device as its application program sees them.
#pragma once

#include "KnxDevice/GroupObjectTable.h"
#include "KnxDevice/Snapshot.h"

#include <array>
#include <atomic>
#include <cstdint>

namespace KnxStack {
class IGroupObject;
}

namespace KnxDevice {

/// The current tables, and one IGroupObject per number that keeps its address whatever the tables say: after
/// a replacement the same object answers from the new tables. A view is made when its number is first asked
/// for, in pages, so that unused numbers cost nothing.
class GroupObjects {
public:
    explicit GroupObjects(GroupObjectTable table);
    ~GroupObjects();
    GroupObjects(const GroupObjects&) = delete;
    GroupObjects& operator=(const GroupObjects&) = delete;

    /// Puts other tables in place of the current ones, all at once. One thread at a time.
    void Replace(GroupObjectTable table) { m_table.Replace(std::move(table)); }

    /// The current tables, unchanging while the pin is held. Any thread; waits for nothing.
    Snapshot<GroupObjectTable>::Pin Tables() const { return m_table.Read(); }

    /// The description of the object with the number, existing or not; valid as long as this object. Any
    /// thread; waits for nothing. Exists() of a view is true for application program 1 alone: group
    /// objects belong to it.
    const KnxStack::IGroupObject& View(std::uint16_t number);

private:
    class GroupObjectView;
    struct Page;
    static constexpr unsigned kPageSize = 256;

    Snapshot<GroupObjectTable> m_table;
    std::array<std::atomic<Page*>, 65536 / kPageSize> m_pages{};
};

} // namespace KnxDevice
