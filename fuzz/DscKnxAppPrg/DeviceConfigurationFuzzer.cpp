// The device configuration: never an exception, and device type and directories are what the text says, or
// stay when it does not say them.

#include "Fuzz.h"
#include "PrivateMembers.h"
#include "SilentClient.h"
#include "Tav/tavDynamicLibraryLoader.h"

#include <boost/json.hpp>

#include <algorithm>
#include <array>

namespace json = boost::json;

namespace {

std::string s_configuration;

class Client : public Fuzz::SilentClient {
public:
    bool GetConfiguration(int, std::string& text) override {
        text = s_configuration;
        return true;
    }
};

struct State {
    std::uint32_t deviceType;
    std::string stackConfigPath;
    std::string userDataPath;
    bool operator==(const State&) const = default;
};

State Read(DscKnxAppPrg& program, std::string configuration) {
    s_configuration = std::move(configuration);
    (program.*Reach(PrivateMembers::ReadDeviceConfiguration()))();
    return {program.*Reach(PrivateMembers::DeviceTypeNumber()),
            program.*Reach(PrivateMembers::StackConfigPath()),
            program.*Reach(PrivateMembers::UserDataPath())};
}

std::uint32_t DeviceTypeOf(std::string_view identifier) {
    constexpr std::array<std::string_view, 6> kIdentifiers{"QTRMNV01", "PLXWNV01", "HBRQNV02",
                                                           "ZAXPNVIP", "VELDNV03", "MURTNV03"};
    const auto* const found = std::find(kIdentifiers.begin(), kIdentifiers.end(), identifier);
    return found == kIdentifiers.end() ? 0 : static_cast<std::uint32_t>(found - kIdentifiers.begin()) + 1;
}

/// What a reading of the text makes of the state.
State Expected(State state, std::string_view text) {
    boost::system::error_code error;
    const json::value value = json::parse(text, error);
    const json::value* const ipc =
        error || !value.is_object() ? nullptr : value.get_object().if_contains("ipc");
    if (ipc == nullptr || !ipc->is_object())
        return state;
    for (const json::key_value_pair& member : ipc->get_object()) {
        const json::string* const content = member.value().if_string();
        if (content == nullptr)
            continue;
        if (member.key() == "DeviceId")
            state.deviceType = DeviceTypeOf({content->data(), content->size()});
        if (member.key() == "DeviceStackConfigPath")
            state.stackConfigPath.assign(content->data(), content->size());
        if (member.key() == "UserDataPath")
            state.userDataPath.assign(content->data(), content->size());
    }
    return state;
}

DscKnxAppPrg& Program() {
    static DscKnxAppPrg program;
    static const bool connected = (program.*Reach(PrivateMembers::Connect()))();
    Fuzz::Check(connected);
    return program;
}

} // namespace

std::unique_ptr<Vesk::IDeviceStackClient> Vesk::CreateDeviceStackClient() {
    return std::make_unique<Client>();
}

// Wherever the directories lead, nothing of what a registry file there names is loaded.
void* tavDynamicLibraryLoader::tavLoadLibrary(const std::string&) {
    return nullptr;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Fuzz::LogToNowhere();
    DscKnxAppPrg& program = Program();
    const State before =
        Read(program,
             R"({"ipc":{"DeviceId":"VELDNV03","DeviceStackConfigPath":"/none/a","UserDataPath":"/none/b"}})");
    Fuzz::Check(before == State{5, "/none/a", "/none/b"});
    const State after = Read(program, text);
    Fuzz::Check(after == Expected(before, text));
    Fuzz::Check(after.deviceType <= 6);
    Fuzz::Check(Read(program, text) == after);
    return 0;
}
