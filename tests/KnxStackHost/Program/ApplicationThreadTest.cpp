#include "KnxStackHost/Program/ApplicationThread.h"

#include "../Fakes.h"
#include "KnxDevice/InterfaceObjects.h"

#include <gmock/gmock.h>

#include <future>

namespace KnxStackHost {
namespace {

using State = KnxStack::IApplicationProgram::StartupState;
using std::chrono::seconds;
using testing::ElementsAre;

constexpr seconds kPatience{20};

/// What happened on the application thread, in order.
class Journal {
public:
    void Add(std::string entry) {
        const std::lock_guard lock(m_mutex);
        m_entries.push_back(std::move(entry));
        m_threads.insert(std::this_thread::get_id());
        m_changed.notify_all();
    }
    /// Waits until there are `count` entries, and gives them.
    std::vector<std::string> Wait(std::size_t count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, kPatience, [&] { return m_entries.size() >= count; });
        return m_entries;
    }
    std::size_t Threads() {
        const std::lock_guard lock(m_mutex);
        return m_threads.size();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_entries;
    std::set<std::thread::id> m_threads;
};

/// Behaviour of the next programs; the C functions of a library have no other way to know it.
struct Script {
    Journal* journal = nullptr;
    std::function<State(KnxStack::IApiHub&)> init;
    std::function<State(KnxStack::IApiHub&)> restart;
    std::function<void(int)> inCallback;
    std::function<bool()> exit;
};
Script s_script;

class ScriptedProgram final : public KnxStack::IApplicationProgram, private KnxStack::IGroupValueUser {
public:
    State Init(KnxStack::IApiHub& hub) override {
        s_script.journal->Add("init");
        m_hub = &hub;
        hub.GetGroupValueService()->RegisterGroupValueUser(this);
        return s_script.init(hub);
    }
    State OnDeviceRestart() override {
        s_script.journal->Add(m_hub->IsDeviceRestartPending() ? "restart, pending" : "restart");
        return s_script.restart(*m_hub);
    }
    bool Exit() override {
        s_script.journal->Add("exit");
        if (s_script.exit)
            return s_script.exit();
        m_hub->GetGroupValueService()->RegisterGroupValueUser(nullptr);
        return true;
    }

private:
    void OnGroupValueWrite(int co, const KnxStack::GroupValue& value) override {
        s_script.journal->Add("write " + std::to_string(co) + " " + value.GetRawData().ToString());
        if (s_script.inCallback)
            s_script.inCallback(co);
    }
    void OnGroupValueResponse(int, const KnxStack::GroupValue&) override {}
    bool OnGroupValueRead(int, KnxStack::GroupValue&) override { return false; }

    KnxStack::IApiHub* m_hub = nullptr;
};

KnxStack::IApplicationProgram* Create() {
    s_script.journal->Add("create");
    return new ScriptedProgram;
}

void Destroy(KnxStack::IApplicationProgram* program) {
    s_script.journal->Add("delete");
    delete program;
}

State RunAtOnce(KnxStack::IApiHub& hub) {
    hub.OnApplicationProgramStartupStateChanged(State::InProgress);
    hub.OnApplicationProgramStartupStateChanged(State::Running);
    return State::InProgress;
}

State ReportLater(KnxStack::IApiHub&) {
    return State::InProgress;
}

class Application : public testing::Test, protected ReloadSource {
protected:
    Application() { s_script = {&m_journal, RunAtOnce, RunAtOnce, {}, {}}; }
    void TearDown() override { m_thread.reset(); } // it calls what a destructor would change

    void Start(bool restartPending = false) {
        m_thread = std::make_unique<ApplicationThread>(
            ProgramLibrary{Create, Destroy}, DeviceServices{m_service, m_interfaceObjects, m_downloaded},
            ApiHub::Settings{{"key", "value"}}, static_cast<ReloadSource&>(*this),
            [this] { m_journal.Add("ended"); });
        m_thread->Start(restartPending);
    }

    bool Read(Scope scope) override {
        m_journal.Add((m_readable ? "read " : "unreadable ") + NameOf(scope));
        return m_readable;
    }
    bool ChangesGroupObjects() const override { return m_otherObjects; }
    void Apply(Scope scope) override {
        m_journal.Add("apply " + NameOf(scope));
        if (m_inApply)
            m_inApply();
    }
    void OnRestartFinished() override { m_journal.Add("restart finished"); }
    void OnProgramRunning() override { ++m_runs; }

    static std::string NameOf(Scope scope) { return scope == Scope::Device ? "device" : "everything"; }

    Journal m_journal;
    KnxDevice::GroupObjects m_objects{TestTable()};
    FakeOutlet m_outlet;
    GroupValueService m_service{m_objects, m_outlet};
    KnxDevice::InterfaceObjects m_interfaceObjects;
    KnxDevice::DownloadedData m_downloaded{{1, 2}, {3}};
    std::atomic<int> m_runs{0};
    std::atomic<bool> m_readable{true};
    std::atomic<bool> m_otherObjects{false};
    std::function<void()> m_inApply;

    // For the program of a test, which may live longer than the test's body.
    std::promise<void> m_entered;
    std::promise<void> m_leave;
    std::atomic<int> m_starts{0};
    std::atomic<bool> m_first{true};

    std::unique_ptr<ApplicationThread> m_thread;
};

TEST_F(Application, MakesAllCallsOnOneThreadInOrder) {
    Start();
    m_thread->Post(WriteTo(2, 1));
    m_thread->Post(WriteTo(1, 1));
    m_thread->Post(WriteTo(2, 2));
    m_journal.Wait(5);
    m_thread->RequestStop();
    EXPECT_THAT(m_journal.Wait(8), ElementsAre("create", "init", "write 2 01", "write 1 01", "write 2 02",
                                               "exit", "delete", "ended"));
    EXPECT_EQ(1u, m_journal.Threads());
}

TEST_F(Application, HoldsCallbacksUntilTheProgramReportsThatItRuns) {
    s_script.init = ReportLater;
    Start();
    m_journal.Wait(2);
    for (std::uint8_t value = 0; value < 100; ++value)
        m_thread->Post(WriteTo(2, value));
    m_thread->Hub().OnApplicationProgramStartupStateChanged(State::InProgress);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(2u, m_journal.Wait(2).size()) << "delivered too early";
    m_thread->Hub().OnApplicationProgramStartupStateChanged(State::Running);
    const auto entries = m_journal.Wait(102);
    ASSERT_EQ(102u, entries.size());
    EXPECT_EQ("write 2 00", entries[2]);
    EXPECT_EQ("write 2 63", entries[101]);
}

TEST_F(Application, HoldsCallbacksThatComeWhileInitRuns) {
    s_script.init = [&](KnxStack::IApiHub& hub) {
        m_entered.set_value();
        m_leave.get_future().wait();
        m_journal.Add("init ends");
        return RunAtOnce(hub);
    };
    Start();
    m_entered.get_future().wait();
    m_thread->Post(WriteTo(2, 7));
    m_leave.set_value();
    EXPECT_THAT(m_journal.Wait(4), ElementsAre("create", "init", "init ends", "write 2 07"));
}

TEST_F(Application, AHangingCallbackHoldsUpNobodyAndTheLastValueOfEachObjectArrives) {
    s_script.inCallback = [&](int) {
        if (m_first.exchange(false)) {
            m_entered.set_value();
            m_leave.get_future().wait();
        }
    };
    Start();
    m_thread->Post(WriteTo(2, 0));
    m_entered.get_future().wait();
    for (unsigned i = 0; i < 20000; ++i)
        m_thread->Post(WriteTo(2, static_cast<std::uint8_t>(i % 200)));
    m_thread->Post(WriteTo(1, 1));
    m_leave.set_value();
    const auto expected = 3 + ApplicationThread::kQueueBound + 1;
    const auto entries = m_journal.Wait(expected);
    ASSERT_EQ(expected, entries.size());
    EXPECT_EQ("write 2 c7", entries[expected - 2]);
    EXPECT_EQ("write 1 01", entries[expected - 1]);
    const auto telegrams = m_thread->Telegrams();
    EXPECT_EQ(ApplicationThread::kQueueBound + 2, telegrams.delivered);
    EXPECT_EQ(20000 - ApplicationThread::kQueueBound, telegrams.replaced);
    EXPECT_EQ(0u, telegrams.dropped);
    EXPECT_EQ(0u, telegrams.waiting);
    EXPECT_EQ(ApplicationThread::kQueueBound + 1, telegrams.mostWaiting);
}

TEST_F(Application, AFailedInitIsRetriedWithANewProgram) {
    s_script.init = [&](KnxStack::IApiHub& hub) { return m_starts++ == 0 ? State::Failed : RunAtOnce(hub); };
    Start();
    m_thread->Post(WriteTo(2, 5));
    EXPECT_THAT(m_journal.Wait(7),
                ElementsAre("create", "init", "exit", "delete", "create", "init", "write 2 05"));
}

TEST_F(Application, AProgramThatIsMadeAnewFindsItsProperties) {
    s_script.init = [&](KnxStack::IApiHub& hub) {
        auto& properties = *hub.GetPropertyService();
        auto* object = properties.GetInterfaceObject(50001, 1);
        if (object == nullptr)
            object = properties.CreateInterfaceObject(50001);
        auto* const property = object->CreateProperty(201, 17, 0, 1);
        m_journal.Add("found " + property->GetValue().ToString());
        property->SetValue({0x40});
        return m_starts++ == 0 ? State::Failed : RunAtOnce(hub);
    };
    Start();
    EXPECT_THAT(m_journal.Wait(8),
                ElementsAre("create", "init", "found ", "exit", "delete", "create", "init", "found 40"));
}

TEST_F(Application, AnInitThatThrowsIsRetriedWithANewProgram) {
    s_script.init = [&](KnxStack::IApiHub& hub) {
        if (m_starts++ == 0)
            throw 42;
        return RunAtOnce(hub);
    };
    Start();
    EXPECT_THAT(m_journal.Wait(6), ElementsAre("create", "init", "exit", "delete", "create", "init"));
}

TEST_F(Application, AReportedFailureIsRetriedWithANewProgram) {
    Start();
    m_journal.Wait(2);
    m_thread->Hub().OnApplicationProgramStartupStateChanged(State::Failed);
    EXPECT_THAT(m_journal.Wait(6), ElementsAre("create", "init", "exit", "delete", "create", "init"));
}

TEST_F(Application, AProgramThatThrowsFromExitIsDeletedAllTheSame) {
    s_script.exit = []() -> bool { throw std::runtime_error("no"); };
    Start();
    m_journal.Wait(2);
    m_thread->RequestStop();
    EXPECT_THAT(m_journal.Wait(5), ElementsAre("create", "init", "exit", "delete", "ended"));
    EXPECT_FALSE(m_service.Deliver(WriteTo(1, 1))) << "it never signed off, but it is gone";
}

TEST_F(Application, AThrowingCallbackDoesNotEndTheThread) {
    s_script.inCallback = [](int co) {
        if (co == 2)
            throw std::runtime_error("no");
    };
    Start();
    m_thread->Post(WriteTo(2, 1));
    m_thread->Post(WriteTo(1, 1));
    EXPECT_THAT(m_journal.Wait(4), ElementsAre("create", "init", "write 2 01", "write 1 01"));
}

TEST_F(Application, AReloadAppliesTheConfigurationWhileThereIsNoProgram) {
    Start();
    m_journal.Wait(2);
    m_thread->RequestReload();
    EXPECT_THAT(m_journal.Wait(8), ElementsAre("create", "init", "read everything", "exit", "delete",
                                               "apply everything", "create", "init"));
}

TEST_F(Application, AReloadWithTheSameObjectsKeepsWhatWaits) {
    s_script.init = [&](KnxStack::IApiHub& hub) {
        return m_starts++ == 0 ? ReportLater(hub) : RunAtOnce(hub);
    };
    Start();
    m_journal.Wait(2);
    m_thread->Post(WriteTo(2, 7));
    m_thread->RequestReload();
    EXPECT_THAT(m_journal.Wait(9), ElementsAre("create", "init", "read everything", "exit", "delete",
                                               "apply everything", "create", "init", "write 2 07"));
}

TEST_F(Application, AReloadWithOtherObjectsDropsWhatWasForTheFormerOnesAlone) {
    s_script.init = [&](KnxStack::IApiHub& hub) {
        return m_starts++ == 0 ? ReportLater(hub) : RunAtOnce(hub);
    };
    m_otherObjects = true;
    m_inApply = [this] { m_thread->Post(WriteTo(2, 8)); }; // of the new tables
    Start();
    m_journal.Wait(2);
    m_thread->Post(WriteTo(2, 7));
    m_thread->RequestReload();
    EXPECT_THAT(m_journal.Wait(9), ElementsAre("create", "init", "read everything", "exit", "delete",
                                               "apply everything", "create", "init", "write 2 08"));
    EXPECT_EQ(1u, m_thread->Telegrams().dropped);
}

TEST_F(Application, AnUnusableConfigurationChangesNothing) {
    m_readable = false;
    Start();
    m_journal.Wait(2);
    m_thread->RequestReload();
    m_journal.Wait(3);
    m_thread->Post(WriteTo(1, 1));
    EXPECT_THAT(m_journal.Wait(4), ElementsAre("create", "init", "unreadable everything", "write 1 01"));
}

TEST_F(Application, ADeviceRestartLoadsTheDeviceAndIsToldToTheRunningProgram) {
    Start();
    m_journal.Wait(2);
    m_thread->RequestDeviceRestart();
    m_journal.Wait(6);
    m_thread->Post(WriteTo(1, 1));
    EXPECT_THAT(m_journal.Wait(7), ElementsAre("create", "init", "read device", "apply device",
                                               "restart, pending", "restart finished", "write 1 01"));
    EXPECT_FALSE(m_thread->Hub().IsDeviceRestartPending());
}

TEST_F(Application, ADeviceRestartHoldsTelegramsUntilTheProgramReportsThatItRuns) {
    s_script.restart = ReportLater;
    m_inApply = [this] { m_thread->Post(WriteTo(2, 7)); }; // for the new device already
    Start();
    m_journal.Wait(2);
    m_thread->RequestDeviceRestart();
    m_journal.Wait(5);
    m_thread->Post(WriteTo(2, 8));
    m_thread->Hub().OnApplicationProgramStartupStateChanged(State::InProgress);
    EXPECT_TRUE(m_thread->Hub().IsDeviceRestartPending());
    m_journal.Add("reports");
    m_thread->Hub().OnApplicationProgramStartupStateChanged(State::Running);
    EXPECT_THAT(m_journal.Wait(9),
                ElementsAre("create", "init", "read device", "apply device", "restart, pending", "reports",
                            "restart finished", "write 2 07", "write 2 08"));
    EXPECT_FALSE(m_thread->Hub().IsDeviceRestartPending());
}

TEST_F(Application, ADeviceRestartThatReturnsRunningIsOver) {
    s_script.restart = [](KnxStack::IApiHub&) { return State::Running; };
    Start();
    m_journal.Wait(2);
    m_thread->RequestDeviceRestart();
    EXPECT_EQ("restart finished", m_journal.Wait(6).back());
    EXPECT_FALSE(m_thread->Hub().IsDeviceRestartPending());
}

TEST_F(Application, ADeviceRestartWithOtherObjectsDropsWhatWasForTheFormerOnesAlone) {
    s_script.init = ReportLater;
    m_otherObjects = true;
    m_inApply = [this] { m_thread->Post(WriteTo(2, 8)); };
    Start();
    m_journal.Wait(2);
    m_thread->Post(WriteTo(2, 7));
    m_thread->RequestDeviceRestart();
    EXPECT_THAT(m_journal.Wait(7), ElementsAre("create", "init", "read device", "apply device",
                                               "restart, pending", "restart finished", "write 2 08"));
}

TEST_F(Application, ARefusedDeviceChangesNothing) {
    m_readable = false;
    Start();
    m_journal.Wait(2);
    m_thread->RequestDeviceRestart();
    m_journal.Wait(3);
    EXPECT_FALSE(m_thread->Hub().IsDeviceRestartPending());
    m_thread->Post(WriteTo(1, 1));
    EXPECT_THAT(m_journal.Wait(4), ElementsAre("create", "init", "unreadable device", "write 1 01"));
}

TEST_F(Application, AFailedDeviceRestartIsToldToTheNextProgramAsPending) {
    s_script.init = [&](KnxStack::IApiHub& hub) {
        m_journal.Add(hub.IsDeviceRestartPending() ? "init, pending" : "init, not pending");
        return RunAtOnce(hub);
    };
    s_script.restart = [&](KnxStack::IApiHub& hub) {
        return m_starts++ == 0 ? State::Failed : RunAtOnce(hub);
    };
    Start();
    m_journal.Wait(3);
    m_thread->RequestDeviceRestart();
    EXPECT_THAT(m_journal.Wait(13),
                ElementsAre("create", "init", "init, not pending", "read device", "apply device",
                            "restart, pending", "exit", "delete", "create", "init", "init, pending",
                            "restart, pending", "restart finished"));
}

TEST_F(Application, ARestartThatWasPendingAtTheStartFollowsIt) {
    s_script.init = [&](KnxStack::IApiHub& hub) {
        m_journal.Add(hub.IsDeviceRestartPending() ? "init, pending" : "init, not pending");
        return RunAtOnce(hub);
    };
    constexpr bool kRestartPending = true;
    Start(kRestartPending);
    EXPECT_THAT(m_journal.Wait(5),
                ElementsAre("create", "init", "init, pending", "restart, pending", "restart finished"));
    m_thread.reset();
    EXPECT_EQ(2, m_runs) << "after the start, and after the restart";
}

TEST_F(Application, TheHubGivesSettingsAndTheServicesOfTheDevice) {
    Start();
    auto& hub = m_thread->Hub();
    EXPECT_EQ((ApiHub::Settings{{"key", "value"}}), hub.GetApplicationProgramSettings());
    hub.ReplaceSettings({{"key", "other"}});
    EXPECT_EQ((ApiHub::Settings{{"key", "other"}}), hub.GetApplicationProgramSettings());
    EXPECT_EQ(&m_service, hub.GetGroupValueService());
    EXPECT_EQ(&m_interfaceObjects, hub.GetPropertyService());
    EXPECT_EQ("0102", hub.GetApplicationProgramMemory()->GetData().ToString());
    EXPECT_EQ("03", hub.GetDownloadService().GetApplicationData().ToString());
}

} // namespace
} // namespace KnxStackHost
