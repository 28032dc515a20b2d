// The shipped download handler, with everything around it.
#pragma once

#include "../support/LogRecorder.h"
#include "../support/Recorder.h"
#include "../support/TemporaryDirectory.h"
#include "KnxStack/BinaryData.h"
#include "KnxStack/IInterfaceObject.h"
#include "KnxStack/IInterfaceObjectProperty.h"
#include "Vesk/IKnxDownloadHandler.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>

/// The calls of the C library that make a download visible or lasting, as the handler makes them. Called
/// before the real one; an errno instead of 0 takes its place.
struct SystemCalls {
    static inline std::function<int(int fd)> onFsync;
    static inline std::function<int(const std::string& from, const std::string& to)> onRename;
};

/// An interface object that has some properties.
class FakeInterfaceObject final : public KnxStack::IInterfaceObject {
public:
    explicit FakeInterfaceObject(std::set<KnxStack::PropertyId> properties)
        : m_properties(std::move(properties)) {}

    KnxStack::IInterfaceObjectProperty* CreateProperty(KnxStack::PropertyId, std::uint8_t, int,
                                                       int) override {
        return nullptr;
    }
    KnxStack::IInterfaceObjectProperty* CreateArrayProperty(KnxStack::PropertyId, std::uint8_t, std::uint16_t,
                                                            int, int) override {
        return nullptr;
    }
    KnxStack::IInterfaceObjectProperty* GetProperty(KnxStack::PropertyId id) override {
        return m_properties.contains(id) ? &m_property : nullptr;
    }

private:
    class Property final : public KnxStack::IInterfaceObjectProperty {
        void SetActive(int) override {}
        KnxStack::BinaryData GetValue() const override { return {}; }
        void SetValue(const KnxStack::BinaryData&) override {}
    };

    std::set<KnxStack::PropertyId> m_properties;
    Property m_property;
};

/// A device with COs 1 to 10 and interface object 3 with property 201, whose project file has the data point
/// "Old" on CO 1.
class DownloadHandlerTest : public testing::Test {
protected:
    DownloadHandlerTest();
    ~DownloadHandlerTest() override;

    /// A handler for a configuration file, not yet initialised.
    void Create(std::string configFile);

    /// The handler for "download.json", initialised.
    void Start(const std::string& configuration = R"({"project": "project.json"})");

    /// The data of a project file's text.
    static KnxStack::BinaryData DataOf(const std::string& project);

    /// Calls the handler. Every call of the callback is recorded as "announce".
    bool Download(const KnxStack::BinaryData& data);

    /// The download is refused with this cause: one line in the log, the old project and no other file than
    /// before, no announcement.
    void ExpectRefused(const KnxStack::BinaryData& data, const std::string& cause);

    /// The same, whatever was announced.
    void ExpectNothingLeftOf(const KnxStack::BinaryData& data, const std::string& cause);

    /// What was logged and announced, without the logger's name.
    std::vector<std::string> Lines() const;

    std::string Project() const { return m_directory.Read("project.json"); }

    /// Names of all files, with their content.
    std::map<std::string, std::string> Files() const;

    TestSupport::TemporaryDirectory m_directory;
    TestSupport::Recorder m_recorder;
    std::function<void()> m_announce = [this] { m_recorder.Add("announce"); };
    Vesk::IKnxDownloadHandler::AppData m_appData;
    Vesk::KnxAppPrg::CoDescriptorDataMap m_coDescriptors;
    FakeInterfaceObject m_object{{201}};
    Vesk::KnxAppPrg::InterfaceObjectMap m_interfaceObjects{{3, {&m_object}}};
    std::unique_ptr<Vesk::IKnxDownloadHandler, std::function<void(Vesk::IKnxDownloadHandler*)>> m_handler;

private:
    TestSupport::LogRecorder m_log{m_recorder};
    void* m_library = nullptr;
};

/// What stands in project.json at first.
inline constexpr const char* kOldProject = R"({"version": 1, "device": "house",
  "knx": {"interfaceObject": 3, "properties": [{"id": 201, "name": "time mode", "dataType": 17}]},
  "dataPoints": [{"id": 2001, "name": "Old", "dpt": "1.001", "knx": {"co": 1}}]}
)";

/// A project with another data point, "New" on CO 2.
inline constexpr const char* kNewProject = R"({"version": 1, "device": "house",
  "knx": {"interfaceObject": 3, "properties": [{"id": 201, "name": "time mode", "dataType": 17}]},
  "dataPoints": [{"id": 2001, "name": "Old", "dpt": "1.001", "knx": {"co": 1}},
                 {"id": 2002, "name": "New", "dpt": "9.001", "knx": {"co": 2}}]}
)";

/// With these parts instead.
std::string ProjectText(const std::string& dataPoints, const std::string& knx = "");
