// A device stack client that knows nothing but the device's clock.
#pragma once

#include "Recorder.h"

#include "Vesk/IDeviceStackClient.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

/// Answers every question for a value with `time`, after `onGetValue`, and keeps what is written, after
/// `onSetValue`. The fields are to be set while nobody asks.
class ClockClient : public Vesk::IDeviceStackClient {
public:
    explicit ClockClient(std::string now) : time(std::move(now)) {}

    std::string time;
    std::function<void()> onGetValue = [] {};
    std::function<void()> onSetValue = [] {};

    /// Waits until somebody has asked. False when nobody does within Recorder::kPatience.
    bool WaitForQuestion() {
        std::unique_lock lock(m_mutex);
        return m_asked.wait_for(lock, TestSupport::Recorder::kPatience, [this] { return m_questions != 0; });
    }
    unsigned Questions() const {
        const std::lock_guard lock(m_mutex);
        return m_questions;
    }
    std::vector<std::string> Written() const {
        const std::lock_guard lock(m_mutex);
        return m_written;
    }

    bool GetValue(TAVOBJECTID, std::string& text, bool) override {
        {
            const std::lock_guard lock(m_mutex);
            ++m_questions;
            m_asked.notify_all();
        }
        onGetValue();
        text = time;
        return true;
    }
    std::string SetValue(TAVOBJECTID, const std::string& text, bool, bool) override {
        onSetValue();
        const std::lock_guard lock(m_mutex);
        m_written.push_back(text);
        return "request";
    }

    void SetClientMode(int) override {}
    void InstallEventHandler(IEventHandler*, void*) override {}
    void InstallResponseHandler(IResponseHandler*, void*) override {}
    void InstallFieldHandler(IFieldHandlerWithUrn*, void*) override {}
    bool RegisterApplication(const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    void SetValueFormat(const std::string&) override {}
    std::string Command(const std::string&) override { return {}; }
    bool Command(const std::string&, std::string&, int) override { return false; }
    bool GetConfiguration(int, std::string&) override { return false; }
    void SetConfiguration(const std::map<std::string, std::string>&) override {}
    std::string GetValueRequest(TAVOBJECTID, int) override { return {}; }
    std::string GetUrn(TAVOBJECTID, int) override { return {}; }
    TAVOBJECTID GetId(const std::string&) override { return 0; }
    std::string GetLastError() override { return {}; }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_asked;
    unsigned m_questions = 0;           // under m_mutex
    std::vector<std::string> m_written; // under m_mutex
};
