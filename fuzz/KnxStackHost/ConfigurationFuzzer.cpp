// Texts of knxstackd.json: each is refused with a sentence that begins with the file, or is a configuration
// from which the host can make its device.

#include "Fuzz.h"

#include "KnxDevice/LoadedTables.h"
#include "KnxIp/TunnelServer.h"
#include "KnxStackHost/Configuration/Configuration.h"

#include <string_view>

namespace {

constexpr std::string_view kFile = "/no/such/folder/knxstackd.json";

/// A text that could name a file which is there: an absolute path or one that leads upwards, even in
/// disguise. Everything else is in a folder that does not exist.
bool MayNameFiles(std::string_view text) {
    for (const auto* const part : {"\"/", "\"\\/", "..", "\\u002"})
        if (text.find(part) != std::string_view::npos)
            return true;
    return false;
}

void CheckUsable(const KnxStackHost::Configuration& configuration) {
    using namespace KnxDevice;
    const auto definitions = configuration.Definitions();
    Fuzz::Check(definitions.size() == configuration.groupObjects.size());
    const auto table = configuration.MakeTable();
    InterfaceObjects objects;
    Device device(configuration.MakeIdentity(), objects);
    objects.Load(configuration.interfaceObjects);
    const auto tables = WriteLoadedTables(definitions);
    Fuzz::Check(CheckAddressTable(tables.addresses) == LoadFault::None);
    Fuzz::Check(CheckAssociationTable(tables.associations) == LoadFault::None);
    Fuzz::Check(CheckGroupObjectTable(tables.objects) == LoadFault::None);
    for (const auto tunnel : configuration.server.tunnels)
        Fuzz::Check(tunnel.raw != 0 && tunnel != configuration.individualAddress);
    Fuzz::Check(configuration.memory.GetSize() == 0 && configuration.applicationData.GetSize() == 0);
    KnxStackHost::LeadsBackToServer(configuration);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (MayNameFiles(text))
        return 0;
    std::optional<KnxStackHost::Configuration> configuration;
    try {
        configuration = KnxStackHost::ParseConfiguration(text, std::string(kFile));
    } catch (const KnxStackHost::ConfigurationError& error) {
        Fuzz::Check(std::string_view(error.what()).starts_with(kFile));
        return 0;
    }
    CheckUsable(*configuration);
    return 0;
}
