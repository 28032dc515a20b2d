// Group communication as the application program uses it.
#pragma once

#include "KnxDevice/GroupObjects.h"
#include "KnxDevice/GroupTraffic.h"
#include "KnxStack/IGroupValueService.h"
#include "KnxStackHost/Notices.h"
#include "KnxStackHost/Program/CallbackQueue.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

namespace KnxStackHost {

/// Where telegrams of the device go.
class BusOutlet {
public:
    virtual ~BusOutlet() = default;

    /// Takes a telegram that the group object `sender` sends; false when there is no room. Never waits; any
    /// thread.
    virtual bool Submit(const KnxFrames::LData& telegram, std::uint16_t sender) = 0;
};

/// The service behind the hub. It composes what the program sends, and carries out callbacks on the thread
/// that calls Deliver(), with no lock held.
class GroupValueService final : public KnxStack::IGroupValueService {
public:
    /// Both outlive the service.
    GroupValueService(KnxDevice::GroupObjects& objects, BusOutlet& outlet);

    void RegisterGroupValueUser(KnxStack::IGroupValueUser* user) override;
    bool SendGroupValue(std::uint16_t co, const KnxStack::GroupValue& value, unsigned kind) override;
    bool SendReadRequest(std::uint16_t co) override;
    const KnxStack::IGroupObject& GetGroupObject(std::uint16_t co) override;

    /// Calls the user, and answers a read with what it filled in. False when nobody is registered, or the
    /// object has changed since the callback was made. What the user throws goes through. One thread.
    bool Deliver(const Callback& callback);

private:
    class RunningCall;

    void Call(KnxStack::IGroupValueUser& user, const Callback& callback);
    bool Submit(KnxDevice::SendOutcome outcome, const KnxFrames::LData& telegram, std::uint16_t co);
    void ReportRefusal(std::uint16_t co, const char* cause);

    KnxDevice::GroupObjects& m_objects;
    BusOutlet& m_outlet;

    std::mutex m_userMutex; // guards the next four
    std::condition_variable m_callEnded;
    KnxStack::IGroupValueUser* m_user = nullptr;
    KnxStack::IGroupValueUser* m_called = nullptr; // the user whose callback is running
    std::thread::id m_callingThread;

    std::mutex m_noticesMutex; // guards m_notices
    Notices m_notices;
};

} // namespace KnxStackHost
