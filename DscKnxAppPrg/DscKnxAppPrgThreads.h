// The bodies of the worker threads.
#pragma once

#include "DscKnxAppPrg.h"

#include <memory>

/// The rest of a start, after Init or OnDeviceRestart has returned. Everything that may end it early goes
/// through Running(), which is also where an interruption takes effect; calls into the hub and the client run
/// to their own end.
class DscKnxAppPrg::InitCaller {
public:
    InitCaller(DscKnxAppPrg& appPrg, KnxStack::IApiHub& hub, std::shared_ptr<ThreadControl> control);

    void operator()() const;

private:
    bool Running() const;
    void Start() const;
    void ApplyNtpPolicy() const;

    DscKnxAppPrg& m_appPrg;
    KnxStack::IApiHub& m_hub;
    std::shared_ptr<ThreadControl> m_control;
};

/// Waits for read responses. No operation of the program starts it.
class DscKnxAppPrg::ResponseQueueCaller {
public:
    ResponseQueueCaller(DscKnxAppPrg& appPrg, std::shared_ptr<ThreadControl> control);

    void operator()() const;

private:
    DscKnxAppPrg& m_appPrg;
    std::shared_ptr<ThreadControl> m_control;
};
