#include "ClientFixture.h"
#include "LogCapture.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::string Notification(std::string_view method, std::string_view params) {
    return fmt::format(R"({{"jsonrpc":"2.0","method":"{}","params":{}}})", method, params);
}

std::string FieldRequest(int id, std::string_view method, std::string_view params) {
    return fmt::format(R"({{"jsonrpc":"2.0","id":{},"method":"{}","params":{}}})", id, method, params);
}

std::string Handled(int id, bool handled) {
    return fmt::format(R"({{"jsonrpc":"2.0","id":{},"result":{{"handled":{}}}}})", id, handled);
}

} // namespace

class Events : public ConnectedClient {
protected:
    void SetUp() override { Register(); }
};

TEST_F(Events, ReachTheHandlerInOrder) {
    m_connection.SendValueChanged(2001, "1", 1);
    m_connection.SendLine(Notification("configurationChanged", R"({"id":0,"key":"Project","value":"ok"})"));
    m_connection.SendLine(Notification(
        "applicationEvent", R"({"eventType":"application","sender":"DscKnxAppPrg","message":"!00120101"})"));
    m_connection.SendValueChanged(2001, "1", 2);
    EXPECT_THAT(m_recorder.Wait(4), ElementsAre("changed 2001 urn:oxn:dp:house:p2001 1 web::tool::1",
                                                "configuration 0 Project ok", "event DscKnxAppPrg !00120101",
                                                "changed 2001 urn:oxn:dp:house:p2001 1 web::tool::1"));
}

TEST_F(Events, AnEventWithoutAMessageIsNotTold) {
    m_connection.SendLine(
        Notification("applicationEvent", R"({"eventType":"configurationLoaded","sender":"DscKnxAppPrg"})"));
    m_connection.SendValueChanged(1, "x", 1);
    EXPECT_THAT(m_recorder.Wait(1), ElementsAre("changed 1 urn:oxn:dp:house:p1 x web::tool::1"));
}

TEST_F(Events, AChangeOfOnesOwnIsNotTold) {
    m_connection.SendValueChanged(1, "mine", 1, "a::field::1");
    m_connection.SendValueChanged(1, "yours", 2, "a::field::2");
    EXPECT_THAT(m_recorder.Wait(1), ElementsAre("changed 1 urn:oxn:dp:house:p1 yours a::field::2"));
}

TEST_F(Events, FieldRequestsAreAnsweredWithTheHandlersResult) {
    m_recorder.then = [](const std::string& record) { return record.starts_with("write"); };
    m_connection.SendLine(FieldRequest(5, "writeValue", R"({"id":1,"urn":"u","value":"21.5"})"));
    m_connection.SendLine(FieldRequest(6, "readValue", R"({"id":2,"urn":"v"})"));
    EXPECT_EQ(m_connection.ReadLine(), Handled(5, true));
    EXPECT_EQ(m_connection.ReadLine(), Handled(6, false));
    EXPECT_THAT(m_recorder.Get(), ElementsAre("write 1 21.5 u", "read 2 v"));
}

TEST_F(Events, FieldRequestsWithoutAHandlerAreNotHandled) {
    m_client->InstallFieldHandler(nullptr, nullptr);
    m_connection.SendLine(FieldRequest(5, "readValue", R"({"id":2,"urn":"v"})"));
    EXPECT_EQ(m_connection.ReadLine(), Handled(5, false));
}

TEST_F(Events, ARequestThatIsNotKnownIsAnsweredWithAnError) {
    m_connection.SendLine(FieldRequest(5, "blinkValue", "{}"));
    EXPECT_THAT(m_connection.ReadLine(), HasSubstr(R"("id":5,"error":{"code":-32601)"));
}

TEST_F(Events, AHandlerThatThrowsIsLoggedOnceAndTheNextEventComes) {
    LogCapture log;
    m_recorder.then = [](const std::string& record) -> bool {
        if (record.starts_with("read"))
            throw std::runtime_error("no bus");
        if (record.starts_with("event"))
            throw 17;
        return true;
    };
    m_connection.SendLine(FieldRequest(5, "readValue", R"({"id":2,"urn":"v"})"));
    m_connection.SendLine(
        Notification("applicationEvent", R"({"eventType":"x","sender":"s","message":"m"})"));
    m_connection.SendLine(FieldRequest(6, "writeValue", R"({"id":2,"urn":"v","value":""})"));
    EXPECT_EQ(m_connection.ReadLine(), Handled(5, false));
    EXPECT_EQ(m_connection.ReadLine(), Handled(6, true));
    EXPECT_THAT(log.Get(),
                ElementsAre("ERROR OnReadValue(): the application threw: no bus",
                            "ERROR OnApplicationEvent(): the application threw something unknown."));
}

TEST_F(Events, ACallInsideACallbackIsAnswered) {
    std::promise<std::string> urn;
    m_recorder.then = [&](const std::string&) { return urn.set_value(m_client->GetUrn(7, 0)), true; };
    m_connection.SendLine(FieldRequest(5, "readValue", R"({"id":2,"urn":"v"})"));
    m_connection.Reply(m_connection.ReadRequest("getUrn"), R"({"urn":"seven"})");
    EXPECT_EQ(urn.get_future().get(), "seven");
    EXPECT_EQ(m_connection.ReadLine(), Handled(5, true));
}

TEST_F(Events, CallsOfOthersAreAnsweredWhileACallbackHangs) {
    std::promise<void> release;
    auto released = release.get_future().share();
    m_recorder.then = [released](const std::string&) { return released.wait(), true; };
    m_connection.SendValueChanged(1, "x", 1);
    m_recorder.Wait(1);
    for (int i = 0; i < 3; ++i) {
        auto got = Begin([&] { return m_client->GetUrn(7, 0); });
        m_connection.Reply(m_connection.ReadRequest("getUrn"), R"({"urn":"seven"})");
        EXPECT_EQ(got.get(), "seven");
    }
    release.set_value();
}

TEST_F(Events, RemovingAHandlerWaitsForItsRunningCallback) {
    std::promise<void> release;
    std::atomic<bool> ended = false;
    auto released = release.get_future().share();
    m_recorder.then = [&, released](const std::string&) {
        released.wait();
        ended = true;
        return true;
    };
    m_connection.SendValueChanged(1, "x", 1);
    m_recorder.Wait(1);
    auto removed = Begin([&] {
        m_client->InstallEventHandler(nullptr, nullptr);
        return ended.load();
    });
    EXPECT_EQ(removed.wait_for(50ms), std::future_status::timeout);
    release.set_value();
    EXPECT_TRUE(removed.get());
}

TEST_F(Events, AHandlerMayRemoveItselfInsideItsCallback) {
    m_recorder.then = [&](const std::string&) {
        return m_client->InstallEventHandler(nullptr, nullptr), true;
    };
    m_connection.SendValueChanged(1, "x", 1);
    m_connection.SendValueChanged(1, "y", 2);
    m_connection.SendLine(FieldRequest(5, "readValue", R"({"id":2,"urn":"v"})"));
    EXPECT_EQ(m_connection.ReadLine(), Handled(5, true));
    EXPECT_THAT(m_recorder.Get(), ElementsAre("changed 1 urn:oxn:dp:house:p1 x web::tool::1", "read 2 v"));
}

TEST_F(Events, BehindAHangingCallbackTheLastValuesAreKeptInOrder) {
    LogCapture log;
    std::promise<void> release;
    auto released = release.get_future().share();
    m_recorder.then = [released](const std::string&) { return released.wait(), true; };
    m_connection.SendValueChanged(1, "first", 1);
    m_recorder.Wait(1);

    // The first 10,000 wait as they are; of the rest the last one of each of the data points 1, 2 and 3.
    unsigned change = 1;
    for (int i = 0; i < 10'000; ++i)
        m_connection.SendValueChanged(5, std::to_string(i), ++change);
    for (int i = 0; i < 3'000; ++i)
        m_connection.SendValueChanged(1 + static_cast<unsigned>(i) % 3, std::to_string(i), ++change);
    m_connection.SendLine(FieldRequest(5, "writeValue", R"({"id":9,"urn":"u","value":"old"})"));
    m_connection.SendLine(FieldRequest(6, "writeValue", R"({"id":9,"urn":"u","value":"new"})"));
    EXPECT_EQ(m_connection.ReadLine(), Handled(5, false)); // its place was taken by the newer one

    release.set_value();
    EXPECT_EQ(m_connection.ReadLine(), Handled(6, true));
    const auto records = m_recorder.Get();
    ASSERT_EQ(records.size(), 1u + 10'000 + 3 + 1);
    EXPECT_EQ(records[10'000], "changed 5 urn:oxn:dp:house:p5 9999 web::tool::1");
    EXPECT_THAT(std::vector(records.begin() + 10'001, records.end()),
                ElementsAre("changed 1 urn:oxn:dp:house:p1 2997 web::tool::1",
                            "changed 2 urn:oxn:dp:house:p2 2998 web::tool::1",
                            "changed 3 urn:oxn:dp:house:p3 2999 web::tool::1", "write 9 new u"));
    EXPECT_THAT(log.Get(),
                ElementsAre("WARN Push(): the application does not take its events; 10000 wait, and of "
                            "each data point only the last one is kept."));
}

TEST_F(Events, ARefusedValueIsLoggedOncePerDataPointAndCause) {
    LogCapture log;
    const auto refuse = [&](unsigned id, int code, const char* text) {
        m_client->SetValue(id, "x", false, false);
        m_connection.ReplyError(m_connection.ReadRequest("setValue"), code, text);
    };
    refuse(1, 4, "x is no number");
    refuse(1, 4, "x is no number");
    refuse(1, 6, "nobody owns it");
    refuse(2, 4, "x is no number");
    m_recorder.Wait(4);
    EXPECT_THAT(
        log.Get(),
        ElementsAre("WARN SetValue(): the device stack refused a value. Object ID = 1: x is no number",
                    "WARN SetValue(): the device stack refused a value. Object ID = 1: nobody owns it",
                    "WARN SetValue(): the device stack refused a value. Object ID = 2: x is no number"));
}
