// What the control socket shows of the host and asks of it.
#pragma once

#include "KnxDevice/Device.h"
#include "KnxFrames/Cemi.h"
#include "KnxIp/RoutingLink.h"
#include "KnxIp/TunnelClient.h"
#include "KnxIp/TunnelServer.h"
#include "KnxStackHost/Program/CallbackQueue.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KnxStackHost {

struct DeviceStatus {
    KnxFrames::IndividualAddress address;
    std::string name;
    KnxDevice::SerialNumber serialNumber{};
    bool programmingMode = false;
    std::vector<std::pair<const char*, const char*>> loadStates; ///< by object, in the order of their index
    bool restartPending = false;
    std::size_t groupObjects = 0;
    const char* program = ""; ///< state of the application program: "running", ...
    ProgramTelegrams programTelegrams;
    std::string image; ///< path of the device image; "" = none
    std::chrono::seconds uptime{};
};

struct TunnelStatus {
    KnxFrames::IndividualAddress address;
    std::string client; ///< "" = nobody is connected
    KnxIp::TunnelCounters counters;
};

struct ServerStatus {
    std::string endpoint; ///< that it listens on
    bool tcp = false;
    std::vector<TunnelStatus> tunnels;
    std::string fault{};      ///< why no client can reach it; "" = nothing known
    std::string group{};      ///< address and port of the group that searches come in; "" = none
    std::string groupFault{}; ///< why it is not in the group; "" = it is, or there is none
};

struct InterfaceStatus {
    std::string name; ///< host and port
    bool connected = false;
    KnxFrames::IndividualAddress address; ///< of our tunnel there
    std::size_t waiting = 0;              ///< telegrams
    KnxIp::TunnelClientCounters counters;
    std::string fault{}; ///< why there is no connection; "" = there is, or no try has ended yet
};

struct RoutingStatus {
    std::string group; ///< address and port
    std::size_t waiting = 0;
    KnxIp::RoutingLinkCounters counters;
    std::string fault{}; ///< why it is not in the group; "" = it is
};

/// Telegrams that went nowhere since the start.
struct BusCounts {
    std::uint64_t unknownAddress = 0;
    std::uint64_t refusedByFlags = 0;
    std::uint64_t unusable = 0;
};

struct LinksStatus {
    std::optional<ServerStatus> server;
    std::optional<InterfaceStatus> interface;
    std::optional<RoutingStatus> routing;
    BusCounts bus;
};

/// All calls on the link thread.
class ControlTarget {
public:
    virtual ~ControlTarget() = default;

    virtual DeviceStatus GetDeviceStatus() const = 0;
    virtual LinksStatus GetLinksStatus() const = 0;

    virtual void SetProgrammingMode(bool on) = 0;

    /// A group telegram of this device to everybody, its own group objects included. The source is filled in.
    /// "" or why it was not sent: one sentence.
    virtual std::string SendToGroup(const KnxFrames::LData& telegram) = 0;

    /// As if the telegram had come from the bus. "" or why it cannot have: one sentence.
    virtual std::string Inject(const KnxFrames::LData& telegram) = 0;
};

} // namespace KnxStackHost
