// The host as control clients see it, and the group monitor. Internal to the host.
#pragma once

#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Control/ControlServer.h"
#include "KnxStackHost/Control/TelegramText.h"
#include "KnxStackHost/Device/DeviceManagement.h"
#include "KnxStackHost/Links/BusRouter.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KnxStackHost {

/// Carries out what control clients ask for. Tells them of telegrams, and the log at level DEBUG, in the same
/// words. All calls on the thread of the io_context.
class HostControl final : private ControlTarget {
public:
    struct Sources {
        std::function<DeviceStatus()> device;
        std::function<LinksStatus()> links;
    };

    /// Opens the socket, when the configuration has one. What is passed by reference outlives this object,
    /// but the configuration. Throws LinkError.
    HostControl(boost::asio::io_context& context, const Configuration& configuration,
                DeviceManagement& management, BusRouter& router, Sources sources);

    void Start();
    void Stop();

    /// Names and datapoint types are these from now on.
    void SetAddressBook(AddressBook book) { m_addressBook = std::move(book); }

    void OnTelegram(const KnxFrames::LData& telegram, Origin origin);

private:
    DeviceStatus GetDeviceStatus() const override { return m_sources.device(); }
    LinksStatus GetLinksStatus() const override { return m_sources.links(); }
    void SetProgrammingMode(bool on) override { m_management.SetProgrammingMode(on); }
    std::string SendToGroup(const KnxFrames::LData& telegram) override;
    std::string Inject(const KnxFrames::LData& telegram) override;

    void Report(const char* what, const KnxFrames::LData& telegram);
    std::string TextOf(Origin origin) const;

    const std::vector<KnxFrames::IndividualAddress> m_tunnels;
    const char* const m_bus; // how the bus is reached
    DeviceManagement& m_management;
    BusRouter& m_router;
    const Sources m_sources;
    AddressBook m_addressBook;
    LinePace m_lines{20};
    std::optional<ControlServer> m_server;
};

} // namespace KnxStackHost
