// Fixture for downloads: a device that the device stack and the KNX stack know, and a restart after a
// download.
#pragma once

#include "ProgramTest.h"

#include <string>
#include <string_view>

/// CO 1 is the "ready" data point and CO 3 the "state" data point, CO 2 has no communication, and the plug-in
/// has one interface object. The download left the bytes 0a0b.
class DownloadTest : public ProgramTest {
protected:
    DownloadTest() {
        plugins["A"].interfaceObjectId = 50001;
        plugins["A"].bindings = {{.co = 1, .id = 1002, .dpt = {1, 0, 1, 1}},
                                 {.co = 3, .id = 1003, .dpt = {8, 0, 5, 10}}};
        propertyService.Add(50001);
        service.objects[1] = TestSupport::FakeGroupObject(1);
        service.objects[2] = TestSupport::FakeGroupObject(1, false);
        service.objects[3] = TestSupport::FakeGroupObject(8);
        hub.applicationData = KnxStack::BinaryData({0x0a, 0x0b});
        RegisterPlugins({"A"});
    }

    /// A start, and a device restart up to the end of its init thread. The record has the restart alone.
    void StartAndRestart() {
        Start();
        Restart();
    }
    void Restart() {
        ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
        ASSERT_TRUE(InitThreadFinished());
    }

    /// Fails the test at the caller's place unless the restart's init thread did what every one does up to
    /// the download handlers, then `download`, and then `end`.
    void ExpectDownload(std::string_view download, std::string_view end,
                        const std::string& thread = "worker 2", const char* file = __builtin_FILE(),
                        int line = __builtin_LINE()) const {
        ExpectRecord(thread, std::string(kUpToTheDownload).append(download).append(end), file, line);
    }

    static constexpr std::string_view kUpToTheDownload = R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started.
        object 50001/1 GetProperty(201) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
        hub GetApplicationProgramSettings()
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
        plugin A GetGroupAddressTranslationRange()
        hub OnApplicationProgramRestarted(1, 0)
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Waiting 1 second before executing download handler to finish writing config.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): execute download handler.
    )";

    static constexpr std::string_view kFinalState = R"(
        hub OnApplicationProgramStartupStateChanged(1)
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: call OnApplicationProgramStartupStateChanged with state: 1
        DEBUG KnxStack.DscKnxAppPrg | DoFinalStartupState: start up state is 1
        client Command({"command":"EmitEvent","eventType":"configurationLoaded"})
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for writing
        plugin A GetCOFromID(1002, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 1 and DPT 1.1
        client GetValueRequest(1002, 1)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1003 Urn  for writing
        plugin A GetCOFromID(1003, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 3 and DPT 5.10
        client GetValueRequest(1003, 1)
    )";

    const std::string m_goesOn = R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 1
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
    )" + std::string(kFinalState) +
                                 R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )";
    const std::string m_goesOnWithTheFile = R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 0
        DEBUG KnxStack.DscKnxAppPrg | operator()(): ETS Configuration Changed Raised not set, so change uas.
        DEBUG KnxStack.DscKnxAppPrg | operator()(): DoFinalStartupState with state: 1
    )" + std::string(kFinalState) +
                                            R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )";

    static constexpr std::string_view kWaits = R"(
        DEBUG KnxStack.DscKnxAppPrg | operator()(): download handler result: 0
        DEBUG KnxStack.DscKnxAppPrg | operator()(): start up state is waiting for ETS project created. Flag is 1
        DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.
    )";
};
