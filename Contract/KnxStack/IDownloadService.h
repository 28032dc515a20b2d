// Data of the last ETS download.
#pragma once

namespace KnxStack {

class BinaryData;

/// Gives the application program the application data that the last download left in the device.
class IDownloadService {
public:
    virtual ~IDownloadService() = default;

    /// The application data; empty before the first download. An unchanging snapshot: the reference is valid
    /// until the next OnDeviceRestart or until the program is deleted. Any thread.
    virtual const BinaryData& GetApplicationData() = 0;
};

} // namespace KnxStack
