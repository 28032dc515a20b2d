// Turns the JSON of knxstackd.json into a configuration.
#pragma once

#include "KnxStackHost/Configuration/Configuration.h"
#include "ProjectFile/JsonMembers.h"

#include <map>
#include <set>
#include <string>

namespace KnxDevice {
struct PropertyElementSize;
}

namespace KnxStackHost {

/// Reads one file; every fault goes to the error list with its place.
class ConfigurationReader {
public:
    ConfigurationReader(const std::string& path, ProjectFile::ErrorList& errors);

    /// The configuration; complete only when no error was added.
    Configuration Read(const boost::json::value& value);

private:
    using Members = ProjectFile::JsonMembers;

    void ReadDevice(Members& root);
    void ReadIdentity(Members& device);
    /// Bytes of two hexadecimal digits each, without anything between them.
    static std::optional<std::vector<std::uint8_t>> BytesOfDigits(std::string_view digits);
    std::optional<KnxDevice::SerialNumber> ReadSixOctets(Members& members, std::string_view name);
    void ReadServer(Members& root);
    void ReadTunnels(Members& server);
    void ReadInterface(Members& root);
    void ReadRouting(Members& root);
    /// Likewise one of a multicast group.
    void ReadGroup(Members& members, std::string_view name, std::string& group);
    void ReadProgram(Members& root);
    /// The bytes of the file that a member names; faults are reported.
    KnxStack::BinaryData ReadBlock(Members& program, std::string_view name, std::size_t largest);
    void ReadSettings(const boost::json::object& settings, const std::string& place);
    void ReadLog(Members& root);
    void ReadControl(Members& root);
    void ReadGroupObjects(Members& root);
    void ReadGroupObject(const boost::json::object& json, const std::string& place);
    void ReadSize(Members& members, ConfiguredObject& object);
    void ReadFlags(Members& members, KnxDevice::GroupObjectDefinition& definition);
    void ReadPriority(Members& members, KnxDevice::GroupObjectDefinition& definition);
    void ReadAddresses(Members& members, KnxDevice::GroupObjectDefinition& definition);
    void ReadInterfaceObjects(Members& root);
    void ReadInterfaceObject(const boost::json::object& json, const std::string& place);
    KnxDevice::PropertyDefinition ReadProperty(Members& members);
    void ReadPropertyValue(Members& members, const KnxDevice::PropertyElementSize& size,
                           KnxDevice::PropertyDefinition& property);

    /// The text of an IPv4 address; faults are reported.
    void ReadIpv4(Members& members, std::string_view name, std::string& address);
    void ReadOwnAddress(Members& members, std::string_view name, std::string& own);
    void ReadPort(Members& members, std::uint16_t smallest, std::uint16_t& port);
    std::optional<KnxFrames::IndividualAddress> IndividualAddressOf(const boost::json::value& value,
                                                                    const std::string& place);
    std::string Absolute(const std::string& path) const;

    ProjectFile::ErrorList& m_errors;
    Configuration m_result;
    std::map<std::uint16_t, std::string> m_placeOfObject;     // by number
    std::map<std::uint16_t, std::uint16_t> m_instancesOfType; // of interface objects, so far
    std::map<KnxFrames::IndividualAddress, std::string> m_placeOfAddress;
};

} // namespace KnxStackHost
