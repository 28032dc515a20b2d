// The KNX side: its set-up, and what it passes on to the plug-ins.
#include "DscKnxAppPrg.h"

#include "KnxStack/IApiHub.h"
#include "KnxStack/IGroupObject.h"
#include "KnxStack/IGroupValueService.h"

#include <boost/thread/thread.hpp>
#include <log4cplus/loggingmacros.h>

namespace {
constexpr std::uint32_t kDeviceDataPoint = 1000;
constexpr int kApplicationProgram = 1;
} // namespace

DscKnxAppPrg::KnxHandler::KnxHandler(DscKnxAppPrg& appPrg)
    : m_appPrg(appPrg), m_logger(log4cplus::Logger::getInstance("KnxStack.DscKnxAppPrg.KnxHandler")) {}

bool DscKnxAppPrg::KnxHandler::Init(KnxStack::IApiHub& hub, CallerEntryPoint entryPoint) {
    LOG4CPLUS_DEBUG(m_logger, "Init(): starting...");
    if (entryPoint == CallerEntryPoint::Init) {
        KnxStack::IGroupValueService* const service = hub.GetGroupValueService();
        m_groupValueService = service;
        m_appPrgMemory = hub.GetApplicationProgramMemory();
        if (service != nullptr)
            service->RegisterGroupValueUser(this);
    }
    LOG4CPLUS_DEBUG(m_logger, "Init(): end");
    return true;
}

void DscKnxAppPrg::KnxHandler::InitFromDynamicHandlers() {
    ClearCoAndIdMap();
    SetIdentification();
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
    LOG4CPLUS_DEBUG(m_logger, "Exit(): end");
    return true;
}
