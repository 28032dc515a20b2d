// cEMI local device management: a host's access to the properties of its interface.
#pragma once

#include "KnxFrames/Cemi.h"
#include "KnxFrames/FixedOctets.h"
#include "KnxFrames/Outcome.h"

#include <cstdint>

namespace KnxFrames {

/// Why a property was not read or written, as the negative confirmation says it.
enum class PropertyError : std::uint8_t {
    Unspecified = 0x00,
    OutOfRange = 0x01,
    TooLarge = 0x02,
    TooSmall = 0x03,
    Memory = 0x04,
    ReadOnly = 0x05,
    IllegalCommand = 0x06,
    NoSuchProperty = 0x07, ///< or no such object
    TypeConflict = 0x08,
    IndexRange = 0x09, ///< elements that do not exist
    NotNow = 0x0A,
};

/// M_PropRead, M_PropWrite, M_PropInfo, M_FuncPropCommand, M_FuncPropStateRead or M_Reset. A value type
/// without allocation.
struct ManagementMessage {
    static constexpr std::size_t kLongestData =
        240; ///< as much as a whole message of other kinds has room for
    static constexpr std::uint8_t kMostElements = 15;

    MessageCode code = MessageCode::MPropReadReq;
    std::uint16_t objectType = 0;
    std::uint8_t instance = 1; ///< of the object among those of its type, counted from 1
    std::uint8_t property = 0; ///< PID
    /// Elements, at most kMostElements; not of a function. 0 in a confirmation: it is negative, and the data
    /// are one octet, a PropertyError.
    std::uint8_t count = 1;
    std::uint16_t start = 1;        ///< first element, at most 4095; 0 = the number of elements
    FixedOctets<kLongestData> data; ///< in the confirmation of a function its return code comes first

    bool IsReset() const { return code == MessageCode::MResetReq || code == MessageCode::MResetInd; }

    /// A function property is called, or confirms that.
    bool IsFunction() const;

    /// The confirmation of this request of a property, positive and without data.
    ManagementMessage Confirmation() const;
    /// The negative one. That of a function has neither return code nor data; it does not say why.
    ManagementMessage Refusal(PropertyError error) const;

    bool operator==(const ManagementMessage& other) const = default;
};

/// Size of the longest message.
inline constexpr std::size_t kLongestManagement = 7 + ManagementMessage::kLongestData;

/// Reads one message. Unsupported: another cEMI message, and one with more data than are handled here.
/// Malformed: one that ends too early; an M_PropRead.req with data; an M_Reset with anything behind it.
Outcome<ManagementMessage> ParseManagement(Octets octets);

FixedOctets<kLongestManagement> EncodeManagement(const ManagementMessage& message);

} // namespace KnxFrames
