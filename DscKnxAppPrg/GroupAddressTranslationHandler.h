// Group address translation: telegrams of a range of COs as text messages for another application, and back.
#pragma once

#include <log4cplus/logger.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace KnxStack {
class GroupValue;
class IGroupValueService;
} // namespace KnxStack
namespace Vesk {
class IDeviceStackClient;
}

/// A message is the type of the telegram, the CO and, for a write and a response, the size of the value in
/// bits and its bytes in telegram order, all hexadecimal without separators:
///
///     !00120101        write of a 1-bit value 1 to CO 18
///     #012c100c1a      response with the 16-bit value 0C1Ah for CO 300
///     ?0005            read request for CO 5
///
/// It travels as the message of an application event, addressed to the target name. Telegrams are sent on the
/// KNX stack's thread, messages are received on the device stack client's callback thread; neither takes the
/// client mutex. The range may change while both go on; everything else is set before.
class GroupAddressTranslationHandler {
public:
    enum class EventType : std::uint32_t { Write = 0, Response = 1, Read = 2, Error = 3 };

    GroupAddressTranslationHandler();

    /// Both pointers are borrowed and not checked.
    void Init(Vesk::IDeviceStackClient* client, KnxStack::IGroupValueService* service);

    /// After Init: the client was made anew, or is about to go (null).
    void ReplaceClient(Vesk::IDeviceStackClient* client);

    /// Who gets the messages, `<name>::<type>::<instance>`. Without a name nothing is sent.
    void SetTargetName(std::string name);

    /// First and last translated CO. A 0 on either side disables the handler; reversed bounds leave it
    /// enabled without any CO.
    void SetRange(std::array<std::uint16_t, 2> range);

    bool IsGroupAddressTranslationCo(std::uint16_t co) const;
    bool IsEnabled() const;

    // Telegrams of translated COs; the result of SendEvent.
    bool OnGroupValueWrite(std::uint16_t co, const KnxStack::GroupValue& value);
    bool OnGroupValueResponse(std::uint16_t co, const KnxStack::GroupValue& value);
    bool OnGroupValueRead(std::uint16_t co);

    /// True when the client took the message. `value` is needed for every type but Read.
    bool SendEvent(std::uint16_t co, EventType type, const KnxStack::GroupValue* value);

    /// Puts the telegram of the message on the bus; the result of the group value service. A message that is
    /// not right, or whose size is not that of the CO, is logged: false. Asks neither for the range nor
    /// whether the handler is enabled.
    bool OnMessageReceived(std::string_view message);

private:
    bool SendReceivedValue(std::uint16_t co, bool response, std::string_view message);
    KnxStack::IGroupValueService* Service() const;

    mutable log4cplus::Logger m_logger; // the log macros copy a const logger, also for what is not logged
    std::atomic<Vesk::IDeviceStackClient*> m_client = nullptr;                // not owned
    std::atomic<KnxStack::IGroupValueService*> m_groupValueService = nullptr; // not owned
    std::atomic<bool> m_initialised = false;
    std::string m_targetName;
    std::atomic<std::uint32_t> m_range = 0; // the first CO in the low half, the last one in the high half
};
