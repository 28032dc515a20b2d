#include "../support/Daemon.h"
#include "Recorder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <memory>

using namespace std::chrono_literals;
using DeviceStackServer::Daemon;
using DeviceStackServer::Eventually;
using DeviceStackServer::RawClient;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char* kProject = R"({
  "version": 1, "device": "house",
  "dataPoints": [
    {"id": 2001, "name": "Plain", "dpt": "5.010", "persistent": true},
    {"id": 2002, "name": "Owned", "dpt": "5.010", "owner": "a::field::1"},
    {"id": 2003, "name": "Other", "dpt": "5.010"}
  ]
})";

constexpr auto kLoaded = R"({"command":"EmitEvent","eventType":"configurationLoaded"})";

} // namespace

class RealDeviceStack : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_daemon.Start()) << m_daemon.Log();
        ::setenv("DEVICESTACK_SOCKET", m_daemon.Socket().c_str(), 1);
        m_client = Vesk::CreateDeviceStackClient();
    }
    void TearDown() override { m_client.reset(); }

    void RegisterListener() {
        m_client->InstallEventHandler(&m_recorder, &m_recorder);
        ASSERT_TRUE(m_client->RegisterApplication("a", "listener", "1")) << m_client->GetLastError();
    }

    void RegisterOwner() {
        m_client->InstallEventHandler(&m_recorder, &m_recorder);
        m_client->InstallFieldHandler(&m_recorder, &m_recorder);
        ASSERT_TRUE(m_client->RegisterApplication("a", "field", "1")) << m_client->GetLastError();
        m_client->SetValueFormat("Native");
        EXPECT_THAT(m_client->Command(kLoaded), HasSubstr("ok"));
    }

    void Restart() {
        m_daemon.Stop(SIGKILL);
        EXPECT_TRUE(Eventually([&] { return Count("lost") > 0; }));
        ASSERT_TRUE(m_daemon.Start()) << m_daemon.Log();
    }

    std::ptrdiff_t Count(const std::string& record) {
        const auto records = m_recorder.Get();
        return std::count(records.begin(), records.end(), record);
    }

    Daemon m_daemon{kProject};
    Recorder m_recorder;
    std::unique_ptr<Vesk::IDeviceStackClient> m_client;
};

TEST_F(RealDeviceStack, TakesAndGivesValuesNamesAndConfiguration) {
    RegisterListener();
    m_client->SetValue(2001, "5", true, false);
    std::string text;
    EXPECT_TRUE(m_client->GetValue(2001, text, true)) << m_client->GetLastError();
    EXPECT_EQ(text, "5");
    EXPECT_FALSE(m_client->GetValue(2003, text, true));
    EXPECT_THAT(m_client->GetLastError(), HasSubstr("no value"));
    EXPECT_EQ(m_client->GetUrn(2001, 0), "urn:oxn:dp:house:Plain");
    EXPECT_EQ(m_client->GetId("urn:oxn:dp:house:Plain"), 2001u);
    EXPECT_EQ(m_client->GetId("urn:oxn:dp:house:Nowhere"), 0u);
    EXPECT_TRUE(m_client->GetConfiguration(1, text)) << m_client->GetLastError();
    EXPECT_THAT(text, HasSubstr("\"UserDataPath\""));
    EXPECT_TRUE(m_client->Command(R"({"command":"GetProcessView","cached":true})", text, 5));
    EXPECT_THAT(text, HasSubstr("\"urn\":\"urn:oxn:dp:house:Plain\""));
}

TEST_F(RealDeviceStack, TellsChangesOfOthersAndNotOnesOwn) {
    RegisterListener();
    RawClient other(m_daemon.Socket());
    other.Register("other");
    m_client->SetValue(2001, "1", true, false);
    other.Call("setValue", R"({"id":2003,"value":"2"})");
    EXPECT_THAT(m_recorder.Wait(1), ElementsAre("changed 2003 urn:oxn:dp:house:Other 2 other::test::1"));
}

TEST_F(RealDeviceStack, AnIdentityInUseIsRefusedNamingTheHolder) {
    RegisterListener();
    const auto second = Vesk::CreateDeviceStackClient();
    EXPECT_FALSE(second->RegisterApplication("a", "listener", "1"));
    EXPECT_THAT(second->GetLastError(), HasSubstr("a::listener::1"));
}

TEST_F(RealDeviceStack, GetValueRequestIsAnswered) {
    m_client->InstallResponseHandler(&m_recorder, &m_recorder);
    RegisterListener();
    const auto request = m_client->GetValueRequest(1003, 1);
    const auto records = m_recorder.Wait(1);
    EXPECT_THAT(records.front(), testing::StartsWith("got " + request + " 1003 urn:oxn:dp:house:"));
}

TEST_F(RealDeviceStack, AnOwnerIsAskedToWriteOnceItHasStarted) {
    m_recorder.then = [](const std::string& record) { return record.find(" 10 ") == std::string::npos; };
    RegisterOwner();
    RawClient other(m_daemon.Socket());
    EXPECT_THAT(boost::json::serialize(other.Call("setValue", R"({"id":2002,"value":"9"})")),
                HasSubstr("\"change\":"));
    EXPECT_THAT(m_recorder.Get(), ElementsAre("write 2002 9 urn:oxn:dp:house:Owned"));
    EXPECT_THAT(boost::json::serialize(other.Call("setValue", R"({"id":2002,"value":"10"})")),
                HasSubstr("\"code\":7"));
}

TEST_F(RealDeviceStack, ValuesSetDuringItsAbsenceArriveOnceItIsBack) {
    RegisterListener();
    m_daemon.Stop(SIGKILL);
    EXPECT_TRUE(Eventually([&] { return Count("lost") == 1; }));
    m_client->SetValue(2001, "1", true, false);
    m_client->SetValue(2001, "2", true, false);
    ASSERT_TRUE(m_daemon.Start()) << m_daemon.Log();
    std::string text;
    EXPECT_TRUE(Eventually([&] { return m_client->GetValue(2001, text, true); })) << m_client->GetLastError();
    EXPECT_EQ(text, "2");
    EXPECT_EQ(Count("lost"), 1);
}

TEST_F(RealDeviceStack, AValueSetByAnotherToolWhileThisOneReconnectsIsToldOnce) {
    RegisterListener();
    RawClient before(m_daemon.Socket());
    before.Call("setValue", R"({"id":2003,"value":"1"})");
    m_recorder.Wait(1);
    Restart();
    RawClient after(m_daemon.Socket());
    after.Call("setValue", R"({"id":2003,"value":"7"})");
    const auto told = [&] {
        const auto records = m_recorder.Get();
        return std::count_if(records.begin(), records.end(), [](const std::string& record) {
            return record.starts_with("changed 2003 urn:oxn:dp:house:Other 7 ");
        });
    };
    EXPECT_TRUE(Eventually([&] { return told() > 0; }));
    // An answer comes after all that was sent before it.
    std::string text;
    EXPECT_TRUE(Eventually([&] { return m_client->GetValue(2003, text, true); }));
    EXPECT_EQ(told(), 1);
}

TEST_F(RealDeviceStack, AnOwnersStartIsRepeatedSoThatItIsAskedAgainAfterARestart) {
    RegisterOwner();
    Restart();
    RawClient other(m_daemon.Socket());
    // Waits for the owner's registration and its start window.
    EXPECT_TRUE(Eventually([&] {
        return boost::json::serialize(other.Call("setValue", R"({"id":2002,"value":"9"})"))
                   .find("\"change\":") != std::string::npos;
    }));
    EXPECT_EQ(Count("write 2002 9 urn:oxn:dp:house:Owned"), 1);
}
