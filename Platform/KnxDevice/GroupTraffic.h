// From group telegrams to group objects and back.
#pragma once

#include "KnxDevice/GroupObjectTable.h"

#include <boost/container/small_vector.hpp>

#include <cstdint>

namespace KnxStack {
class GroupValue;
}

namespace KnxDevice {

using KnxFrames::GroupService;
using KnxFrames::GroupServiceKind;

/// Who takes a received telegram.
struct Reception {
    bool listened = false;       ///< an object is associated with the destination
    unsigned refusedByFlags = 0; ///< associated objects whose flags do not take the service
    unsigned wrongLength = 0;    ///< associated objects whose value has another length
    boost::container::small_vector<std::uint16_t, 8> objects; ///< those that take it, ascending
};

/// The objects that take the service at the group address: a write needs flags C and W, a response C and U, a
/// read C and R, and the length of the value must be that of the object, or not above it when the object
/// fills values up. A read is for each such object, so that an address with several of them is answered
/// several times, as by every KNX device: who wants one answer sets one flag R. `sender` is the object of
/// this device that sent the telegram, 0 when it came from outside; it does not receive its own telegram, nor
/// do objects that take none of this device's.
Reception Receive(const GroupObjectTable& table, GroupAddress destination, const GroupService& service,
                  std::uint16_t sender = 0);

/// The value as the object sees it: right-aligned and cut to its size when it has less than 8 bits, filled up
/// with NULs when the object does that. The object must be one that Receive() named.
KnxStack::GroupValue ValueFor(const GroupObject& object, const GroupService& service);

/// What became of a wish to send.
enum class SendOutcome { Composed, NoSuchObject, MayNotTransmit, NoAddress, WrongSize };

/// One phrase for a log line.
const char* ToString(SendOutcome outcome);

/// The L_Data.req that carries the object's value (`kind` Response or Write) to its sending address with its
/// priority, from 0.0.0. A write needs flags C and T, a response C and one of R and T. A response goes to the
/// sending address also when the read came to another address of the object: the association table has one
/// sending address per object. A value for an object that fills values up may have fewer bytes, and a NUL at
/// its end more than there is room for. `telegram` is untouched unless Composed.
SendOutcome ComposeValue(const GroupObjectTable& table, std::uint16_t number, GroupServiceKind kind,
                         const KnxStack::GroupValue& value, KnxFrames::LData& telegram);

/// The read request to the object's sending address; needs flags C and T.
SendOutcome ComposeRead(const GroupObjectTable& table, std::uint16_t number, KnxFrames::LData& telegram);

/// The read request by which the device gets a value when it starts; needs flag C alone.
SendOutcome ComposeStartupRead(const GroupObjectTable& table, std::uint16_t number,
                               KnxFrames::LData& telegram);

} // namespace KnxDevice
