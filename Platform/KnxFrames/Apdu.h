// Application layer services of device management (KNX Standard 3/3/7).
#pragma once

#include "KnxFrames/Outcome.h"
#include "KnxFrames/Tpdu.h"

#include <cstdint>

namespace KnxFrames {

/// Application services by their 10 bits of control information. Of those that carry a small number in their
/// six low bits, these bits are 0 here. The services of group communication are in Tpdu.h.
enum class Service : std::uint16_t {
    IndividualAddressWrite = 0x0C0,
    IndividualAddressRead = 0x100,
    IndividualAddressResponse = 0x140,
    AdcRead = 0x180,     ///< small number: channel
    AdcResponse = 0x1C0, ///< small number: channel, 0 to 7
    SystemNetworkParameterRead = 0x1C8,
    SystemNetworkParameterResponse = 0x1C9,
    SystemNetworkParameterWrite = 0x1CA,
    PropertyExtValueRead = 0x1CC,
    PropertyExtValueResponse = 0x1CD,
    PropertyExtValueWriteCon = 0x1CE,
    PropertyExtValueWriteConRes = 0x1CF,
    PropertyExtValueWriteUnCon = 0x1D0,
    PropertyExtDescriptionRead = 0x1D2,
    PropertyExtDescriptionResponse = 0x1D3,
    FunctionPropertyExtCommand = 0x1D4,
    FunctionPropertyExtStateRead = 0x1D5,
    FunctionPropertyExtStateResponse = 0x1D6,
    MemoryExtendedWrite = 0x1FB,
    MemoryExtendedWriteResponse = 0x1FC,
    MemoryExtendedRead = 0x1FD,
    MemoryExtendedReadResponse = 0x1FE,
    MemoryRead = 0x200,     ///< small number: octets
    MemoryResponse = 0x240, ///< small number: octets
    MemoryWrite = 0x280,    ///< small number: octets
    UserMemoryRead = 0x2C0,
    UserMemoryResponse = 0x2C1,
    UserMemoryWrite = 0x2C2,
    UserManufacturerInfoRead = 0x2C5,
    UserManufacturerInfoResponse = 0x2C6,
    FunctionPropertyCommand = 0x2C7,
    FunctionPropertyStateRead = 0x2C8,
    FunctionPropertyStateResponse = 0x2C9,
    DeviceDescriptorRead = 0x300,     ///< small number: type
    DeviceDescriptorResponse = 0x340, ///< small number: type
    Restart = 0x380,
    MasterReset = 0x381,
    MasterResetResponse = 0x3A1,
    AuthorizeRequest = 0x3D1,
    AuthorizeResponse = 0x3D2,
    KeyWrite = 0x3D3,
    KeyResponse = 0x3D4,
    PropertyValueRead = 0x3D5,
    PropertyValueResponse = 0x3D6,
    PropertyValueWrite = 0x3D7,
    PropertyDescriptionRead = 0x3D8,
    PropertyDescriptionResponse = 0x3D9,
    NetworkParameterRead = 0x3DA,
    NetworkParameterResponse = 0x3DB,
    IndividualAddressSerialNumberRead = 0x3DC,
    IndividualAddressSerialNumberResponse = 0x3DD,
    IndividualAddressSerialNumberWrite = 0x3DE,
    NetworkParameterWrite = 0x3E4,
};

/// Name as in the KNX Standard, "A_Memory_Read"; "unknown service" for a number that is none of the above.
const char* ToString(Service service);

/// A service as read from a data TPDU, numbered or not.
struct Apdu {
    Service service{};
    std::uint8_t number = 0; ///< the six low bits, for services that carry a number there; else 0
    Octets data;             ///< behind the control information; points into the TPDU that was read
};

/// Malformed: fewer than two octets. Unsupported: not data, or a service not listed above.
Outcome<Apdu> ReadApdu(const Tpdu& tpdu);

/// An unnumbered data TPDU with the service, to which its data is appended. `number` only for services that
/// carry one.
Tpdu MakeApdu(Service service, std::uint8_t number = 0);

/// The same with all its data, at most 253 octets.
Tpdu MakeApdu(Service service, std::uint8_t number, Octets data);

} // namespace KnxFrames
