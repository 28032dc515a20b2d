// Group communication that records, with a bus that the test plays.
#pragma once

#include "Faults.h"
#include "KnxStack/GroupValue.h"
#include "KnxStack/IGroupObject.h"
#include "KnxStack/IGroupValueService.h"
#include "KnxStack/IGroupValueUser.h"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

namespace TestSupport {

class Recorder;

/// One row of a group object table; does not exist until it is given a size.
class FakeGroupObject : public KnxStack::IGroupObject {
public:
    FakeGroupObject() = default;

    /// `sizeInBits` 1 to 7 or a multiple of 8.
    explicit FakeGroupObject(unsigned sizeInBits, bool communicationEnabled = true)
        : m_sizeInBits(sizeInBits), m_communicationEnabled(communicationEnabled) {}

    bool Exists(int applicationProgram) const override {
        return applicationProgram == 1 && m_sizeInBits != 0;
    }
    bool IsCommunicationEnabled() const override { return m_communicationEnabled; }
    std::uint8_t GetSizeCode() const override {
        return static_cast<std::uint8_t>(m_sizeInBits < 8 ? m_sizeInBits : 8);
    }
    unsigned GetLengthInBytes() const override { return (m_sizeInBits + 7) / 8; }
    std::int16_t GetElementWidth() const override { return static_cast<std::int16_t>(m_sizeInBits); }
    std::int16_t GetElementCount() const override { return m_sizeInBits != 0 ? 1 : 0; }

private:
    unsigned m_sizeInBits = 0;
    bool m_communicationEnabled = false;
};

/// The group value service as an application program sees it, and the bus behind it.
///
/// Recorded as "service <operation>(<arguments>)", a send with " -> true" or " -> false"; values as
/// "<raw hex>/<bits>". GetGroupObject is not recorded. Faults by operation name: SendGroupValue and
/// SendReadRequest refuse with false.
class FakeGroupValueService : public KnxStack::IGroupValueService {
public:
    explicit FakeGroupValueService(Recorder& recorder) : m_recorder(recorder) {}

    std::map<std::uint16_t, FakeGroupObject> objects; ///< to be set while no program is using the service
    Faults faults;

    // The bus: telegrams for the registered user, delivered on the calling thread, which plays the thread of
    // the KNX stack. Without a user nothing happens, and a read has no answer.
    void Write(int co, const KnxStack::GroupValue& value);
    void Response(int co, const KnxStack::GroupValue& value);
    std::optional<KnxStack::GroupValue> Read(int co);

    /// The registered user; null when there is none.
    KnxStack::IGroupValueUser* User();

    void RegisterGroupValueUser(KnxStack::IGroupValueUser* user) override;
    bool SendGroupValue(std::uint16_t co, const KnxStack::GroupValue& value, unsigned kind) override;
    bool SendReadRequest(std::uint16_t co) override;
    const KnxStack::IGroupObject& GetGroupObject(std::uint16_t co) override;

private:
    class Delivery; // keeps RegisterGroupValueUser waiting while it lives

    Recorder& m_recorder;
    const FakeGroupObject m_noObject;
    std::mutex m_mutex;
    std::condition_variable m_delivered;
    KnxStack::IGroupValueUser* m_user = nullptr; // under m_mutex
    unsigned m_deliveries = 0;                   // under m_mutex
    std::thread::id m_deliveringThread;          // under m_mutex
};

/// A group value of 1 to 7 bits.
KnxStack::GroupValue Bits(unsigned sizeInBits, std::uint8_t value);

/// A group value of whole bytes in telegram order.
KnxStack::GroupValue Octets(std::initializer_list<std::uint8_t> bytes);

} // namespace TestSupport
