#include "KnxStackHost/Program/ProgramLifecycle.h"

#include <gtest/gtest.h>

namespace KnxStackHost {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Step = ProgramLifecycle::Step;
using State = KnxStack::IApplicationProgram::StartupState;

class Lifecycle : public testing::Test {
protected:
    void Start(State result = State::InProgress) {
        ASSERT_EQ(Step::Start, m_lifecycle.Next(m_now));
        m_lifecycle.OnCalling(Step::Start, m_now);
        m_lifecycle.OnReturned(result, m_now);
    }

    void Stop() {
        ASSERT_EQ(Step::Stop, m_lifecycle.Next(m_now));
        m_lifecycle.OnStopped(m_now);
    }

    ProgramLifecycle m_lifecycle;
    ProgramLifecycle::TimePoint m_now{seconds(1000)};
};

TEST_F(Lifecycle, StartsAtOnce) {
    EXPECT_TRUE(m_lifecycle.HoldsCallbacks());
    EXPECT_EQ(Step::Start, m_lifecycle.Next(m_now));
}

TEST_F(Lifecycle, HoldsCallbacksFromInitUntilTheProgramRuns) {
    Start();
    EXPECT_TRUE(m_lifecycle.HoldsCallbacks());
    m_lifecycle.OnReport(State::InProgress, m_now);
    EXPECT_TRUE(m_lifecycle.HoldsCallbacks());
    EXPECT_EQ(Step::None, m_lifecycle.Next(m_now));
    m_lifecycle.OnReport(State::Running, m_now);
    EXPECT_FALSE(m_lifecycle.HoldsCallbacks());
    EXPECT_EQ(Step::None, m_lifecycle.Next(m_now + seconds(100000)));
    EXPECT_FALSE(m_lifecycle.NextTime()) << "a running program wakes nobody";
}

TEST_F(Lifecycle, AnInitThatReturnsRunningIsFinal) {
    Start(State::Running);
    EXPECT_FALSE(m_lifecycle.HoldsCallbacks());
}

TEST_F(Lifecycle, ReleasesCallbacksAfterThirtySecondsOnce) {
    Start();
    EXPECT_EQ(m_now + seconds(30), m_lifecycle.NextTime());
    EXPECT_EQ(Step::None, m_lifecycle.Next(m_now + milliseconds(29999)));
    EXPECT_EQ(Step::ReleaseCallbacks, m_lifecycle.Next(m_now + seconds(30)));
    m_lifecycle.OnReleased();
    EXPECT_FALSE(m_lifecycle.HoldsCallbacks());
    EXPECT_EQ(Step::None, m_lifecycle.Next(m_now + seconds(31)));
    EXPECT_FALSE(m_lifecycle.NextTime());
    m_lifecycle.OnReport(State::Running, m_now);
    EXPECT_FALSE(m_lifecycle.HoldsCallbacks());
}

TEST_F(Lifecycle, AFailedInitIsStoppedAndRetriedWithAGrowingPause) {
    for (const int pause : {1, 2, 4, 8, 16, 32, 60, 60}) {
        Start(State::Failed);
        EXPECT_EQ(seconds(pause), m_lifecycle.RetryDelay());
        Stop();
        EXPECT_TRUE(m_lifecycle.HoldsCallbacks());
        EXPECT_EQ(m_now + seconds(pause), m_lifecycle.NextTime());
        EXPECT_EQ(Step::None, m_lifecycle.Next(m_now + seconds(pause) - milliseconds(1)));
        m_now += seconds(pause);
    }
    Start();
}

TEST_F(Lifecycle, AProgramThatRunsAndFailsAgainAndAgainIsRetriedWithAGrowingPause) {
    for (const int pause : {1, 2, 4, 8, 16, 32, 60, 60}) {
        Start();
        m_lifecycle.OnReport(State::Running, m_now);
        m_now += seconds(59);
        m_lifecycle.OnReport(State::Running, m_now); // says nothing new
        m_lifecycle.OnReport(State::Failed, m_now);
        EXPECT_EQ(seconds(pause), m_lifecycle.RetryDelay());
        m_now += seconds(100); // to end it is no run
        Stop();
        m_now += seconds(pause);
    }
}

TEST_F(Lifecycle, ALongRunCountsAlsoWhenADeviceRestartEndsIt) {
    Start(State::Failed);
    Stop();
    m_now += seconds(1);
    Start();
    m_lifecycle.OnReport(State::Running, m_now);
    m_now += seconds(60);
    m_lifecycle.OnCalling(Step::RestartDevice, m_now);
    m_lifecycle.OnReturned(State::Failed, m_now);
    EXPECT_EQ(seconds(1), m_lifecycle.RetryDelay());
}

TEST_F(Lifecycle, AReportedFailureIsRetriedAndARunOfAMinuteResetsThePause) {
    Start(State::Failed);
    Stop();
    m_now += seconds(1);
    Start();
    m_lifecycle.OnReport(State::Running, m_now);
    m_now += seconds(60);
    m_lifecycle.OnReport(State::Failed, m_now);
    EXPECT_EQ(seconds(1), m_lifecycle.RetryDelay());
    Stop();
    m_now += seconds(1);
    Start();
}

TEST_F(Lifecycle, AFailureIsNotTakenBack) {
    Start();
    m_lifecycle.OnReport(State::Failed, m_now);
    m_lifecycle.OnReport(State::Running, m_now);
    Stop();
}

TEST_F(Lifecycle, IgnoresReportsWithoutAProgram) {
    m_lifecycle.OnReport(State::Running, m_now);
    EXPECT_TRUE(m_lifecycle.HoldsCallbacks());
    EXPECT_EQ(Step::Start, m_lifecycle.Next(m_now));
}

TEST_F(Lifecycle, AReloadStopsAndStartsWithoutAPause) {
    Start();
    m_lifecycle.OnReport(State::Running, m_now);
    m_lifecycle.Reload();
    EXPECT_TRUE(m_lifecycle.IsReloading());
    Stop();
    EXPECT_FALSE(m_lifecycle.IsReloading());
    Start();
}

TEST_F(Lifecycle, AReloadEndsAPause) {
    Start(State::Failed);
    Stop();
    ASSERT_EQ(Step::None, m_lifecycle.Next(m_now));
    m_lifecycle.Reload();
    Start(State::Failed);
    EXPECT_EQ(seconds(1), m_lifecycle.RetryDelay());
}

TEST_F(Lifecycle, ADeviceRestartFollowsAnInitInProgress) {
    Start();
    m_lifecycle.OnReport(State::Running, m_now);
    m_lifecycle.RestartDevice();
    EXPECT_TRUE(m_lifecycle.IsDeviceRestartPending());
    ASSERT_EQ(Step::RestartDevice, m_lifecycle.Next(m_now));
    m_lifecycle.OnCalling(Step::RestartDevice, m_now);
    EXPECT_TRUE(m_lifecycle.HoldsCallbacks());
    m_lifecycle.OnReturned(State::InProgress, m_now);
    EXPECT_EQ(Step::None, m_lifecycle.Next(m_now));
    m_lifecycle.OnReport(State::Running, m_now);
    EXPECT_FALSE(m_lifecycle.HoldsCallbacks());
    EXPECT_FALSE(m_lifecycle.IsDeviceRestartPending());
}

TEST_F(Lifecycle, ADeviceRestartThatTakesLongReleasesCallbacksOnceAndStaysPending) {
    Start();
    m_lifecycle.OnReport(State::Running, m_now);
    m_lifecycle.RestartDevice();
    m_now += seconds(100);
    m_lifecycle.OnCalling(Step::RestartDevice, m_now);
    m_lifecycle.OnReturned(State::InProgress, m_now);
    EXPECT_EQ(m_now + seconds(30), m_lifecycle.NextTime());
    EXPECT_EQ(Step::None, m_lifecycle.Next(m_now + milliseconds(29999)));
    ASSERT_EQ(Step::ReleaseCallbacks, m_lifecycle.Next(m_now + seconds(30)));
    m_lifecycle.OnReleased();
    EXPECT_FALSE(m_lifecycle.HoldsCallbacks());
    EXPECT_EQ(Step::None, m_lifecycle.Next(m_now + seconds(1000)));
    EXPECT_TRUE(m_lifecycle.IsDeviceRestartPending());
    m_lifecycle.OnReport(State::Running, m_now + seconds(1000));
    EXPECT_FALSE(m_lifecycle.IsDeviceRestartPending());
}

TEST_F(Lifecycle, ASecondDeviceRestartDuringTheFirstIsToldAsWell) {
    Start();
    m_lifecycle.RestartDevice();
    m_lifecycle.OnCalling(Step::RestartDevice, m_now);
    m_lifecycle.OnReturned(State::InProgress, m_now);
    m_lifecycle.RestartDevice();
    m_lifecycle.OnReport(State::Running, m_now); // of the first
    EXPECT_TRUE(m_lifecycle.IsDeviceRestartPending());
    ASSERT_EQ(Step::RestartDevice, m_lifecycle.Next(m_now));
    m_lifecycle.OnCalling(Step::RestartDevice, m_now);
    m_lifecycle.OnReport(State::Running, m_now);
    EXPECT_FALSE(m_lifecycle.IsDeviceRestartPending());
}

TEST_F(Lifecycle, ADeviceRestartStaysPendingOverAFailedProgram) {
    m_lifecycle.RestartDevice();
    Start(State::Failed);
    EXPECT_EQ(Step::Stop, m_lifecycle.Next(m_now)) << "OnDeviceRestart needs an Init that succeeded";
    Stop();
    m_now += seconds(1);
    Start();
    ASSERT_EQ(Step::RestartDevice, m_lifecycle.Next(m_now));
    m_lifecycle.OnCalling(Step::RestartDevice, m_now);
    m_lifecycle.OnReturned(State::Failed, m_now);
    Stop();
    EXPECT_TRUE(m_lifecycle.IsDeviceRestartPending());
    m_now += seconds(2);
    Start();
    EXPECT_EQ(Step::RestartDevice, m_lifecycle.Next(m_now));
}

} // namespace
} // namespace KnxStackHost
