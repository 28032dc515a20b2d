// What a KNX stack host offers to its application program.
#pragma once

#include "KnxStack/IApplicationProgram.h"

#include <map>
#include <string>

namespace KnxStack {

class IApplicationProgramMemory;
class IDownloadService;
class IGroupValueService;
class IPropertyService;

/// The host's side of an application program. The hub and everything it hands out stay at their address until
/// the program was deleted; a download changes their content, never their place.
class IApiHub {
public:
    virtual ~IApiHub() = default;

    /// The program reports its start-up state. Any thread, also inside a lifecycle call; the hub only takes
    /// note and acts later on a thread of its own.
    virtual void OnApplicationProgramStartupStateChanged(IApplicationProgram::StartupState state) = 0;

    /// The start-up query: true when a download has ended with a device restart that the program has not yet
    /// been told of, so that OnDeviceRestart follows this Init. Called from Init.
    virtual bool IsDeviceRestartPending() = 0;

    /// The settings that the host's configuration keeps for the program, key to value. Any thread.
    virtual std::map<std::string, std::string> GetApplicationProgramSettings() = 0;

    /// Group communication; null when the host has none. Borrowed. Called from Init.
    virtual IGroupValueService* GetGroupValueService() = 0;

    /// The memory block of application program 1; null when the device has none. Borrowed. Called from Init.
    virtual IApplicationProgramMemory* GetApplicationProgramMemory() = 0;

    /// Interface objects and their properties; null when the host has none, and Init then fails. Borrowed.
    /// Called from Init.
    virtual IPropertyService* GetPropertyService() = 0;

    /// The data of the last download. Called on the program's start-up thread.
    virtual IDownloadService& GetDownloadService() = 0;

    /// The application program `applicationProgram` (1 is the first) has taken over after a device restart;
    /// `error` 0 means without error. Called on the program's start-up thread; only takes note.
    virtual void OnApplicationProgramRestarted(unsigned applicationProgram, unsigned error) = 0;
};

} // namespace KnxStack
