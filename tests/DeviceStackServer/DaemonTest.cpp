// What clients of the started daemon see.
#include "DaemonText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace DeviceStackServer {
namespace {

using testing::HasSubstr;

class DaemonTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(daemon.Start()) << daemon.Log(); }

    Daemon daemon{kDaemonProject};
};

TEST_F(DaemonTest, ServesRawLines) {
    RawClient writer(daemon.Socket());
    RawClient listener(daemon.Socket());
    EXPECT_EQ(Text(listener.Register("listen"), "/result/application"), "listen::test::1");
    EXPECT_EQ(Text(writer.Call("setValue", R"({"name":"Plain","value":"5"})"), "/result/change"), "1");
    const auto changed = listener.ReceiveJson();
    EXPECT_EQ(Text(changed, "/method"), "valueChanged");
    EXPECT_EQ(Text(changed, "/params/value"), "5");
    EXPECT_EQ(Text(changed, "/params/origin"), "connection#1");
    EXPECT_EQ(Text(listener.Call("getValue", R"({"id":2001})"), "/result/value"), "5");
}

TEST_F(DaemonTest, RefusesAValueThatItsTypeDoesNotHave) {
    RawClient client(daemon.Socket());
    const auto answer = client.Call("setValue", R"({"name":"Plain","value":"256"})");
    EXPECT_EQ(Text(answer, "/error/code"), "4");
    EXPECT_THAT(Text(answer, "/error/message"), HasSubstr("5.010"));
}

TEST_F(DaemonTest, AnswersSeveralLinesInOnePieceAndOneLineInSeveral) {
    RawClient client(daemon.Socket());
    client.Send("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"getUrn\",\"params\":{\"id\":1000}}\n"
                "{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"getUrn\",\"par");
    EXPECT_EQ(Text(client.ReceiveJson(), "/id"), "1");
    client.Send("ams\":{\"id\":2001}}\n");
    EXPECT_EQ(Text(client.ReceiveJson(), "/result/urn"), "urn:oxn:dp:house:Plain");
}

TEST_F(DaemonTest, ALineThatIsNotJsonIsAnsweredAndTheConnectionGoesOn) {
    RawClient client(daemon.Socket());
    client.SendLine("hello");
    EXPECT_EQ(Text(client.ReceiveJson(), "/error/code"), "-32700");
    EXPECT_EQ(Text(client.Call("getUrn", R"({"id":1000})"), "/result/urn"), "urn:oxn:dp:house");
}

TEST_F(DaemonTest, ALineThatIsTooLongIsAnsweredAndTheConnectionClosed) {
    RawClient client(daemon.Socket());
    client.Send(std::string(1024 * 1024 + 1, 'x'));
    EXPECT_EQ(Text(client.ReceiveJson(), "/error/code"), "-32700");
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(DaemonTest, ALineOfTheGreatestLengthIsTaken) {
    RawClient client(daemon.Socket());
    RawClient listener(daemon.Socket());
    listener.Register("listen");
    const std::string head =
        R"({"jsonrpc":"2.0","id":1,"method":"command","params":{"command":{"command":"EmitEvent","eventType":"x","message":")";
    const std::string tail = "\"}}}";
    const std::string message(1024 * 1024 - head.size() - tail.size(), 'x');
    client.SendLine(head + message + tail);
    EXPECT_EQ(Text(client.ReceiveJson(), "/result/response/result"), "ok");
    EXPECT_EQ(Text(listener.ReceiveJson(), "/params/message"), message);
}

TEST_F(DaemonTest, AClientThatOnlyEndsItsInputGetsItsAnswers) {
    RawClient owner(daemon.Socket());
    owner.Register("own", R"("field":true,"startWindow":false)");
    RawClient client(daemon.Socket());
    client.SendLine(R"({"jsonrpc":"2.0","id":1,"method":"setValue","params":{"name":"Owned","value":"1"}})");
    client.EndSending();
    const auto asked = owner.ReceiveJson();
    ASSERT_EQ(Text(asked, "/method"), "writeValue");
    owner.SendLine(R"({"jsonrpc":"2.0","id":)" + Text(asked, "/id") + R"(,"result":{"handled":true}})");
    EXPECT_EQ(Text(client.ReceiveJson(), "/result/change"), "1");
    EXPECT_TRUE(client.IsClosed());
}

TEST_F(DaemonTest, AListenerThatOnlyEndsItsInputListensUntilItLeaves) {
    RawClient writer(daemon.Socket());
    {
        RawClient listener(daemon.Socket());
        listener.Register("listen");
        listener.EndSending();
        writer.Call("setValue", R"({"name":"Plain","value":"5"})");
        EXPECT_EQ(Text(listener.ReceiveJson(), "/params/value"), "5");
    }
    EXPECT_TRUE(Eventually(
        [&] { return daemon.Log().find("Connection 2 has ended: the peer has left") != std::string::npos; }));
}

TEST_F(DaemonTest, AnIdentityInUseNamesTheProcessThatHoldsIt) {
    RawClient holder(daemon.Socket());
    holder.Register("app");
    RawClient second(daemon.Socket());
    const auto answer = second.Register("app");
    EXPECT_EQ(Text(answer, "/error/code"), "2");
    EXPECT_THAT(Text(answer, "/error/message"), HasSubstr("process " + std::to_string(::getpid()) + " "));
}

TEST_F(DaemonTest, AKilledClientFreesItsIdentityAtOnceAndItsLastWordsCount) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        RawClient client(daemon.Socket());
        client.Register("app");
        client.SendLine(R"({"jsonrpc":"2.0","method":"setValue","params":{"id":2001,"value":"99"}})");
        [[maybe_unused]] const auto written = ::write(ready[1], "x", 1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    RawClient next(daemon.Socket());
    EXPECT_EQ(Text(next.Register("app"), "/result/application"), "app::test::1");
    EXPECT_EQ(Text(next.Call("getValue", R"({"id":2001})"), "/result/value"), "99");
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(DaemonTest, AClientThatDoesNotReadSlowsNobodyAndIsCutOff) {
    RawClient frozen(daemon.Socket());
    frozen.Register("frozen");
    RawClient reader(daemon.Socket());
    reader.Register("reader");
    RawClient writer(daemon.Socket());
    const std::string text(8000, 'x');
    bool cutOff = false;
    int rounds = 0;
    for (; rounds < 2000 && !cutOff; ++rounds) {
        const auto answer = writer.Call(
            "command", R"({"command":{"command":"EmitEvent","eventType":"x","message":")" + text + "\"}}");
        ASSERT_EQ(Text(answer, "/error"), "(none)");
        ASSERT_EQ(Text(reader.ReceiveJson(), "/method"), "applicationEvent");
        cutOff = daemon.Log().find("is cut off") != std::string::npos;
    }
    EXPECT_TRUE(cutOff);
    EXPECT_GT(rounds, 400); // 4 MiB are allowed
    EXPECT_THAT(daemon.Log(), HasSubstr("it does not read what it asked to be told"));
    RawClient again(daemon.Socket());
    EXPECT_EQ(Text(again.Register("frozen"), "/result/application"), "frozen::test::1");
}

TEST_F(DaemonTest, AClientThatOnlyAsksIsNeverCutOff) {
    RawClient greedy(daemon.Socket());
    RawClient other(daemon.Socket());
    const std::string line =
        R"({"jsonrpc":"2.0","id":1,"method":"command","params":{"command":{"command":"GetProcessView"}}})";
    // About 10 MB of answers; the requests fit into the socket's buffer.
    constexpr int kRequests = 4000;
    int sent = 0;
    std::string lines;
    for (; sent < kRequests; ++sent)
        lines += line + '\n';
    std::thread sender([&] { greedy.Send(lines); });
    EXPECT_EQ(Text(other.Call("getUrn", R"({"id":1000})"), "/result/urn"), "urn:oxn:dp:house");
    int received = 0;
    while (received < kRequests && greedy.Receive())
        ++received;
    sender.join();
    EXPECT_EQ(received, kRequests);
    EXPECT_THAT(daemon.Log(), testing::Not(HasSubstr("cut off")));
}

TEST_F(DaemonTest, AFrozenOwnerFailsItsWritersAndSlowsNobodyElse) {
    RawClient owner(daemon.Socket());
    owner.Register("own", R"("field":true,"startWindow":false)");
    RawClient writer(daemon.Socket());
    writer.SendLine(
        R"({"jsonrpc":"2.0","id":"w","method":"setValue","params":{"name":"Owned","value":"1"}})");
    EXPECT_EQ(Text(writer.Call("getUrn", R"({"id":1000})"), "/result/urn"), "urn:oxn:dp:house");
    const auto answer = writer.ReceiveJson();
    EXPECT_EQ(Text(answer, "/id"), "w");
    EXPECT_EQ(Text(answer, "/error/code"), "7");
}

TEST_F(DaemonTest, TheConfigurationNamesDirectoriesThatExist) {
    RawClient client(daemon.Socket());
    client.Register("app");
    const auto answer = client.Call("getConfiguration", R"({"scope":1})");
    EXPECT_EQ(Text(answer, "/result/ipc/DeviceId"), "generic");
    EXPECT_EQ(Text(answer, "/result/ipc/DeviceStackConfigPath"), daemon.directory.Path());
    const auto data = Text(answer, "/result/ipc/UserDataPath");
    EXPECT_EQ(data, daemon.directory / "state/app+test+1");
    EXPECT_TRUE(std::filesystem::is_directory(data));
}

TEST_F(DaemonTest, NoTwoIdentitiesShareADirectory) {
    std::set<std::string> paths;
    for (const auto* identity :
         {R"("name":"A","type":"a-b","instance":"c")", R"("name":"B","type":"a-b","instance":"c")",
          R"("name":"B","type":"a","instance":"b-c")", R"("name":"B-a","type":"b","instance":"c")"}) {
        RawClient client(daemon.Socket());
        client.Call("register", "{" + std::string(identity) + "}");
        paths.insert(Text(client.Call("getConfiguration", R"({"scope":1})"), "/result/ipc/UserDataPath"));
    }
    EXPECT_EQ(paths.size(), 4u);
}

TEST_F(DaemonTest, TheSocketHasTheModeOfTheConfiguration) {
    struct stat status {};
    ASSERT_EQ(::stat(daemon.Socket().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0660u);
}

TEST_F(DaemonTest, TooManyConnectionsAreRefused) {
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 256; ++i)
        clients.push_back(std::make_unique<RawClient>(daemon.Socket()));
    EXPECT_EQ(Text(clients.back()->Call("getUrn", R"({"id":1000})"), "/result/urn"), "urn:oxn:dp:house");
    RawClient oneMore(daemon.Socket());
    EXPECT_TRUE(oneMore.IsClosed());
    clients.pop_back();
    EXPECT_TRUE(Eventually([&] {
        RawClient next(daemon.Socket());
        return Text(next.Call("getUrn", R"({"id":1000})"), "/result/urn") == "urn:oxn:dp:house";
    }));
}

} // namespace
} // namespace DeviceStackServer
