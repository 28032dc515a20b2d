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
    /// False when the start goes on once the device stack has the project that a download handler made.
    bool RunDownloadHandler() const;
    UpdateAppState ExecuteDownloadHandler() const;

    DscKnxAppPrg& m_appPrg;
    KnxStack::IApiHub& m_hub;
    std::shared_ptr<ThreadControl> m_control;
    const std::uint64_t m_start; // this one's number; a thread that comes late reports nothing for another
};

/// The end of a configuration change, once the device stack has the new project. Nobody joins its thread.
class DscKnxAppPrg::ConfigurationChangeCaller {
public:
    ConfigurationChangeCaller(DscKnxAppPrg& appPrg, std::uint64_t start) : m_appPrg(appPrg), m_start(start) {}

    void operator()() const { m_appPrg.FinishConfigurationChange(m_start); }

private:
    DscKnxAppPrg& m_appPrg;
    const std::uint64_t m_start;
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
