// Handlers that write down what they are called with, one text per call, in order.
#pragma once

#include "Vesk/IDeviceStackClient.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

class Recorder final : public Vesk::IDeviceStackClient::IEventHandler,
                       public Vesk::IDeviceStackClient::IResponseHandler,
                       public Vesk::IDeviceStackClient::IFieldHandlerWithUrn {
public:
    using Id = Vesk::IDeviceStackClient::TAVOBJECTID;
    using Error = Vesk::IDeviceStackClient::IError;

    /// Called for each record after it was written down, on the callback thread; its result is the
    /// callback's. To be set before the handlers are installed.
    std::function<bool(const std::string& record)> then = [](const std::string&) { return true; };

    void InstallIn(Vesk::IDeviceStackClient& client) {
        client.InstallEventHandler(this, this);
        client.InstallResponseHandler(this, this);
        client.InstallFieldHandler(this, this);
    }

    /// Waits until there are `count` records.
    std::vector<std::string> Wait(std::size_t count) {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, std::chrono::seconds(20), [&] { return m_records.size() >= count; }))
            throw std::runtime_error("only " + std::to_string(m_records.size()) + " callbacks");
        return m_records;
    }

    std::vector<std::string> Get() {
        const std::lock_guard lock(m_mutex);
        return m_records;
    }

    bool OnValueChanged(void* ctx, Id id, const std::string& urn, const std::string& value,
                        const std::string& origin) override {
        return Record(ctx, "changed " + std::to_string(id) + " " + urn + " " + value + " " + origin);
    }
    using IEventHandler::OnValueChanged;
    bool OnConfigurationChanged(void* ctx, Id id, const std::string& key, const std::string& value) override {
        return Record(ctx, "configuration " + std::to_string(id) + " " + key + " " + value);
    }
    bool OnDeviceDiscovery(void* ctx, Id, const std::string&, const std::string&) override {
        return Record(ctx, "discovery");
    }
    void OnConnectionLost() override { Record(this, "lost"); }
    bool OnApplicationEvent(void* ctx, const std::string& sender, const std::string& message) override {
        return Record(ctx, "event " + sender + " " + message);
    }

    void OnResponse(void* ctx, const std::string&, const std::string&, const Error&) override {
        Record(ctx, "response");
    }
    void OnRegisterApplication(void* ctx, const std::string&, const Error& error) override {
        Record(ctx, "registered" + Text(error));
    }
    void OnGetConfiguration(void* ctx, const std::string&, const std::string&, const Error&) override {
        Record(ctx, "got configuration");
    }
    void OnSetConfiguration(void* ctx, const std::string&, const Error& error) override {
        Record(ctx, "set configuration" + Text(error));
    }
    void OnGetValue(void* ctx, const std::string& request, Id id, const std::string& urn,
                    const std::string& value, const Error& error) override {
        Record(ctx, "got " + request + " " + std::to_string(id) + " " + urn + " " + value + Text(error));
    }
    void OnSetValue(void* ctx, const std::string& request, Id id, const std::string&,
                    const std::string& value, const Error& error) override {
        Record(ctx, "set " + request + " " + std::to_string(id) + " " + value + Text(error));
    }

    bool OnReadValue(void* ctx, Id id, const std::string& urn) override {
        return Record(ctx, "read " + std::to_string(id) + " " + urn);
    }
    bool OnWriteValue(void* ctx, Id id, const std::string& value, const std::string& urn) override {
        return Record(ctx, "write " + std::to_string(id) + " " + value + " " + urn);
    }

private:
    static std::string Text(const Error& error) {
        return error.GetCode() == 0 ? ""
                                    : " error " + std::to_string(error.GetCode()) + ": " + error.GetText();
    }

    bool Record(void* ctx, std::string record) {
        if (ctx != this)
            record += " with a foreign context";
        {
            const std::lock_guard lock(m_mutex);
            m_records.push_back(record);
        }
        m_changed.notify_all();
        return then(record);
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_records;
};
