// The client's callback thread: the only place where an application's handlers are called.
#pragma once

#include "DeviceStackClient/Events.h"
#include "DeviceStackClient/LastValueQueue.h"

#include "Vesk/IDeviceStackClient.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace DeviceStackClient {

/// Delivers events in order, one at a time, without a lock held. A handler that hangs stops nobody else:
/// beyond kBound waiting events only the last one of each data point is kept.
class Callbacks {
public:
    using IEventHandler = Vesk::IDeviceStackClient::IEventHandler;
    using IResponseHandler = Vesk::IDeviceStackClient::IResponseHandler;
    using IFieldHandler = Vesk::IDeviceStackClient::IFieldHandlerWithUrn;
    /// Tells the device stack how a FieldRequest went. Called without a lock held.
    using Answer = std::function<void(const FieldRequest&, bool handled)>;

    static constexpr std::size_t kBound = 10'000;

    /// Starts the thread.
    explicit Callbacks(Answer answer);
    ~Callbacks();
    Callbacks(const Callbacks&) = delete;
    Callbacks& operator=(const Callbacks&) = delete;

    /// Each returns when no callback of the former handler is running, unless called from a callback. Null
    /// removes.
    void Install(IEventHandler* handler, void* ctx) { Install(m_eventHandler, handler, ctx); }
    void Install(IResponseHandler* handler, void* ctx) { Install(m_responseHandler, handler, ctx); }
    void Install(IFieldHandler* handler, void* ctx) { Install(m_fieldHandler, handler, ctx); }
    bool HasEventHandler() const;
    bool HasFieldHandler() const;

    /// Never waits. Any thread.
    void Push(Event event);

    /// Field requests of other connections are void from now on. Any thread.
    void SetConnection(std::uint64_t connection) { m_connection = connection; }

    /// Drops what waits, and returns when the running callback has ended and the thread with it. A second
    /// call does nothing.
    void Stop();

private:
    template <typename Handler>
    struct Installed {
        Handler* handler = nullptr;
        void* ctx = nullptr;
    };

    template <typename Handler>
    void Install(Installed<Handler>& place, Handler* handler, void* ctx);

    void Run();
    void Deliver(const Event& event);
    void AskOwner(const FieldRequest& request);
    template <typename Handler, typename Function>
    bool Call(const Installed<Handler>& place, const Function& call, const char* name);

    const Answer m_answer;
    std::atomic<std::uint64_t> m_connection{0};

    // Under m_mutex.
    mutable std::mutex m_mutex;
    std::condition_variable m_changed; ///< an event came, a callback ended, or stop
    LastValueQueue<Event> m_queue{kBound};
    Installed<IEventHandler> m_eventHandler;
    Installed<IResponseHandler> m_responseHandler;
    Installed<IFieldHandler> m_fieldHandler;
    std::uint64_t m_callbacksBegun = 0;
    std::uint64_t m_callbacksEnded = 0;
    std::uint64_t m_dropped = 0; ///< events, since the queue was last empty
    bool m_stop = false;

    std::thread m_thread; ///< last: it uses all of the above
};

} // namespace DeviceStackClient
