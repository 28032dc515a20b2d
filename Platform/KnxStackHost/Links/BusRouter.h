// Which way each telegram goes.
#pragma once

#include "KnxDevice/GroupObjects.h"
#include "KnxFrames/Cemi.h"
#include "KnxStackHost/Control/ControlTarget.h"
#include "KnxStackHost/Links/AddressFilter.h"
#include "KnxStackHost/Notices.h"
#include "KnxStackHost/Program/CallbackQueue.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace KnxStackHost {

/// Where a telegram came from.
struct Origin {
    enum class Kind : std::uint8_t { Tunnel, Interface, Device, Management, Control };

    Kind kind = Kind::Device;
    std::uint8_t tunnel = 0; ///< its number, for Tunnel
};

/// Where a router sends telegrams.
class BusPorts {
public:
    virtual ~BusPorts() = default;

    /// To every open tunnel but `except`.
    virtual void ToTunnels(const KnxFrames::LData& telegram, std::optional<std::uint8_t> except) = 0;
    /// To this one, if it is open.
    virtual void ToTunnel(const KnxFrames::LData& telegram, std::uint8_t tunnel) = 0;
    /// To the interface on the bus, when there is one.
    virtual void ToInterface(const KnxFrames::LData& telegram) = 0;
    /// To the application program.
    virtual void ToProgram(Callback callback) = 0;
    /// To the device's management: what is addressed to the device itself, and broadcasts.
    virtual void ToManagement(const KnxFrames::LData& telegram) = 0;
    /// Told once of each telegram, before it goes anywhere, as it goes: with the source that everybody sees.
    virtual void ToMonitor(const KnxFrames::LData& telegram, Origin origin) {
        static_cast<void>(telegram);
        static_cast<void>(origin);
    }
};

/// Joins tunnels, interface and device to one bus: what one sends to a group or to all, the others get. A
/// telegram to an individual address goes one way if that is known: to the device for its own, to one tunnel
/// for the tunnel's own and for those that telegrams of its client had as their source; else to all.
///
/// A telegram that carries the address of the device or of a tunnel as its source, but comes from elsewhere,
/// has gone round and goes nowhere: from the interface it is an echo, from a tunnel the way back of a client
/// that has this host as its own interface. Other sources are free, because a client may join a whole bus to
/// this one. Not synchronised.
class BusRouter {
public:
    /// `own` is the address of the device, `tunnels` those of the tunnels. `objects` and `ports` outlive the
    /// router.
    BusRouter(KnxFrames::IndividualAddress own, std::span<const KnxFrames::IndividualAddress> tunnels,
              const KnxDevice::GroupObjects& objects, BusPorts& ports);

    void FromTunnel(std::uint8_t tunnel, const KnxFrames::LData& telegram);
    /// The tunnel has lost its client, and with it the devices behind it.
    void OnTunnelClosed(std::uint8_t tunnel) { m_filter.Forget(tunnel); }
    void FromInterface(const KnxFrames::LData& telegram);
    /// A telegram of the group object `sender` of this device; the source is filled in here.
    void FromDevice(KnxFrames::LData telegram, std::uint16_t sender);
    /// A telegram of this device's management, likewise.
    void FromManagement(KnxFrames::LData telegram);

    /// A group telegram of a control client, likewise, to this device's own group objects too.
    void FromControl(KnxFrames::LData telegram);
    /// A telegram that a control client wants to have come from the bus; not with a source of this host.
    void Inject(const KnxFrames::LData& telegram);

    /// The device has another individual address.
    void SetOwnAddress(KnxFrames::IndividualAddress own);

    /// Logs how many telegrams went nowhere, if any did.
    void ReportCounts() const;
    BusCounts Counts() const { return {m_unknown.Total(), m_refusedByFlags.Total(), m_unusable.Total()}; }

    /// True for the addresses of device and tunnels.
    bool IsOwn(KnxFrames::IndividualAddress address) const;

    /// False when every group object of the group telegram's address that would take it has values of another
    /// size.
    bool FitsGroup(const KnxFrames::LData& telegram) const;

private:
    void PassToTunnels(const KnxFrames::LData& telegram, std::optional<std::uint8_t> except);
    void PassToInterface(const KnxFrames::LData& telegram);
    void PassToDevice(const KnxFrames::LData& telegram, std::uint16_t sender);
    void ReportUnusable(const KnxFrames::LData& telegram, const char* cause);
    void ReportUnheard(Notices& notices, const KnxFrames::LData& telegram, const char* cause);

    KnxFrames::IndividualAddress m_own;
    const std::vector<KnxFrames::IndividualAddress> m_tunnels;
    std::vector<KnxFrames::IndividualAddress> m_inside; // sorted: own and tunnels
    AddressFilter m_filter;
    const KnxDevice::GroupObjects& m_objects;
    BusPorts& m_ports;
    Notices m_unusable;
    Notices m_unknown;
    Notices m_refusedByFlags;
};

} // namespace KnxStackHost
