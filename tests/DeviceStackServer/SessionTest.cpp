#include "DeviceStackServer/Session.h"

#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace DeviceStackServer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SessionTest : public testing::Test, public ISessionOwner {
protected:
    SessionTest() {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        peer = ends[1];
        Session::Socket socket(context);
        socket.assign(boost::asio::local::stream_protocol(), ends[0]);
        session = std::make_shared<Session>(std::move(socket), 1, *this);
        session->Start();
    }

    ~SessionTest() override {
        if (peer >= 0)
            ::close(peer);
        session->Close();
    }

    void Say(const std::string& lines) {
        EXPECT_EQ(::send(peer, lines.data(), lines.size(), MSG_NOSIGNAL), static_cast<ssize_t>(lines.size()));
    }

    /// Everything that can be done without waiting.
    void Run() {
        context.restart();
        while (context.poll() > 0) {
        }
    }

    // ISessionOwner
    void OnLine(Session&, std::string_view line) override {
        heard.emplace_back(line);
        onLine(heard.back());
    }
    void OnLineTooLong(Session&) override {}
    void OnClosed(Session&, const std::string& reason) override { closed.push_back(reason); }
    bool IsWaiting(Session&) override { return false; }

    boost::asio::io_context context;
    int peer = -1;
    std::shared_ptr<Session> session;
    std::function<void(const std::string&)> onLine = [](const std::string&) {};
    std::vector<std::string> heard;
    std::vector<std::string> closed;
};

TEST_F(SessionTest, AMessageThatFailsEndsItsConnectionAndNothingElse) {
    onLine = [](const std::string& line) {
        if (line == "b")
            throw std::runtime_error("out of something");
    };
    Say("a\nb\nc\n");
    Run();
    EXPECT_THAT(heard, ElementsAre("a", "b"));
    EXPECT_THAT(closed, ElementsAre("a message of it was not carried out: out of something"));
    EXPECT_TRUE(session->WasCutOff());
    char byte = 0;
    EXPECT_LE(::recv(peer, &byte, 1, MSG_DONTWAIT), 0); // the peer sees it at once
    EXPECT_EQ(::send(peer, "d\n", 2, MSG_NOSIGNAL), -1);
}

TEST_F(SessionTest, APausedConnectionIsHeardWhereItWasLeft) {
    onLine = [this](const std::string& line) {
        if (line == "b")
            session->SetPaused(true);
    };
    Say("a\nb\nc\n");
    Run();
    Say("d\n");
    Run();
    EXPECT_THAT(heard, ElementsAre("a", "b"));
    session->SetPaused(false);
    EXPECT_THAT(heard, ElementsAre("a", "b")); // later, not from inside
    Run();
    EXPECT_THAT(heard, ElementsAre("a", "b", "c", "d"));
    EXPECT_THAT(closed, IsEmpty());
}

TEST_F(SessionTest, APauseThatComesWhileNothingIsSaidHoldsToo) {
    Run();
    session->SetPaused(true);
    Say("a\n");
    Run();
    EXPECT_THAT(heard, IsEmpty());
    session->SetPaused(false);
    Run();
    EXPECT_THAT(heard, ElementsAre("a"));
}

TEST_F(SessionTest, WhatAPausedPeerSaidBeforeItLeftIsHeard) {
    session->SetPaused(true);
    Say("a\nb\n");
    ::shutdown(peer, SHUT_WR);
    Run();
    EXPECT_THAT(heard, IsEmpty());
    session->SetPaused(false);
    Run();
    EXPECT_THAT(heard, ElementsAre("a", "b"));
    EXPECT_THAT(closed, ElementsAre("the peer has finished"));
}

TEST_F(SessionTest, WhatAPausedPeerSaidBeforeItDiedIsHeard) {
    onLine = [this](const std::string& line) {
        if (line == "a")
            session->SetPaused(true);
    };
    Say("a\nb\n");
    Run();
    EXPECT_THAT(heard, ElementsAre("a"));
    ::close(std::exchange(peer, -1));
    session->Send(std::make_shared<const std::string>("answer\n"), IEnvironment::Kind::Answer);
    Run();
    EXPECT_THAT(heard, ElementsAre("a", "b"));
    EXPECT_THAT(closed, ElementsAre("the peer has left"));
}

} // namespace
} // namespace DeviceStackServer
