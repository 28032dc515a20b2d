#include "../support/TemporaryDirectory.h"
#include "Vesk/IKnxAppPrgHandler.h"

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

namespace {

using Vesk::IKnxAppPrgHandler;

/// Keeps "LEVEL message" of every line.
class Recorder final : public log4cplus::Appender {
public:
    Recorder() = default;
    ~Recorder() override { destructorImpl(); }
    void close() override {}

    std::vector<std::string> lines;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override {
        lines.push_back(log4cplus::getLogLevelManager().toString(event.getLogLevel()) + " " +
                        event.getMessage());
    }
};

/// The shipped library, its log lines, and a project file of the test's own.
class ProjectHandlerTest : public testing::Test {
protected:
    ProjectHandlerTest() {
        m_library = dlopen(PROJECT_HANDLER, RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(m_library, nullptr) << dlerror();
        m_logger.setLogLevel(log4cplus::ERROR_LOG_LEVEL);
        m_logger.setAdditivity(false);
        m_logger.addAppender(log4cplus::SharedAppenderPtr(m_recorder.get()));
    }

    ~ProjectHandlerTest() override {
        m_handler.reset();
        m_logger.removeAllAppenders();
        dlclose(m_library);
    }

    void Write(const std::string& dataPoints, const std::string& knx = "") const {
        std::ofstream(m_file) << R"({"version": 1, "device": "house", "knx": {)" << knx
                              << R"(}, "dataPoints": [)" << dataPoints << "]}";
    }

    /// A handler for the file, not yet initialised.
    void Create(std::string configFile) {
        const auto create =
            reinterpret_cast<IKnxAppPrgHandler* (*)(std::string&)>(dlsym(m_library, "CreateHandler"));
        m_delete = reinterpret_cast<bool (*)(IKnxAppPrgHandler*&)>(dlsym(m_library, "DeleteHandler"));
        ASSERT_TRUE(create && m_delete);
        m_handler = Handler(create(configFile), [this](IKnxAppPrgHandler* handler) {
            EXPECT_TRUE(m_delete(handler));
            EXPECT_EQ(handler, nullptr);
        });
    }

    /// A handler that answers from a project with these parts.
    IKnxAppPrgHandler& Start(const std::string& dataPoints, const std::string& knx = "") {
        Write(dataPoints, knx);
        Create(m_file.string());
        EXPECT_TRUE(m_handler->Initialize());
        return *m_handler;
    }

    const std::vector<std::string>& Log() const { return m_recorder->lines; }

    using Handler = std::unique_ptr<IKnxAppPrgHandler, std::function<void(IKnxAppPrgHandler*)>>;

    TestSupport::TemporaryDirectory m_directory;
    std::filesystem::path m_file = m_directory / "project.json";
    Handler m_handler;

private:
    void* m_library = nullptr;
    bool (*m_delete)(IKnxAppPrgHandler*&) = nullptr;
    log4cplus::Logger m_logger = log4cplus::Logger::getInstance("KnxStack.ProjectHandler");
    log4cplus::helpers::SharedObjectPtr<Recorder> m_recorder{new Recorder};
};

constexpr const char* kSwitch = R"({"id": 2001, "name": "Hall.Light", "dpt": "1.001", "knx": {"co": 1}})";
constexpr const char* kPair = R"({"id": 2002, "name": "Hall.Heating", "dpt": "9.001",
    "knx": {"co": {"read": 3, "write": 2}, "event": false, "readInternal": true}})";

} // namespace

TEST_F(ProjectHandlerTest, DataPointOfACoIsFoundByIdAndByUrn) {
    IKnxAppPrgHandler& handler = Start(std::string(kSwitch) + "," + kPair);
    KNXDPT dpt;
    EXPECT_EQ(handler.GetIDFromCO(1, dpt), 2001u);
    EXPECT_EQ(dpt, (KNXDPT{1, 0, 1, 1}));
    dpt = {};
    EXPECT_EQ(handler.GetUrnFromCO(2, dpt), "Hall.Heating");
    EXPECT_EQ(dpt, (KNXDPT{16, 0, 9, 1}));
    EXPECT_EQ(handler.GetIDFromCO(3, dpt), 2002u);
}

TEST_F(ProjectHandlerTest, CoOfADataPointDependsOnTheDirection) {
    IKnxAppPrgHandler& handler = Start(std::string(kSwitch) + "," + kPair);
    KNXDPT dpt;
    EXPECT_EQ(handler.GetCOFromID(2001, true, dpt), 1);
    EXPECT_EQ(handler.GetCOFromID(2001, false, dpt), 1);
    EXPECT_EQ(handler.GetCOFromID(2002, true, dpt), 3);
    EXPECT_EQ(handler.GetCOFromID(2002, false, dpt), 2);
    dpt = {};
    EXPECT_EQ(handler.GetCOFromUrn("Hall.Heating", true, dpt), 3);
    EXPECT_EQ(dpt, (KNXDPT{16, 0, 9, 1}));
    EXPECT_EQ(handler.GetCOFromUrn("Hall.Heating", false, dpt), 2);
}

TEST_F(ProjectHandlerTest, WhatIsNotInTheProjectHasNoAnswer) {
    IKnxAppPrgHandler& handler =
        Start(std::string(kSwitch) + R"(,{"id": 2003, "name": "Loose", "dpt": "1.001"},
        {"id": 2004, "name": "OneWay", "dpt": "1.001", "knx": {"co": {"write": 9}}})");
    KNXDPT dpt;
    for (const std::uint16_t co : {0, 5, 10, 0xFFFF}) {
        EXPECT_EQ(handler.GetIDFromCO(co, dpt), 0u) << co;
        EXPECT_EQ(handler.GetUrnFromCO(co, dpt), "") << co;
    }
    EXPECT_EQ(handler.GetCOFromID(2003, true, dpt), 0xFFFF);
    EXPECT_EQ(handler.GetCOFromID(2004, true, dpt), 0xFFFF);
    EXPECT_EQ(handler.GetCOFromID(9999, true, dpt), 0xFFFF);
    EXPECT_EQ(handler.GetCOFromUrn("", true, dpt), 0xFFFF);
    EXPECT_EQ(handler.GetCOFromUrn("Nowhere", false, dpt), 0xFFFF);
    EXPECT_FALSE(handler.IsKnxEventDataPoint(2003));
    EXPECT_FALSE(handler.IsKnxEventDataPoint("Nowhere"));
    EXPECT_FALSE(handler.IsOxnReadInternalDataPoint(9999));
    EXPECT_FALSE(handler.IsOxnReadInternalDataPoint(""));
    EXPECT_EQ(handler.GetTimeCoByIndex(1, true, dpt), 0xFFFF);
    EXPECT_EQ(handler.GetInterfaceObjectId(), 0u);
    EXPECT_EQ(handler.GetExtendedInterfaceObjectType(), 0u);
    EXPECT_TRUE(handler.GetExtendedProperties().empty());
    EXPECT_EQ(handler.GetGroupAddressTranslationRange(), (std::pair<std::uint16_t, std::uint16_t>(0, 0)));
    EXPECT_FALSE(handler.GetUseUrns());
    EXPECT_EQ(dpt, KNXDPT{});
}

TEST_F(ProjectHandlerTest, KnownSizeThatFitsGetsTheType) {
    IKnxAppPrgHandler& handler = Start(kPair);
    KNXDPT dpt{16, 7, 0, 0};
    EXPECT_EQ(handler.GetIDFromCO(2, dpt), 2002u);
    EXPECT_EQ(dpt, (KNXDPT{16, 7, 9, 1}));
}

TEST_F(ProjectHandlerTest, KnownSizeThatDoesNotFitKeepsMainNumberZero) {
    IKnxAppPrgHandler& handler = Start(kPair);
    KNXDPT dpt{8, 7, 0, 0};
    EXPECT_EQ(handler.GetCOFromID(2002, false, dpt), 2);
    EXPECT_EQ(dpt, (KNXDPT{8, 7, 0, 0}));
}

TEST_F(ProjectHandlerTest, TypeThatAFormerPluginLeftBehindIsReplaced) {
    IKnxAppPrgHandler& handler = Start(kPair);
    KNXDPT dpt{8, 0, 5, 1};
    EXPECT_EQ(handler.GetCOFromID(2002, false, dpt), 2);
    EXPECT_EQ(dpt, (KNXDPT{16, 0, 9, 1}));
}

TEST_F(ProjectHandlerTest, FlagsOfADataPointAreFoundByIdAndByUrn) {
    IKnxAppPrgHandler& handler = Start(std::string(kSwitch) + "," + kPair);
    EXPECT_TRUE(handler.IsKnxEventDataPoint(2001));
    EXPECT_TRUE(handler.IsKnxEventDataPoint("Hall.Light"));
    EXPECT_FALSE(handler.IsOxnReadInternalDataPoint(2001));
    EXPECT_FALSE(handler.IsOxnReadInternalDataPoint("Hall.Light"));
    EXPECT_FALSE(handler.IsKnxEventDataPoint(2002));
    EXPECT_FALSE(handler.IsKnxEventDataPoint("Hall.Heating"));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint(2002));
    EXPECT_TRUE(handler.IsOxnReadInternalDataPoint("Hall.Heating"));
}

TEST_F(ProjectHandlerTest, EveryTimeCoLeadsToTheClockWithATypeOfItsOwn) {
    IKnxAppPrgHandler& handler =
        Start("", R"("timeCos": [{"co": 41, "dpt": "10.001"}, {"co": 42, "dpt": "11.001"}])");
    KNXDPT dpt;
    EXPECT_EQ(handler.GetTimeCoByIndex(0, true, dpt), 0xFFFF);
    EXPECT_EQ(handler.GetTimeCoByIndex(1, true, dpt), 41);
    EXPECT_EQ(dpt, (KNXDPT{24, 0, 10, 1}));
    dpt = {};
    EXPECT_EQ(handler.GetTimeCoByIndex(2, true, dpt), 42);
    EXPECT_EQ(dpt, (KNXDPT{24, 0, 11, 1}));
    EXPECT_EQ(handler.GetTimeCoByIndex(2, false, dpt), 42);
    EXPECT_EQ(handler.GetTimeCoByIndex(3, true, dpt), 0xFFFF);
    dpt = {24, 0, 0, 0};
    EXPECT_EQ(handler.GetIDFromCO(42, dpt), 1005u);
    EXPECT_EQ(dpt, (KNXDPT{24, 0, 11, 1}));
    EXPECT_EQ(handler.GetUrnFromCO(41, dpt), "clock");
    EXPECT_TRUE(handler.IsKnxEventDataPoint(1005));
    dpt = {};
    EXPECT_EQ(handler.GetCOFromID(1005, true, dpt), 41);
    EXPECT_EQ(dpt, (KNXDPT{24, 0, 10, 1}));
}

TEST_F(ProjectHandlerTest, CoOfTheClockIsATimeCo) {
    IKnxAppPrgHandler& handler = Start(R"({"id": 1005, "knx": {"co": 40}})");
    KNXDPT dpt;
    EXPECT_EQ(handler.GetTimeCoByIndex(1, true, dpt), 40);
    EXPECT_EQ(dpt, (KNXDPT{64, 0, 19, 1}));
    EXPECT_EQ(handler.GetTimeCoByIndex(2, true, dpt), 0xFFFF);
}

TEST_F(ProjectHandlerTest, PropertiesRangeAndModeAreAnswered) {
    IKnxAppPrgHandler& handler =
        Start("", R"("identification": "urn", "translationRange": [900, 910], "interfaceObject": 50001,
        "properties": [{"id": 201, "name": "time mode", "dataType": 17}, {"id": 202, "dataType": 18, "elements": 3}],
        "extendedProperties": [{"id": 51, "name": "x", "dataType": 19, "elements": 4, "objectType": 50002, "instances": 2}])");
    EXPECT_TRUE(handler.GetUseUrns());
    EXPECT_EQ(handler.GetGroupAddressTranslationRange(), (std::pair<std::uint16_t, std::uint16_t>(900, 910)));
    EXPECT_EQ(handler.GetInterfaceObjectId(), 50001u);
    std::uint8_t dataType = 0;
    std::string name;
    std::uint16_t elements = 0;
    EXPECT_EQ(handler.GetPropertyByIndex(0, dataType, name, elements), 0u);
    EXPECT_EQ(handler.GetPropertyByIndex(1, dataType, name, elements), 201u);
    EXPECT_EQ(dataType, 17);
    EXPECT_EQ(name, "time mode");
    EXPECT_EQ(elements, 1);
    EXPECT_EQ(handler.GetPropertyByIndex(2, dataType, name, elements), 202u);
    EXPECT_EQ(elements, 3);
    EXPECT_EQ(handler.GetPropertyByIndex(3, dataType, name, elements), 0u);
    EXPECT_EQ(handler.GetExtendedInterfaceObjectType(), 50002u);
    const auto extended = handler.GetExtendedProperties();
    ASSERT_EQ(extended.size(), 1u);
    EXPECT_EQ(extended[0].name, "x");
    EXPECT_EQ(extended[0].propertyId, 51);
    EXPECT_EQ(extended[0].dataType, 19);
    EXPECT_EQ(extended[0].elementCount, 4);
    EXPECT_EQ(extended[0].objectType, 50002);
    EXPECT_EQ(extended[0].instanceCount, 2);
}

TEST_F(ProjectHandlerTest, MissingFileFailsInitializeWithOneErrorLine) {
    Create(m_file.string());
    EXPECT_FALSE(m_handler->Initialize());
    EXPECT_EQ(Log(), std::vector<std::string>{"ERROR Initialize(): Project refused: " + m_file.string() +
                                              ": cannot be read: No such file or directory"});
}

TEST_F(ProjectHandlerTest, BadFileFailsInitializeNamingPlaceAndCause) {
    Write(R"({"id": 1, "name": "A", "dpt": "x"})");
    Create(m_file.string());
    EXPECT_FALSE(m_handler->Initialize());
    EXPECT_EQ(Log(), std::vector<std::string>{
                         "ERROR Initialize(): Project refused: " + m_file.string() +
                         ": /dataPoints/0/dpt: \"x\" is no datapoint type; write it like 9.001"});
}

TEST_F(ProjectHandlerTest, EmptyConfigFileFailsInitializeSayingWhereToNameOne) {
    Create("");
    EXPECT_FALSE(m_handler->Initialize());
    EXPECT_EQ(Log(),
              std::vector<std::string>{"ERROR Initialize(): No project file; name one in the attribute "
                                       "\"ConfigFile\" of \"knxappprghandlers.xml\"."});
}

TEST_F(ProjectHandlerTest, NothingIsKnownBeforeInitialize) {
    Write(kSwitch);
    Create(m_file.string());
    KNXDPT dpt;
    EXPECT_EQ(m_handler->GetIDFromCO(1, dpt), 0u);
    EXPECT_EQ(m_handler->GetCOFromID(1005, true, dpt), 0xFFFF);
}

TEST_F(ProjectHandlerTest, ReloadTakesTheNewProject) {
    IKnxAppPrgHandler& handler = Start(kSwitch);
    Write(kPair);
    EXPECT_TRUE(handler.Reload());
    KNXDPT dpt;
    EXPECT_EQ(handler.GetIDFromCO(1, dpt), 0u);
    EXPECT_EQ(handler.GetIDFromCO(2, dpt), 2002u);
}

TEST_F(ProjectHandlerTest, FailingReloadKeepsTheFormerProject) {
    IKnxAppPrgHandler& handler = Start(kSwitch);
    std::ofstream(m_file) << "{";
    EXPECT_FALSE(handler.Reload());
    KNXDPT dpt;
    EXPECT_EQ(handler.GetIDFromCO(1, dpt), 2001u);
    EXPECT_EQ(Log(), std::vector<std::string>{"ERROR Reload(): Project refused: " + m_file.string() +
                                              ": 1:2: not JSON: incomplete JSON"});
}

TEST_F(ProjectHandlerTest, RelativePathCountsFromTheDirectoryAtCreation) {
    Write(kSwitch);
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(m_directory.Path());
    Create("project.json");
    std::filesystem::current_path(before);
    EXPECT_TRUE(m_handler->Initialize());
}

TEST_F(ProjectHandlerTest, QueriesBesideReloadsSeeOneProjectOrTheOther) {
    IKnxAppPrgHandler& handler = Start(kSwitch);
    std::atomic<bool> stop = false;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&handler, &stop] {
            while (!stop) {
                KNXDPT dpt;
                const std::string urn = handler.GetUrnFromCO(1, dpt);
                EXPECT_TRUE((urn == "Hall.Light" && dpt.main == 1) || (urn == "Other" && dpt.main == 5))
                    << urn;
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        Write(i % 2 ? kSwitch : R"({"id": 3001, "name": "Other", "dpt": "5.001", "knx": {"co": 1}})");
        EXPECT_TRUE(handler.Reload());
    }
    stop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}
