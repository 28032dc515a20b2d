// What knxstackd.json says.
#pragma once

#include "KnxDevice/Device.h"
#include "KnxDevice/GroupObjectTable.h"
#include "KnxDevice/InterfaceObjects.h"
#include "ProjectFile/Project.h"
#include "ValueConverter/DatapointTypes.h"

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace KnxStackHost {

/// A configuration that cannot be used. what() is one sentence: "file: place: cause", where the place is a
/// JSON pointer or line:column.
class ConfigurationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The KNXnet/IP server that KNX/IP clients connect to.
struct ServerSettings {
    bool enabled = true;
    std::string address = "0.0.0.0"; ///< IPv4 address to listen on
    std::uint16_t port = 3671;       ///< UDP and TCP; 0 = any free one
    bool tcp = true;                 ///< clients may connect over TCP as well
    std::vector<KnxFrames::IndividualAddress> tunnels;
    std::string multicastGroup;     ///< IPv4 group for search requests; "" = not joined
    std::string multicastInterface; ///< IPv4 address of the interface to join on; "" = the system's choice

    bool operator==(const ServerSettings&) const = default;
};

/// The KNX/IP interface through which the host reaches the bus.
struct InterfaceSettings {
    std::string host; ///< name or IPv4 address
    std::uint16_t port = 3671;
    bool tcp = false;         ///< over TCP instead of UDP
    bool nat = false;         ///< the interface is to answer to the address it sees; of no account over TCP
    std::string localAddress; ///< IPv4 address to send from; "" = the system's choice

    bool operator==(const InterfaceSettings&) const = default;
};

/// The multicast group on which the device joins a bus, instead of an interface.
struct RoutingSettings {
    std::string group = "224.0.23.12";
    std::string interface; ///< IPv4 address of the network interface; "" = the system's choice
    unsigned rate = 50;    ///< telegrams a second

    bool operator==(const RoutingSettings&) const = default;
};

/// A group object with what people know of it.
struct ConfiguredObject {
    KnxDevice::GroupObjectDefinition definition;
    std::string name;
    std::optional<Datapoint::Number> dpt; ///< none when only a size was given
};

/// What tools see of the device itself.
struct DeviceSettings {
    std::string image; ///< absolute path of the file with what tools have changed; "" = none
    std::optional<KnxDevice::SerialNumber> serialNumber;
    std::uint16_t manufacturer = 0;
    KnxDevice::SerialNumber hardwareType{};
    std::string order; ///< at most 10 characters

    bool operator==(const DeviceSettings&) const = default;
};

struct ProgramSettings {
    std::string library; ///< absolute path, or a bare file name for the loader to find
    std::map<std::string, std::string> settings;
};

struct LogSettings {
    std::string level = "info"; ///< in lower case
    std::string file;           ///< absolute path; "" = standard error alone
};

/// The socket that knxstackctl connects to.
struct ControlSettings {
    std::string socket = "/run/knxstackd/knxstackd.sock"; ///< absolute path
    unsigned socketMode = 0660;

    bool operator==(const ControlSettings&) const = default;
};

struct Configuration {
    std::string file;      ///< as it was named; for people
    std::string directory; ///< of the file; absolute
    KnxFrames::IndividualAddress individualAddress;
    std::string deviceName = "knxstackd"; ///< at most 29 bytes
    DeviceSettings device;
    ServerSettings server;
    std::optional<InterfaceSettings> interface;
    std::optional<RoutingSettings> routing; ///< never beside an interface
    std::optional<ControlSettings> control; ///< none: no socket
    std::vector<ConfiguredObject> groupObjects;
    std::vector<KnxDevice::InterfaceObjectDefinition> interfaceObjects; ///< instances numbered throughout
    KnxStack::BinaryData memory;          ///< of application program 1; empty without a file
    KnxStack::BinaryData applicationData; ///< likewise
    ProgramSettings program;
    std::string deviceStackSocket; ///< "" = the client library's own default
    std::string project;           ///< absolute path; "" = none
    LogSettings log;

    ProjectFile::CoRange translationRange; ///< of the project

    std::vector<KnxDevice::GroupObjectDefinition> Definitions() const;
    /// The tables of the group objects.
    KnxDevice::GroupObjectTable MakeTable() const;
    /// Who the device is, with a serial number of its own when none was given.
    KnxDevice::DeviceIdentity MakeIdentity() const;
};

/// The most that the files of "applicationProgram" may hold, in bytes.
constexpr std::size_t kLargestMemory = std::size_t{64} * 1024;
constexpr std::size_t kLargestApplicationData = std::size_t{1024} * 1024;

/// True for four decimal numbers with dots.
bool IsIpv4Address(const std::string& text);

/// True when the interface is the configuration's own server, by an address of this machine, "localhost" or
/// the server's own address: every telegram would go round for ever. Other names are not looked up.
bool LeadsBackToServer(const Configuration& configuration);

/// Reads and checks the file, and reads the files that it names for memory and application data. Throws
/// ConfigurationError.
Configuration LoadConfiguration(const std::string& path);

/// The same for a text that stands in `path`, which need not exist.
Configuration ParseConfiguration(std::string_view text, const std::string& path);

} // namespace KnxStackHost
