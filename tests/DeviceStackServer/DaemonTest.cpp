#include "Daemon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace DeviceStackServer {
namespace {

using testing::HasSubstr;

constexpr const char* kProject = R"({
  "version": 1, "device": "house",
  "dataPoints": [
    {"id": 2001, "name": "Plain", "dpt": "5.010", "persistent": true},
    {"id": 2002, "name": "Owned", "dpt": "5.010", "owner": "own::test::1"}
  ]
})";

std::string Text(const boost::json::value& value, const char* pointer) {
    boost::json::error_code error;
    const auto* found = value.find_pointer(pointer, error);
    return !found               ? "(none)"
           : found->is_string() ? std::string(found->get_string())
                                : boost::json::serialize(*found);
}

TEST(Daemon, ServesRawLines) {
    Daemon daemon(kProject);
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient writer(daemon.Socket());
    RawClient listener(daemon.Socket());
    EXPECT_EQ(Text(listener.Register("listen"), "/result/application"), "listen::test::1");
    EXPECT_EQ(Text(writer.Call("setValue", R"({"name":"Plain","value":"5"})"), "/result/change"), "1");
    const auto changed = listener.ReceiveJson();
    EXPECT_EQ(Text(changed, "/method"), "valueChanged");
    EXPECT_EQ(Text(changed, "/params/value"), "5");
    EXPECT_EQ(Text(listener.Call("getValue", R"({"id":2001})"), "/result/value"), "5");
}

TEST(Daemon, EndsWithinASecondWithItsStateOnTheDisk) {
    Daemon daemon(kProject, R"("saveDelay":3600)");
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient client(daemon.Socket());
    client.Call("setValue", R"({"name":"Plain","value":"77"})");
    daemon.GetProcess().Signal(SIGTERM);
    EXPECT_EQ(daemon.GetProcess().Wait(std::chrono::seconds(1)), 0) << daemon.Log();
    EXPECT_TRUE(client.IsClosed());
    ASSERT_TRUE(daemon.Start()) << daemon.Log();
    RawClient again(daemon.Socket());
    const auto value = again.Call("getValue", R"({"name":"Plain"})");
    EXPECT_EQ(Text(value, "/result/value"), "77");
    EXPECT_EQ(Text(value, "/result/change"), "0");
}

} // namespace
} // namespace DeviceStackServer
