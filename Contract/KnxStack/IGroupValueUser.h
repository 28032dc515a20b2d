// Receiver of group telegrams.
#pragma once

namespace KnxStack {

class GroupValue;

/// What an application program implements to be told of group telegrams for its communication objects.
/// All callbacks come on one thread of the host, one at a time, in the order of the bus. No lock of the host
/// is held, so every operation of IGroupValueService may be called from inside. Of `co` only the low 16 bits
/// count. The value is borrowed for the call.
///
/// A callback may take its time: a program asks the device stack, which waits, and its plug-ins. And it may
/// throw: what a plug-in throws comes out of the callback. The host catches everything, drops that telegram
/// (a read has no response) and goes on.
class IGroupValueUser {
public:
    virtual ~IGroupValueUser() = default;

    /// A_GroupValue_Write arrived for the object, and its write flag allows it.
    virtual void OnGroupValueWrite(int co, const GroupValue& value) = 0;

    /// A_GroupValue_Response arrived for the object, and its update flag allows it.
    virtual void OnGroupValueResponse(int co, const GroupValue& value) = 0;

    /// A_GroupValue_Read arrived for the object, and its read flag allows it. True when `value` was filled
    /// and the stack is to answer with it; on false `value` counts for nothing and no response is sent.
    virtual bool OnGroupValueRead(int co, GroupValue& value) = 0;
};

} // namespace KnxStack
