#include "KnxDevice/GroupObjects.h"

#include "KnxStack/IGroupObject.h"

#include <memory>

namespace KnxDevice {

class GroupObjects::GroupObjectView final : public KnxStack::IGroupObject {
public:
    void Assign(const GroupObjects& objects, std::uint16_t number) {
        m_objects = &objects;
        m_number = number;
    }

    bool Exists(int applicationProgram) const override { return applicationProgram == 1 && Get().Exists(); }

    bool IsCommunicationEnabled() const override { return Get().flags.Has(Flag::Communication); }

    std::uint8_t GetSizeCode() const override {
        const auto bits = Get().sizeInBits;
        return static_cast<std::uint8_t>(bits < 8 ? bits : 8);
    }

    unsigned GetLengthInBytes() const override { return Get().Bytes(); }

    std::int16_t GetElementWidth() const override { return static_cast<std::int16_t>(Get().sizeInBits); }

    std::int16_t GetElementCount() const override { return Get().Exists() ? 1 : 0; }

private:
    GroupObject Get() const { return m_objects->Tables()->Object(m_number); }

    const GroupObjects* m_objects = nullptr;
    std::uint16_t m_number = 0;
};

struct GroupObjects::Page {
    std::array<GroupObjectView, kPageSize> views;
};

GroupObjects::GroupObjects(GroupObjectTable table) : m_table(std::move(table)) {}

GroupObjects::~GroupObjects() {
    for (auto& page : m_pages)
        delete page.load();
}

const KnxStack::IGroupObject& GroupObjects::View(std::uint16_t number) {
    auto& slot = m_pages[number / kPageSize];
    auto* page = slot.load(std::memory_order_acquire);
    if (page == nullptr) {
        auto made = std::make_unique<Page>();
        for (unsigned i = 0; i < kPageSize; ++i)
            made->views[i].Assign(*this, static_cast<std::uint16_t>(number / kPageSize * kPageSize + i));
        // Two threads may make the same page; the one that comes second uses the first one's.
        if (slot.compare_exchange_strong(page, made.get(), std::memory_order_acq_rel))
            page = made.release();
    }
    return page->views[number % kPageSize];
}

} // namespace KnxDevice
