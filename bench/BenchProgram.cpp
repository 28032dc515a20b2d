// Application program of the benchmarks: notes when it is called with a number. Setting "report": the file of
// Report.h.
#include "Report.h"

#include "KnxStack/GroupValue.h"
#include "KnxStack/IApiHub.h"
#include "KnxStack/IApplicationProgram.h"
#include "KnxStack/IGroupValueService.h"
#include "KnxStack/IGroupValueUser.h"
#include "Tav/Export.h"

#include <chrono>

namespace {

class BenchProgram final : public KnxStack::IApplicationProgram, private KnxStack::IGroupValueUser {
public:
    StartupState Init(KnxStack::IApiHub& hub) override {
        m_hub = &hub;
        m_report = &Bench::MapReport(hub.GetApplicationProgramSettings().at("report"));
        hub.GetGroupValueService()->RegisterGroupValueUser(this);
        m_report->isReady = true;
        return StartupState::Running;
    }
    StartupState OnDeviceRestart() override { return StartupState::Running; }
    bool Exit() override {
        m_hub->GetGroupValueService()->RegisterGroupValueUser(nullptr);
        return true;
    }

private:
    void OnGroupValueWrite(int, const KnxStack::GroupValue& value) override {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        std::uint32_t number = 0;
        for (const std::uint8_t octet : value.GetRawData().Bytes())
            number = number << 8 | octet;
        m_report->Of(number).store(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
    }
    void OnGroupValueResponse(int, const KnxStack::GroupValue&) override {}
    bool OnGroupValueRead(int, KnxStack::GroupValue&) override { return false; }

    KnxStack::IApiHub* m_hub = nullptr;
    Bench::Report* m_report = nullptr;
};

} // namespace

extern "C" {

TAV_EXPORT KnxStack::IApplicationProgram* createApplicationProgram() {
    return new BenchProgram;
}

TAV_EXPORT void deleteApplicationProgram(KnxStack::IApplicationProgram* program) {
    delete program;
}

TAV_EXPORT unsigned getKnxStackApiVersion() {
    return KnxStack::IApplicationProgram::kApiVersion;
}
}
