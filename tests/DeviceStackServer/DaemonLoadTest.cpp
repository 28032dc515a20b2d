// Many data points and fast clients at the started daemon.
#include "DaemonText.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

namespace DeviceStackServer {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kMany = 20000;

/// Data points 10000 and following, and one with an owner.
std::string ProjectOfMany() {
    std::string points = R"({"id":2002,"name":"Owned","dpt":"7.001","owner":"own::test::1"})";
    for (int i = 0; i < kMany; ++i)
        points += fmt::format(",\n{{\"id\":{},\"name\":\"P{}\",\"dpt\":\"7.001\"}}", 10000 + i, i);
    return R"({"version":1,"device":"house","dataPoints":[)" + points + "]}";
}

class DaemonLoad : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(daemon.Start()) << daemon.Log(); }

    /// Writes every data point once, the last one first.
    void WriteAll() {
        RawClient writer(daemon.Socket());
        constexpr int kAtOnce = 500;
        for (int left = kMany; left > 0; left -= kAtOnce) {
            std::string lines;
            for (int i = left - 1; i >= left - kAtOnce; --i)
                lines += fmt::format("{{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"setValue\","
                                     "\"params\":{{\"id\":{},\"value\":\"{}\"}}}}\n",
                                     10000 + i, i);
            writer.Send(lines);
            for (int i = 0; i < kAtOnce; ++i)
                ASSERT_EQ(Text(writer.ReceiveJson(), "/error"), "(none)");
        }
    }

    /// The client is told of every data point in the order of the changes.
    void ExpectAllInOrder(RawClient& client) {
        std::int64_t last = 0;
        for (int i = kMany - 1; i >= 0; --i) {
            const auto told = client.ReceiveJson(std::chrono::seconds(30));
            ASSERT_EQ(Text(told, "/method"), "valueChanged") << i << daemon.Log();
            ASSERT_EQ(Text(told, "/params/id"), std::to_string(10000 + i));
            ASSERT_EQ(Text(told, "/params/value"), std::to_string(i));
            const auto change = std::stoll(Text(told, "/params/change"));
            ASSERT_GT(change, last);
            last = change;
        }
    }

    Daemon daemon{ProjectOfMany()};
};

TEST_F(DaemonLoad, AClientThatReadsIsToldOfEverythingThatChangedWhileItWasAway) {
    RawClient client(daemon.Socket());
    const auto server = Text(client.Call("subscribe", "{}"), "/result/server");
    RawClient again(daemon.Socket());
    WriteAll();
    EXPECT_EQ(
        Text(again.Call("subscribe", R"({"lastChange":0,"server":")" + server + "\"}"), "/result/change"),
        std::to_string(kMany));
    ExpectAllInOrder(again);
    EXPECT_EQ(Text(again.Call("getUrn", R"({"id":1000})"), "/result/urn"), "urn:oxn:dp:house");
}

TEST_F(DaemonLoad, AFieldApplicationIsToldOfEverythingThatChangedInItsStart) {
    RawClient owner(daemon.Socket());
    owner.Register("own", R"("events":true,"field":true)");
    WriteAll();
    RawClient writer(daemon.Socket());
    writer.SendLine(
        R"({"jsonrpc":"2.0","id":"w","method":"setValue","params":{"name":"Owned","value":"1"}})");
    owner.Call("command", R"({"command":{"command":"EmitEvent","eventType":"configurationLoaded"}})");
    ExpectAllInOrder(owner);
    EXPECT_EQ(Text(owner.ReceiveJson(), "/method"), "writeValue");
    EXPECT_THAT(daemon.Log(), Not(HasSubstr("cut off")));
}

TEST_F(DaemonLoad, AFastWriterWaitsForASlowOwner) {
    RawClient owner(daemon.Socket());
    owner.Register("own", R"("field":true,"startWindow":false)");
    RawClient writer(daemon.Socket());
    std::string lines;
    for (int i = 0; i < kMany; ++i)
        lines += fmt::format("{{\"jsonrpc\":\"2.0\",\"id\":{},\"method\":\"setValue\","
                             "\"params\":{{\"name\":\"Owned\",\"value\":\"{}\"}}}}\n",
                             i, i);
    std::thread sender([&] { writer.Send(lines); });
    std::thread reader([&] {
        for (int i = 0; i < kMany; ++i)
            if (!writer.Receive(std::chrono::seconds(30)))
                return ADD_FAILURE() << "no answer to " << i;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // slow
    for (int i = 0; i < kMany; ++i) {
        const auto asked = owner.ReceiveJson(std::chrono::seconds(30));
        EXPECT_EQ(Text(asked, "/params/value"), std::to_string(i));
        if (Text(asked, "/params/value") != std::to_string(i))
            break;
        owner.SendLine(R"({"jsonrpc":"2.0","id":)" + Text(asked, "/id") + R"(,"result":{"handled":true}})");
    }
    sender.join();
    reader.join();
    EXPECT_THAT(daemon.Log(), Not(HasSubstr("cut off")));
}

TEST_F(DaemonLoad, AFastWriterThatLeavesIsHeardToTheEnd) {
    constexpr int kWrites = 500; // more than may be open, fewer than are read at a time
    RawClient owner(daemon.Socket());
    owner.Register("own", R"("field":true,"startWindow":false)");
    std::string lines;
    for (int i = 0; i < kWrites; ++i)
        lines += fmt::format("{{\"jsonrpc\":\"2.0\",\"id\":{},\"method\":\"setValue\","
                             "\"params\":{{\"name\":\"Owned\",\"value\":\"{}\"}}}}\n",
                             i, i);
    RawClient(daemon.Socket()).Send(lines);
    for (int i = 0; i < kWrites; ++i) {
        const auto asked = owner.ReceiveJson();
        ASSERT_EQ(Text(asked, "/params/value"), std::to_string(i));
        owner.SendLine(R"({"jsonrpc":"2.0","id":)" + Text(asked, "/id") + R"(,"result":{"handled":true}})");
    }
    EXPECT_EQ(Text(owner.Call("getValue", R"({"name":"Owned"})"), "/result/value"),
              std::to_string(kWrites - 1));
}

} // namespace
} // namespace DeviceStackServer
