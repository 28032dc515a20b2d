#include "CoreBench.h"

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CoreRegistration : public testing::Test, public CoreBench {
protected:
    CoreRegistration() { Begin(); }
};

TEST_F(CoreRegistration, AnIdentityIsConfirmed) {
    EXPECT_THAT(Ask(Connect(), "register", RegisterParams("a::b::c", "")),
                ElementsAre(R"(ok {"application":"a::b::c","server":"run","change":0})"));
}

TEST_F(CoreRegistration, AnIdentityInUseIsRefusedAndItsHolderNamed) {
    const auto holder = Connect(4711);
    Call(holder, "register", RegisterParams("a::b::c", R"("events":true)"));
    const auto second = Connect(4712);
    EXPECT_THAT(Ask(second, "register", RegisterParams("a::b::c", "")),
                ElementsAre("error 2: a::b::c is in use by process 4711 (connection 1)"));
    Set(second, 2001, "1");
    Take(holder);
    EXPECT_THAT(Ask(second, "getValue", R"({"id":2001})"), ElementsAre("value 1")); // goes on unregistered
    EXPECT_THAT(Ask(Connect(), "register", RegisterParams("a::b::d", "")), ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreRegistration, ADeadHolderIsReleasedAtOnce) {
    const auto holder = Register("a::b::c");
    dead.insert(holder);
    EXPECT_THAT(Ask(Connect(), "register", RegisterParams("a::b::c", "")), ElementsAre(HasSubstr("ok")));
    Set(Connect(), 2001, "1");
    EXPECT_THAT(Take(holder), IsEmpty());
}

TEST_F(CoreRegistration, AnIdentityIsFreeAfterItsConnectionEnded) {
    const auto holder = Register("a::b::c");
    core.OnDisconnected(holder, now);
    EXPECT_THAT(Ask(Connect(), "register", RegisterParams("a::b::c", "")), ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreRegistration, AConnectionMayRegisterAgain) {
    const auto client = Register("a::b::c");
    EXPECT_THAT(Ask(client, "register", RegisterParams("a::b::c", "")), ElementsAre(HasSubstr("a::b::c")));
    EXPECT_THAT(Ask(client, "register", RegisterParams("a::b::d", "")), ElementsAre(HasSubstr("a::b::d")));
    EXPECT_THAT(Ask(Connect(), "register", RegisterParams("a::b::c", "")), ElementsAre(HasSubstr("ok")));
}

TEST_F(CoreRegistration, PartsThatCouldLeaveTheStateDirectoryAreRefused) {
    const auto client = Connect();
    EXPECT_THAT(Ask(client, "register", R"({"name":"a","type":"b","instance":"../x"})"),
                ElementsAre(HasSubstr("error -32602: member 'instance' must have 1 to 64 letters")));
    EXPECT_THAT(Ask(client, "register", R"({"name":"a::b","type":"b","instance":"c"})"),
                ElementsAre(HasSubstr("error -32602: member 'name'")));
    EXPECT_THAT(Ask(client, "register", R"({"name":"a","type":"","instance":"c"})"),
                ElementsAre(HasSubstr("error -32602: member 'type'")));
    EXPECT_THAT(
        Ask(client, "register", R"({"name":"a","type":"b","instance":")" + std::string(65, 'x') + "\"}"),
        ElementsAre(HasSubstr("error -32602")));
}

TEST_F(CoreRegistration, TheConfigurationIsTheAskersOwnView) {
    const auto configuration = [&](Connection client) {
        return Ask(client, "getConfiguration", R"({"scope":1})");
    };
    EXPECT_THAT(
        configuration(Register("p::field::KNX")),
        ElementsAre(
            R"(ok {"ipc":{"DeviceId":"device-id","DeviceStackConfigPath":"/etc/project",)"
            R"("UserDataPath":"/state/p+field+KNX"},"device":"house","server":"run","version":"1.2.3"})"));
    EXPECT_THAT(configuration(Register("p::field::2")), ElementsAre(HasSubstr("/state/p+field+2")));
    EXPECT_THAT(configuration(Connect()), ElementsAre(testing::Not(HasSubstr("UserDataPath"))));
    EXPECT_THAT(Ask(Connect(), "getConfiguration", R"({"scope":2})"), ElementsAre(HasSubstr("error -32602")));
}

} // namespace
} // namespace DeviceStackServer
