#include "KnxDevice/Management.h"

#include <algorithm>
#include <array>

namespace KnxDevice {

using KnxFrames::LData;
using KnxFrames::MakeApdu;
using KnxFrames::Priority;
using KnxFrames::TpduKind;

namespace {

// Operands of network parameter reads: "who is in programming mode?".
constexpr std::uint8_t kInProgrammingMode = 0x01;
constexpr std::uint16_t kDeviceObjectType = 0;
constexpr std::uint16_t kSerialNumberId = 11;
constexpr std::size_t kSerialNumberSize = 6;

std::uint16_t Number16(Octets octets) {
    return static_cast<std::uint16_t>(octets[0] << 8 | octets[1]);
}

bool IsSerialNumber(Octets octets, const SerialNumber& number) {
    return octets.size() >= number.size() && std::equal(number.begin(), number.end(), octets.begin());
}

} // namespace

Management::Management(Device& device, ManagementListener& listener)
    : m_device(device), m_listener(listener), m_properties(device), m_connection(*this) {}

void Management::OnTelegram(TimePoint now, const LData& telegram) {
    m_now = now;
    const auto kind = telegram.Kind();
    if (kind == TpduKind::DataBroadcast) {
        OnBroadcast(telegram);
        return;
    }
    if (telegram.IsToGroup() || telegram.IndividualDestination() != m_device.Address())
        return;
    m_asked = {telegram.source, false, telegram.GetPriority()};
    if (kind == TpduKind::DataIndividual)
        OnPointToPoint(telegram.tpdu);
    else
        m_connection.OnTpdu(now, telegram.source, kind, telegram.tpdu);
}

void Management::OnTime(TimePoint now) {
    m_now = now;
    m_connection.OnTime(now);
}

// The transport connection.

void Management::SendTo(IndividualAddress to, const Tpdu& tpdu) {
    LData telegram;
    telegram.code = KnxFrames::MessageCode::LDataReq;
    telegram.control2 = static_cast<std::uint8_t>(m_device.HopCount() << 4);
    telegram.SetPriority(PriorityOf(tpdu));
    telegram.destination = to.raw;
    telegram.tpdu = tpdu;
    m_listener.SendTelegram(telegram);
}

/// What keeps the connection itself (3/3/4) has the highest one; data that goes through it has that of the
/// last request through it, however late it is sent or repeated.
Priority Management::PriorityOf(const Tpdu& tpdu) const {
    switch (KnxFrames::ClassifyTpdu(tpdu, false, 0)) {
    case TpduKind::DataIndividual: return m_asked.priority;
    case TpduKind::DataConnected: return m_connectionPriority;
    default: return Priority::System;
    }
}

void Management::OnData(const Tpdu& tpdu) {
    m_asked.connected = true;
    m_connectionPriority = m_asked.priority;
    OnPointToPoint(tpdu);
}

void Management::OnOpened(IndividualAddress partner) {
    m_level = m_device.FreeLevel();
    m_listener.OnConnection(partner, true);
}

void Management::OnClosed(IndividualAddress partner) {
    m_listener.OnConnection(partner, false);
}

// By broadcast.

void Management::OnBroadcast(const LData& telegram) {
    const auto apdu = KnxFrames::ReadApdu(telegram.tpdu);
    if (!apdu)
        return;
    const bool system = (telegram.control1 & LData::kBroadcast) == 0;
    m_asked = {telegram.source, false, telegram.GetPriority()};
    switch (apdu->service) {
    case Service::IndividualAddressWrite:
        if (m_device.IsInProgrammingMode() && apdu->data.size() == 2)
            m_device.SetAddress(IndividualAddress(Number16(apdu->data)));
        break;
    case Service::IndividualAddressRead:
        if (m_device.IsInProgrammingMode())
            Broadcast(MakeApdu(Service::IndividualAddressResponse), false);
        break;
    case Service::IndividualAddressSerialNumberRead:
        if (IsSerialNumber(apdu->data, m_device.Identity().serialNumber)) {
            // The answer comes from the address that was asked for; behind the number a domain that IP has
            // not.
            Tpdu answer = MakeApdu(Service::IndividualAddressSerialNumberResponse, 0,
                                   Octets(m_device.Identity().serialNumber));
            answer.Append16(0);
            answer.Append16(0);
            Broadcast(answer, false);
        }
        break;
    case Service::IndividualAddressSerialNumberWrite: WriteAddressBySerialNumber(*apdu); break;
    case Service::NetworkParameterRead: ReadNetworkParameter(telegram, *apdu); break;
    case Service::SystemNetworkParameterRead:
        if (system)
            ReadSystemNetworkParameter(*apdu);
        break;
    default: break; // what others answer, and what this device does not take part in
    }
}

void Management::WriteAddressBySerialNumber(const Apdu& apdu) {
    if (apdu.data.size() >= kSerialNumberSize + 2 &&
        IsSerialNumber(apdu.data, m_device.Identity().serialNumber))
        m_device.SetAddress(IndividualAddress(Number16(apdu.data.subspan(kSerialNumberSize))));
}

/// Object type, property, test information. Of the many that exist, the question for devices in programming
/// mode is the one that tools ask.
void Management::ReadNetworkParameter(const LData& telegram, const Apdu& apdu) {
    if (apdu.data.size() != 4 || Number16(apdu.data) != kDeviceObjectType ||
        apdu.data[2] != kSerialNumberId || apdu.data[3] != kInProgrammingMode ||
        !m_device.IsInProgrammingMode())
        return;
    Tpdu answer = MakeApdu(Service::NetworkParameterResponse, 0, apdu.data);
    answer.Append(Octets(m_device.Identity().serialNumber));
    SendTo(telegram.source, answer);
}

/// Likewise with a property identifier of 12 bits, by system broadcast.
void Management::ReadSystemNetworkParameter(const Apdu& apdu) {
    if (apdu.data.size() != 5 || Number16(apdu.data) != kDeviceObjectType ||
        Number16(apdu.data.subspan(2)) >> 4 != kSerialNumberId || apdu.data[4] != kInProgrammingMode ||
        !m_device.IsInProgrammingMode())
        return;
    Tpdu answer = MakeApdu(Service::SystemNetworkParameterResponse, 0, apdu.data);
    answer.Append(Octets(m_device.Identity().serialNumber));
    Broadcast(answer, true);
}

void Management::Broadcast(const Tpdu& tpdu, bool system) {
    LData telegram;
    telegram.code = KnxFrames::MessageCode::LDataReq;
    telegram.control2 = static_cast<std::uint8_t>(LData::kToGroup | m_device.HopCount() << 4);
    telegram.SetPriority(m_asked.priority);
    if (system)
        telegram.control1 = static_cast<std::uint8_t>(telegram.control1 & ~LData::kBroadcast);
    telegram.tpdu = tpdu;
    m_listener.SendTelegram(telegram);
}

// Point to point.

AccessLevel Management::Level() const {
    return m_asked.connected ? m_level : m_device.FreeLevel();
}

void Management::OnPointToPoint(const Tpdu& tpdu) {
    const auto apdu = KnxFrames::ReadApdu(tpdu);
    if (apdu && !DispatchProperty(*apdu) && !DispatchMemory(*apdu))
        Dispatch(*apdu);
}

void Management::Dispatch(const Apdu& apdu) {
    switch (apdu.service) {
    case Service::DeviceDescriptorRead: ReadDeviceDescriptor(apdu); break;
    case Service::AuthorizeRequest: Authorize(apdu); break;
    case Service::KeyWrite: WriteKey(apdu); break;
    case Service::Restart: EraseAndRestart(Erase::Nothing); break;
    case Service::MasterReset: MasterReset(apdu); break;
    case Service::AdcRead: ReadConverter(apdu); break;
    default: Refuse(apdu, "not a service of this device");
    }
}

void Management::ReadDeviceDescriptor(const Apdu& apdu) {
    constexpr std::uint8_t kNoSuchType = 0x3F;
    if (apdu.number != 0) {
        Answer(Service::DeviceDescriptorResponse, kNoSuchType, {});
        return;
    }
    Answer(Service::DeviceDescriptorResponse, 0,
           std::array<std::uint8_t, 2>{DeviceIdentity::kDescriptor >> 8, DeviceIdentity::kDescriptor & 0xFF});
}

/// There is no converter: no sample, and the sum of none. A higher channel has no number in the answer.
void Management::ReadConverter(const Apdu& apdu) {
    constexpr std::uint8_t kMostChannel = 7;
    if (apdu.number > kMostChannel || apdu.data.size() != 1)
        Refuse(apdu, "its length is wrong, or there cannot be such a channel");
    else
        Answer(Service::AdcResponse, apdu.number, std::array<std::uint8_t, 3>{0, 0, 0});
}

namespace {

AccessKey KeyOf(Octets octets) {
    return AccessKey{octets[0]} << 24 | AccessKey{octets[1]} << 16 | AccessKey{octets[2]} << 8 | octets[3];
}

} // namespace

void Management::Authorize(const Apdu& apdu) {
    if (apdu.data.size() != 5 || !m_asked.connected) {
        Refuse(apdu, "it needs a connection and a key of four octets");
        return;
    }
    m_level = m_device.LevelOf(KeyOf(apdu.data.subspan(1))); // behind a reserved octet
    Answer(Service::AuthorizeResponse, 0, std::array<std::uint8_t, 1>{m_level});
}

void Management::WriteKey(const Apdu& apdu) {
    constexpr std::uint8_t kRefused = 0xFF;
    if (apdu.data.size() != 5 || !m_asked.connected) {
        Refuse(apdu, "it needs a connection, a level and a key of four octets");
        return;
    }
    const AccessLevel level = apdu.data[0];
    const bool done = level >= m_level && m_device.SetKey(level, KeyOf(apdu.data.subspan(1)));
    if (!done)
        Refuse(apdu, "the level has no key, or the connection does not have it");
    Answer(Service::KeyResponse, 0, std::array<std::uint8_t, 1>{done ? level : kRefused});
}

void Management::MasterReset(const Apdu& apdu) {
    enum Result : std::uint8_t {
        NoError = 0,
        AccessDenied = 1,
        UnsupportedEraseCode = 2,
        InvalidChannel = 3
    };
    constexpr std::uint8_t kSeconds = 3; // until the device is back, at most
    const auto erase = apdu.data.size() == 2 ? apdu.data[0] : std::uint8_t{0};
    const bool known = erase >= static_cast<std::uint8_t>(Erase::ConfirmedRestart) &&
                       erase <= static_cast<std::uint8_t>(Erase::FactoryResetButAddress);
    Result result = NoError;
    if (!known)
        result = UnsupportedEraseCode;
    else if (apdu.data[1] != 0) // one channel only: all of the device
        result = InvalidChannel;
    else if (erase != static_cast<std::uint8_t>(Erase::ConfirmedRestart) && !MayWriteMemory())
        result = AccessDenied;
    Answer(Service::MasterResetResponse, 0,
           std::array<std::uint8_t, 3>{result, 0, result == NoError ? kSeconds : std::uint8_t{0}});
    if (result == NoError)
        EraseAndRestart(static_cast<Erase>(erase));
    else
        Refuse(apdu, "master reset with an erase code, a channel or an access level that it cannot have");
}

void Management::EraseAndRestart(Erase erase) {
    const auto by = m_asked.by;
    m_connection.Close();
    m_device.Erase(erase);
    m_device.SetDeviceControl(0);
    m_device.SetProgrammingMode(false);
    m_listener.OnRestart(erase, by);
}

void Management::Refuse(const Apdu& apdu, const char* reason) {
    m_listener.OnRefused(m_asked.by, apdu.service, reason);
}

/// Passes the result on, and has it logged unless it is Done.
WriteResult Management::Report(const Apdu& apdu, WriteResult result) {
    if (result != WriteResult::Done)
        Refuse(apdu, ToString(result));
    return result;
}

void Management::Answer(const Tpdu& tpdu) {
    if (m_asked.connected)
        m_connection.Send(m_now, tpdu);
    else
        SendTo(m_asked.by, tpdu);
}

void Management::Answer(Service service, std::uint8_t number, std::span<const std::uint8_t> head,
                        Octets data) {
    Tpdu answer = MakeApdu(service, number, head);
    answer.Append(data);
    Answer(answer);
}

} // namespace KnxDevice
