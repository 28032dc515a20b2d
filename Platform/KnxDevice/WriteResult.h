// What becomes of a write to a property, a load state or memory.
#pragma once

#include <cstdint>

namespace KnxDevice {

/// Why nothing was written, or that it was. How each way to the device says it to a tool is that way's
/// affair.
enum class WriteResult : std::uint8_t {
    Done,
    // Properties, in the order in which they are looked for.
    NoSuchProperty, ///< or no such object
    ReadOnly,       ///< for everybody
    Denied,         ///< by the access level; of memory, too
    NoSuchElement,
    WrongLength, ///< for the data type and the number of elements
    // Memory.
    NoSuchMemory,
    MemoryEnds, ///< before the last octet
    NotLoading, ///< it is there, but can be written only while its object is loading
    // Load states: what the event that was written has come to.
    UnknownEvent, ///< or an additional load control that is not supported
    WrongState,   ///< the event is of no use in this load state
    InvalidLoad,  ///< what is to be allocated or counted as loaded is not valid
    NoRoom,       ///< for the memory that is to be allocated
};

/// A load event that was not done. The load state has judged it and may be another one now, so that its value
/// is still an answer.
constexpr bool IsJudgedByLoadState(WriteResult result) {
    return result >= WriteResult::UnknownEvent;
}

/// The reason as a phrase for the log: "there is no such property", ...
const char* ToString(WriteResult result);

} // namespace KnxDevice
