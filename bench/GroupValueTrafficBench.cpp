// Cost of a telegram in the library: each group value callback, a value change, a translated telegram both
// ways, with a device stack client that does nothing. Baseline: look-ups in a std::map<uint16_t, …> of 1,000
// entries, in the same run. The counter "allocations" is the number of calls of operator new per telegram.
#include "AllocationCount.h"
#include "DscKnxAppPrg.h"
#include "KnxStack/GroupValue.h"
#include "KnxStack/IApiHub.h"
#include "KnxStack/IDownloadService.h"
#include "KnxStack/IGroupObject.h"
#include "KnxStack/IGroupValueService.h"
#include "KnxStack/IPropertyService.h"
#include "MapLookUp.h"
#include "Ratios.h"

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/nullappender.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

namespace {

using Bench::MapLookUp;
using Bench::ShowAllocations;
using Bench::ShuffledCos;
using Bench::Telegrams;

constexpr std::uint32_t kFirstId = 2000;
constexpr unsigned kMaxCos = 65534; // the numbers that a group object may have

class TemperatureObject : public KnxStack::IGroupObject {
public:
    bool Exists(int) const override { return true; }
    bool IsCommunicationEnabled() const override { return true; }
    std::uint8_t GetSizeCode() const override { return 8; }
    unsigned GetLengthInBytes() const override { return 2; }
    std::int16_t GetElementWidth() const override { return 16; }
    std::int16_t GetElementCount() const override { return 1; }
};

class Service : public KnxStack::IGroupValueService {
public:
    void RegisterGroupValueUser(KnxStack::IGroupValueUser* newUser) override { user = newUser; }
    bool SendGroupValue(std::uint16_t, const KnxStack::GroupValue& value, unsigned) override {
        benchmark::DoNotOptimize(&value);
        return true;
    }
    bool SendReadRequest(std::uint16_t) override { return true; }
    const KnxStack::IGroupObject& GetGroupObject(std::uint16_t) override { return m_object; }

    KnxStack::IGroupValueUser* user = nullptr;

private:
    TemperatureObject m_object;
};

class NoInterfaceObjects : public KnxStack::IPropertyService {
public:
    KnxStack::IInterfaceObject* CreateInterfaceObject(std::uint16_t) override { return nullptr; }
    KnxStack::IInterfaceObject* GetInterfaceObjectById(std::uint32_t) override { return nullptr; }
    KnxStack::IInterfaceObject* GetInterfaceObject(std::uint16_t, std::uint16_t) override { return nullptr; }
};

class Hub : public KnxStack::IApiHub, private KnxStack::IDownloadService {
public:
    void OnApplicationProgramStartupStateChanged(KnxStack::IApplicationProgram::StartupState state) override {
        const std::lock_guard lock(m_mutex);
        m_running = state == KnxStack::IApplicationProgram::StartupState::Running;
        m_changed.notify_all();
    }
    bool IsDeviceRestartPending() override { return false; }
    std::map<std::string, std::string> GetApplicationProgramSettings() override { return {}; }
    KnxStack::IGroupValueService* GetGroupValueService() override { return &service; }
    KnxStack::IApplicationProgramMemory* GetApplicationProgramMemory() override { return nullptr; }
    KnxStack::IPropertyService* GetPropertyService() override { return &m_interfaceObjects; }
    KnxStack::IDownloadService& GetDownloadService() override { return *this; }
    void OnApplicationProgramRestarted(unsigned, unsigned) override {}

    void WaitUntilRunning() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_running; });
    }

    Service service;

private:
    const KnxStack::BinaryData& GetApplicationData() override { return m_noData; }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_running = false;
    NoInterfaceObjects m_interfaceObjects;
    KnxStack::BinaryData m_noData;
};

std::filesystem::path g_registryDirectory;

/// A device stack client that accepts everything and does nothing.
class Client : public Vesk::IDeviceStackClient {
public:
    void SetClientMode(int) override {}
    void InstallEventHandler(IEventHandler* handler, void*) override { s_eventHandler = handler; }
    void InstallResponseHandler(IResponseHandler*, void*) override {}
    void InstallFieldHandler(IFieldHandlerWithUrn*, void*) override {}
    bool RegisterApplication(const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    void SetValueFormat(const std::string&) override {}
    std::string Command(const std::string&) override { return "{}"; }
    bool Command(const std::string&, std::string&, int) override { return false; }
    bool GetConfiguration(int, std::string& json) override {
        json = "{\"ipc\":{\"DeviceStackConfigPath\":\"" + g_registryDirectory.string() + "\"}}";
        return true;
    }
    void SetConfiguration(const std::map<std::string, std::string>&) override {}
    std::string SetValue(TAVOBJECTID, const std::string& text, bool, bool) override {
        benchmark::DoNotOptimize(text.data());
        return {};
    }
    bool GetValue(TAVOBJECTID, std::string& text, bool) override {
        text = "21.5";
        return true;
    }
    std::string GetValueRequest(TAVOBJECTID, int) override { return {}; }
    std::string GetUrn(TAVOBJECTID, int) override { return {}; }
    TAVOBJECTID GetId(const std::string&) override { return 0; }
    std::string GetLastError() override { return {}; }

    static inline IEventHandler* s_eventHandler = nullptr;
};

/// A directory with a registry file that names the plug-in; removed at the end.
class RegistryDirectory {
public:
    RegistryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "knx-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary directory");
        g_registryDirectory = name;
        std::ofstream(g_registryDirectory / "knxappprghandlers.xml")
            << "<KnxApplicationPrograms><KnxApplicationProgram Name=\"dscknxappprg\"><DynamicHandlers>"
               "<DynamicHandler Library=\"" BENCH_PLUGIN "\"/>"
               "</DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>";
    }
    ~RegistryDirectory() { std::filesystem::remove_all(g_registryDirectory); }
};

/// The application program, started and in its final state.
struct Program {
    Program() {
        program.Init(hub);
        hub.WaitUntilRunning();
        std::this_thread::sleep_for(std::chrono::milliseconds(1500)); // the pause behind the announcement
    }
    ~Program() { program.Exit(); }

    Hub hub;
    DscKnxAppPrg program;
};

Program* g_program = nullptr;

DscKnxAppPrg::KnxHandler& Handler() {
    return static_cast<DscKnxAppPrg::KnxHandler&>(*g_program->hub.service.user);
}

BENCHMARK(MapLookUp)->Arg(10)->Arg(1000)->Arg(kMaxCos);

KnxStack::GroupValue Temperature() {
    return {KnxStack::BinaryData{0x0C, 0x33}, 16};
} // 21.5

/// Every CO in turn; the identity of each is cached. No allocation: the value and its text fit into the
/// objects that carry them.
void GroupWriteCached(benchmark::State& state) {
    const auto cos = ShuffledCos(static_cast<unsigned>(state.range(0)));
    const KnxStack::GroupValue value = Temperature();
    KnxStack::IGroupValueUser& user = *g_program->hub.service.user;
    Handler().ClearCoAndIdMap();
    for (const std::uint16_t co : cos)
        user.OnGroupValueWrite(co, value);
    Telegrams telegrams(static_cast<unsigned>(state.range(0)));
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state)
        user.OnGroupValueWrite(telegrams.Next(), value);
    ShowAllocations(state, before);
}
BENCHMARK(GroupWriteCached)->Arg(10)->Arg(1000)->Arg(kMaxCos);

void GroupResponseCached(benchmark::State& state) {
    const auto cos = ShuffledCos(static_cast<unsigned>(state.range(0)));
    const KnxStack::GroupValue value = Temperature();
    KnxStack::IGroupValueUser& user = *g_program->hub.service.user;
    Handler().ClearCoAndIdMap();
    for (const std::uint16_t co : cos)
        user.OnGroupValueResponse(co, value);
    Telegrams telegrams(static_cast<unsigned>(state.range(0)));
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state)
        user.OnGroupValueResponse(telegrams.Next(), value);
    ShowAllocations(state, before);
}
BENCHMARK(GroupResponseCached)->Arg(1000);

/// Every CO in turn after the caches were cleared, as after a new project; the plug-in answers at once. Time
/// per telegram.
void GroupWriteUncached(benchmark::State& state) {
    const auto cos = ShuffledCos(static_cast<unsigned>(state.range(0)));
    const KnxStack::GroupValue value = Temperature();
    DscKnxAppPrg::KnxHandler handler(g_program->program);
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        handler.OnGroupValueWrite(cos[next], value);
        if (++next == cos.size()) {
            next = 0;
            state.PauseTiming();
            handler.ClearCoAndIdMap();
            state.ResumeTiming();
        }
    }
}
BENCHMARK(GroupWriteUncached)->Arg(10)->Arg(1000)->Arg(kMaxCos);

void GroupReadCached(benchmark::State& state) {
    const auto cos = ShuffledCos(static_cast<unsigned>(state.range(0)));
    KnxStack::IGroupValueUser& user = *g_program->hub.service.user;
    KnxStack::GroupValue value;
    Handler().ClearCoAndIdMap();
    for (const std::uint16_t co : cos)
        user.OnGroupValueRead(co, value);
    Telegrams telegrams(static_cast<unsigned>(state.range(0)));
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(user.OnGroupValueRead(telegrams.Next(), value));
    ShowAllocations(state, before);
}
BENCHMARK(GroupReadCached)->Arg(1000);

void ValueChangeCached(benchmark::State& state) {
    const auto cos = ShuffledCos(static_cast<unsigned>(state.range(0)));
    const std::string urn = "urn:oxn:dp:bench:x";
    const std::string value = "21.5";
    const std::string origin = "a::b::c";
    auto& handler = *Client::s_eventHandler;
    Handler().ClearCoAndIdMap();
    for (const std::uint16_t co : cos)
        handler.OnValueChanged(nullptr, kFirstId + co, urn, value, origin);
    Telegrams telegrams(static_cast<unsigned>(state.range(0)));
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(
            handler.OnValueChanged(nullptr, kFirstId + telegrams.Next(), urn, value, origin));
    ShowAllocations(state, before);
}
BENCHMARK(ValueChangeCached)->Arg(10)->Arg(1000)->Arg(kMaxCos);

/// COs 1 to 1,000 go to another application while it lives.
class Translation {
public:
    Translation() {
        Handler().Translation().SetTargetName("DscKnxAppPrg::field::2");
        Handler().Translation().SetRange({1, 1000});
    }
    ~Translation() { Handler().Translation().SetRange({0, 0}); }
};

/// One allocation: the command. The message is short enough to be held without one, and so is the answer.
void TranslatedWrite(benchmark::State& state) {
    const Translation translation;
    const KnxStack::GroupValue value = Temperature();
    KnxStack::IGroupValueUser& user = *g_program->hub.service.user;
    Telegrams telegrams(1000);
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state)
        user.OnGroupValueWrite(telegrams.Next(), value);
    ShowAllocations(state, before);
}
BENCHMARK(TranslatedWrite);

/// The other direction. No allocation: a group value of up to 16 bytes is held without one.
void TranslatedMessage(benchmark::State& state) {
    const Translation translation;
    const std::string sender = "DscKnxAppPrg";
    const std::string message = "!0012100c33";
    auto& handler = *Client::s_eventHandler;
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(handler.OnApplicationEvent(nullptr, sender, message));
    ShowAllocations(state, before);
}
BENCHMARK(TranslatedMessage);

/// One of the lines that stand on a telegram's way, with its level switched off. A group write passes four.
void LogLineOff(benchmark::State& state) {
    const log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.DscKnxAppPrg.KnxHandler");
    Telegrams telegrams(1000);
    for ([[maybe_unused]] auto _ : state)
        LOG4CPLUS_DEBUG(logger, "GetIDFromCO(): Getting ID for CO " << telegrams.Next() << " for unknown");
}
BENCHMARK(LogLineOff);

/// All of them composed and handed to an appender that drops them.
void GroupWriteLogged(benchmark::State& state) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    root.setLogLevel(log4cplus::ALL_LOG_LEVEL);
    const KnxStack::GroupValue value = Temperature();
    KnxStack::IGroupValueUser& user = *g_program->hub.service.user;
    Telegrams telegrams(1000);
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state)
        user.OnGroupValueWrite(telegrams.Next(), value);
    ShowAllocations(state, before);
    root.setLogLevel(log4cplus::OFF_LOG_LEVEL);
}
BENCHMARK(GroupWriteLogged);

} // namespace

std::unique_ptr<Vesk::IDeviceStackClient> Vesk::CreateDeviceStackClient() {
    return std::make_unique<Client>();
}

int main(int argc, char** argv) {
    const log4cplus::Initializer logging;
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    const RegistryDirectory registry;
    Program program;
    g_program = &program;
    return Bench::RunWithRatios(
        argc, argv,
        {
            {"group write, 1,000 COs / three map look-ups", "GroupWriteCached/1000", "MapLookUp/1000", 3, 1},
            {"value change, 1,000 COs / three map look-ups", "ValueChangeCached/1000", "MapLookUp/1000", 3,
             1},
            {"group response, 1,000 COs / three map look-ups", "GroupResponseCached/1000", "MapLookUp/1000",
             3, 0},
            {"group read, 1,000 COs / three map look-ups", "GroupReadCached/1000", "MapLookUp/1000", 3, 0},
            {"translated write / three map look-ups", "TranslatedWrite", "MapLookUp/1000", 3, 0},
            {"translated message / three map look-ups", "TranslatedMessage", "MapLookUp/1000", 3, 0},
            {"a log line that is off / a map look-up", "LogLineOff", "MapLookUp/1000", 1, 0},
            {"group write logged / with logging off", "GroupWriteLogged", "GroupWriteCached/1000", 1, 0},
            {"group write, 65,534 COs / 1,000 COs", "GroupWriteCached/65534", "GroupWriteCached/1000", 1, 0},
            {"map look-up, 65,534 / 1,000 entries", "MapLookUp/65534", "MapLookUp/1000", 1, 0},
            {"group write uncached / cached, 1,000 COs", "GroupWriteUncached/1000", "GroupWriteCached/1000",
             1, 0},
        });
}
