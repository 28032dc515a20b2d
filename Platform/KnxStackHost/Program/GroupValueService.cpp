#include "KnxStackHost/Program/GroupValueService.h"

#include "KnxStack/IGroupValueUser.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

namespace KnxStackHost {

using KnxDevice::SendOutcome;
using KnxFrames::GroupServiceKind;

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Program");
    return logger;
}

} // namespace

/// Marks the user as being called for as long as it lives.
class GroupValueService::RunningCall {
public:
    explicit RunningCall(GroupValueService& service) : m_service(service) {
        const std::lock_guard lock(m_service.m_userMutex);
        m_service.m_called = m_service.m_user;
        m_service.m_callingThread = std::this_thread::get_id();
    }
    ~RunningCall() {
        const std::lock_guard lock(m_service.m_userMutex);
        m_service.m_called = nullptr;
        m_service.m_callingThread = {};
        m_service.m_callEnded.notify_all();
    }
    RunningCall(const RunningCall&) = delete;
    RunningCall& operator=(const RunningCall&) = delete;

    /// Null when nobody is registered.
    KnxStack::IGroupValueUser* User() const { return m_service.m_called; } // written by this thread alone

private:
    GroupValueService& m_service;
};

GroupValueService::GroupValueService(KnxDevice::GroupObjects& objects, BusOutlet& outlet)
    : m_objects(objects), m_outlet(outlet) {}

void GroupValueService::RegisterGroupValueUser(KnxStack::IGroupValueUser* user) {
    std::unique_lock lock(m_userMutex);
    auto* const former = std::exchange(m_user, user);
    if (former == nullptr || former == user || m_callingThread == std::this_thread::get_id())
        return;
    m_callEnded.wait(lock, [this, former] { return m_called != former; });
}

bool GroupValueService::SendGroupValue(std::uint16_t co, const KnxStack::GroupValue& value, unsigned kind) {
    if (kind != kWrite && kind != kResponse) {
        ReportRefusal(co, "the kind of telegram is neither a write nor a response");
        return false;
    }
    const auto service = kind == kWrite ? GroupServiceKind::Write : GroupServiceKind::Response;
    KnxFrames::LData telegram;
    const auto outcome = KnxDevice::ComposeValue(*m_objects.Tables(), co, service, value, telegram);
    return Submit(outcome, telegram, co);
}

bool GroupValueService::SendReadRequest(std::uint16_t co) {
    KnxFrames::LData telegram;
    const auto outcome = KnxDevice::ComposeRead(*m_objects.Tables(), co, telegram);
    return Submit(outcome, telegram, co);
}

const KnxStack::IGroupObject& GroupValueService::GetGroupObject(std::uint16_t co) {
    return m_objects.View(co);
}

bool GroupValueService::Submit(SendOutcome outcome, const KnxFrames::LData& telegram, std::uint16_t co) {
    if (outcome != SendOutcome::Composed) {
        ReportRefusal(co, KnxDevice::ToString(outcome));
        return false;
    }
    if (m_outlet.Submit(telegram, co))
        return true;
    ReportRefusal(co, "the send queue is full");
    return false;
}

void GroupValueService::ReportRefusal(std::uint16_t co, const char* cause) {
    auto verdict = Notices::Verdict::Silent;
    {
        const std::lock_guard lock(m_noticesMutex);
        verdict = m_notices.Count(co, cause);
    }
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(), fmt::format("group object {}: a telegram of the program was not sent: {}{}", co,
                                          cause, Suffix(verdict)));
}

bool GroupValueService::Deliver(const Callback& callback) {
    const auto sizeInBits = m_objects.Tables()->Object(callback.object).sizeInBits;
    if (callback.kind != GroupServiceKind::Read && callback.value.GetDefinedSize() != sizeInBits)
        return false;
    const RunningCall call(*this);
    if (call.User() == nullptr)
        return false;
    Call(*call.User(), callback);
    return true;
}

void GroupValueService::Call(KnxStack::IGroupValueUser& user, const Callback& callback) {
    switch (callback.kind) {
    case GroupServiceKind::Write: user.OnGroupValueWrite(callback.object, callback.value); break;
    case GroupServiceKind::Response: user.OnGroupValueResponse(callback.object, callback.value); break;
    case GroupServiceKind::Read:
        KnxStack::GroupValue answer;
        if (user.OnGroupValueRead(callback.object, answer))
            SendGroupValue(callback.object, answer, kResponse);
        break;
    }
}

} // namespace KnxStackHost
