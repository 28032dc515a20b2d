#include "KnxStackHost/Device/DeviceManagement.h"

#include "KnxDevice/LoadedTables.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

namespace KnxStackHost {

using KnxDevice::DeviceChange;
using KnxDevice::LoadState;
using KnxDevice::StandardObject;
using KnxFrames::IndividualAddress;
using KnxStack::BinaryData;

namespace {

constexpr StandardObject kLoadables[] = {StandardObject::AddressTable, StandardObject::AssociationTable,
                                         StandardObject::GroupObjectTable, StandardObject::Program1,
                                         StandardObject::Program2};

constexpr StandardObject kTables[] = {StandardObject::AddressTable, StandardObject::AssociationTable,
                                      StandardObject::GroupObjectTable};

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Device");
    return logger;
}

} // namespace

DeviceManagement::DeviceManagement(const Configuration& configuration, KnxDevice::InterfaceObjects& objects)
    : m_device(configuration.MakeIdentity(), objects), m_management(m_device, *this),
      m_image(configuration.device.image) {
    objects.Load(configuration.interfaceObjects);
    const auto found = m_image.Read();
    m_hasImage = found.state || found.unreadable;
    if (found.state)
        m_device.Restore(*found.state);
    else if (!found.unreadable)
        Reconfigure({configuration.Definitions(), configuration.memory, configuration.applicationData, true});
    for (std::size_t index = 0; index < std::size(kLoadables); ++index)
        m_reported[index] = m_device.Loadable(kLoadables[index]).State();
    m_isLoaded = AreTablesLoaded();
    if (found.state)
        LOG4CPLUS_INFO(Log(),
                       fmt::format("the device is as its image {} says: {}, the application program {}",
                                   configuration.device.image, Address().ToString(),
                                   KnxDevice::ToString(m_reported[3])));
    m_device.SetListener([this](DeviceChange change) { OnChanged(change); });
}

DeviceManagement::~DeviceManagement() = default;

void DeviceManagement::Reconfigure(const LoadedDevice& described) {
    if (m_hasImage)
        return;
    const auto tables = KnxDevice::WriteLoadedTables(described.groupObjects);
    m_device.LoadWith(StandardObject::AddressTable, tables.addresses);
    m_device.LoadWith(StandardObject::AssociationTable, tables.associations);
    m_device.LoadWith(StandardObject::GroupObjectTable, tables.objects);
    m_device.LoadWith(StandardObject::Program1, described.memory.Bytes());
    m_device.LoadWith(StandardObject::Program2, described.applicationData.Bytes());
}

LoadedDevice DeviceManagement::Loaded() const {
    const auto octetsOf = [this](StandardObject object) {
        const auto& loadable = m_device.Loadable(object);
        return loadable.IsLoaded() ? BinaryData(loadable.Memory().octets) : BinaryData();
    };
    return {m_device.LoadedGroupObjects(), octetsOf(StandardObject::Program1),
            octetsOf(StandardObject::Program2), m_device.Loadable(StandardObject::Program1).IsLoaded()};
}

std::vector<std::pair<const char*, const char*>> DeviceManagement::LoadStates() const {
    std::vector<std::pair<const char*, const char*>> states;
    for (const auto object : kLoadables)
        states.emplace_back(KnxDevice::ToString(object),
                            KnxDevice::ToString(m_device.Loadable(object).State()));
    return states;
}

void DeviceManagement::OnProgramRestarted() {
    m_device.SetRestartPending(false);
}

void DeviceManagement::SendTelegram(const KnxFrames::LData& telegram) {
    m_outlets.send(telegram);
}

void DeviceManagement::OnRestart(KnxDevice::Erase erase, IndividualAddress by) {
    LOG4CPLUS_INFO(Log(), fmt::format("{} asked for a {}", by.ToString(), KnxDevice::ToString(erase)));
    Restart();
}

void DeviceManagement::Restart() {
    if (!m_hasImage) {
        m_outlets.restartedAsConfigured();
        return;
    }
    auto loaded = Loaded();
    if (loaded.isProgramLoaded)
        m_device.SetRestartPending(true);
    else
        LOG4CPLUS_WARN(Log(),
                       fmt::format("the application program is {}; it is told of no restart until a "
                                   "download has loaded it",
                                   KnxDevice::ToString(m_device.Loadable(StandardObject::Program1).State())));
    // A daemon that dies from here on finds the restart in its image.
    m_image.WhenWritten([this, loaded = std::make_shared<LoadedDevice>(std::move(loaded))] {
        m_outlets.restarted(std::move(*loaded));
    });
}

void DeviceManagement::OnConnection(IndividualAddress tool, bool open) {
    LOG4CPLUS_INFO(Log(), fmt::format("{} {} the device", tool.ToString(),
                                      open ? "has connected to" : "is disconnected from"));
}

void DeviceManagement::OnRefused(IndividualAddress tool, KnxFrames::Service service, const char* reason) {
    const auto verdict = m_refused.Count(tool.raw, reason);
    if (verdict != Notices::Verdict::Silent)
        LOG4CPLUS_WARN(Log(), fmt::format("{} from {} was refused: {}{}", KnxFrames::ToString(service),
                                          tool.ToString(), reason, Suffix(verdict)));
}

void DeviceManagement::OnChanged(DeviceChange change) {
    switch (change) {
    case DeviceChange::ProgrammingMode:
        LOG4CPLUS_INFO(Log(), fmt::format("programming mode is {}", IsInProgrammingMode() ? "on" : "off"));
        m_outlets.changed();
        return;
    case DeviceChange::Address:
        LOG4CPLUS_INFO(Log(),
                       fmt::format("the device has the individual address {} now", Address().ToString()));
        m_outlets.changed();
        break;
    case DeviceChange::LoadState:
        ReportLoadStates();
        m_outlets.changed();
        break;
    case DeviceChange::Stored: m_outlets.changed(); break;
    }
    Save();
}

void DeviceManagement::ReportLoadStates() {
    for (std::size_t index = 0; index < std::size(kLoadables); ++index) {
        const auto& loadable = m_device.Loadable(kLoadables[index]);
        const auto state = loadable.State();
        if (std::exchange(m_reported[index], state) == state)
            continue;
        if (state == LoadState::Error)
            LOG4CPLUS_ERROR(Log(),
                            fmt::format("{}: {}: {}", KnxDevice::ToString(kLoadables[index]),
                                        KnxDevice::ToString(state), KnxDevice::ToString(loadable.Fault())));
        else
            LOG4CPLUS_INFO(Log(), fmt::format("{}: {}", KnxDevice::ToString(kLoadables[index]),
                                              KnxDevice::ToString(state)));
    }
    if (std::exchange(m_isLoaded, AreTablesLoaded()) && !m_isLoaded)
        m_outlets.unloaded();
}

bool DeviceManagement::AreTablesLoaded() const {
    return std::all_of(std::begin(kTables), std::end(kTables),
                       [this](StandardObject table) { return m_device.Loadable(table).IsLoaded(); });
}

void DeviceManagement::Save() {
    m_hasImage = true;
    m_image.Save(m_device.State());
}

} // namespace KnxStackHost
