// Client of the device stack, the data point server.
#pragma once

#include "Tav/Export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Vesk {

/// Connection of one application to the device stack.
///
/// Every operation may be called from any thread, also several at once and from inside a callback: a call is
/// completed independently of callbacks that are running. Operations that wait say for how long; after one
/// time-out the waiting ones fail at once until the device stack answers again. A lost connection is restored
/// without the application's doing: mode, handlers, registration, value format and the last announcements are
/// repeated. All texts are UTF-8; values are in the "native" text form of TAVVALUE.
///
/// The destructor refuses new calls, lets pending ones fail at once, and returns when no callback is running
/// any more. It must not run inside a callback.
class IDeviceStackClient {
public:
    using TAVOBJECTID = std::uint32_t; ///< data point ID; 0 is none

    /// An answer's error. Borrowed for the callback.
    class IError {
    public:
        virtual ~IError() = default;
        virtual int GetCode() const = 0; ///< 0 = no error
        virtual std::string GetText() const = 0;
    };

    /// Told of what happens in the device stack. `ctx` is what was given to InstallEventHandler(). All
    /// callbacks of a client come on one thread of the client, in order, and an exception out of one is
    /// caught and logged. A result of true means handled or deliberately ignored; it is only logged.
    class IEventHandler {
    public:
        virtual ~IEventHandler() = default;

        /// A data point was written by another application, `origin` ("name::type::instance"), also with a
        /// value equal to the former one.
        virtual bool OnValueChanged(void* ctx, TAVOBJECTID id, const std::string& urn,
                                    const std::string& value, const std::string& origin) = 0;
        /// Older form without URN; a client that knows the first form never calls it.
        virtual bool OnValueChanged(void*, TAVOBJECTID, const std::string&) { return true; }

        /// A part of the configuration, named by `key`, changed; `value` says how it went ("ok" or the
        /// cause).
        virtual bool OnConfigurationChanged(void* ctx, TAVOBJECTID id, const std::string& key,
                                            const std::string& value) = 0;
        /// The device stack found a device, known by data point `id` under `name`; `value` says what it is.
        /// For device stacks that look for devices; ours does not, and its client never calls it.
        virtual bool OnDeviceDiscovery(void* ctx, TAVOBJECTID id, const std::string& name,
                                       const std::string& value) = 0;
        /// The connection to the device stack ended, after the application had been registered. Nothing is to
        /// be done: the client restores it, and what changed meanwhile is told then.
        virtual void OnConnectionLost() = 0;

        /// Another application sent an event with a message; `sender` is that application's name. Events
        /// without a message, such as "configurationLoaded", are for the device stack and not told here.
        virtual bool OnApplicationEvent(void* ctx, const std::string& sender, const std::string& message) = 0;

        /// The device stack's own state changed, it is about to restart, its clock was set. For device stacks
        /// that announce these apart; ours tells them as changes of data points 1003 and 1005 and as a lost
        /// connection, and its client never calls these.
        virtual void OnStateChanged(void*, int) {}
        virtual void OnRestart(void*) {}
        virtual void OnTimeChanged(void*) {}
    };

    /// Told of the answers to requests that do not wait; `ctx` is what was given to InstallResponseHandler(),
    /// `request` the text that the request returned. A request has one answer, also when the connection is
    /// lost before, but none when a newer value of the same data point took its place in a full queue or when
    /// the client is destroyed first. On the same thread and under the same rules as IEventHandler.
    class IResponseHandler {
    public:
        virtual ~IResponseHandler() = default;
        /// To a command that did not wait, and to a request for the configuration that did not wait. This
        /// interface has neither: never called by our client.
        virtual void OnResponse(void* ctx, const std::string& request, const std::string& response,
                                const IError& error) = 0;
        /// To a registration that RegisterApplication() had given up waiting for, and to each one that is
        /// repeated after a lost connection. `request` is the client's own.
        virtual void OnRegisterApplication(void* ctx, const std::string& request, const IError& error) = 0;
        virtual void OnGetConfiguration(void* ctx, const std::string& request, const std::string& json,
                                        const IError& error) = 0;
        /// To SetConfiguration(), which returns no text: `request` is the client's own.
        virtual void OnSetConfiguration(void* ctx, const std::string& request, const IError& error) = 0;
        /// To GetValueRequest(). With an error there is no value: `value` is "", and `urn` may be.
        virtual void OnGetValue(void* ctx, const std::string& request, TAVOBJECTID id, const std::string& urn,
                                const std::string& value, const IError& error) = 0;
        /// To SetValue(). `value` is the text that was to be set, also with an error, which then says why it
        /// was not; `urn` is "" where the client does not know it.
        virtual void OnSetValue(void* ctx, const std::string& request, TAVOBJECTID id, const std::string& urn,
                                const std::string& value, const IError& error) = 0;
    };

    /// Asked as the owner of data points; `ctx` is what was given to InstallFieldHandler(). On the same
    /// thread and under the same rules as IEventHandler; an exception counts as false.
    class IFieldHandlerWithUrn {
    public:
        virtual ~IFieldHandlerWithUrn() = default;
        /// Somebody wants the value. True: it follows as a SetValue() within 2 s. False: who asked is told at
        /// once that there is no value.
        virtual bool OnReadValue(void* ctx, TAVOBJECTID id, const std::string& urn) = 0;
        /// Somebody writes the value. True: taken; it becomes the data point's value, and its change is told
        /// to everybody else. False: the write fails, and the value stays what it was.
        /// Note the order: the value stands before the URN here, behind it in OnValueChanged().
        virtual bool OnWriteValue(void* ctx, TAVOBJECTID id, const std::string& value,
                                  const std::string& urn) = 0;
    };

    virtual ~IDeviceStackClient() = default;

    /// 1: callbacks come on a thread of the client. No other mode is offered.
    virtual void SetClientMode(int mode) = 0;

    /// Handlers are borrowed until replaced or until the client is destroyed; null removes. To be installed
    /// before RegisterApplication(). An application with a field handler emits the event
    /// "configurationLoaded" when it is ready: it is told of changes and asked for values from 1.5 s after
    /// that; changes before are held for it, the last of each data point.
    virtual void InstallEventHandler(IEventHandler* handler, void* ctx) = 0;
    virtual void InstallResponseHandler(IResponseHandler* handler, void* ctx) = 0;
    virtual void InstallFieldHandler(IFieldHandlerWithUrn* handler, void* ctx) = 0;

    /// Registers under the identity `name::type::instance`. Waits up to 3 s for the device stack. False when
    /// it is not there or a living connection holds the identity; GetLastError() tells. After a failure for
    /// want of a connection the registration is still made as soon as there is one.
    virtual bool RegisterApplication(const std::string& name, const std::string& type,
                                     const std::string& instance) = 0;

    /// Form of value texts; "Native" is the only one.
    virtual void SetValueFormat(const std::string& format) = 0;

    /// Sends a command, a JSON object with a member "command"; returns the response as JSON, "" on failure.
    /// Waits up to 2 s.
    virtual std::string Command(const std::string& json) = 0;

    /// The same with a time-out in seconds; false on failure, and `response` is then untouched.
    virtual bool Command(const std::string& json, std::string& response, int timeoutSeconds) = 0;

    /// The device configuration as JSON. `scope` 1: the calling application's own view, an object "ipc" with
    /// "DeviceId", "DeviceStackConfigPath" and "UserDataPath". Waits up to 2 s; on false `json` is untouched.
    virtual bool GetConfiguration(int scope, std::string& json) = 0;

    /// Changes settings of the device stack, e.g. "Ntp" to "true" or "false". Does not wait.
    virtual void SetConfiguration(const std::map<std::string, std::string>& settings) = 0;

    /// Sets a data point. Sent in order, without waiting: beyond a bounded queue only the last value of each
    /// data point is kept. `readInternal` true: recorded as the value itself, no application is asked to
    /// write it. `response` true: it answers a read, so no command is triggered by it. Null with both flags
    /// marks the value invalid. Returns the request's text, "" when the client is going down.
    virtual std::string SetValue(TAVOBJECTID id, const std::string& text, bool readInternal,
                                 bool response) = 0;

    /// Gets a data point. `readInternal` true: the stored value. False: the stored value if there is one,
    /// else its owner is asked, never the caller. Waits up to 1 s. False when there is no value; `text` is
    /// then untouched.
    virtual bool GetValue(TAVOBJECTID id, std::string& text, bool readInternal) = 0;

    /// Asks for a value without waiting; the answer comes through IResponseHandler::OnGetValue().
    /// `readInternal` 1 or 0 as in GetValue(). Returns the request's text, "" on failure.
    virtual std::string GetValueRequest(TAVOBJECTID id, int readInternal) = 0;

    /// The full URN of a data point; "" when unknown. Waits up to 1 s. `flags` is 0.
    virtual std::string GetUrn(TAVOBJECTID id, int flags) = 0;

    /// The ID of the data point with the full URN; 0 when unknown. Waits up to 1 s.
    virtual TAVOBJECTID GetId(const std::string& urn) = 0;

    /// Why the last operation of the calling thread failed; "" when it did not.
    virtual std::string GetLastError() = 0;
};

/// A new client, not yet connected; null when none can be made. It looks for the device stack at the socket
/// named by the environment variable DEVICESTACK_SOCKET, else /run/devicestack/devicestack.sock.
TAV_EXPORT std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient();

} // namespace Vesk
