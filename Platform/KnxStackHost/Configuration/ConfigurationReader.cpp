#include "KnxStackHost/Configuration/ConfigurationReader.h"

#include "DaemonSupport/LogSettings.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace KnxStackHost {

namespace json = boost::json;
using ProjectFile::Place;

namespace {

constexpr std::size_t kLongestDeviceName = 29; // the field of the device information ends with a zero

constexpr std::size_t kLongestOrder = 10;

constexpr unsigned kHighestRate = 1000; // telegrams a second by routing

constexpr std::size_t kMostTunnels = 255; // a channel has one byte

} // namespace

ConfigurationReader::ConfigurationReader(const std::string& path, ProjectFile::ErrorList& errors)
    : m_errors(errors) {
    m_result.file = path;
    m_result.directory = std::filesystem::absolute(path).lexically_normal().parent_path().string();
}

Configuration ConfigurationReader::Read(const json::value& value) {
    if (!value.is_object()) {
        m_errors.Add("/", "must be an object with \"device\" and \"applicationProgram\"");
        return {};
    }
    Members root(value.get_object(), "", m_errors,
                 {"device", "server", "interface", "routing", "groupObjects", "interfaceObjects",
                  "applicationProgram", "deviceStackSocket", "control", "project", "log"});
    ReadDevice(root);
    ReadServer(root);
    ReadInterface(root);
    ReadRouting(root);
    ReadGroupObjects(root);
    ReadInterfaceObjects(root);
    ReadProgram(root);
    ReadLog(root);
    ReadControl(root);
    m_result.deviceStackSocket = root.Path("deviceStackSocket", m_result.directory).value_or("");
    m_result.project = root.Path("project", m_result.directory).value_or("");
    return std::move(m_result);
}

void ConfigurationReader::ReadDevice(Members& root) {
    const auto* object = root.Require("device") ? root.Object("device") : nullptr;
    if (object == nullptr)
        return;
    Members device(
        *object, root.PlaceOf("device"), m_errors,
        {"individualAddress", "name", "image", "serialNumber", "manufacturer", "hardwareType", "order"});
    if (device.Require("individualAddress")) {
        const auto place = device.PlaceOf("individualAddress");
        if (const auto address = IndividualAddressOf(device.At("individualAddress"), place))
            m_result.individualAddress = *address;
    }
    if (const auto name = device.Text("name")) {
        if (name->empty() || name->size() > kLongestDeviceName)
            m_errors.Add(device.PlaceOf("name"), fmt::format("must have 1 to {} bytes", kLongestDeviceName));
        m_result.deviceName = *name;
    }
    ReadIdentity(device);
}

void ConfigurationReader::ReadIdentity(Members& device) {
    auto& settings = m_result.device;
    settings.image = device.Path("image", m_result.directory).value_or("");
    settings.serialNumber = ReadSixOctets(device, "serialNumber");
    settings.manufacturer = static_cast<std::uint16_t>(device.Number("manufacturer", 0, 0xFFFF).value_or(0));
    settings.hardwareType = ReadSixOctets(device, "hardwareType").value_or(settings.hardwareType);
    settings.order = device.Text("order").value_or("");
    if (settings.order.size() > kLongestOrder)
        m_errors.Add(device.PlaceOf("order"), fmt::format("must have at most {} bytes", kLongestOrder));
}

std::optional<KnxDevice::SerialNumber> ConfigurationReader::ReadSixOctets(Members& members,
                                                                          std::string_view name) {
    const auto digits = members.Text(name);
    if (!digits)
        return std::nullopt;
    const auto bytes = BytesOfDigits(*digits);
    KnxDevice::SerialNumber octets{};
    if (bytes && bytes->size() == octets.size())
        std::copy(bytes->begin(), bytes->end(), octets.begin());
    else
        m_errors.Add(members.PlaceOf(name),
                     fmt::format("\"{}\" must be 6 bytes of two hexadecimal digits each, such as "
                                 "\"00fa12345678\"",
                                 *digits));
    return octets;
}

void ConfigurationReader::ReadServer(Members& root) {
    const auto* object = root.Require("server") ? root.Object("server") : nullptr;
    if (object == nullptr)
        return;
    Members server(*object, root.PlaceOf("server"), m_errors,
                   {"enabled", "address", "port", "tcp", "tunnels", "multicastGroup", "multicastInterface"});
    auto& settings = m_result.server;
    settings.enabled = server.Boolean("enabled").value_or(true);
    ReadOwnAddress(server, "address", settings.address);
    ReadPort(server, 0, settings.port);
    settings.tcp = server.Boolean("tcp").value_or(true);
    ReadGroup(server, "multicastGroup", settings.multicastGroup);
    ReadOwnAddress(server, "multicastInterface", settings.multicastInterface);
    ReadTunnels(server);

    if (settings.multicastGroup.empty() && !settings.multicastInterface.empty())
        m_errors.Add(server.PlaceOf("multicastInterface"),
                     "says where to join, but there is no \"multicastGroup\"");
    if (!settings.enabled && !root.Has("interface") && !root.Has("routing"))
        m_errors.Add(server.PlaceOf("enabled"),
                     "without a server there must be an \"interface\" or \"routing\" to reach the bus by");
}

void ConfigurationReader::ReadTunnels(Members& server) {
    const auto* tunnels = server.Array("tunnels");
    for (std::size_t i = 0; tunnels != nullptr && i < tunnels->size(); ++i) {
        const auto place = Place(server.PlaceOf("tunnels"), i);
        if (const auto address = IndividualAddressOf((*tunnels)[i], place))
            m_result.server.tunnels.push_back(*address);
    }
    if (m_result.server.tunnels.size() > kMostTunnels)
        m_errors.Add(server.PlaceOf("tunnels"), fmt::format("there can be at most {} tunnels", kMostTunnels));
    if (m_result.server.enabled && (!server.Has("tunnels") || (tunnels != nullptr && tunnels->empty())))
        m_errors.Add(server.PlaceOf("tunnels"),
                     "the server needs at least one individual address to give to a client");
}

void ConfigurationReader::ReadInterface(Members& root) {
    const auto* object = root.Object("interface");
    if (object == nullptr)
        return;
    Members members(*object, root.PlaceOf("interface"), m_errors,
                    {"host", "port", "protocol", "nat", "localAddress"});
    InterfaceSettings settings;
    if (members.Require("host"))
        settings.host = members.Text("host").value_or("");
    if (members.Has("host") && settings.host.empty())
        m_errors.Add(members.PlaceOf("host"), "must be the name or address of a KNX/IP interface");
    ReadPort(members, 1, settings.port);
    const auto protocol = members.Text("protocol").value_or("udp");
    settings.tcp = protocol == "tcp";
    if (protocol != "tcp" && protocol != "udp")
        m_errors.Add(members.PlaceOf("protocol"), "must be \"udp\" or \"tcp\"");
    settings.nat = members.Boolean("nat").value_or(false);
    ReadOwnAddress(members, "localAddress", settings.localAddress);
    m_result.interface = std::move(settings);
}

void ConfigurationReader::ReadRouting(Members& root) {
    const auto* object = root.Object("routing");
    if (object == nullptr)
        return;
    Members members(*object, root.PlaceOf("routing"), m_errors, {"group", "interface", "rate"});
    RoutingSettings settings;
    ReadGroup(members, "group", settings.group);
    ReadOwnAddress(members, "interface", settings.interface);
    if (const auto rate = members.Number("rate", 1, kHighestRate))
        settings.rate = static_cast<unsigned>(*rate);
    if (root.Has("interface"))
        m_errors.Add(
            root.PlaceOf("routing"),
            "stands beside \"interface\"; the device can be on one bus only, so leave one of them out");
    m_result.routing = std::move(settings);
}

/// One that a network interface of this machine can have, whether it has it now or not.
void ConfigurationReader::ReadOwnAddress(Members& members, std::string_view name, std::string& own) {
    ReadIpv4(members, name, own);
    in_addr address{};
    // Multicast, reserved, broadcast.
    if (inet_pton(AF_INET, own.c_str(), &address) == 1 && ntohl(address.s_addr) >= INADDR_UNSPEC_GROUP)
        m_errors.Add(members.PlaceOf(name), fmt::format("{} is no address of a network interface", own));
}

void ConfigurationReader::ReadGroup(Members& members, std::string_view name, std::string& group) {
    ReadIpv4(members, name, group);
    in_addr address{};
    if (inet_pton(AF_INET, group.c_str(), &address) == 1 && !IN_MULTICAST(ntohl(address.s_addr)))
        m_errors.Add(members.PlaceOf(name),
                     fmt::format("{} is no multicast group; KNX uses 224.0.23.12", group));
}

void ConfigurationReader::ReadProgram(Members& root) {
    const auto* object = root.Require("applicationProgram") ? root.Object("applicationProgram") : nullptr;
    if (object == nullptr)
        return;
    Members program(*object, root.PlaceOf("applicationProgram"), m_errors,
                    {"library", "memory", "data", "settings"});
    if (program.Require("library")) {
        auto library = program.Text("library").value_or("");
        std::error_code error; // a name that no file can have is none
        if (library.empty())
            m_errors.Add(program.PlaceOf("library"), "must be the path or name of a shared library");
        // A bare name that is no file here is left to the loader, which knows the platform's own libraries.
        else if (library.find('/') != std::string::npos || std::filesystem::exists(Absolute(library), error))
            library = Absolute(library);
        m_result.program.library = library;
    }
    m_result.memory = ReadBlock(program, "memory", kLargestMemory);
    m_result.applicationData = ReadBlock(program, "data", kLargestApplicationData);
    if (const auto* settings = program.Object("settings"))
        ReadSettings(*settings, program.PlaceOf("settings"));
}

KnxStack::BinaryData ConfigurationReader::ReadBlock(Members& program, std::string_view name,
                                                    std::size_t largest) {
    const auto path = program.Path(name, m_result.directory);
    if (!path)
        return {};
    const auto refuse = [&](const std::string& cause) {
        m_errors.Add(program.PlaceOf(name), fmt::format("{}: {}", *path, cause));
        return KnxStack::BinaryData();
    };
    // To open anything else than a file could wait for somebody, or never end.
    std::error_code error;
    const auto status = std::filesystem::status(*path, error);
    if (!std::filesystem::exists(status))
        return refuse(fmt::format("cannot be read: {}", error.message()));
    if (!std::filesystem::is_regular_file(status))
        return refuse("is no file");
    errno = 0;
    std::ifstream file(*path, std::ios::binary);
    std::vector<char> bytes(largest + 1);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.is_open() || file.bad())
        return refuse(fmt::format("cannot be read: {}", std::strerror(errno)));
    const auto size = static_cast<std::size_t>(file.gcount());
    if (size > largest)
        return refuse(fmt::format("has more than {} KiB", largest / 1024));
    return KnxStack::BinaryData({reinterpret_cast<const std::uint8_t*>(bytes.data()), size});
}

void ConfigurationReader::ReadSettings(const json::object& settings, const std::string& place) {
    for (const auto& setting : settings) {
        const std::string key(setting.key());
        if (const auto* text = setting.value().if_string())
            m_result.program.settings[key] = std::string(text->data(), text->size());
        else
            m_errors.Add(Place(place, key),
                         "must be a text; write numbers and true or false in quotation marks too");
    }
}

void ConfigurationReader::ReadLog(Members& root) {
    const auto* object = root.Object("log");
    if (object == nullptr)
        return;
    Members log(*object, root.PlaceOf("log"), m_errors, {"level", "file"});
    if (const auto text = log.Text("level")) {
        const auto level = DaemonSupport::LogLevelOf(*text);
        if (!level)
            m_errors.Add(log.PlaceOf("level"), fmt::format("must be {}", DaemonSupport::kLogLevels));
        m_result.log.level = level.value_or(m_result.log.level);
    }
    m_result.log.file = log.Path("file", m_result.directory).value_or("");
}

void ConfigurationReader::ReadControl(Members& root) {
    const auto* object = root.Object("control");
    if (object == nullptr)
        return;
    Members control(*object, root.PlaceOf("control"), m_errors, {"socket", "socketMode"});
    ControlSettings settings;
    settings.socket = control.Path("socket", m_result.directory).value_or(settings.socket);
    if (const auto mode = control.Text("socketMode")) {
        const bool octal = (mode->size() == 3 || (mode->size() == 4 && mode->front() == '0')) &&
                           mode->find_first_not_of("01234567") == std::string::npos;
        if (octal)
            settings.socketMode = static_cast<unsigned>(std::stoul(*mode, nullptr, 8));
        else
            m_errors.Add(control.PlaceOf("socketMode"),
                         "must be the octal digits of permissions, e.g. \"0660\"");
    }
    m_result.control = std::move(settings);
}

void ConfigurationReader::ReadIpv4(Members& members, std::string_view name, std::string& address) {
    const auto text = members.Text(name);
    if (!text)
        return;
    if (!IsIpv4Address(*text))
        m_errors.Add(members.PlaceOf(name), fmt::format("\"{}\" is no IPv4 address", *text));
    address = *text;
}

void ConfigurationReader::ReadPort(Members& members, std::uint16_t smallest, std::uint16_t& port) {
    if (const auto number = members.Number("port", smallest, 65535))
        port = static_cast<std::uint16_t>(*number);
}

std::optional<KnxFrames::IndividualAddress>
ConfigurationReader::IndividualAddressOf(const json::value& value, const std::string& place) {
    const auto* text = value.if_string();
    if (text == nullptr) {
        m_errors.Add(place, "must be an individual address such as \"1.1.250\"");
        return std::nullopt;
    }
    const auto address = KnxFrames::IndividualAddress::Parse({text->data(), text->size()});
    if (!address) {
        m_errors.Add(place, fmt::format("\"{}\" is no individual address: {}",
                                        std::string_view(text->data(), text->size()), address.Error().cause));
        return std::nullopt;
    }
    const auto [known, isNew] = m_placeOfAddress.emplace(*address, place);
    if (address->raw == 0 || !isNew) {
        m_errors.Add(place, address->raw == 0 ? std::string("0.0.0 stands for no address")
                                              : fmt::format("{} is taken by {} already", address->ToString(),
                                                            known->second));
        return std::nullopt;
    }
    return *address;
}

std::string ConfigurationReader::Absolute(const std::string& path) const {
    return (std::filesystem::path(m_result.directory) / path).lexically_normal().string();
}

} // namespace KnxStackHost
