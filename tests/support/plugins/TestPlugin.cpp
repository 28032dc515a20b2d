// A handler plug-in that passes every question on to the test program, which was linked with its symbols
// exported. Everything that a plug-in may bring along comes from this library: the handler object, its code,
// and the type of the exceptions that it throws, so that whoever uses one of them after unloading crashes.
#include "TestPluginLibrary.h"
#include "TestPluginLink.h"

#include <string>

namespace {

class Handler : public Vesk::IKnxAppPrgHandler {
public:
    explicit Handler(Vesk::IKnxAppPrgHandler& answers) : m_answers(answers) {}

    bool Initialize() override {
        return Own([&] { return m_answers.Initialize(); });
    }
    std::uint32_t GetIDFromCO(std::uint16_t co, KNXDPT& dpt) override {
        return Own([&] { return m_answers.GetIDFromCO(co, dpt); });
    }
    std::string GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) override {
        return Own([&] { return m_answers.GetUrnFromCO(co, dpt); });
    }
    std::uint16_t GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) override {
        return Own([&] { return m_answers.GetCOFromID(id, reading, dpt); });
    }
    std::uint16_t GetCOFromUrn(const std::string& urn, bool reading, KNXDPT& dpt) override {
        return Own([&] { return m_answers.GetCOFromUrn(urn, reading, dpt); });
    }
    bool IsKnxEventDataPoint(std::uint32_t id) override {
        return Own([&] { return m_answers.IsKnxEventDataPoint(id); });
    }
    bool IsKnxEventDataPoint(const std::string& urn) override {
        return Own([&] { return m_answers.IsKnxEventDataPoint(urn); });
    }
    bool IsOxnReadInternalDataPoint(std::uint32_t id) override {
        return Own([&] { return m_answers.IsOxnReadInternalDataPoint(id); });
    }
    bool IsOxnReadInternalDataPoint(const std::string& urn) override {
        return Own([&] { return m_answers.IsOxnReadInternalDataPoint(urn); });
    }
    std::uint16_t GetTimeCoByIndex(std::uint32_t index, bool writing, KNXDPT& dpt) override {
        return Own([&] { return m_answers.GetTimeCoByIndex(index, writing, dpt); });
    }
    std::uint32_t GetInterfaceObjectId() override {
        return Own([&] { return m_answers.GetInterfaceObjectId(); });
    }
    std::uint32_t GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType, std::string& name,
                                     std::uint16_t& elementCount) override {
        return Own([&] { return m_answers.GetPropertyByIndex(index, dataType, name, elementCount); });
    }
    std::uint32_t GetExtendedInterfaceObjectType() override {
        return Own([&] { return m_answers.GetExtendedInterfaceObjectType(); });
    }
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> GetExtendedProperties() override {
        return Own([&] { return m_answers.GetExtendedProperties(); });
    }
    std::pair<std::uint16_t, std::uint16_t> GetGroupAddressTranslationRange() override {
        return Own([&] { return m_answers.GetGroupAddressTranslationRange(); });
    }
    bool GetUseUrns() override {
        return Own([&] { return m_answers.GetUseUrns(); });
    }
    bool Reload() override {
        return Own([&] { return m_answers.Reload(); });
    }

private:
    Vesk::IKnxAppPrgHandler& m_answers;
};

} // namespace

extern "C" {

#ifndef KNX_TEST_PLUGIN_WITHOUT_CREATE
TAV_EXPORT Vesk::IKnxAppPrgHandler* CreateHandler(std::string& configFile) {
    Vesk::IKnxAppPrgHandler* const answers = KnxTestPluginCreate(KNX_TEST_PLUGIN_NAME, configFile);
    return answers != nullptr ? new Handler(*answers) : nullptr;
}
#endif

#ifndef KNX_TEST_PLUGIN_WITHOUT_DELETE
TAV_EXPORT bool DeleteHandler(Vesk::IKnxAppPrgHandler*& handler) {
    KnxTestPluginDelete(KNX_TEST_PLUGIN_NAME);
    delete handler;
    handler = nullptr;
    return true;
}
#endif
}
