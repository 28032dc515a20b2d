// Sockets and timers of the host.
#pragma once

#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Control/ControlTarget.h"
#include "KnxStackHost/Control/TelegramText.h"
#include "KnxStackHost/Device/DeviceManagement.h"
#include "KnxStackHost/Links/BusRouter.h"
#include "KnxStackHost/Program/GroupValueService.h"

#include <functional>
#include <memory>
#include <stdexcept>

namespace KnxStackHost {

/// A socket that cannot be opened as configured; what() is "place: cause" with the place in the
/// configuration file.
class LinkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Everything that waits for the network: the KNXnet/IP server, the connection to the interface, their
/// timers, and the signals of the process. Run() is its thread. Nothing here ever waits for the program.
class LinkThread final : public BusOutlet {
public:
    /// What the outside world asks of the host. Called on the thread of Run().
    struct Requests {
        std::function<void()> reload;              ///< SIGHUP
        std::function<void()> restartDevice;       ///< SIGUSR1
        std::function<void()> terminate;           ///< SIGTERM or SIGINT
        std::function<DeviceStatus()> status = {}; ///< a control client; only with Configuration::control
    };

    explicit LinkThread(const Configuration& configuration);
    ~LinkThread() override;

    /// Opens the sockets; telegrams are routed between tunnels, interface, device, its `management` and
    /// `toProgram` once Run() is entered. `objects` and `management` outlive this object. Throws LinkError.
    void Open(const KnxDevice::GroupObjects& objects, DeviceManagement& management,
              std::function<void(Callback)> toProgram, Requests requests);

    /// A telegram of the device's management to the bus. Thread of Run().
    void SendFromDevice(const KnxFrames::LData& telegram);

    /// Reads the values of the group objects with flag I from the bus, as soon as somebody is on it. Thread
    /// of Run().
    void BeginStartupReads();

    /// The device has another address, or something else that clients are told of it. Thread of Run().
    void OnDeviceChanged();

    /// Names and datapoint types in the monitor are these from now on. Any thread.
    void SetAddressBook(AddressBook book);

    /// UDP port that the server listens on; 0 without a server.
    std::uint16_t Port() const;

    /// Begins to receive and to connect; what comes in waits for Run().
    void Start();

    /// Serves until Close() has closed the links.
    void Run();

    /// Ends every tunnel and the connection to the interface with a DISCONNECT_REQUEST, then Run(). Any
    /// thread.
    void Close();

    /// Calls `work` on the thread of Run(), unless that has returned before. Any thread.
    void Post(std::function<void()> work);

    /// Calls `late` on the thread of Run() after `delay`, unless that has returned before. Any thread.
    void After(std::chrono::milliseconds delay, std::function<void()> late);

    bool Submit(const KnxFrames::LData& telegram, std::uint16_t sender) override;

private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

} // namespace KnxStackHost
