// Bus management: the services by which a tool finds, reads, loads and restarts the device.
#pragma once

#include "KnxDevice/Device.h"
#include "KnxDevice/PropertyAccess.h"
#include "KnxDevice/TransportConnection.h"
#include "KnxFrames/Apdu.h"
#include "KnxFrames/Cemi.h"

#include <cstdint>
#include <optional>
#include <span>

namespace KnxDevice {

/// Receives the wishes of a Management, inside the call that caused them. Must not call it back.
class ManagementListener {
public:
    virtual ~ManagementListener() = default;

    /// Send to the bus; the source is filled in by who sends.
    virtual void SendTelegram(const KnxFrames::LData& telegram) = 0;
    /// The device is to restart. What is to be erased is erased already; the connection is closed.
    virtual void OnRestart(Erase erase, IndividualAddress by) = 0;
    /// A tool has connected to the device, or is gone: for the log.
    virtual void OnConnection(IndividualAddress tool, bool open) = 0;
    /// A service was refused, with the reason in a phrase: for the log.
    virtual void OnRefused(IndividualAddress tool, KnxFrames::Service service, const char* reason) = 0;
};

/// Application layer of device management, connectionless and over one transport connection. Silent whenever
/// a telegram is not for this device. Not synchronised; no clock of its own.
class Management final : private TransportListener {
public:
    /// Both outlive this object.
    Management(Device& device, ManagementListener& listener);

    /// A telegram from the bus that is not group communication; others are ignored.
    void OnTelegram(TimePoint now, const KnxFrames::LData& telegram);

    void OnTime(TimePoint now);
    std::optional<TimePoint> NextTime() const { return m_connection.NextTime(); }

    /// The same properties for other ways to them.
    PropertyAccess& Properties() { return m_properties; }

private:
    /// Where a request came from and its answer goes.
    struct Asked {
        IndividualAddress by;
        bool connected = false;
        KnxFrames::Priority priority = KnxFrames::Priority::System;
    };
    using Apdu = KnxFrames::Apdu;
    using Service = KnxFrames::Service;

    void SendTo(IndividualAddress to, const Tpdu& tpdu) override;
    void OnData(const Tpdu& tpdu) override;
    void OnOpened(IndividualAddress partner) override;
    void OnClosed(IndividualAddress partner) override;

    void OnBroadcast(const KnxFrames::LData& telegram);
    void OnPointToPoint(const Tpdu& tpdu);

    // Addressing and network parameters: by broadcast.
    void WriteAddressBySerialNumber(const Apdu& apdu);
    void ReadNetworkParameter(const KnxFrames::LData& telegram, const Apdu& apdu);
    void ReadSystemNetworkParameter(const Apdu& apdu);

    // Point to point; answers go to m_asked.
    bool DispatchProperty(const Apdu& apdu);
    bool DispatchMemory(const Apdu& apdu);
    void Dispatch(const Apdu& apdu);
    void ReadPropertyValue(const Apdu& apdu);
    void WritePropertyValue(const Apdu& apdu);
    void ReadPropertyDescription(const Apdu& apdu);
    void ReadExtPropertyValue(const Apdu& apdu);
    void WriteExtPropertyValue(const Apdu& apdu, bool confirmed);
    void ReadExtPropertyDescription(const Apdu& apdu);
    void AnswerFunctionProperty(const Apdu& apdu);
    void AnswerExtFunctionProperty(const Apdu& apdu);
    void ReadMemory(const Apdu& apdu);
    void WriteMemory(const Apdu& apdu);
    void ReadUserMemory(const Apdu& apdu);
    void WriteUserMemory(const Apdu& apdu);
    void ReadExtendedMemory(const Apdu& apdu);
    void WriteExtendedMemory(const Apdu& apdu);
    void ReadDeviceDescriptor(const Apdu& apdu);
    void ReadConverter(const Apdu& apdu);
    void Authorize(const Apdu& apdu);
    void WriteKey(const Apdu& apdu);
    void MasterReset(const Apdu& apdu);
    void EraseAndRestart(Erase erase);

    KnxFrames::Priority PriorityOf(const Tpdu& tpdu) const;
    AccessLevel Level() const;
    bool MayWriteMemory() const { return Level() <= kMemoryWriteLevel; }
    WriteResult WriteOctets(const Apdu& apdu, std::uint32_t address, Octets octets);
    void Answer(const Tpdu& tpdu);
    void Answer(Service service, std::uint8_t number, std::span<const std::uint8_t> head, Octets data = {});
    void Broadcast(const Tpdu& tpdu, bool system);
    void Refuse(const Apdu& apdu, const char* reason);
    WriteResult Report(const Apdu& apdu, WriteResult result);

    static constexpr AccessLevel kMemoryWriteLevel = 2;

    Device& m_device;
    ManagementListener& m_listener;
    PropertyAccess m_properties;
    TransportConnection m_connection;
    AccessLevel m_level = kAnybody; // of the connection
    KnxFrames::Priority m_connectionPriority = KnxFrames::Priority::System;
    TimePoint m_now{}; // of the call
    Asked m_asked;
};

} // namespace KnxDevice
