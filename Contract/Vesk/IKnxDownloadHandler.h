// Plug-in that turns an ETS download into the device's own configuration.
#pragma once

#include "Vesk/KnxAppPrg.h"

#include <functional>

namespace KnxStack {
class BinaryData;
}

namespace Vesk {

/// Makes a file in the device's own form from what a download left in the KNX stack. Implemented by a shared
/// library that exports CreateHandler and DeleteHandler as for IKnxAppPrgHandler, with this interface, and is
/// listed in "knxappprghandlers.xml" under the application program name "dscknxdownload". Libraries are
/// loaded for one download and unloaded after it; everything is called on the program's start-up thread.
class IKnxDownloadHandler {
public:
    /// What the application program says of itself.
    struct AppData {
        bool configurationChangeRaised =
            false; ///< a configuration change is already announced and not finished
    };

    virtual ~IKnxDownloadHandler() = default;

    /// Start-up check, called once after CreateHandler. False makes the loading of all plug-ins fail.
    virtual bool Initialize() = 0;

    /// Creates the file. True ends the walk over the plug-ins. A plug-in calls `announce` once it is sure
    /// that the project will change; it is empty for every plug-in but the first, so it must be tested before
    /// the call. All references are borrowed for the call.
    virtual bool CreateFileWithKnxData(const KnxAppPrg::InterfaceObjectMap& interfaceObjects,
                                       const KnxStack::BinaryData& data, std::function<void()> announce,
                                       AppData appData,
                                       const KnxAppPrg::CoDescriptorDataMap& coDescriptors) = 0;
};

} // namespace Vesk
