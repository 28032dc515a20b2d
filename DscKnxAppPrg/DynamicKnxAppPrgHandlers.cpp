#include "DynamicKnxAppPrgHandlers.h"

namespace {
constexpr std::uint16_t kNoCo = Vesk::IKnxAppPrgHandler::kNoCo;
}

template <typename Answer, typename Question>
Answer DynamicKnxAppPrgHandlers::FirstAnswer(Answer noAnswer, const Question& question) const {
    for (const Library& library : Libraries()) {
        if (library.handler == nullptr)
            continue;
        Answer answer = question(*library.handler);
        if (answer != noAnswer)
            return answer;
    }
    return noAnswer;
}

std::uint32_t DynamicKnxAppPrgHandlers::GetIDFromCO(std::uint16_t co, KNXDPT& dpt) const {
    return FirstAnswer<std::uint32_t>(0, [&](auto& handler) { return handler.GetIDFromCO(co, dpt); });
}

std::string DynamicKnxAppPrgHandlers::GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) const {
    return FirstAnswer<std::string>({}, [&](auto& handler) { return handler.GetUrnFromCO(co, dpt); });
}

std::uint16_t DynamicKnxAppPrgHandlers::GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) const {
    return FirstAnswer<std::uint16_t>(kNoCo,
                                      [&](auto& handler) { return handler.GetCOFromID(id, reading, dpt); });
}

std::uint16_t DynamicKnxAppPrgHandlers::GetCOFromUrn(const std::string& urn, bool reading,
                                                     KNXDPT& dpt) const {
    return FirstAnswer<std::uint16_t>(kNoCo,
                                      [&](auto& handler) { return handler.GetCOFromUrn(urn, reading, dpt); });
}

bool DynamicKnxAppPrgHandlers::IsKnxEventDataPoint(std::uint32_t id) const {
    return FirstAnswer(false, [&](auto& handler) { return handler.IsKnxEventDataPoint(id); });
}

bool DynamicKnxAppPrgHandlers::IsKnxEventDataPoint(const std::string& urn) const {
    return FirstAnswer(false, [&](auto& handler) { return handler.IsKnxEventDataPoint(urn); });
}

bool DynamicKnxAppPrgHandlers::IsOxnReadInternalDataPoint(std::uint32_t id) const {
    return FirstAnswer(false, [&](auto& handler) { return handler.IsOxnReadInternalDataPoint(id); });
}

bool DynamicKnxAppPrgHandlers::IsOxnReadInternalDataPoint(const std::string& urn) const {
    return FirstAnswer(false, [&](auto& handler) { return handler.IsOxnReadInternalDataPoint(urn); });
}

std::uint16_t DynamicKnxAppPrgHandlers::GetTimeCoByIndex(std::uint32_t index, bool writing,
                                                         KNXDPT& dpt) const {
    return FirstAnswer<std::uint16_t>(
        kNoCo, [&](auto& handler) { return handler.GetTimeCoByIndex(index, writing, dpt); });
}

std::uint32_t DynamicKnxAppPrgHandlers::GetInterfaceObjectId() const {
    return FirstAnswer<std::uint32_t>(0, [](auto& handler) { return handler.GetInterfaceObjectId(); });
}

std::uint32_t DynamicKnxAppPrgHandlers::GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType,
                                                           std::string& name,
                                                           std::uint16_t& elementCount) const {
    return FirstAnswer<std::uint32_t>(
        0, [&](auto& handler) { return handler.GetPropertyByIndex(index, dataType, name, elementCount); });
}

std::uint32_t DynamicKnxAppPrgHandlers::GetExtendedInterfaceObjectType() const {
    return FirstAnswer<std::uint32_t>(0,
                                      [](auto& handler) { return handler.GetExtendedInterfaceObjectType(); });
}

std::vector<Vesk::KnxAppPrg::ExtendedProperty> DynamicKnxAppPrgHandlers::GetExtendedProperties() const {
    for (const Library& library : Libraries()) {
        if (library.handler == nullptr)
            continue;
        std::vector<Vesk::KnxAppPrg::ExtendedProperty> properties = library.handler->GetExtendedProperties();
        if (!properties.empty())
            return properties;
    }
    return {};
}

std::pair<std::uint16_t, std::uint16_t> DynamicKnxAppPrgHandlers::GetGroupAddressTranslationRange() const {
    std::pair<std::uint16_t, std::uint16_t> range{0, 0};
    for (const Library& library : Libraries()) {
        if (library.handler == nullptr)
            continue;
        range = library.handler->GetGroupAddressTranslationRange();
        if (range.first != 0 && range.second != 0)
            return range;
    }
    return range;
}

bool DynamicKnxAppPrgHandlers::GetUseUrns() const {
    return FirstAnswer(false, [](auto& handler) { return handler.GetUseUrns(); });
}

bool DynamicKnxAppPrgHandlers::Reload() const {
    bool result = false;
    for (const Library& library : Libraries()) {
        if (library.handler != nullptr)
            result = library.handler->Reload();
    }
    return result;
}

bool KnxAppPrgHandlerSet::Load(const std::string& firstDirectory, const std::string& secondDirectory,
                               const std::string& name) {
    Clear(); // before loading: a library that is listed again must start afresh
    const auto set = std::make_shared<DynamicKnxAppPrgHandlers>();
    const bool loaded = WithOwnExceptions([&] { return set->Init(firstDirectory, secondDirectory, name); });
    Replace(set);
    return loaded;
}

void KnxAppPrgHandlerSet::Clear() {
    Replace(std::make_shared<DynamicKnxAppPrgHandlers>());
}

std::shared_ptr<const DynamicKnxAppPrgHandlers> KnxAppPrgHandlerSet::Current() const {
    const std::lock_guard lock(m_mutex);
    return m_set;
}

void KnxAppPrgHandlerSet::Replace(std::shared_ptr<const DynamicKnxAppPrgHandlers> set) {
    {
        const std::lock_guard lock(m_mutex);
        m_set.swap(set);
    }
    // The former set goes here, outside the lock, unless somebody is still asking it.
}
