// Fixture for the KNX side on its own.
#pragma once

#include "PrivateMembers.h"
#include "World.h"

/// An application program that has a client, plug-ins and group communication, but no start running.
class KnxHandlerTest : public World {
protected:
    using KnxHandler = DscKnxAppPrg::KnxHandler;
    using OpMode = KnxHandler::OpMode;

    ~KnxHandlerTest() override {
        handler.StopClock(); // it uses the client
        (program.*Reach(PrivateMembers::Disconnect()))();
    }

    /// Connects, loads the plug-ins `names` and sets the KNX side up; the record then is empty.
    void SetUpWith(std::initializer_list<const char*> names) {
        RegisterPlugins(names);
        (program.*Reach(PrivateMembers::Connect()))();
        (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
        handler.Init(hub, DscKnxAppPrg::CallerEntryPoint::Init);
        recorder.Clear();
    }

    /// The same, and what the start does to tell data points by URN of the device "house".
    void SetUpWithUrns(std::initializer_list<const char*> names) {
        plugins[*names.begin()].useUrns = true;
        stack.urns[1000] = "urn:oxn:dp:house";
        SetUpWith(names);
        handler.InitFromDynamicHandlers();
        recorder.Clear();
    }

    DscKnxAppPrg program;
    KnxHandler& handler = program.*Reach(PrivateMembers::KnxHandler());
    KNXDPT dpt;
};
