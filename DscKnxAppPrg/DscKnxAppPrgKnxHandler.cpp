// The KNX side: its set-up, and what it passes on to the plug-ins.
#include "DscKnxAppPrg.h"

#include "KnxStack/IApiHub.h"
#include "KnxStack/IApplicationProgramMemory.h"
#include "KnxStack/IGroupObject.h"
#include "KnxStack/IGroupValueService.h"
#include "KnxStack/IInterfaceObjectProperty.h"
#include "Tav/TavTickCount.h"

#include <boost/thread/thread.hpp>
#include <log4cplus/loggingmacros.h>

#include <exception>

namespace {

constexpr std::uint32_t kDeviceDataPoint = 1000;
constexpr int kApplicationProgram = 1;
constexpr std::uint64_t kLongestPauseTicks = 999'999'999; // of time transfers that are held back

constexpr KnxStack::PropertyId kTimeModeProperty = 201;
constexpr std::uint32_t kTypeWithTimeModeInMemory = 2;
constexpr std::size_t kTimeModeAddress = 48;
constexpr std::size_t kSmallestMemory = 97; // of a download that has a time mode

std::uint8_t TimeModeOf(std::uint8_t byte) {
    return static_cast<std::uint8_t>(byte >> 6);
}

/// The KNX stack's answer. The question is not interrupted; but a start that was stopped meanwhile ends
/// behind it and leaves the answer to the start that came after it.
template <typename Question>
auto AskStack(const Question& question) {
    auto answer = [&] {
        const boost::this_thread::disable_interruption stackCall;
        return question();
    }();
    boost::this_thread::interruption_point();
    return answer;
}

} // namespace

DscKnxAppPrg::KnxHandler::KnxHandler(DscKnxAppPrg& appPrg)
    : m_appPrg(appPrg), m_logger(log4cplus::Logger::getInstance("KnxStack.DscKnxAppPrg.KnxHandler")),
      m_knxPropertyHandler(appPrg), m_dateTimeHandler(appPrg.m_client) {}

bool DscKnxAppPrg::KnxHandler::Init(KnxStack::IApiHub& hub, CallerEntryPoint entryPoint) {
    LOG4CPLUS_DEBUG(m_logger, "Init(): starting...");
    {
        const std::unique_lock lock(m_timeTransferLock);
        m_timeTransferTick = 0;
    }
    if (entryPoint == CallerEntryPoint::Init) {
        KnxStack::IGroupValueService* const service = hub.GetGroupValueService();
        m_groupValueService = service;
        m_appPrgMemory = hub.GetApplicationProgramMemory();
        if (service != nullptr)
            service->RegisterGroupValueUser(this);
        if (!InitProperties(hub.GetPropertyService())) {
            LOG4CPLUS_ERROR(m_logger, "Error init KNX property handler");
            return false;
        }
        m_translation.Init(m_appPrg.m_client.get(), service);
    }
    LOG4CPLUS_DEBUG(m_logger, "Init(): end");
    return true;
}

bool DscKnxAppPrg::KnxHandler::InitProperties(KnxStack::IPropertyService* service) {
    try {
        return m_knxPropertyHandler.Init(service, m_interfaceObjects);
    } catch (const std::exception& error) {
        LOG4CPLUS_ERROR(m_logger, "Init(): Can't register KNX properties: " << error.what());
    } catch (...) {
        LOG4CPLUS_ERROR(m_logger, "Init(): Can't register KNX properties: unknown exception");
    }
    return false;
}

void DscKnxAppPrg::KnxHandler::InitFromDynamicHandlers() {
    ClearCoAndIdMap();
    SetIdentification();
    SetTranslationRange();
    // Again: what a telegram asked for meanwhile was answered by the former identification.
    ClearCoAndIdMap();
}

void DscKnxAppPrg::KnxHandler::SetIdentification() {
    const bool urns = m_appPrg.m_handlers.Ask([](const auto& handlers) { return handlers.GetUseUrns(); });
    // A start that was stopped meanwhile leaves the identification to the one that came after it.
    boost::this_thread::interruption_point();
    useUrns = urns;
    LOG4CPLUS_INFO(m_logger, "Checking whether to use URNs instead of IDs: " << (urns ? "true" : "false"));
    if (!urns)
        return;

    std::string urn;
    {
        const boost::this_thread::disable_interruption clientCall;
        const std::lock_guard lock(m_appPrg.m_clientMutex);
        if (!m_appPrg.m_client)
            return;
        urn = m_appPrg.m_client->GetUrn(kDeviceDataPoint, 0);
    }
    boost::this_thread::interruption_point();
    const std::string device = urn.substr(urn.rfind(':') + 1); // the whole text when it has no colon
    SetUrnPrefix("urn:oxn:dp:" + device + ":");
    LOG4CPLUS_INFO(m_logger, "URN prefix: '" << *UrnPrefix() << "'");
}

void DscKnxAppPrg::KnxHandler::SetTranslationRange() {
    const auto [first, last] = m_appPrg.m_handlers.Ask(
        [](const auto& handlers) { return handlers.GetGroupAddressTranslationRange(); });
    boost::this_thread::interruption_point();
    if (first == 0 || last == 0)
        return; // kept: without a range the former one stays in force
    LOG4CPLUS_INFO(m_logger,
                   "Group address translation is enabled for COs " << first << " to " << last << ".");
    m_translation.SetRange({first, last});
}

void DscKnxAppPrg::KnxHandler::InitKnxPropertiesFromKnxStack() {
    KnxStack::IInterfaceObjectProperty* const property =
        AskStack([&] { return m_knxPropertyHandler.GetKnxPropertyObject(kTimeModeProperty); });
    m_timeModeProperty = property;
    if (property == nullptr) {
        LOG4CPLUS_ERROR(m_logger, "Error register Property with id = " << kTimeModeProperty);
        if (m_appPrg.m_deviceType == kTypeWithTimeModeInMemory)
            ReadTimeModeFromMemory();
        else
            LOG4CPLUS_INFO(m_logger, "InitKnxPropertiesFromKnxStack(): Time mode property is NULL.");
        return;
    }
    const KnxStack::BinaryData value = AskStack([&] { return property->GetValue(); });
    LOG4CPLUS_DEBUG(m_logger, "InitKnxPropertiesFromKnxStack(): Time mode property is: " << value.ToString());
    if (value.GetSize() != 0) // nothing was written yet: the mode stays
        m_timeMode = TimeModeOf(value.Bytes()[0]);
    LOG4CPLUS_INFO(m_logger,
                   "InitKnxPropertiesFromKnxStack(): Time mode is: " << static_cast<unsigned>(m_timeMode));
}

void DscKnxAppPrg::KnxHandler::ReadTimeModeFromMemory() {
    if (m_appPrgMemory == nullptr) {
        LOG4CPLUS_ERROR(m_logger, "InitKnxPropertiesFromKnxStack(): AppPrg1 Memory is NULL.");
        return;
    }
    const KnxStack::BinaryData memory = AskStack([&] { return m_appPrgMemory->GetData(); });
    if (memory.GetSize() < kSmallestMemory) {
        LOG4CPLUS_ERROR(m_logger, "InitKnxPropertiesFromKnxStack(): AppPrg1 Memory hasn't enough data.");
        return;
    }
    m_timeMode = TimeModeOf(memory.Bytes()[kTimeModeAddress]);
    LOG4CPLUS_INFO(m_logger,
                   "InitKnxPropertiesFromKnxStack(): Time mode is: " << static_cast<unsigned>(m_timeMode));
}

bool DscKnxAppPrg::KnxHandler::IsTimeTransferDue() const {
    const std::uint64_t now = TavTickCount::Now();
    const std::shared_lock lock(m_timeTransferLock);
    // A telegram may note a transfer between the two lines above, which is then later than now.
    return now > m_timeTransferTick && now - m_timeTransferTick > kLongestPauseTicks;
}

void DscKnxAppPrg::KnxHandler::NoteTimeTransfer() {
    const std::uint64_t now = TavTickCount::Now();
    const std::unique_lock lock(m_timeTransferLock);
    m_timeTransferTick = now;
}

bool DscKnxAppPrg::KnxHandler::FillCoDescriptorData(Vesk::KnxAppPrg::CoDescriptorDataMap& descriptors) const {
    KnxStack::IGroupValueService* const service = m_groupValueService;
    if (service == nullptr) {
        LOG4CPLUS_ERROR(m_logger, "Group value service is NULL.");
        return false;
    }
    for (std::uint16_t co = 1;; ++co) {
        if (co == kNoCo)
            return true; // every number is taken
        const KnxStack::IGroupObject& object = service->GetGroupObject(co);
        if (!object.Exists(kApplicationProgram))
            break;
        if (object.IsCommunicationEnabled())
            descriptors.emplace(co, Vesk::KnxAppPrg::CoDescriptorData{co, 1});
    }
    LOG4CPLUS_DEBUG(
        m_logger, "FillCoDescriptorData(): CO count with enabled communication flag: " << descriptors.size());
    return true;
}

std::uint16_t DscKnxAppPrg::KnxHandler::GetTimeCoByIndex(unsigned index, bool writing, KNXDPT& dpt) const {
    return m_appPrg.m_handlers.Ask(
        [&](const auto& handlers) { return handlers.GetTimeCoByIndex(index, writing, dpt); });
}

std::uint32_t DscKnxAppPrg::KnxHandler::GetInterfaceObjectId() const {
    return m_appPrg.m_handlers.Ask([](const auto& handlers) { return handlers.GetInterfaceObjectId(); });
}

std::uint32_t DscKnxAppPrg::KnxHandler::GetPropertyByIndex(unsigned index, unsigned char& dataType,
                                                           std::string& name,
                                                           std::uint16_t& elementCount) const {
    return m_appPrg.m_handlers.Ask([&](const auto& handlers) {
        return handlers.GetPropertyByIndex(index, dataType, name, elementCount);
    });
}

bool DscKnxAppPrg::KnxHandler::Exit() {
    LOG4CPLUS_DEBUG(m_logger, "Exit(): starting...");
    if (KnxStack::IGroupValueService* const service = m_groupValueService)
        service->RegisterGroupValueUser(nullptr);
    m_knxPropertyHandler.Exit();
    m_dateTimeHandler.Exit();
    LOG4CPLUS_DEBUG(m_logger, "Exit(): end");
    return true;
}
