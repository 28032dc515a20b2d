// An application program that writes down what its host does with it, and misbehaves when told to.
//
// Settings: "record" names the file that gets one line per call. "init" is what Init does: "run" (the
// default) reports Running at once, "silent" never reports, "fail" returns Failed, "throw" throws,
// "fail-once" fails in the first program object of the process only, "flap" reports Running and then Failed.
// "restart" is what OnDeviceRestart does: "run" (the default) reports Running at once, "wait" reports it once
// the file "<record>.go" exists, "fail-once" fails the first time. "exit" is what Exit does: "hang" never
// returns, "throw" throws. "device": "record" has it write down before Init, OnDeviceRestart and on command 9
// what the device holds: whether a restart is pending, property 201 of object 50001, memory and data.
//
// A write to object 250 is a command: 1 throws, 2 blocks until the file "<record>.release" exists, 3 reports
// Failed, 4 sends 1 on object 1, 5 asks for the value of object 1, 6 reports Running, 7 signs off, 8 sends
// 0 to 99 on object 4, 9 writes down the device.
// A read is answered with the last written value, if there is one.
#include "KnxStack/GroupValue.h"
#include "KnxStack/IApiHub.h"
#include "KnxStack/IApplicationProgram.h"
#include "KnxStack/IApplicationProgramMemory.h"
#include "KnxStack/IDownloadService.h"
#include "KnxStack/IGroupValueService.h"
#include "KnxStack/IGroupValueUser.h"
#include "KnxStack/IInterfaceObject.h"
#include "KnxStack/IInterfaceObjectProperty.h"
#include "KnxStack/IPropertyService.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

#ifndef TEST_PROGRAM_VERSION
#define TEST_PROGRAM_VERSION KnxStack::IApplicationProgram::kApiVersion
#endif

namespace {

constexpr int kCommandObject = 250;

void WaitForEver() {
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
}

class TestProgram final : public KnxStack::IApplicationProgram, private KnxStack::IGroupValueUser {
public:
    StartupState Init(KnxStack::IApiHub& hub) override {
        static std::atomic<int> s_starts{0};
        m_hub = &hub;
        m_settings = hub.GetApplicationProgramSettings();
        Record("init");
        RecordDevice();
        if (const char* const socket = std::getenv("DEVICESTACK_SOCKET"))
            Record(std::string("DEVICESTACK_SOCKET=") + socket);
        hub.OnApplicationProgramStartupStateChanged(StartupState::InProgress);
        const auto behaviour = m_settings["init"];
        if (behaviour == "fail" || (behaviour == "fail-once" && s_starts++ == 0))
            return StartupState::Failed;
        if (behaviour == "throw")
            throw std::runtime_error("Init does not want to");
        hub.GetGroupValueService()->RegisterGroupValueUser(this);
        if (behaviour != "silent")
            hub.OnApplicationProgramStartupStateChanged(StartupState::Running);
        if (behaviour == "flap")
            hub.OnApplicationProgramStartupStateChanged(StartupState::Failed);
        return StartupState::InProgress;
    }

    StartupState OnDeviceRestart() override {
        static std::atomic<int> s_restarts{0};
        Record("restart");
        RecordDevice();
        const auto behaviour = m_settings["restart"];
        if (behaviour == "fail-once" && s_restarts++ == 0)
            return StartupState::Failed;
        if (behaviour == "wait")
            m_restart = std::jthread([this](const std::stop_token& stop) {
                WaitForFile(".go", stop);
                m_hub->OnApplicationProgramStartupStateChanged(StartupState::Running);
            });
        else
            m_hub->OnApplicationProgramStartupStateChanged(StartupState::Running);
        return StartupState::InProgress;
    }

    bool Exit() override {
        Record("exit");
        if (m_settings["exit"] == "hang")
            WaitForEver();
        if (m_settings["exit"] == "throw")
            throw std::runtime_error("Exit does not want to");
        m_hub->GetGroupValueService()->RegisterGroupValueUser(nullptr);
        return true;
    }

    ~TestProgram() override { Record("delete"); }

private:
    void Record(const std::string& line) const {
        const auto file = m_settings.find("record");
        if (file != m_settings.end())
            std::ofstream(file->second, std::ios::app) << line << std::endl;
    }

    void RecordDevice() {
        if (m_settings["device"] != "record")
            return;
        auto* const object = m_hub->GetPropertyService()->GetInterfaceObjectById(50001);
        auto* const property = object == nullptr ? nullptr : object->GetProperty(201);
        Record(std::string("device: pending ") + (m_hub->IsDeviceRestartPending() ? "yes" : "no") +
               ", property " + (property == nullptr ? "none" : property->GetValue().ToString()) +
               ", memory " + m_hub->GetApplicationProgramMemory()->GetData().ToString() + ", data " +
               m_hub->GetDownloadService().GetApplicationData().ToString());
    }

    void WaitForFile(const std::string& ending, const std::stop_token& stop = {}) {
        while (!stop.stop_requested() && !std::filesystem::exists(m_settings["record"] + ending))
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }

    void OnGroupValueWrite(int co, const KnxStack::GroupValue& value) override {
        Record("write " + std::to_string(co) + " " + value.GetRawData().ToString());
        m_values[co] = value;
        if (co == kCommandObject)
            Obey(value.GetAsUnsigned8());
    }

    void OnGroupValueResponse(int co, const KnxStack::GroupValue& value) override {
        Record("response " + std::to_string(co) + " " + value.GetRawData().ToString());
    }

    bool OnGroupValueRead(int co, KnxStack::GroupValue& value) override {
        Record("read " + std::to_string(co));
        const auto known = m_values.find(co);
        if (known == m_values.end())
            return false;
        value = known->second;
        return true;
    }

    void Obey(unsigned command) {
        auto& service = *m_hub->GetGroupValueService();
        switch (command) {
        case 1: throw std::runtime_error("told to throw");
        case 2: WaitForFile(".release"); break;
        case 3: m_hub->OnApplicationProgramStartupStateChanged(StartupState::Failed); break;
        case 4:
            service.SendGroupValue(1, {KnxStack::BinaryData{1}, 1}, KnxStack::IGroupValueService::kWrite);
            break;
        case 5: service.SendReadRequest(1); break;
        case 6: m_hub->OnApplicationProgramStartupStateChanged(StartupState::Running); break;
        case 7: service.RegisterGroupValueUser(nullptr); break;
        case 8:
            for (std::uint8_t sent = 0; sent < 100; ++sent)
                service.SendGroupValue(4, {KnxStack::BinaryData{sent}, 8},
                                       KnxStack::IGroupValueService::kWrite);
            break;
        case 9: RecordDevice(); break;
        default: break;
        }
    }

    KnxStack::IApiHub* m_hub = nullptr;
    std::map<std::string, std::string> m_settings;
    std::map<int, KnxStack::GroupValue> m_values;
    std::jthread m_restart; // joined first
};

} // namespace

extern "C" {

TAV_EXPORT KnxStack::IApplicationProgram* createApplicationProgram() {
    return new TestProgram;
}

TAV_EXPORT void deleteApplicationProgram(KnxStack::IApplicationProgram* program) {
    delete program;
}

#ifndef TEST_PROGRAM_WITHOUT_VERSION
TAV_EXPORT unsigned getKnxStackApiVersion() {
    return TEST_PROGRAM_VERSION;
}
#endif
}
