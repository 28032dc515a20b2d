// What a KNX stack host drives: an application program loaded from a shared library.
#pragma once

#include <cstdint>

namespace KnxStack {

class IApiHub;

/// An application program. The host finds three C functions in the library,
///
///     KnxStack::IApplicationProgram* createApplicationProgram();
///     void deleteApplicationProgram(KnxStack::IApplicationProgram*);   // null is allowed
///     unsigned getKnxStackApiVersion();
///
/// refuses the library unless the version is kApiVersion, makes one object, and then calls: Init once, any
/// number of OnDeviceRestart, Exit once, deleteApplicationProgram. All calls come on one thread, one at a
/// time. A program whose Init returned Failed, or that was exited, is not used again: a retry makes a new
/// object. The host owns the object between the two functions and keeps the library loaded for good.
///
/// Failures are results. Still any of the calls may throw, when the system refuses a lock or memory or when
/// something that the host handed out throws: the host catches everything and takes it for Failed or false.
/// What a plug-in throws while it is loaded or asked in the background does not come out of these calls.
class IApplicationProgram {
public:
    /// Version of this interface that getKnxStackApiVersion() answers.
    static constexpr unsigned kApiVersion = 23;

    /// Progress of a start as the host sees it. The numbers are part of the interface.
    enum class StartupState : std::uint32_t {
        Failed = 0,  ///< start-up could not begin, or the program was exited
        Running = 1, ///< configured and running
        InProgress =
            2, ///< start-up goes on in the background; Running or Failed is reported to the hub later
    };

    virtual ~IApplicationProgram() = default;

    /// Starts the program. InProgress when the rest of the start goes on in the background, Failed when it
    /// could not begin (Exit is still to be called). Waits for the device stack, up to 3 s for the
    /// registration and up to 2 s for the device configuration, and then for the plug-ins, each of which is
    /// loaded and makes its start-up check: 5 s and what the plug-ins take. `hub` must outlive the object.
    /// Group value callbacks may come as soon as the program has registered for them; a host that wants order
    /// holds them until the program reports a final state.
    virtual StartupState Init(IApiHub& hub) = 0;

    /// The device was restarted after a download: tables, memory and application data are new. Called only
    /// after an Init that returned InProgress. Result as for Init. Waits up to 5 s for a start that is still
    /// running; connects anew only when there is no device stack client, and then waits as Init does.
    virtual StartupState OnDeviceRestart() = 0;

    /// Stops background work and leaves the services that Init took from the hub. True on success. Waits up
    /// to 5 s for a start that is still running, then for the callbacks that are running: group value
    /// callbacks and those of the device stack client. deleteApplicationProgram waits up to 3 s more for a
    /// start that could not be stopped, and else leaves the object in memory.
    virtual bool Exit() = 0;
};

} // namespace KnxStack
