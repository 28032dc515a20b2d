// Group communication of the KNX stack.
#pragma once

#include <cstdint>

namespace KnxStack {

class GroupValue;
class IGroupObject;
class IGroupValueUser;

/// Sends group telegrams for the program's communication objects and delivers the received ones.
/// Communication objects are numbered from 1.
class IGroupValueService {
public:
    /// The `kind` argument of SendGroupValue().
    static constexpr unsigned kWrite = 0;
    static constexpr unsigned kResponse = 3;

    virtual ~IGroupValueService() = default;

    /// Registers the receiver of group telegrams; the former one is replaced, null removes it. Returns only
    /// when no callback into the former user is running any more, except when called from inside one. The
    /// user is borrowed until it is replaced or removed.
    virtual void RegisterGroupValueUser(IGroupValueUser* user) = 0;

    /// Sends the value of the object to its sending group address: kWrite as A_GroupValue_Write, kResponse as
    /// A_GroupValue_Response. True when the telegram was taken into the send queue, false when the object
    /// does not exist, may not transmit, has no address, or has another size. Never waits; any thread, also
    /// inside a callback.
    virtual bool SendGroupValue(std::uint16_t co, const GroupValue& value, unsigned kind) = 0;

    /// Sends A_GroupValue_Read to the object's sending group address. Result and threads as SendGroupValue().
    virtual bool SendReadRequest(std::uint16_t co) = 0;

    /// The description of the object; for every number, also of an object that does not exist. The reference
    /// stays valid as long as the service. Never waits; any thread.
    virtual const IGroupObject& GetGroupObject(std::uint16_t co) = 0;
};

} // namespace KnxStack
