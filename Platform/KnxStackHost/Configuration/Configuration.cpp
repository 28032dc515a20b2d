#include "KnxStackHost/Configuration/Configuration.h"

#include "KnxStackHost/Configuration/ConfigurationReader.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace KnxStackHost {

namespace {

bool IsOfThisMachine(const in_addr& address) {
    if (ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET)
        return true;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0)
        return false;
    bool found = false;
    for (const auto* entry = list; entry != nullptr && !found; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        sockaddr_in own{};
        std::memcpy(&own, entry->ifa_addr, sizeof own);
        found = own.sin_addr.s_addr == address.s_addr;
    }
    ::freeifaddrs(list);
    return found;
}

/// The manufacturer, and four octets that are the same at each start and differ from those of other devices:
/// a hash of the machine's id, the configuration's directory and the device's name.
KnxDevice::SerialNumber OwnSerialNumber(const Configuration& configuration) {
    std::ifstream file("/etc/machine-id");
    std::string text;
    std::getline(file, text);
    text += ':' + configuration.directory + ':' + configuration.deviceName;
    std::uint32_t hash = 0x811C9DC5; // FNV-1a, 32 bits
    for (const char character : text)
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x01000193;
    const auto octet = [](std::uint32_t number, unsigned shift) {
        return static_cast<std::uint8_t>(number >> shift);
    };
    const auto manufacturer = configuration.device.manufacturer;
    return {octet(manufacturer, 8), octet(manufacturer, 0), octet(hash, 24),
            octet(hash, 16),        octet(hash, 8),         octet(hash, 0)};
}

} // namespace

std::vector<KnxDevice::GroupObjectDefinition> Configuration::Definitions() const {
    std::vector<KnxDevice::GroupObjectDefinition> definitions;
    definitions.reserve(groupObjects.size());
    for (const auto& object : groupObjects)
        definitions.push_back(object.definition);
    return definitions;
}

KnxDevice::GroupObjectTable Configuration::MakeTable() const {
    return KnxDevice::GroupObjectTable(Definitions());
}

KnxDevice::DeviceIdentity Configuration::MakeIdentity() const {
    KnxDevice::DeviceIdentity identity;
    identity.factoryAddress = individualAddress;
    identity.manufacturer = device.manufacturer;
    identity.hardwareType = device.hardwareType;
    std::copy(device.order.begin(), device.order.end(), identity.order.begin());
    identity.serialNumber = device.serialNumber.value_or(OwnSerialNumber(*this));
    return identity;
}

bool IsIpv4Address(const std::string& text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool LeadsBackToServer(const Configuration& configuration) {
    const auto& server = configuration.server;
    if (!server.enabled || !configuration.interface || configuration.interface->port != server.port)
        return false;
    in_addr own{};
    inet_pton(AF_INET, server.address.c_str(), &own);
    in_addr target{};
    if (configuration.interface->host == "localhost")
        target.s_addr = htonl(INADDR_LOOPBACK);
    else if (inet_pton(AF_INET, configuration.interface->host.c_str(), &target) != 1)
        return false;
    return own.s_addr == target.s_addr || (own.s_addr == htonl(INADDR_ANY) && IsOfThisMachine(target));
}

Configuration ParseConfiguration(std::string_view text, const std::string& path) {
    ProjectFile::ErrorList errors(path);
    Configuration configuration;
    if (const auto root = ProjectFile::ParseJson(text, errors))
        configuration = ConfigurationReader(path, errors).Read(*root);
    if (!errors.Empty())
        throw ConfigurationError(ProjectFile::FirstOf(errors.Take()));
    return configuration;
}

Configuration LoadConfiguration(const std::string& path) {
    if (std::filesystem::is_directory(path))
        throw ConfigurationError(fmt::format("{}: is a directory, no configuration file", path));
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open())
        throw ConfigurationError(fmt::format("{}: cannot be read: {}", path, std::strerror(errno)));
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return ParseConfiguration(text, path);
}

} // namespace KnxStackHost
