#include "FakeDeviceStack.h"

#include "Recorder.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <stdexcept>
#include <thread>

namespace TestSupport {

namespace {

std::atomic<FakeDeviceStack*> s_current = nullptr;

/// A thread that runs what it is given, in order. Its end waits for all of it.
class CallbackThread {
public:
    explicit CallbackThread(Recorder& recorder) : m_thread([this, &recorder] { Run(recorder); }) {}
    ~CallbackThread() {
        {
            const std::lock_guard lock(m_mutex);
            m_ending = true;
        }
        m_posted.notify_all();
        m_thread.join();
    }

    void Post(std::function<void()> task) {
        {
            const std::lock_guard lock(m_mutex);
            m_tasks.push_back(std::move(task));
        }
        m_posted.notify_all();
    }

private:
    void Run(Recorder& recorder) {
        recorder.NameThisThread("client");
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_posted.wait(lock, [this] { return m_ending || !m_tasks.empty(); });
            if (m_tasks.empty())
                return;
            const std::function<void()> task = std::move(m_tasks.front());
            m_tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_posted;
    std::deque<std::function<void()>> m_tasks; // under m_mutex
    bool m_ending = false;                     // under m_mutex
    std::thread m_thread;                      // last: uses the others
};

class Error : public Vesk::IDeviceStackClient::IError {
public:
    explicit Error(int code = 0) : m_code(code) {}
    int GetCode() const override { return m_code; }
    std::string GetText() const override { return m_code != 0 ? "refused by the test" : ""; }

private:
    int m_code;
};

thread_local std::string t_lastError;

} // namespace

class FakeDeviceStack::Client : public Vesk::IDeviceStackClient {
public:
    Client(FakeDeviceStack& stack, Recorder& recorder)
        : m_stack(stack), m_recorder(recorder), m_callbacks(std::make_unique<CallbackThread>(recorder)) {
        m_recorder.Add("client created");
    }

    ~Client() override {
        m_closing = true;
        m_recorder.Add("client is being destroyed");
        {
            const std::lock_guard lock(m_stack.m_mutex);
            m_stack.m_client = nullptr;
        }
        m_callbacks.reset();
        m_recorder.Add("client destroyed");
    }

    void SetClientMode(int mode) override {
        Record("SetClientMode", std::to_string(mode));
        Enter("SetClientMode");
    }
    void InstallEventHandler(IEventHandler* handler, void* ctx) override {
        Record("InstallEventHandler", handler != nullptr ? "handler" : "null");
        Enter("InstallEventHandler");
        eventHandler = handler;
        eventContext = ctx;
    }
    void InstallResponseHandler(IResponseHandler* handler, void* ctx) override {
        Record("InstallResponseHandler", handler != nullptr ? "handler" : "null");
        Enter("InstallResponseHandler");
        responseHandler = handler;
        responseContext = ctx;
    }
    void InstallFieldHandler(IFieldHandlerWithUrn* handler, void* ctx) override {
        Record("InstallFieldHandler", handler != nullptr ? "handler" : "null");
        Enter("InstallFieldHandler");
        fieldHandler = handler;
        fieldContext = ctx;
    }
    bool RegisterApplication(const std::string& name, const std::string& type,
                             const std::string& instance) override {
        Record("RegisterApplication", name + ", " + type + ", " + instance);
        if (!Enter("RegisterApplication"))
            return false;
        const std::lock_guard lock(m_stack.m_mutex);
        m_stack.m_client = this; // callbacks may come from now on
        return true;
    }
    void SetValueFormat(const std::string& format) override {
        Record("SetValueFormat", format);
        Enter("SetValueFormat");
    }
    std::string Command(const std::string& json) override {
        Record("Command", json);
        return Enter("Command") ? ResponseTo(json) : std::string();
    }
    bool Command(const std::string& json, std::string& response, int timeoutSeconds) override {
        Record("Command", json + ", " + std::to_string(timeoutSeconds) + " s");
        if (!Enter("Command"))
            return false;
        response = ResponseTo(json);
        return true;
    }
    bool GetConfiguration(int scope, std::string& json) override {
        Record("GetConfiguration", std::to_string(scope));
        if (!Enter("GetConfiguration") || !m_stack.configuration)
            return false;
        json = *m_stack.configuration;
        return true;
    }
    void SetConfiguration(const std::map<std::string, std::string>& settings) override {
        std::string text;
        for (const auto& [key, value] : settings)
            text += (text.empty() ? "" : ", ") + key + "=" + value;
        Record("SetConfiguration", text);
        Enter("SetConfiguration");
    }
    std::string SetValue(TAVOBJECTID id, const std::string& text, bool readInternal, bool response) override {
        Record("SetValue",
               std::to_string(id) + ", '" + text + "', " + Flag(readInternal) + ", " + Flag(response));
        return Enter("SetValue") ? "request" : "";
    }
    bool GetValue(TAVOBJECTID id, std::string& text, bool readInternal) override {
        Record("GetValue", std::to_string(id) + ", " + Flag(readInternal));
        const auto value = m_stack.values.find(id);
        if (!Enter("GetValue") || value == m_stack.values.end())
            return false;
        text = value->second;
        return true;
    }
    std::string GetValueRequest(TAVOBJECTID id, int readInternal) override {
        Record("GetValueRequest", std::to_string(id) + ", " + std::to_string(readInternal));
        return Enter("GetValueRequest") ? "request" : "";
    }
    std::string GetUrn(TAVOBJECTID id, int flags) override {
        Record("GetUrn", std::to_string(id) + ", " + std::to_string(flags));
        const auto urn = m_stack.urns.find(id);
        return Enter("GetUrn") && urn != m_stack.urns.end() ? urn->second : "";
    }
    TAVOBJECTID GetId(const std::string& urn) override {
        Record("GetId", urn);
        if (!Enter("GetId"))
            return 0;
        for (const auto& [id, known] : m_stack.urns) {
            if (known == urn)
                return id;
        }
        return 0;
    }
    std::string GetLastError() override { return t_lastError; }

    void Post(std::function<void()> callback) { m_callbacks->Post(std::move(callback)); }

    IEventHandler* eventHandler = nullptr;
    void* eventContext = nullptr;
    IResponseHandler* responseHandler = nullptr;
    void* responseContext = nullptr;
    IFieldHandlerWithUrn* fieldHandler = nullptr;
    void* fieldContext = nullptr;

private:
    static const char* Flag(bool flag) { return flag ? "1" : "0"; }

    void Record(const char* operation, const std::string& arguments) {
        m_recorder.Add(std::string("client ") + operation + "(" + arguments + ")");
    }

    bool Enter(const char* operation) {
        const bool works = m_stack.faults.Enter(operation);
        InterruptionPoint(m_recorder, "client", operation);
        if (m_closing)
            m_recorder.Add(std::string("client ") + operation + " refused");
        t_lastError = works && !m_closing ? "" : "refused by the test";
        return works && !m_closing;
    }

    std::string ResponseTo(const std::string& command) const {
        const auto response = m_stack.responses.find(command);
        return response != m_stack.responses.end() ? response->second : "{}";
    }

    FakeDeviceStack& m_stack;
    Recorder& m_recorder;
    std::atomic<bool> m_closing = false;
    std::unique_ptr<CallbackThread> m_callbacks;
};

FakeDeviceStack::FakeDeviceStack(Recorder& recorder) : m_recorder(recorder) {
    s_current = this;
}

FakeDeviceStack::~FakeDeviceStack() {
    s_current = nullptr;
}

std::unique_ptr<Vesk::IDeviceStackClient> FakeDeviceStack::MakeClient() {
    FakeDeviceStack* const stack = s_current;
    if (stack == nullptr || !stack->faults.Enter("CreateDeviceStackClient"))
        return nullptr;
    return std::make_unique<Client>(*stack, stack->m_recorder);
}

template <typename Call>
std::future<bool> FakeDeviceStack::Post(Call call) {
    const std::lock_guard lock(m_mutex);
    if (m_client == nullptr)
        throw std::logic_error("no application is connected");
    auto task = std::make_shared<std::packaged_task<bool()>>(
        [client = m_client, call = std::move(call)] { return call(*client); });
    std::future<bool> answer = task->get_future();
    m_client->Post([task] { (*task)(); });
    return answer;
}

std::future<bool> FakeDeviceStack::ValueChanged(Id id, std::string urn, std::string value) {
    return Post([=](Client& client) {
        return client.eventHandler->OnValueChanged(client.eventContext, id, urn, value, "test::field::1");
    });
}

std::future<bool> FakeDeviceStack::ReadValue(Id id, std::string urn) {
    return Post(
        [=](Client& client) { return client.fieldHandler->OnReadValue(client.fieldContext, id, urn); });
}

std::future<bool> FakeDeviceStack::WriteValue(Id id, std::string value, std::string urn) {
    return Post([=](Client& client) {
        return client.fieldHandler->OnWriteValue(client.fieldContext, id, value, urn);
    });
}

std::future<bool> FakeDeviceStack::AnswerGetValue(Id id, std::string urn, std::string value, int errorCode) {
    return Post([=](Client& client) {
        client.responseHandler->OnGetValue(client.responseContext, "request", id, urn, value,
                                           Error(errorCode));
        return true;
    });
}

std::future<bool> FakeDeviceStack::ConfigurationChanged(std::string key, std::string value) {
    return Post([key = std::move(key), value = std::move(value)](Client& client) {
        return client.eventHandler->OnConfigurationChanged(client.eventContext, 0, key, value);
    });
}

std::future<bool> FakeDeviceStack::ApplicationEvent(std::string sender, std::string message) {
    return Post([sender = std::move(sender), message = std::move(message)](Client& client) {
        return client.eventHandler->OnApplicationEvent(client.eventContext, sender, message);
    });
}

std::future<bool> FakeDeviceStack::EveryOtherCallback() {
    return Post([](Client& client) {
        Vesk::IDeviceStackClient::IEventHandler& events = *client.eventHandler;
        Vesk::IDeviceStackClient::IResponseHandler& answers = *client.responseHandler;
        void* const ctx = client.responseContext;
        const Error none;
        const bool handled = events.OnValueChanged(client.eventContext, 1, "value") &&
                             events.OnDeviceDiscovery(client.eventContext, 1, "name", "value");
        events.OnConnectionLost();
        events.OnStateChanged(client.eventContext, 1);
        events.OnRestart(client.eventContext);
        events.OnTimeChanged(client.eventContext);
        answers.OnResponse(ctx, "request", "response", none);
        answers.OnRegisterApplication(ctx, "request", none);
        answers.OnGetConfiguration(ctx, "request", "{}", none);
        answers.OnSetConfiguration(ctx, "request", none);
        answers.OnSetValue(ctx, "request", 1, "urn", "value", none);
        return handled;
    });
}

void* FakeDeviceStack::EventContext() const {
    const std::lock_guard lock(m_mutex);
    return m_client != nullptr ? m_client->eventContext : nullptr;
}

void* FakeDeviceStack::ResponseContext() const {
    const std::lock_guard lock(m_mutex);
    return m_client != nullptr ? m_client->responseContext : nullptr;
}

void* FakeDeviceStack::FieldContext() const {
    const std::lock_guard lock(m_mutex);
    return m_client != nullptr ? m_client->fieldContext : nullptr;
}

} // namespace TestSupport

std::unique_ptr<Vesk::IDeviceStackClient> Vesk::CreateDeviceStackClient() {
    return TestSupport::FakeDeviceStack::MakeClient();
}
