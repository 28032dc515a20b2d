#include "DeviceStackClient/Callbacks.h"

#include "DeviceStackClient/Logger.h"
#include "DeviceStackClient/ThreadStart.h"

#include <exception>
#include <string>
#include <utility>

namespace DeviceStackClient {

namespace {

template <typename... Handlers>
struct Overloaded : Handlers... {
    using Handlers::operator()...;
};
template <typename... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

using Queue = LastValueQueue<Event>;

/// Beyond the bound, events of the same key replace each other.
Queue::Key KeyOf(const Event& event) {
    const auto key = [&](std::uint32_t id) { return (Queue::Key{event.index()} + 1) << 33 | id; };
    constexpr Queue::Key write = Queue::Key{1} << 32;
    return std::visit(Overloaded{
                          [&](const DeviceStack::ValueChanged& e) { return key(e.id); },
                          [&](const SetAnswer& e) { return key(e.id); },
                          [&](const ConnectionLost&) { return key(0); },
                          [&](const FieldRequest& e) {
                              if (const auto* read = std::get_if<DeviceStack::ReadValue>(&e.what))
                                  return key(read->id);
                              return key(std::get<DeviceStack::WriteValue>(e.what).id) | write;
                          },
                          [](const auto&) { return Queue::kNoKey; },
                      },
                      event);
}

bool IsAnswer(const Event& event) {
    return std::holds_alternative<ValueAnswer>(event) || std::holds_alternative<SetAnswer>(event) ||
           std::holds_alternative<SetConfigurationAnswer>(event) ||
           std::holds_alternative<RegistrationAnswer>(event);
}

/// An answer's error as handlers see it.
class AnswerError final : public Vesk::IDeviceStackClient::IError {
public:
    explicit AnswerError(const DeviceStack::Error& error) : m_error(error) {}
    int GetCode() const override { return m_error.code; }
    std::string GetText() const override { return m_error.message; }

private:
    const DeviceStack::Error& m_error;
};

} // namespace

Callbacks::Callbacks(Answer answer)
    : m_answer(std::move(answer)), m_thread(StartThread("DscClientCb", [this] { Run(); })) {}

Callbacks::~Callbacks() {
    Stop();
}

template <typename Handler>
void Callbacks::Install(Installed<Handler>& place, Handler* handler, void* ctx) {
    std::unique_lock lock(m_mutex);
    place = {handler, ctx};
    if (std::this_thread::get_id() == m_thread.get_id())
        return;
    m_changed.wait(lock, [this, begun = m_callbacksBegun] { return m_callbacksEnded >= begun; });
}

template void Callbacks::Install(Installed<IEventHandler>&, IEventHandler*, void*);
template void Callbacks::Install(Installed<IResponseHandler>&, IResponseHandler*, void*);
template void Callbacks::Install(Installed<IFieldHandler>&, IFieldHandler*, void*);

bool Callbacks::HasEventHandler() const {
    const std::lock_guard lock(m_mutex);
    return m_eventHandler.handler != nullptr;
}

bool Callbacks::HasFieldHandler() const {
    const std::lock_guard lock(m_mutex);
    return m_fieldHandler.handler != nullptr;
}

void Callbacks::Push(Event event) {
    std::optional<Event> displaced;
    bool first = false;
    {
        const std::lock_guard lock(m_mutex);
        if (m_stop)
            return;
        if (IsAnswer(event) && m_responseHandler.handler == nullptr)
            return;
        const auto key = KeyOf(event);
        displaced = m_queue.Push(key, std::move(event));
        first = displaced && m_dropped++ == 0;
    }
    m_changed.notify_all();
    if (first)
        LOG4CPLUS_WARN(Logger(), "Push(): the application does not take its events; "
                                     << kBound << " wait, and of each data point only the last one is kept.");
    if (!displaced)
        return;
    if (const auto* request = std::get_if<FieldRequest>(&*displaced))
        m_answer(*request, false);
}

void Callbacks::Stop() {
    if (!m_thread.joinable())
        return;
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void Callbacks::Run() {
    std::unique_lock lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_stop || !m_queue.IsEmpty(); });
        if (m_stop)
            return;
        const Event event = m_queue.Pop();
        if (m_queue.IsEmpty() && m_dropped > 0) {
            LOG4CPLUS_INFO(Logger(), "Run(): the application takes its events again; "
                                         << m_dropped << " older ones were dropped.");
            m_dropped = 0;
        }
        lock.unlock();
        Deliver(event);
        lock.lock();
    }
}

/// Calls one handler, if there is one. False also when it throws.
template <typename Handler, typename Function>
bool Callbacks::Call(const Installed<Handler>& place, const Function& call, const char* name) {
    Installed<Handler> installed;
    {
        const std::lock_guard lock(m_mutex);
        installed = place;
        if (installed.handler == nullptr)
            return false;
        ++m_callbacksBegun;
    }
    bool result = false;
    try {
        result = call(*installed.handler, installed.ctx);
    } catch (const std::exception& e) {
        LOG4CPLUS_ERROR(Logger(), name << "(): the application threw: " << e.what());
    } catch (...) {
        LOG4CPLUS_ERROR(Logger(), name << "(): the application threw something unknown.");
    }
    {
        const std::lock_guard lock(m_mutex);
        ++m_callbacksEnded;
    }
    m_changed.notify_all();
    return result;
}

void Callbacks::AskOwner(const FieldRequest& request) {
    if (request.connection != m_connection)
        return;
    const auto* read = std::get_if<DeviceStack::ReadValue>(&request.what);
    const auto* write = std::get_if<DeviceStack::WriteValue>(&request.what);
    const auto call = [&](IFieldHandler& h, void* ctx) {
        return read != nullptr ? h.OnReadValue(ctx, read->id, read->urn)
                               : h.OnWriteValue(ctx, write->id, write->value, write->urn);
    };
    m_answer(request, Call(m_fieldHandler, call, read != nullptr ? "OnReadValue" : "OnWriteValue"));
}

void Callbacks::Deliver(const Event& event) {
    std::visit(
        Overloaded{
            [this](const DeviceStack::ValueChanged& e) {
                const auto call = [&](IEventHandler& h, void* ctx) {
                    return h.OnValueChanged(ctx, e.id, e.urn, e.value, e.origin);
                };
                if (!Call(m_eventHandler, call, "OnValueChanged"))
                    LOG4CPLUS_DEBUG(Logger(), "OnValueChanged(): not handled. Object ID = " << e.id);
            },
            [this](const DeviceStack::ConfigurationChanged& e) {
                const auto call = [&](IEventHandler& h, void* ctx) {
                    return h.OnConfigurationChanged(ctx, e.id, e.key, e.value);
                };
                if (!Call(m_eventHandler, call, "OnConfigurationChanged"))
                    LOG4CPLUS_DEBUG(Logger(), "OnConfigurationChanged(): not handled. Key = " << e.key);
            },
            [this](const DeviceStack::ApplicationEvent& e) {
                const auto call = [&](IEventHandler& h, void* ctx) {
                    return h.OnApplicationEvent(ctx, e.sender, e.message);
                };
                if (!Call(m_eventHandler, call, "OnApplicationEvent"))
                    LOG4CPLUS_DEBUG(Logger(), "OnApplicationEvent(): not handled. Sender = " << e.sender);
            },
            [this](const ConnectionLost&) {
                const auto call = [](IEventHandler& h, void*) { return h.OnConnectionLost(), true; };
                Call(m_eventHandler, call, "OnConnectionLost");
            },
            [this](const FieldRequest& e) { AskOwner(e); },
            [this](const ValueAnswer& e) {
                const auto call = [&](IResponseHandler& h, void* ctx) {
                    return h.OnGetValue(ctx, e.request, e.id, e.urn, e.value, AnswerError(e.error)), true;
                };
                Call(m_responseHandler, call, "OnGetValue");
            },
            [this](const SetAnswer& e) {
                const auto call = [&](IResponseHandler& h, void* ctx) {
                    return h.OnSetValue(ctx, e.request, e.id, "", e.value, AnswerError(e.error)), true;
                };
                Call(m_responseHandler, call, "OnSetValue");
            },
            [this](const SetConfigurationAnswer& e) {
                const auto call = [&](IResponseHandler& h, void* ctx) {
                    return h.OnSetConfiguration(ctx, e.request, AnswerError(e.error)), true;
                };
                Call(m_responseHandler, call, "OnSetConfiguration");
            },
            [this](const RegistrationAnswer& e) {
                const auto call = [&](IResponseHandler& h, void* ctx) {
                    return h.OnRegisterApplication(ctx, e.request, AnswerError(e.error)), true;
                };
                Call(m_responseHandler, call, "OnRegisterApplication");
            },
        },
        event);
}

} // namespace DeviceStackClient
