// Stand-ins for the bus and for the program's receiver of group telegrams.
#pragma once

#include "KnxDevice/GroupObjectTable.h"
#include "KnxStack/GroupValue.h"
#include "KnxStack/IGroupValueUser.h"
#include "KnxStackHost/Program/GroupValueService.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace KnxStackHost {

/// Takes telegrams until it is full.
class FakeOutlet final : public BusOutlet {
public:
    struct Sent {
        KnxFrames::LData telegram;
        std::uint16_t sender;
    };

    bool Submit(const KnxFrames::LData& telegram, std::uint16_t sender) override {
        const std::lock_guard lock(m_mutex);
        if (m_sent.size() >= m_room)
            return false;
        m_sent.push_back({telegram, sender});
        return true;
    }

    std::vector<Sent> All() {
        const std::lock_guard lock(m_mutex);
        return m_sent;
    }

    void LimitTo(std::size_t room) { m_room = room; }

private:
    std::mutex m_mutex;
    std::vector<Sent> m_sent;
    std::size_t m_room = 1000;
};

/// Writes callbacks down and does what it is told inside them.
class FakeUser : public KnxStack::IGroupValueUser {
public:
    std::function<void(int)> inside; ///< called in each callback, with the object
    KnxStack::GroupValue answer;
    bool answers = false;

    void OnGroupValueWrite(int co, const KnxStack::GroupValue& value) override {
        Take("write " + std::to_string(co) + " " + value.GetRawData().ToString(), co);
    }
    void OnGroupValueResponse(int co, const KnxStack::GroupValue& value) override {
        Take("response " + std::to_string(co) + " " + value.GetRawData().ToString(), co);
    }
    bool OnGroupValueRead(int co, KnxStack::GroupValue& value) override {
        Take("read " + std::to_string(co), co);
        if (answers)
            value = answer;
        return answers;
    }

    std::vector<std::string> Calls() {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }

private:
    void Take(std::string call, int co) {
        {
            const std::lock_guard lock(m_mutex);
            m_calls.push_back(std::move(call));
        }
        if (inside)
            inside(co);
    }

    std::mutex m_mutex;
    std::vector<std::string> m_calls;
};

/// Object 1: one bit at 1/2/3, all flags. Object 2: a byte at 1/2/4, flags C and W.
inline KnxDevice::GroupObjectTable TestTable() {
    std::vector<KnxDevice::GroupObjectDefinition> definitions(2);
    definitions[0].number = 1;
    definitions[0].sizeInBits = 1;
    definitions[0].flags.bits = 0x1F;
    definitions[0].groupAddresses = {KnxDevice::GroupAddress(1, 2, 3)};
    definitions[1].number = 2;
    definitions[1].sizeInBits = 8;
    definitions[1].flags =
        KnxDevice::Flags{}.With(KnxDevice::Flag::Communication).With(KnxDevice::Flag::Write);
    definitions[1].groupAddresses = {KnxDevice::GroupAddress(1, 2, 4)};
    return KnxDevice::GroupObjectTable(definitions);
}

inline Callback WriteTo(std::uint16_t object, std::uint8_t value) {
    return {object, KnxFrames::GroupServiceKind::Write, {KnxStack::BinaryData{value}, object == 1 ? 1u : 8u}};
}

} // namespace KnxStackHost
