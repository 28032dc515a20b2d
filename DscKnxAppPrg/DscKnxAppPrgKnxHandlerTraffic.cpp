// Group telegrams to data points, and data points to group telegrams.
#include "DeviceDataPoints.h"
#include "DscKnxAppPrg.h"

#include "KnxStack/GroupValue.h"
#include "KnxStack/IGroupValueService.h"
#include "Tav/TAVVALUE.h"

#include <log4cplus/loggingmacros.h>

namespace {

/// Data points whose values always go to the application that owns them.
bool IsNeverReadInternal(std::uint32_t id) {
    return id == kReadyDataPoint || id == kStateDataPoint || (id >= 1008 && id <= 1049) ||
           (id >= 9000 && id <= 9999);
}

/// A learn request of a scene goes to the data point behind the one that activates it.
void RedirectSceneLearn(const KNXDPT& dpt, TAVVALUE& value, std::uint32_t& id) {
    if (dpt.main != 18 || dpt.sub != 1)
        return;
    const std::int64_t scene = value.ToInteger();
    if (scene >= 0)
        return;
    value.SetInteger(-scene);
    ++id;
}

} // namespace

void DscKnxAppPrg::KnxHandler::OnGroupValueWrite(int co, const KnxStack::GroupValue& groupValue) {
    if (!m_appPrg.m_client) {
        LOG4CPLUS_ERROR(m_logger, "OnGroupValueWrite(): client is not connected.");
        return;
    }
    const auto number = static_cast<std::uint16_t>(co);
    if (m_translation.IsGroupAddressTranslationCo(number)) {
        m_translation.OnGroupValueWrite(number, groupValue);
        return;
    }
    KNXDPT dpt = SizedDpt(groupValue.GetDefinedSize());
    std::uint32_t id = GetIDFromCO(number, dpt, kTelegram);
    if (id == 0)
        return;
    if (dpt.main == 0) {
        LOG4CPLUS_ERROR(m_logger, "OnGroupValueWrite(): Failed to get DPT for CO '" << number << "'.");
        return;
    }
    TAVVALUE value;
    if (!m_valueConverter.FromKnxValue(dpt, groupValue, value)) {
        LOG4CPLUS_ERROR(m_logger, "OnGroupValueWrite(): Can't get value from group value.");
        return;
    }

    const std::lock_guard lock(m_appPrg.m_clientMutex);
    if (id == kClockDataPoint) {
        m_dateTimeHandler.AddEntry(value, dpt);
        return;
    }
    if (id == kRestartDataPoint && value.ToDouble() != 0) {
        RestartDevice(m_appPrg.m_client);
        return;
    }
    RedirectSceneLearn(dpt, value, id);
    std::string text;
    value.Serialize(text, true);
    const bool readInternal = !IsNeverReadInternal(id) && IsOxnReadInternalDataPoint(id);
    m_appPrg.m_client->SetValue(id, text, readInternal, false);
}

void DscKnxAppPrg::KnxHandler::OnGroupValueResponse(int co, const KnxStack::GroupValue& groupValue) {
    if (!m_appPrg.m_client) {
        LOG4CPLUS_ERROR(m_logger, "OnGroupValueResponse(): client is not connected.");
        return;
    }
    const auto number = static_cast<std::uint16_t>(co);
    if (m_translation.IsGroupAddressTranslationCo(number)) {
        m_translation.OnGroupValueResponse(number, groupValue);
        return;
    }
    KNXDPT dpt = SizedDpt(groupValue.GetDefinedSize());
    std::uint32_t id = GetIDFromCO(number, dpt, kTelegram);
    if (id == 0)
        return;
    if (dpt.main == 0) {
        LOG4CPLUS_ERROR(m_logger, "OnGroupValueResponse(): Failed to get DPT for CO '" << number << "'.");
        return;
    }
    TAVVALUE value;
    if (!m_valueConverter.FromKnxValue(dpt, groupValue, value)) {
        LOG4CPLUS_ERROR(m_logger, "OnGroupValueResponse(): Can't get value from group value.");
        return;
    }
    RedirectSceneLearn(dpt, value, id);
    std::string text;
    value.Serialize(text, true);

    const std::lock_guard lock(m_appPrg.m_clientMutex);
    m_appPrg.m_client->SetValue(id, text, true, true);
}

bool DscKnxAppPrg::KnxHandler::OnGroupValueRead(int co, KnxStack::GroupValue& groupValue) {
    if (!m_appPrg.m_client) {
        LOG4CPLUS_ERROR(m_logger, "OnGroupValueRead(): client is not connected.");
        return false;
    }
    const auto number = static_cast<std::uint16_t>(co);
    if (m_translation.IsGroupAddressTranslationCo(number)) {
        m_translation.OnGroupValueRead(number);
        return false; // the other application may answer
    }
    KNXDPT dpt = SizedDpt(GetValueSizeFromCO(number));
    const std::uint32_t id = GetIDFromCO(number, dpt, kTelegram);
    if (id == 0)
        return false;

    const std::lock_guard lock(m_appPrg.m_clientMutex);
    const bool readInternal = IsOxnReadInternalDataPoint(id);
    if (IsTimeDataPoint(id))
        NoteTimeTransfer();
    std::string text;
    if (!m_appPrg.m_client->GetValue(id, text, readInternal))
        return false;
    return GetGroupValueFromValue(text, number, dpt, groupValue);
}

bool DscKnxAppPrg::KnxHandler::ReadValue(std::uint32_t id, const std::string& urn) {
    KNXDPT dpt;
    const std::uint16_t co = GetCOFromID(id, urn, dpt, OpMode::Reading);
    KnxStack::IGroupValueService* const service = m_groupValueService;
    if (co == kNoCo || service == nullptr)
        return false;
    return service->SendReadRequest(co);
}

bool DscKnxAppPrg::KnxHandler::WriteValue(std::uint32_t id, const std::string& urn, const std::string& value,
                                          bool preferReadCo) {
    if (id == kRestartDataPoint) {
        RestartDevice(m_appPrg.m_client);
        return true;
    }
    KNXDPT dpt;
    std::uint16_t co = GetCOFromID(id, urn, dpt, preferReadCo ? OpMode::Reading : OpMode::Writing);
    if (co == kNoCo && preferReadCo)
        co = GetCOFromID(id, urn, dpt, OpMode::Writing);
    KnxStack::IGroupValueService* const service = m_groupValueService;
    if (co == kNoCo || service == nullptr)
        return false;
    if (id == kClockDataPoint)
        return SendToTimeCos(*service, value);

    KnxStack::GroupValue groupValue;
    if (!GetGroupValueFromValue(value, co, dpt, groupValue)) {
        LOG4CPLUS_ERROR(m_logger, "WriteValue(): GetGroupValueFromValue failed.");
        return false;
    }
    return service->SendGroupValue(co, groupValue, KnxStack::IGroupValueService::kWrite);
}

bool DscKnxAppPrg::KnxHandler::SendToTimeCos(KnxStack::IGroupValueService& service,
                                             const std::string& value) {
    bool sent = false;
    for (unsigned index = 1;; ++index) {
        KNXDPT dpt;
        const std::uint16_t co = GetTimeCoByIndex(index, true, dpt);
        if (co == kNoCo)
            return sent;
        KnxStack::GroupValue groupValue;
        if (GetGroupValueFromValue(value, co, dpt, groupValue))
            sent = service.SendGroupValue(co, groupValue, KnxStack::IGroupValueService::kWrite);
        else
            LOG4CPLUS_ERROR(m_logger, "WriteValue(): GetGroupValueFromValue failed. CO = " << co);
    }
}
