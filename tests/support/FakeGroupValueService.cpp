#include "FakeGroupValueService.h"

#include "Recorder.h"

#include <string>

namespace TestSupport {

namespace {

std::string TextOf(const KnxStack::GroupValue& value) {
    return value.GetRawData().ToString() + "/" + std::to_string(value.GetDefinedSize());
}

const char* ResultText(bool result) {
    return result ? ") -> true" : ") -> false";
}

} // namespace

KnxStack::GroupValue Bits(unsigned sizeInBits, std::uint8_t value) {
    return {KnxStack::BinaryData{value}, sizeInBits};
}

KnxStack::GroupValue Octets(std::initializer_list<std::uint8_t> bytes) {
    return {KnxStack::BinaryData(bytes), static_cast<unsigned>(bytes.size() * 8)};
}

class FakeGroupValueService::Delivery {
public:
    explicit Delivery(FakeGroupValueService& service) : m_service(service) {
        const std::lock_guard lock(service.m_mutex);
        m_user = service.m_user;
        ++service.m_deliveries;
        service.m_deliveringThread = std::this_thread::get_id();
    }
    ~Delivery() {
        const std::lock_guard lock(m_service.m_mutex);
        --m_service.m_deliveries;
        m_service.m_deliveringThread = {};
        m_service.m_delivered.notify_all();
    }
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    KnxStack::IGroupValueUser* User() const { return m_user; }

private:
    FakeGroupValueService& m_service;
    KnxStack::IGroupValueUser* m_user;
};

void FakeGroupValueService::Write(int co, const KnxStack::GroupValue& value) {
    const Delivery delivery(*this);
    if (delivery.User() != nullptr)
        delivery.User()->OnGroupValueWrite(co, value);
}

void FakeGroupValueService::Response(int co, const KnxStack::GroupValue& value) {
    const Delivery delivery(*this);
    if (delivery.User() != nullptr)
        delivery.User()->OnGroupValueResponse(co, value);
}

std::optional<KnxStack::GroupValue> FakeGroupValueService::Read(int co) {
    const Delivery delivery(*this);
    KnxStack::GroupValue value;
    if (delivery.User() == nullptr || !delivery.User()->OnGroupValueRead(co, value))
        return std::nullopt;
    return value;
}

KnxStack::IGroupValueUser* FakeGroupValueService::User() {
    const std::lock_guard lock(m_mutex);
    return m_user;
}

void FakeGroupValueService::RegisterGroupValueUser(KnxStack::IGroupValueUser* user) {
    m_recorder.Add(user != nullptr ? "service RegisterGroupValueUser(user)"
                                   : "service RegisterGroupValueUser(null)");
    faults.Enter("RegisterGroupValueUser");
    std::unique_lock lock(m_mutex);
    m_user = user;
    m_delivered.wait(
        lock, [this] { return m_deliveries == 0 || m_deliveringThread == std::this_thread::get_id(); });
}

bool FakeGroupValueService::SendGroupValue(std::uint16_t co, const KnxStack::GroupValue& value,
                                           unsigned kind) {
    const bool taken = faults.Enter("SendGroupValue");
    m_recorder.Add("service SendGroupValue(" + std::to_string(co) + ", " + TextOf(value) + ", " +
                   std::to_string(kind) + ResultText(taken));
    return taken;
}

bool FakeGroupValueService::SendReadRequest(std::uint16_t co) {
    const bool taken = faults.Enter("SendReadRequest");
    m_recorder.Add("service SendReadRequest(" + std::to_string(co) + ResultText(taken));
    return taken;
}

const KnxStack::IGroupObject& FakeGroupValueService::GetGroupObject(std::uint16_t co) {
    const auto object = objects.find(co);
    return object != objects.end() ? object->second : m_noObject;
}

} // namespace TestSupport
