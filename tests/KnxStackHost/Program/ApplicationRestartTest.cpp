// Reloads and device restarts on the application thread.
#include "ApplicationThreadTest.h"

#include <gmock/gmock.h>

namespace KnxStackHost {
namespace {

using namespace ApplicationTesting;
using testing::ElementsAre;

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

} // namespace
} // namespace KnxStackHost
