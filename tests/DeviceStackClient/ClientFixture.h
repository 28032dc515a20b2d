// A client of the real library, connected to a device stack that the test plays.
#pragma once

#include "FakeDeviceStack.h"
#include "Recorder.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>
#include <utility>

/// Starts a call on a thread of its own, so that the test can play the device stack meanwhile.
template <typename Function>
auto Begin(Function function) {
    return std::async(std::launch::async, std::move(function));
}

class ConnectedClient : public testing::Test {
protected:
    /// Before the connection ends: no callback comes when what a test's callbacks use is gone.
    void TearDown() override { m_client.reset(); }

    /// Installs the recorder and registers as a::field::1.
    void Register(std::string_view server = "run1", unsigned change = 0) {
        m_recorder.InstallIn(*m_client);
        auto registered = Begin([&] { return m_client->RegisterApplication("a", "field", "1"); });
        m_connection.AcceptRegistration(server, change);
        EXPECT_TRUE(registered.get());
    }

    FakeDeviceStack m_deviceStack;
    Recorder m_recorder;
    std::unique_ptr<Vesk::IDeviceStackClient> m_client = Vesk::CreateDeviceStackClient();
    FakeConnection m_connection = m_deviceStack.Accept();
};
