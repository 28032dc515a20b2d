// Everything around an application program: host, bus, device stack and plug-ins, as fakes with one recorder.
#pragma once

#include "FakeDeviceStack.h"
#include "FakeGroupValueService.h"
#include "FakeHub.h"
#include "FakePlugins.h"
#include "FakePropertyService.h"
#include "LogRecorder.h"
#include "Recorder.h"
#include "TemporaryDirectory.h"
#include "Transcript.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// Fixture: a device stack that describes the device "QTRMNV01" and the two directories of the registry
/// files, a hub with group communication, and no plug-ins yet. The test's thread is called "host".
class World : public testing::Test {
protected:
    using Binding = TestSupport::FakePlugin::Binding;
    using StartupState = KnxStack::IApplicationProgram::StartupState;

    World();

    /// Lists the libraries, each with the configuration file "<name>.json", in the registry file of a
    /// directory: "stack" (the device stack's configuration) or "user" (the user data).
    void RegisterPlugins(std::initializer_list<const char*> names, const std::string& directory = "stack",
                         const std::string& program = "dscknxappprg");
    /// Lists download handlers in the registry file of the "user" directory.
    void RegisterDownloadHandlers(std::initializer_list<const char*> names) {
        RegisterPlugins(names, "user", "dscknxdownload");
    }
    void RegisterLibrary(const std::string& path);

    /// The device configuration with the given device identifier.
    std::string Configuration(const std::string& deviceId) const;

    /// Fails the test at the caller's place unless the thread's lines are the transcript, line for line.
    void ExpectRecord(const std::string& thread, std::string_view transcript,
                      const char* file = __builtin_FILE(), int line = __builtin_LINE()) const {
        ExpectTranscript(recorder.LinesOf(thread), transcript, file, line);
    }

    /// The same for any lines.
    static void ExpectTranscript(const std::vector<std::string>& lines, std::string_view transcript,
                                 const char* file = __builtin_FILE(), int line = __builtin_LINE());

    TestSupport::Recorder recorder;
    TestSupport::LogRecorder log{recorder};
    TestSupport::TemporaryDirectory files;
    TestSupport::FakePlugins plugins{recorder};
    TestSupport::FakeDeviceStack stack{recorder};
    TestSupport::FakeGroupValueService service{recorder};
    TestSupport::FakePropertyService propertyService{recorder};
    TestSupport::FakeHub hub{recorder};
};
