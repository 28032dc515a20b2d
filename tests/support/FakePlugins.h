// Handler plug-ins whose answers stand in the test.
#pragma once

#include "Faults.h"
#include "Vesk/IKnxAppPrgHandler.h"
#include "Vesk/IKnxDownloadHandler.h"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

class Recorder;

/// What one plug-in library says. The public fields are its answers; they are to be set while nobody asks,
/// everything not set is the operation's no-answer value. Recorded as "plugin A <operation>(<arguments>)".
///
/// Faults by operation name: Initialize and Reload refuse with false, CreateHandler declines, queries give no
/// answer. What an operation throws reaches the program as an exception type that only the plug-in's library
/// knows.
class FakePlugin : public Vesk::IKnxAppPrgHandler {
public:
    FakePlugin(Recorder& recorder, std::string name) : m_recorder(recorder), m_name(std::move(name)) {}

    /// A data point and its communication object.
    struct Binding {
        std::uint16_t co;
        std::uint32_t id;
        KNXDPT dpt;
        std::string urn = {};      ///< without prefix
        bool reading = true;       ///< the answer for the read direction
        bool writing = true;       ///< the answer for the write direction
        bool eventing = false;     ///< sent on the bus when it changes
        bool readInternal = false; ///< held by the device stack
    };

    std::vector<Binding> bindings;
    std::vector<std::pair<std::uint16_t, KNXDPT>> timeCos;
    std::uint32_t interfaceObjectId = 0;
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> properties; ///< of the own object, from index 1 on
    std::uint32_t extendedObjectType = 0;
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> extendedProperties;
    std::pair<std::uint16_t, std::uint16_t> translationRange{0, 0};
    bool useUrns = false;
    bool reloads = true;
    bool writesDptAlways = false;  ///< leaves {77, 0, 88, 99} in the datapoint type when it has no answer
    bool keepsGivenSize = false;   ///< asked with a size and no type, leaves the datapoint type as it came
    bool refusesGivenSize = false; ///< asked with a size and no type, has no answer
    bool recordsGivenDpt =
        false; ///< records as "plugin A is given <size>:<main>.<sub>" what it is asked with
    bool recordsGivenProperty = false;  ///< records as "plugin A is given '<name>', <data type>, <element
                                        ///< count>" the same of a property
    std::uint32_t propertyIdOffset = 0; ///< added to the ids of the own object's properties
    std::string changedConfigFile;      ///< not empty = CreateHandler changes its argument to this
    Faults faults;

    bool Initialize() override;
    std::uint32_t GetIDFromCO(std::uint16_t co, KNXDPT& dpt) override;
    std::string GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) override;
    std::uint16_t GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) override;
    std::uint16_t GetCOFromUrn(const std::string& urn, bool reading, KNXDPT& dpt) override;
    bool IsKnxEventDataPoint(std::uint32_t id) override;
    bool IsKnxEventDataPoint(const std::string& urn) override;
    bool IsOxnReadInternalDataPoint(std::uint32_t id) override;
    bool IsOxnReadInternalDataPoint(const std::string& urn) override;
    std::uint16_t GetTimeCoByIndex(std::uint32_t index, bool writing, KNXDPT& dpt) override;
    std::uint32_t GetInterfaceObjectId() override;
    std::uint32_t GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType, std::string& name,
                                     std::uint16_t& elementCount) override;
    std::uint32_t GetExtendedInterfaceObjectType() override;
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> GetExtendedProperties() override;
    std::pair<std::uint16_t, std::uint16_t> GetGroupAddressTranslationRange() override;
    bool GetUseUrns() override;
    bool Reload() override;

    /// For the library: the calls of CreateHandler and DeleteHandler. False = CreateHandler declines.
    bool OnCreate(std::string& configFile);
    void OnDelete();

private:
    bool Enter(const char* operation, const std::string& arguments);
    void RecordGiven(const KNXDPT& dpt);
    template <typename Matches>
    const Binding* Find(const Matches& matches, KNXDPT& dpt);

    Recorder& m_recorder;
    std::string m_name;
};

/// What one download handler does. Recorded as
///
///     download DownloadA CreateFileWithKnxData({50001: 1}, 0a0b, announce, not raised, {1, 3})
///
/// with the number of interface objects under each key, the data, "announce" or "nothing" for the callback,
/// "raised" or "not raised", and the COs; then "download DownloadA announces" before each call of the
/// callback. Faults as for FakePlugin, those of CreateFileWithKnxData after the announcements.
class FakeDownloadPlugin : public Vesk::IKnxDownloadHandler {
public:
    FakeDownloadPlugin(Recorder& recorder, std::string name)
        : m_recorder(recorder), m_name(std::move(name)) {}

    bool creates = false;       ///< the answer
    unsigned announcements = 0; ///< calls of the callback, if there is one
    Faults faults;

    bool Initialize() override;
    bool CreateFileWithKnxData(const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects,
                               const KnxStack::BinaryData& data, std::function<void()> announce,
                               AppData appData,
                               const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors) override;

    /// For the library.
    bool OnCreate(const std::string& configFile);
    void OnDelete();

private:
    bool Enter(const char* operation, const std::string& arguments);

    Recorder& m_recorder;
    std::string m_name;
};

/// The plug-ins of the test's process, by the name of their library. One object at a time.
///
/// A, B and C are whole plug-ins; WithoutCreate and WithoutDelete lack an export; DownloadA and DownloadB are
/// download handlers. Loading and unloading is recorded as "library A loaded" and "library A unloaded".
class FakePlugins {
public:
    explicit FakePlugins(Recorder& recorder);
    ~FakePlugins();
    FakePlugins(const FakePlugins&) = delete;
    FakePlugins& operator=(const FakePlugins&) = delete;

    FakePlugin& operator[](const std::string& name);
    FakeDownloadPlugin& Download(const std::string& name);

    /// Path of the library.
    static std::string Library(const std::string& name);

    /// The object that lives; null when there is none. For the libraries.
    static FakePlugins* Current();

    Recorder& GetRecorder() { return m_recorder; }

private:
    Recorder& m_recorder;
    std::mutex m_mutex;
    std::map<std::string, FakePlugin> m_plugins;           // under m_mutex
    std::map<std::string, FakeDownloadPlugin> m_downloads; // under m_mutex
};

} // namespace TestSupport
