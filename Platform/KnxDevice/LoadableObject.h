// What a download loads: an object with a load state and a segment of memory.
#pragma once

#include "KnxDevice/WriteResult.h"
#include "KnxFrames/FixedOctets.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace KnxDevice {

using KnxFrames::Octets;

/// States of the load state machine, as property 5 (PID_LOAD_STATE_CONTROL) shows them.
enum class LoadState : std::uint8_t { Unloaded = 0, Loaded = 1, Loading = 2, Error = 3 };

/// "unloaded", "loaded", "loading", "error"
const char* ToString(LoadState state);

/// What is written to property 5.
enum class LoadEvent : std::uint8_t {
    NoOperation = 0,
    StartLoading = 1,
    LoadCompleted = 2,
    AdditionalLoadControl = 3,
    Unload = 4,
};

/// Why an object is in the error state, as property 28 (PID_ERROR_CODE) shows it; numbers of datapoint type
/// 20.011.
enum class LoadFault : std::uint8_t {
    None = 0,
    NoMemory = 6,           ///< the segment asked for does not fit
    ZeroAllocation = 8,     ///< a segment without octets was asked for
    InvalidOpcode = 11,     ///< a load event or control that the state or the device does not have
    TableTooLong = 13,      ///< more entries than the segment holds
    AddressesUnsorted = 15, ///< group addresses that do not ascend
    InvalidConnection = 16, ///< a connection number 0
    InvalidObject = 17,     ///< a group object number that cannot be
    ObjectTooBig = 18,      ///< a group object with a size that no value has
};

/// "the segment asked for does not fit", ...
const char* ToString(LoadFault fault);

/// A piece of the device's memory. Empty: there is none, and the address is 0.
struct Segment {
    std::uint32_t address = 0;
    std::vector<std::uint8_t> octets;

    bool IsEmpty() const { return octets.empty(); }
    bool operator==(const Segment&) const = default;
};

/// The load state machine of one object (KNX Standard 3/5/1, load state machine of System B), with the
/// segment that relative allocation gave it. Loading goes: Unload, StartLoading, an allocation, writes to the
/// segment, LoadCompleted, which checks what was written. A state stays as it is when the device restarts:
/// what is only half loaded is never used, and the next download begins with Unload in every state.
class LoadableObject {
public:
    /// Finds room for so many octets, and gives its address; 0 when there is none.
    using Allocate = std::function<std::uint32_t(std::size_t size)>;
    /// Judges a segment that is to count as loaded.
    using Check = std::function<LoadFault(Octets segment)>;

    LoadableObject(Allocate allocate, Check check)
        : m_allocate(std::move(allocate)), m_check(std::move(check)) {}

    LoadState State() const { return m_state; }
    LoadFault Fault() const { return m_fault; }
    bool IsLoaded() const { return m_state == LoadState::Loaded; }
    const Segment& Memory() const { return m_segment; }

    /// A write to property 5: the event, and behind it what an additional load control says. Octets that are
    /// missing count as 0. Done, or why not; most refused events lead into the error state.
    WriteResult Control(Octets octets);

    /// Writes into the segment. False, and nothing is written, unless the object is loading and all octets
    /// are inside.
    bool Write(std::uint32_t address, Octets octets);

    /// Everything as it was, without a check: for a device that starts again.
    void Restore(LoadState state, LoadFault fault, Segment segment);

    /// Loaded with these octets, as if a download had brought them. False when there is no room, or the check
    /// refuses them: then it is unloaded.
    bool LoadWith(Octets octets);

    /// The element of property 27 (PID_MCB_TABLE): size, CRC control 0, access FFh, checksum of the segment.
    std::array<std::uint8_t, 8> MemoryControlBlock() const;

private:
    WriteResult Fail(LoadFault fault, WriteResult result);
    void Unload();
    WriteResult CompleteLoading();
    WriteResult AllocateRelative(Octets control);

    Allocate m_allocate;
    Check m_check;
    LoadState m_state = LoadState::Unloaded;
    LoadFault m_fault = LoadFault::None;
    Segment m_segment;
};

/// CRC-16 with polynomial 1021h, begun with FFFFh, no reflection: the checksum of a memory control block.
std::uint16_t Crc16(Octets octets);

} // namespace KnxDevice
