// Data of the last ETS download.
#pragma once

namespace KnxStack {

class BinaryData;

/// Gives the application program the application data that the last download left in the device.
class IDownloadService {
public:
    virtual ~IDownloadService() = default;

    /// The application data; empty before the first download. An unchanging snapshot that a download replaces
    /// and that stays valid, as the memory of IApplicationProgramMemory does. Any thread.
    virtual const BinaryData& GetApplicationData() = 0;
};

} // namespace KnxStack
