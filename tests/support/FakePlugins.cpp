#include "FakePlugins.h"

#include "KnxStack/BinaryData.h"
#include "Recorder.h"
#include "plugins/TestPluginLink.h"

#include <algorithm>
#include <atomic>

namespace TestSupport {

namespace {

std::atomic<FakePlugins*> s_current = nullptr;

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

std::string Direction(bool reading) {
    return reading ? "reading" : "writing";
}

} // namespace

bool FakePlugin::Enter(const char* operation, const std::string& arguments) {
    m_recorder.Add("plugin " + m_name + " " + operation + "(" + arguments + ")");
    return faults.Enter(operation);
}

void FakePlugin::RecordGiven(const KNXDPT& dpt) {
    if (recordsGivenDpt)
        m_recorder.Add("plugin " + m_name + " is given " + std::to_string(dpt.sizeInBits) + ":" +
                       std::to_string(dpt.main) + "." + std::to_string(dpt.sub));
}

template <typename Matches>
const FakePlugin::Binding* FakePlugin::Find(const Matches& matches, KNXDPT& dpt) {
    RecordGiven(dpt);
    const bool sizeOnly = dpt.sizeInBits != 0 && dpt.main == 0;
    const auto binding = std::find_if(bindings.begin(), bindings.end(), matches);
    if (binding != bindings.end() && !(sizeOnly && refusesGivenSize)) {
        if (!(sizeOnly && keepsGivenSize))
            dpt = binding->dpt;
        return &*binding;
    }
    if (writesDptAlways)
        dpt = {77, 0, 88, 99};
    return nullptr;
}

bool FakePlugin::OnCreate(std::string& configFile) {
    const bool offered = Enter("CreateHandler", configFile);
    if (!changedConfigFile.empty())
        configFile = changedConfigFile;
    return offered;
}

void FakePlugin::OnDelete() {
    Enter("DeleteHandler", "");
}

bool FakePlugin::Initialize() {
    return Enter("Initialize", "");
}

std::uint32_t FakePlugin::GetIDFromCO(std::uint16_t co, KNXDPT& dpt) {
    if (!Enter("GetIDFromCO", std::to_string(co)))
        return 0;
    const Binding* const binding = Find([&](const Binding& b) { return b.co == co; }, dpt);
    return binding != nullptr ? binding->id : 0;
}

std::string FakePlugin::GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) {
    if (!Enter("GetUrnFromCO", std::to_string(co)))
        return {};
    const Binding* const binding = Find([&](const Binding& b) { return b.co == co; }, dpt);
    return binding != nullptr ? binding->urn : std::string();
}

std::uint16_t FakePlugin::GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) {
    if (!Enter("GetCOFromID", std::to_string(id) + ", " + Direction(reading)))
        return kNoCo;
    const Binding* const binding =
        Find([&](const Binding& b) { return b.id == id && (reading ? b.reading : b.writing); }, dpt);
    return binding != nullptr ? binding->co : kNoCo;
}

std::uint16_t FakePlugin::GetCOFromUrn(const std::string& urn, bool reading, KNXDPT& dpt) {
    if (!Enter("GetCOFromUrn", Quoted(urn) + ", " + Direction(reading)))
        return kNoCo;
    const Binding* const binding =
        Find([&](const Binding& b) { return b.urn == urn && (reading ? b.reading : b.writing); }, dpt);
    return binding != nullptr ? binding->co : kNoCo;
}

bool FakePlugin::IsKnxEventDataPoint(std::uint32_t id) {
    return Enter("IsKnxEventDataPoint", std::to_string(id)) &&
           std::any_of(bindings.begin(), bindings.end(),
                       [&](const Binding& b) { return b.id == id && b.eventing; });
}

bool FakePlugin::IsKnxEventDataPoint(const std::string& urn) {
    return Enter("IsKnxEventDataPoint", Quoted(urn)) &&
           std::any_of(bindings.begin(), bindings.end(),
                       [&](const Binding& b) { return b.urn == urn && b.eventing; });
}

bool FakePlugin::IsOxnReadInternalDataPoint(std::uint32_t id) {
    return Enter("IsOxnReadInternalDataPoint", std::to_string(id)) &&
           std::any_of(bindings.begin(), bindings.end(),
                       [&](const Binding& b) { return b.id == id && b.readInternal; });
}

bool FakePlugin::IsOxnReadInternalDataPoint(const std::string& urn) {
    return Enter("IsOxnReadInternalDataPoint", Quoted(urn)) &&
           std::any_of(bindings.begin(), bindings.end(),
                       [&](const Binding& b) { return b.urn == urn && b.readInternal; });
}

std::uint16_t FakePlugin::GetTimeCoByIndex(std::uint32_t index, bool writing, KNXDPT& dpt) {
    const bool answers =
        Enter("GetTimeCoByIndex", std::to_string(index) + ", " + (writing ? "writing" : "reading"));
    RecordGiven(dpt);
    if (!answers || index == 0 || index > timeCos.size())
        return kNoCo;
    dpt = timeCos[index - 1].second;
    return timeCos[index - 1].first;
}

std::uint32_t FakePlugin::GetInterfaceObjectId() {
    return Enter("GetInterfaceObjectId", "") ? interfaceObjectId : 0;
}

std::uint32_t FakePlugin::GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType, std::string& name,
                                             std::uint16_t& elementCount) {
    const bool answers = Enter("GetPropertyByIndex", std::to_string(index));
    if (recordsGivenProperty)
        m_recorder.Add("plugin " + m_name + " is given " + Quoted(name) + ", " + std::to_string(dataType) +
                       ", " + std::to_string(elementCount));
    if (!answers || index == 0 || index > properties.size())
        return 0;
    const Vesk::KnxAppPrg::ExtendedProperty& property = properties[index - 1];
    dataType = property.dataType;
    name = property.name;
    elementCount = property.elementCount;
    return property.propertyId + propertyIdOffset;
}

std::uint32_t FakePlugin::GetExtendedInterfaceObjectType() {
    return Enter("GetExtendedInterfaceObjectType", "") ? extendedObjectType : 0;
}

std::vector<Vesk::KnxAppPrg::ExtendedProperty> FakePlugin::GetExtendedProperties() {
    if (!Enter("GetExtendedProperties", ""))
        return {};
    return extendedProperties;
}

std::pair<std::uint16_t, std::uint16_t> FakePlugin::GetGroupAddressTranslationRange() {
    if (!Enter("GetGroupAddressTranslationRange", ""))
        return {0, 0};
    return translationRange;
}

bool FakePlugin::GetUseUrns() {
    return Enter("GetUseUrns", "") && useUrns;
}

bool FakePlugin::Reload() {
    return Enter("Reload", "") && reloads;
}

bool FakeDownloadPlugin::Enter(const char* operation, const std::string& arguments) {
    m_recorder.Add("download " + m_name + " " + operation + "(" + arguments + ")");
    return faults.Enter(operation);
}

bool FakeDownloadPlugin::OnCreate(const std::string& configFile) {
    return Enter("CreateHandler", configFile);
}

void FakeDownloadPlugin::OnDelete() {
    Enter("DeleteHandler", "");
}

bool FakeDownloadPlugin::Initialize() {
    return Enter("Initialize", "");
}

bool FakeDownloadPlugin::CreateFileWithKnxData(const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects,
                                               const KnxStack::BinaryData& data,
                                               std::function<void()> announce, AppData appData,
                                               const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors) {
    std::string objects;
    for (const auto& [key, list] : interfaceObjects)
        objects += (objects.empty() ? "" : ", ") + std::to_string(key) + ": " + std::to_string(list.size());
    std::string cos;
    for (const auto& [co, descriptor] : coDescriptors)
        cos += (cos.empty() ? "" : ", ") + std::to_string(descriptor.co);
    m_recorder.Add("download " + m_name + " CreateFileWithKnxData({" + objects + "}, " + data.ToString() +
                   ", " + (announce ? "announce" : "nothing") + ", " +
                   (appData.configurationChangeRaised ? "raised" : "not raised") + ", {" + cos + "})");
    for (unsigned i = 0; announce && i < announcements; ++i) {
        m_recorder.Add("download " + m_name + " announces");
        announce();
    }
    return faults.Enter("CreateFileWithKnxData") && creates;
}

FakePlugins::FakePlugins(Recorder& recorder) : m_recorder(recorder) {
    s_current = this;
}

FakePlugins::~FakePlugins() {
    s_current = nullptr;
}

FakePlugin& FakePlugins::operator[](const std::string& name) {
    const std::lock_guard lock(m_mutex);
    return m_plugins.try_emplace(name, m_recorder, name).first->second;
}

FakeDownloadPlugin& FakePlugins::Download(const std::string& name) {
    const std::lock_guard lock(m_mutex);
    return m_downloads.try_emplace(name, m_recorder, name).first->second;
}

std::string FakePlugins::Library(const std::string& name) {
    std::string path(KNX_TEST_PLUGIN_DIRECTORY);
    path += "/lib";
    path += name;
    path += ".so";
    return path;
}

FakePlugins* FakePlugins::Current() {
    return s_current;
}

} // namespace TestSupport

Vesk::IKnxAppPrgHandler* KnxTestPluginCreate(const char* library, std::string& configFile) {
    TestSupport::FakePlugin& plugin = (*TestSupport::FakePlugins::Current())[library];
    return plugin.OnCreate(configFile) ? &plugin : nullptr;
}

void KnxTestPluginDelete(const char* library) {
    (*TestSupport::FakePlugins::Current())[library].OnDelete();
}

Vesk::IKnxDownloadHandler* KnxTestDownloadPluginCreate(const char* library, std::string& configFile) {
    TestSupport::FakeDownloadPlugin& plugin = TestSupport::FakePlugins::Current()->Download(library);
    return plugin.OnCreate(configFile) ? &plugin : nullptr;
}

void KnxTestDownloadPluginDelete(const char* library) {
    TestSupport::FakePlugins::Current()->Download(library).OnDelete();
}

void KnxTestLibraryEvent(const char* library, const char* event) {
    // A library that is still loaded at the end of the process is unloaded after every test object is gone.
    if (TestSupport::FakePlugins* const plugins = TestSupport::FakePlugins::Current())
        plugins->GetRecorder().Add(std::string("library ") + library + " " + event);
}
