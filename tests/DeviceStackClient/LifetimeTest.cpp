#include "ClientFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

/// A device stack in a process of its own: it takes every registration and answers every getUrn, so that it
/// can be stopped and killed.
class ChildDeviceStack {
public:
    explicit ChildDeviceStack(FakeDeviceStack& socket) : m_pid(::fork()) {
        if (m_pid == 0) {
            Serve(socket);
            ::_exit(0);
        }
    }
    ~ChildDeviceStack() { Kill(); }

    void Freeze() {
        ::kill(m_pid, SIGSTOP);
        int status = 0;
        ::waitpid(m_pid, &status, WUNTRACED);
    }
    void Thaw() { ::kill(m_pid, SIGCONT); }
    void Kill() {
        if (m_pid <= 0)
            return;
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        m_pid = 0;
    }

private:
    static void Serve(FakeDeviceStack& socket) {
        auto connection = socket.Accept();
        try {
            while (true) {
                const auto line = connection.ReadLine();
                const auto method = ReadMember(line, "method");
                connection.Reply(ReadMember(line, "id"),
                                 method == "\"register\""
                                     ? R"({"application":"a::b::c","server":"s","change":0})"
                                 : method == "\"getUrn\"" ? R"({"urn":"u"})"
                                                          : R"({"change":1})");
            }
        } catch (const std::exception&) {
            // the client has gone
        }
    }

    pid_t m_pid;
};

std::vector<std::string> ThreadNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(entry.path() / "comm");
        names.emplace_back();
        std::getline(file, names.back());
    }
    return names;
}

} // namespace

class TimeOuts : public ConnectedClient {};
class Lifetime : public ConnectedClient {};

TEST_F(TimeOuts, AfterOneCallsFailAtOnceUntilSomethingIsHeard) {
    Register();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(m_client->GetUrn(1, 0), "");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_EQ(m_client->GetLastError(), "the device stack gave no answer within 1000 ms");
    const auto id = m_connection.ReadRequest("getUrn");

    for (int i = 0; i < 100; ++i) {
        std::string text;
        EXPECT_FALSE(m_client->GetValue(1, text, true));
        EXPECT_EQ(m_client->GetLastError(), "the device stack does not answer");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    m_client->SetValue(1, "a", true, false); // waits for nothing and is sent

    m_connection.Reply(id, R"({"urn":"late"})"); // nobody waits for it, but it is a sign of life
    m_connection.SendValueChanged(1, "x", 1);
    m_recorder.Wait(1);
    m_connection.ReadRequest("getUrn"); // the client's own question
    m_connection.ReadRequest("setValue");
    auto got = Begin([&] { return m_client->GetUrn(2, 0); });
    m_connection.Reply(m_connection.ReadRequest("getUrn"), R"({"urn":"two"})");
    EXPECT_EQ(got.get(), "two");
}

TEST_F(TimeOuts, OneSlowAnswerDoesNotSilenceADeviceStackThatAnswersOthers) {
    Register();
    auto slow = Begin([&] {
        std::string text;
        return m_client->GetValue(1, text, false);
    });
    m_connection.ReadRequest("getValue");
    auto other = Begin([&] { return m_client->GetUrn(2, 0); });
    m_connection.Reply(m_connection.ReadRequest("getUrn"), R"({"urn":"two"})");
    EXPECT_EQ(other.get(), "two");
    EXPECT_FALSE(slow.get());
    auto next = Begin([&] { return m_client->GetUrn(3, 0); });
    m_connection.Reply(m_connection.ReadRequest("getUrn"), R"({"urn":"three"})");
    EXPECT_EQ(next.get(), "three");
}

TEST_F(TimeOuts, TheClientAsksByItselfWhetherTheDeviceStackIsAlive) {
    Register();
    EXPECT_EQ(m_client->GetUrn(1, 0), "");
    m_connection.ReadRequest("getUrn");
    EXPECT_THAT(m_connection.ReadLine(), testing::HasSubstr(R"("method":"getUrn","params":{"id":1000})"));
}

TEST_F(TimeOuts, AnAnnouncementToASilentDeviceStackIsSentAllTheSame) {
    Register();
    EXPECT_EQ(m_client->GetUrn(1, 0), "");
    EXPECT_EQ(m_client->Command(R"({"command":"EmitEvent","eventType":"configurationLoaded"})"), "");
    EXPECT_EQ(m_client->Command(R"({"command":"Restart","type":"Device"})"), "");
    m_connection.ReadRequest("getUrn");
    m_connection.ReadRequest("getUrn");
    EXPECT_THAT(m_connection.ReadLine(), testing::HasSubstr("configurationLoaded"));
    EXPECT_TRUE(m_connection.IsSilentFor(50ms));
}

TEST_F(TimeOuts, ACommandWaitsAsLongAsItIsTold) {
    Register();
    const auto begin = std::chrono::steady_clock::now();
    std::string response = "before";
    EXPECT_FALSE(m_client->Command(R"({"command":"ReloadProject"})", response, 2));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_EQ(m_client->GetLastError(), "the device stack gave no answer within 2000 ms");
    EXPECT_EQ(response, "before");
}

TEST(FrozenDeviceStack, NeverStopsAWriterAndIsTakenUpAgain) {
    FakeDeviceStack socket;
    ChildDeviceStack deviceStack(socket);
    Recorder recorder;
    const auto client = Vesk::CreateDeviceStackClient();
    client->InstallEventHandler(&recorder, &recorder);
    ASSERT_TRUE(client->RegisterApplication("a", "b", "c"));
    EXPECT_EQ(client->GetUrn(1, 0), "u");

    deviceStack.Freeze();
    for (unsigned i = 0; i < 50'000; ++i) // one that waited would wait for good
        EXPECT_NE(client->SetValue(i % 100, std::to_string(i), true, false), "");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(client->GetUrn(1, 0), "");
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(client->GetUrn(1, 0), "");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 9s); // one time-out of 1 s, not eleven

    deviceStack.Thaw();
    std::string urn;
    for (int i = 0; i < 200 && urn.empty(); ++i) {
        urn = client->GetUrn(1, 0);
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_EQ(urn, "u");
    EXPECT_THAT(recorder.Get(), ElementsAre());
}

TEST(KilledDeviceStack, FailsTheCallsAndNeverTheProcess) {
    FakeDeviceStack socket;
    ChildDeviceStack deviceStack(socket);
    Recorder recorder;
    const auto client = Vesk::CreateDeviceStackClient();
    client->InstallEventHandler(&recorder, &recorder);
    ASSERT_TRUE(client->RegisterApplication("a", "b", "c"));
    socket.StopListening();
    deviceStack.Freeze();
    auto call = Begin([&] {
        std::string response;
        return client->Command(R"({"command":"Restart"})", response, 60);
    });
    for (unsigned i = 0; i < 20'000; ++i)
        client->SetValue(i % 100, std::to_string(i), true, false); // the socket is full when its reader dies
    deviceStack.Kill();
    EXPECT_FALSE(call.get());
    EXPECT_THAT(recorder.Wait(1), ElementsAre("lost"));
    EXPECT_NE(client->SetValue(1, "x", true, false), "");
}

TEST_F(Lifetime, TheDestructorFailsPendingCallsAtOnce) {
    Register();
    std::vector<std::future<std::string>> calls;
    for (int i = 0; i < 4; ++i)
        calls.push_back(Begin([&] {
            std::string response;
            EXPECT_FALSE(m_client->Command(R"({"command":"Restart"})", response, 60));
            return response;
        }));
    for (int i = 0; i < 4; ++i)
        m_connection.ReadRequest("command");
    auto* client = m_client.get();
    auto late = Begin([client] { return client->RegisterApplication("a", "field", "1"); });
    EXPECT_TRUE(late.get());
    const auto begin = std::chrono::steady_clock::now();
    m_client.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
    for (auto& call : calls)
        EXPECT_EQ(call.get(), "");
    EXPECT_TRUE(m_connection.IsClosedWithin(5s));
}

TEST_F(Lifetime, TheDestructorFailsAPendingRegistration) {
    auto registered =
        Begin([client = m_client.get()] { return client->RegisterApplication("a", "field", "1"); });
    m_connection.ReadRequest("register");
    m_client.reset();
    EXPECT_FALSE(registered.get());
}

TEST_F(Lifetime, TheDestructorWaitsForTheRunningCallbackWhoseCallsFailAtOnce) {
    Register();
    std::promise<void> release;
    auto released = release.get_future().share();
    std::atomic<int> ended = 0;
    auto* client = m_client.get();
    m_recorder.then = [&, client, released](const std::string&) {
        released.wait();
        std::string text;
        const bool got = client->GetValue(1, text, true);
        const auto request = client->SetValue(1, "x", true, false);
        ended = got || !request.empty() ? -1 : 1;
        return true;
    };
    m_connection.SendValueChanged(1, "x", 1);
    m_connection.SendValueChanged(2, "y", 2);
    m_recorder.Wait(1);
    auto destroyed = Begin([&] {
        m_client.reset();
        return ended.load();
    });
    EXPECT_EQ(destroyed.wait_for(50ms), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(destroyed.get(), 1);
    EXPECT_EQ(m_recorder.Get().size(), 1u); // what waited behind it is not delivered any more
}

TEST_F(Lifetime, ValuesSetJustBeforeTheEndAreSent) {
    Register();
    for (int i = 0; i < 100; ++i)
        m_client->SetValue(1, std::to_string(i), true, false);
    m_client.reset();
    for (int i = 0; i < 100; ++i)
        EXPECT_THAT(m_connection.ReadLine(), testing::HasSubstr("\"value\":\"" + std::to_string(i) + "\""));
    EXPECT_TRUE(m_connection.IsClosedWithin(5s));
}

TEST_F(Lifetime, TheDestructorDoesNotWaitForADeviceStackThatReadsNothing) {
    Register();
    for (int i = 0; i < 10'000; ++i)
        m_client->SetValue(1, std::string(100, 'x'), true, false);
    const auto begin = std::chrono::steady_clock::now();
    m_client.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(Lifetime, ThreadsAreNamedAndGoneAfterwards) {
    EXPECT_THAT(ThreadNames(), Contains("DscClientIo"));
    EXPECT_THAT(ThreadNames(), Contains("DscClientCb"));
    m_client.reset();
    // A thread that was joined is listed for a moment still.
    const auto limit = std::chrono::steady_clock::now() + 10s;
    const auto gone = [](const auto& names) {
        return std::ranges::none_of(names,
                                    [](const std::string& name) { return name.starts_with("DscClient"); });
    };
    while (!gone(ThreadNames()) && std::chrono::steady_clock::now() < limit)
        std::this_thread::sleep_for(1ms);
    EXPECT_THAT(ThreadNames(), Not(Contains("DscClientIo")));
    EXPECT_THAT(ThreadNames(), Not(Contains("DscClientCb")));
}

TEST_F(Lifetime, NoDescriptorOfTheClientIsInheritedByAProgramThatIsStarted) {
    Register();
    int descriptors = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry.path(), error).string();
        if (error || (!target.starts_with("socket:") && target != "anon_inode:[eventfd]"))
            continue;
        ++descriptors;
        EXPECT_NE(::fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0) << target;
    }
    EXPECT_GE(descriptors, 3); // listening, both ends of the connection, the client's own
}

TEST_F(Lifetime, ConcurrentCallersGetTheirOwnAnswersWhileValuesAndEventsFlow) {
    Register();
    m_recorder.then = [&](const std::string& record) {
        if (record.starts_with("changed "))
            m_client->SetValue(1, "back", true, false);
        return true;
    };
    constexpr int kThreads = 4;
    constexpr int kCalls = 200;
    std::atomic<bool> ended = false;
    auto served = Begin([&] {
        unsigned change = 0;
        while (!ended || !m_connection.IsSilentFor(100ms)) {
            if (m_connection.IsSilentFor(10ms))
                continue;
            const auto line = m_connection.ReadLine();
            if (ReadMember(line, "method") == "\"setValue\"") {
                m_connection.Reply(ReadMember(line, "id"), R"({"change":1})");
                continue;
            }
            const auto id = ReadMember(ReadMember(line, "params"), "id");
            m_connection.SendValueChanged(1, "x", ++change);
            m_connection.Reply(ReadMember(line, "id"), R"({"urn":"urn )" + id + "\"}");
        }
    });
    std::vector<std::future<int>> callers;
    for (unsigned t = 0; t < kThreads; ++t)
        callers.push_back(Begin([&, t] {
            int right = 0;
            for (unsigned i = 0; i < kCalls; ++i) {
                const auto id = t * kCalls + i;
                right += m_client->GetUrn(id, 0) == "urn " + std::to_string(id) ? 1 : 0;
                m_client->SetValue(id, "v", true, false);
            }
            return right;
        }));
    for (auto& caller : callers)
        EXPECT_EQ(caller.get(), kCalls);
    ended = true;
    served.get();
    const auto records = m_recorder.Get();
    EXPECT_EQ(
        std::count_if(records.begin(), records.end(), [](auto& r) { return r.starts_with("changed "); }),
        kThreads * kCalls);
}

TEST_F(Lifetime, CallersSurviveADeviceStackThatComesAndGoes) {
    Register();
    std::atomic<bool> ended = false;
    std::vector<std::future<void>> callers;
    for (unsigned t = 0; t < 4; ++t)
        callers.push_back(Begin([&, t] {
            std::string text;
            while (!ended) {
                m_client->GetValue(t, text, true);
                m_client->SetValue(t, "v", true, false);
                m_client->GetValueRequest(t, 1);
                std::this_thread::sleep_for(1ms);
            }
        }));
    for (int i = 0; i < 3; ++i) {
        m_connection.Close();
        m_connection = m_deviceStack.Accept();
        m_connection.AcceptRegistration();
        for (int n = 0; n < 20; ++n)
            m_connection.ReadLine();
    }
    m_connection.Close(); // and no other one is accepted
    ended = true;
    for (auto& caller : callers)
        caller.get();
    m_client.reset();
    const auto records = m_recorder.Get();
    EXPECT_GE(std::count(records.begin(), records.end(), "lost"), 3);
}
