// Plug-in of the benchmarks: data point 2000 + CO for every CO, type 9.001.
#include "Tav/Export.h"
#include "Vesk/IKnxAppPrgHandler.h"

namespace {

constexpr std::uint32_t kFirstId = 2000;

class Handler : public Vesk::IKnxAppPrgHandler {
public:
    bool Initialize() override { return true; }
    std::uint32_t GetIDFromCO(std::uint16_t co, KNXDPT& dpt) override {
        dpt = kTemperature;
        return kFirstId + co;
    }
    std::string GetUrnFromCO(std::uint16_t, KNXDPT&) override { return {}; }
    std::uint16_t GetCOFromID(std::uint32_t id, bool, KNXDPT& dpt) override {
        dpt = kTemperature;
        return id > kFirstId ? static_cast<std::uint16_t>(id - kFirstId) : kNoCo;
    }
    std::uint16_t GetCOFromUrn(const std::string&, bool, KNXDPT&) override { return kNoCo; }
    bool IsKnxEventDataPoint(std::uint32_t) override { return true; }
    bool IsKnxEventDataPoint(const std::string&) override { return false; }
    bool IsOxnReadInternalDataPoint(std::uint32_t) override { return true; }
    bool IsOxnReadInternalDataPoint(const std::string&) override { return false; }
    std::uint16_t GetTimeCoByIndex(std::uint32_t, bool, KNXDPT&) override { return kNoCo; }
    std::uint32_t GetInterfaceObjectId() override { return 0; }
    std::uint32_t GetPropertyByIndex(std::uint32_t, std::uint8_t&, std::string&, std::uint16_t&) override {
        return 0;
    }
    std::uint32_t GetExtendedInterfaceObjectType() override { return 0; }
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> GetExtendedProperties() override { return {}; }
    std::pair<std::uint16_t, std::uint16_t> GetGroupAddressTranslationRange() override { return {0, 0}; }
    bool GetUseUrns() override { return false; }
    bool Reload() override { return true; }

private:
    static constexpr KNXDPT kTemperature{16, 0, 9, 1};
};

} // namespace

extern "C" TAV_EXPORT Vesk::IKnxAppPrgHandler* CreateHandler(std::string&) {
    return new Handler;
}

extern "C" TAV_EXPORT bool DeleteHandler(Vesk::IKnxAppPrgHandler*& handler) {
    delete handler;
    handler = nullptr;
    return true;
}
