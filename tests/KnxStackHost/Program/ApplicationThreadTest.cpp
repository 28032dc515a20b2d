#include "ApplicationThreadTest.h"

#include <gmock/gmock.h>

namespace KnxStackHost {
namespace {

using namespace ApplicationTesting;
using testing::ElementsAre;

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
