// Numbers of the application data format. Internal to the codec.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace ProjectFile::ApplicationDataFormat {

constexpr std::array<std::uint8_t, 4> kMagic{'K', 'A', 'P', 'D'};
constexpr std::uint16_t kVersion = 1;
constexpr std::size_t kHeaderSize = 16;
constexpr std::size_t kChecksumAt = 12;      // last in the header
constexpr std::size_t kRecordHeaderSize = 3; // kind and length
constexpr std::size_t kMaxRecord = 0xFFFF;   // bytes behind the record's header

/// A record of a kind with this bit may be passed over by a reader that does not know the kind.
constexpr std::uint8_t kMayBeSkipped = 0x80;

enum class Kind : std::uint8_t {
    Device = 0x01,
    Identification = 0x02,
    KnxOwner = 0x03,
    TimeCo = 0x04,
    TranslationRange = 0x05,
    InterfaceObject = 0x06,
    Property = 0x07,
    ExtendedProperty = 0x08,
    DataPoint = 0x10,
    FixedDataPoint = 0x11,
    // These belong to the data point before them.
    Binding = 0x12,
    Unit = 0x13,
    Description = 0x14,
    Initial = 0x15,
    Owner = 0x16,
};

// Flags of a data point: the access in the two lowest bits, 0 read and write, 1 read, 2 write.
constexpr std::uint8_t kAccessMask = 0x03;
constexpr std::uint8_t kPersistent = 0x04;

// Flags of a binding.
constexpr std::uint8_t kEvent = 0x01;
constexpr std::uint8_t kReadInternal = 0x02;

/// CRC-32 (IEEE 802.3) of everything in `data` but the checksum's own four bytes. At least a header is there.
std::uint32_t Checksum(std::span<const std::uint8_t> data);

} // namespace ProjectFile::ApplicationDataFormat
