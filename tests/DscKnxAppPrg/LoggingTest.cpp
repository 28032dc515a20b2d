// What log records carry beside their text, and whose the logging is.
#include "ProgramTest.h"

#include <log4cplus/configurator.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <regex>
#include <set>
#include <thread>

namespace {

using TestSupport::Bits;

constexpr const char* kCore = "KnxStack.DscKnxAppPrg";
constexpr const char* kKnxHandler = "KnxStack.DscKnxAppPrg.KnxHandler";
constexpr const char* kLoggers[] = {kCore, kKnxHandler, "KnxStack.DscKnxAppPrg.DateTimeHandler",
                                    "KnxStack.DscKnxAppPrg.KnxPropertyHandler", "GroupAddressTranslation"};

class LoggingTest : public ProgramTest {
protected:
    LoggingTest() {
        plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true}};
        service.objects[5] = TestSupport::FakeGroupObject(1);
        RegisterPlugins({"A"});
    }
    ~LoggingTest() override {
        for (const char* const name : kLoggers)
            log4cplus::Logger::getInstance(name).setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    }

    /// A start, a telegram and a change, a failing write, a device restart and the end.
    void WholeLife() {
        Start();
        service.Write(5, Bits(1, 1));
        service.Write(9, Bits(1, 1));
        EXPECT_TRUE(stack.ValueChanged(500, "", "1").get());
        EXPECT_FALSE(stack.WriteValue(77, "1", "").get());
        EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
        EXPECT_TRUE(InitThreadFinished());
        EXPECT_TRUE(Exit());
        Delete();
    }

    /// The milliseconds that the message "<operation>(): duration: … ms" tells; -1 when there is none.
    long DurationOf(const std::string& operation) const {
        const std::regex pattern(operation + R"(\(\): duration: ([0-9]+) ms)");
        for (const TestSupport::LogLocation& record : log.Locations()) {
            std::smatch match;
            if (std::regex_match(record.message, match, pattern))
                return std::stol(match[1]);
        }
        return -1;
    }
};

TEST_F(LoggingTest, EveryRecord_NamesItsSourceFileLineAndWholeFunction) {
    const std::set<std::string> sources{"DscKnxAppPrg.cpp",
                                        "DscKnxAppPrgClientLink.cpp",
                                        "DscKnxAppPrgConfiguration.cpp",
                                        "DscKnxAppPrgDateTimeHandler.cpp",
                                        "DscKnxAppPrgDownload.cpp",
                                        "DscKnxAppPrgKnxHandler.cpp",
                                        "DscKnxAppPrgKnxHandlerConversion.cpp",
                                        "DscKnxAppPrgKnxHandlerIdentity.cpp",
                                        "DscKnxAppPrgKnxHandlerTraffic.cpp",
                                        "DscKnxAppPrgThreads.cpp",
                                        "GroupAddressTranslationHandler.cpp",
                                        "KnxPropertyHandler.cpp"};
    WholeLife();
    const auto records = log.Locations();
    EXPECT_THAT(records, testing::SizeIs(testing::Gt(60)));
    for (const TestSupport::LogLocation& record : records) {
        EXPECT_TRUE(sources.contains(record.file)) << record.file << " of " << record.message;
        EXPECT_GT(record.line, 0) << record.message;
        // With its class or, for the three exported functions, its result, and with its parameters.
        EXPECT_THAT(record.function, testing::MatchesRegex("[A-Za-z].*[ :*][A-Za-z()]+\\(.*\\).*"))
            << record.message;
    }
}

TEST_F(LoggingTest, Record_CarriesTheFunctionOfItsOperation) {
    WholeLife();
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"createApplicationProgram(): ...", "KnxStack::IApplicationProgram* createApplicationProgram()"},
        {"deleteApplicationProgram(): ...", "void deleteApplicationProgram(KnxStack::IApplicationProgram*)"},
        {"Init(): Init succeeded.", "DscKnxAppPrg::Init(KnxStack::IApiHub&)"},
        {"Connect(): end.", "bool DscKnxAppPrg::Connect()"},
        {"Init(): end", "DscKnxAppPrg::KnxHandler::Init(KnxStack::IApiHub&, DscKnxAppPrg::CallerEntryPoint)"},
        {"StartInitThread(): end.", "bool DscKnxAppPrg::StartInitThread(KnxStack::IApiHub&)"},
        {"operator()(): Init thread started.", "void DscKnxAppPrg::InitCaller::operator()() const"},
        {"operator()(): Init thread finished.", "void DscKnxAppPrg::InitCaller::operator()() const"},
        {"GetIDFromCO(): ID = '0' is invalid from CO =  '9'", "DscKnxAppPrg::KnxHandler::GetIDFromCO("},
        {"Disconnect(): end.", "void DscKnxAppPrg::Disconnect()"},
        {"Exit(): end.", "DscKnxAppPrg::Exit()"}};
    const auto records = log.Locations();
    for (const auto& [message, function] : expected) {
        const auto record = std::find_if(records.begin(), records.end(), [&text = message](const auto& each) {
            return each.message == text;
        });
        ASSERT_NE(record, records.end()) << message;
        EXPECT_THAT(record->function, testing::HasSubstr(function)) << message;
    }
}

TEST_F(LoggingTest, Levels_OfTheHostCount) {
    log4cplus::Logger::getInstance(kCore).setLogLevel(log4cplus::INFO_LOG_LEVEL);
    log4cplus::Logger::getInstance(kKnxHandler).setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(recorder.WaitFor(
        "ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1003"));
    service.Write(9, Bits(1, 1));
    EXPECT_TRUE(Exit());
    Delete();
    ExpectTranscript(recorder.LinesWith(" | "), R"(
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
        INFO KnxStack.DscKnxAppPrg | ReadDeviceConfiguration(): Device type is QTRMNV01
        INFO KnxStack.DscKnxAppPrg | Init(): Init succeeded.
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1002
        ERROR KnxStack.DscKnxAppPrg | IsCommunicationEnabled(): data point has no CO. ID = 1003
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | GetIDFromCO(): ID = '0' is invalid from CO =  '9'
    )");
}

TEST_F(LoggingTest, SwitchedOff_ChangesNothingButTheLog) {
    TestSupport::LogRecorder::Silence();
    Create();
    EXPECT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(recorder.WaitFor("plugin A GetCOFromID(1003, writing)"));
    service.Write(5, Bits(1, 1));
    EXPECT_TRUE(Exit());
    Delete();
    EXPECT_THAT(log.Locations(), testing::IsEmpty());
    EXPECT_EQ(recorder.Count("client SetValue(500, '1', 0, 0)"), 1u);
}

TEST_F(LoggingTest, Configuration_IsLeftToTheHost) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    const log4cplus::SharedAppenderPtrList appenders = root.getAllAppenders();
    WholeLife();
    EXPECT_EQ(root.getLogLevel(), log4cplus::ALL_LOG_LEVEL);
    EXPECT_EQ(root.getAllAppenders(), appenders);
    for (const char* const name : kLoggers) {
        log4cplus::Logger logger = log4cplus::Logger::getInstance(name);
        EXPECT_EQ(logger.getLogLevel(), log4cplus::NOT_SET_LOG_LEVEL) << name;
        EXPECT_TRUE(logger.getAdditivity()) << name;
        EXPECT_THAT(logger.getAllAppenders(), testing::IsEmpty()) << name;
    }
}

TEST_F(LoggingTest, Loggers_AreTheseAndNoOthers) {
    WholeLife();
    std::set<std::string> names;
    for (const log4cplus::Logger& logger : log4cplus::Logger::getCurrentLoggers())
        names.insert(logger.getName());
    EXPECT_EQ(names, std::set<std::string>(std::begin(kLoggers), std::end(kLoggers)));
}

TEST_F(LoggingTest, DurationOfAStop_IsInWholeMilliseconds) {
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    CreateAndInit();
    ASSERT_TRUE(gate->WaitForArrival());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Exit());
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(DurationOf("StopInitThread"), 5000);
    EXPECT_LE(std::chrono::milliseconds(DurationOf("StopInitThread")), elapsed);
    gate->Open();
}

TEST_F(LoggingTest, DurationOfADisconnect_IsInWholeMilliseconds) {
    Start();
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    auto callback = stack.WriteValue(77, "1", "");
    ASSERT_TRUE(gate->WaitForArrival());
    auto exit = std::async(std::launch::async, [this] { return Exit(); });
    ASSERT_TRUE(recorder.WaitFor("client is being destroyed"));
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the callback keeps the client that long
    const auto least = std::chrono::steady_clock::now() - start;
    gate->Open();
    EXPECT_TRUE(exit.get());
    callback.wait();
    EXPECT_GE(std::chrono::milliseconds(DurationOf("Disconnect") + 1), least);
    EXPECT_LT(DurationOf("Disconnect"), 30'000);
}

} // namespace
