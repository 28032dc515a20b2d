// The application program: the object that a KNX stack host drives, a client of the device stack.
#pragma once

#include "DynamicKnxAppPrgHandlers.h"
#include "GroupAddressTranslationHandler.h"
#include "KnxPropertyHandler.h"
#include "KnxStack/IApplicationProgram.h"
#include "KnxStack/IGroupValueUser.h"
#include "Tav/Export.h"
#include "Tav/TAVTIME.h"
#include "Tav/TavEvents.h"
#include "ValueConverter.h"
#include "Vesk/IDeviceStackClient.h"
#include "Vesk/KNXDPT.h"
#include "Vesk/KnxAppPrg.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/bimap.hpp>
#include <boost/bimap/unordered_set_of.hpp>
#include <boost/thread/thread.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <log4cplus/logger.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class TAVVALUE;
namespace boost::json {
class value;
}
namespace KnxStack {
class IApiHub;
class IApplicationProgramMemory;
class IGroupValueService;
class IInterfaceObjectProperty;
class IPropertyService;
} // namespace KnxStack

/// Bridges group telegrams and data points. Lifecycle calls come on the host's thread; group telegrams on the
/// KNX stack's thread; the device stack client's callbacks on a thread of the client; the slow part of a
/// start runs on the init thread, the end of a configuration change on a thread of its own, and the device's
/// clock is set on the clock thread.
///
/// Locks, in the order in which they are taken:
///   1. the client mutex, which serialises requests to the device stack client. Taken by: Connect,
///      Disconnect, SendEmitEvent, the request of ReadDeviceConfiguration, the requests of
///      WriteState, the question for data point 1000, the command of UpdateIdUrnMap, the three group value
///      callbacks. Never by what runs on the client's callback thread, because Disconnect holds it while that
///      thread is joined; and not by SetNtpState, the clock and the group address translation.
///   2. DateTimeHandler::m_mutex, held during calls to the client; and KnxHandler::mapMutex, then the leaf
///      mutex of the handler set. Never one of the two inside the other.
///   3. KnxHandler::idUrnLock: neither the client nor a plug-in is called while it is held.
/// All others are leaves.
class TAV_EXPORT DscKnxAppPrg : public KnxStack::IApplicationProgram,
                                private Vesk::IDeviceStackClient::IEventHandler,
                                private Vesk::IDeviceStackClient::IResponseHandler,
                                private Vesk::IDeviceStackClient::IFieldHandlerWithUrn {
public:
    using TAVOBJECTID = Vesk::IDeviceStackClient::TAVOBJECTID;
    using IError = Vesk::IDeviceStackClient::IError;

    /// Which lifecycle operation a start-up follows.
    enum class CallerEntryPoint : std::uint32_t { Init = 0, DeviceRestart = 1 };

    /// What the download handlers made of the downloaded data.
    enum class UpdateAppState : std::uint32_t { FileCreated = 0, NoFile = 1 };

    class DateTimeHandler;
    class KnxHandler;
    class InitCaller;
    class ConfigurationChangeCaller;
    class ResponseQueueCaller;
    struct ThreadControl;

    DscKnxAppPrg();
    /// Does not stop threads and does not disconnect; Exit does.
    ~DscKnxAppPrg() override;

    StartupState Init(KnxStack::IApiHub& hub) override;
    StartupState OnDeviceRestart() override;
    bool Exit() override;

    /// Waits until no thread of this object's making uses it any more, at most `timeoutMs`. False on
    /// time-out.
    bool WaitForWorkers(unsigned timeoutMs) const;

    /// The loaded plug-ins; any thread.
    const KnxAppPrgHandlerSet& Handlers() const { return m_handlers; }

private:
    // Device stack client callbacks, on the client's thread.
    using IEventHandler::OnValueChanged;
    bool OnValueChanged(void* ctx, TAVOBJECTID id, const std::string& urn, const std::string& value,
                        const std::string& origin) override;
    bool OnConfigurationChanged(void* ctx, TAVOBJECTID id, const std::string& key,
                                const std::string& value) override;
    bool OnDeviceDiscovery(void* ctx, TAVOBJECTID id, const std::string& name,
                           const std::string& value) override;
    void OnConnectionLost() override;
    bool OnApplicationEvent(void* ctx, const std::string& sender, const std::string& message) override;
    void OnResponse(void* ctx, const std::string& request, const std::string& response,
                    const IError& error) override;
    void OnRegisterApplication(void* ctx, const std::string& request, const IError& error) override;
    void OnGetConfiguration(void* ctx, const std::string& request, const std::string& json,
                            const IError& error) override;
    void OnSetConfiguration(void* ctx, const std::string& request, const IError& error) override;
    void OnGetValue(void* ctx, const std::string& request, TAVOBJECTID id, const std::string& urn,
                    const std::string& value, const IError& error) override;
    void OnSetValue(void* ctx, const std::string& request, TAVOBJECTID id, const std::string& urn,
                    const std::string& value, const IError& error) override;
    bool OnReadValue(void* ctx, TAVOBJECTID id, const std::string& urn) override;
    bool OnWriteValue(void* ctx, TAVOBJECTID id, const std::string& value, const std::string& urn) override;

public:
    /// Sets the device's clock from date and time telegrams. What arrives within 200 ms is applied together,
    /// on a thread that runs from construction to Exit; the clock is only written when it is more than 2 s
    /// off.
    class DateTimeHandler {
    public:
        /// Reads the client through the reference whenever it needs it. Throws when there can be no thread.
        explicit DateTimeHandler(std::unique_ptr<Vesk::IDeviceStackClient>& client);
        ~DateTimeHandler();
        DateTimeHandler(const DateTimeHandler&) = delete;
        DateTimeHandler& operator=(const DateTimeHandler&) = delete;

        /// Queues a telegram's date, time of day or both, which is told by the datapoint type's main number:
        /// 11, 10 or 19. Another type, a day that the calendar does not have and a time past 23:59:59 are
        /// logged and refused. On the KNX stack's thread, with the client mutex held.
        void AddEntry(TAVTIME time, const KNXDPT& dpt);

        /// Applies what is queued, in the order of arrival. On the clock thread.
        void SetTime();

        /// Ends the clock thread. What is still queued, or is queued later, is never applied. Waits for a
        /// SetTime that is running. Throws the thread library's resource error on the clock thread itself.
        void Exit();

    private:
        enum class DateTimeEntryKind : std::uint32_t { Date = 0, Time = 1, DateTime = 2, Invalid = 3 };
        struct DateTimeEntry {
            TAVTIME time; // only the parts that the kind names are used
            DateTimeEntryKind kind;
        };
        struct KindRow {
            DateTimeEntryKind kind;
            const char* logFormat;
        };
        static const std::array<KindRow, 10> s_kinds; // by main number, from 10 on

        static bool HasDate(DateTimeEntryKind kind);
        static bool HasTime(DateTimeEntryKind kind);
        static const KindRow& KindOf(const KNXDPT& dpt);
        static TAVTIME Merge(TAVTIME time, const std::vector<DateTimeEntry>& entries);
        bool LockUnlessStopped(std::unique_lock<std::mutex>& lock);
        TAVVALUE CurrentTime() const;
        void Run();

        std::mutex m_mutex;
        std::vector<DateTimeEntry> m_entries; // under m_mutex
        std::unique_ptr<Vesk::IDeviceStackClient>& m_client;
        boost::asio::io_context m_ioContext{1};
        boost::asio::steady_timer m_timer{m_ioContext}; // under m_mutex
        boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_workGuard{
            m_ioContext.get_executor()};
        boost::thread m_thread;
        bool m_timerArmed = false; // under m_mutex
        std::atomic<bool> m_stopped =
            false; // set under m_mutex, by an Exit that joins the thread with it held
        log4cplus::Logger m_logger;
    };

    /// The KNX side: receives group telegrams and sends them.
    class TAV_EXPORT KnxHandler : public KnxStack::IGroupValueUser {
    public:
        /// Direction of a CO lookup. Telegrams pass a third value, 2, which fills neither direction.
        enum class OpMode : std::uint32_t { Reading = 0, Writing = 1 };
        static constexpr OpMode kTelegram{2};

        static constexpr std::uint16_t kNoCo = 0xFFFF;

        explicit KnxHandler(DscKnxAppPrg& appPrg);

        // Set-up.
        bool Init(KnxStack::IApiHub& hub, CallerEntryPoint entryPoint);
        void InitFromDynamicHandlers();
        void InitKnxPropertiesFromKnxStack();
        bool FillCoDescriptorData(Vesk::KnxAppPrg::CoDescriptorDataMap& descriptors) const;
        std::uint16_t GetTimeCoByIndex(unsigned index, bool writing, KNXDPT& dpt) const;
        std::uint32_t GetInterfaceObjectId() const;
        std::uint32_t GetPropertyByIndex(unsigned index, unsigned char& dataType, std::string& name,
                                         std::uint16_t& elementCount) const;
        bool Exit();
        /// Before the client goes: nothing of the KNX side uses it afterwards but what takes the client
        /// mutex.
        void StopClock() { m_dateTimeHandler.Exit(); }

        /// How the device's time is kept, 0 to 3, as property 201 says: 1 limits how often it is sent, 2 is
        /// the NTP client mode.
        std::uint8_t TimeMode() const { return m_timeMode; }
        const KnxPropertyHandler::InterfaceObjectMap& InterfaceObjects() const { return m_interfaceObjects; }
        GroupAddressTranslationHandler& Translation() { return m_translation; }

        /// False within a second of the last transfer of a time data point.
        bool IsTimeTransferDue() const;
        void NoteTimeTransfer();

        // Group value traffic. The CO is the low 16 bits of `co`.
        void OnGroupValueWrite(int co, const KnxStack::GroupValue& groupValue) override;
        void OnGroupValueResponse(int co, const KnxStack::GroupValue& groupValue) override;
        bool OnGroupValueRead(int co, KnxStack::GroupValue& groupValue) override;
        bool ReadValue(std::uint32_t id, const std::string& urn);
        bool WriteValue(std::uint32_t id, const std::string& urn, const std::string& value,
                        bool preferReadCo);

        // Identity of COs and data points.
        std::uint16_t GetCOFromID(std::uint32_t id, const std::string& urn, KNXDPT& dpt, OpMode mode);
        std::uint32_t GetIDFromCO(std::uint16_t co, KNXDPT& dpt, OpMode mode);
        std::string TrimUrn(std::string_view urn) const;
        std::string ResolveID(std::uint32_t id);
        std::uint32_t ResolveUrn(const std::string& urn);
        bool UpdateIdUrnMap();
        bool IsKnxEventDataPoint(std::uint32_t id, const std::string& urn);
        bool IsOxnReadInternalDataPoint(std::uint32_t id);
        void ClearCoAndIdMap();
        bool UsesUrns() const { return useUrns; }

        // Value conversion.
        bool GetGroupValueFromValue(const std::string& text, std::uint16_t co, KNXDPT& dpt,
                                    KnxStack::GroupValue& groupValue) const;
        bool GetGroupValueFromValue(const std::string& text, std::uint16_t co,
                                    KnxStack::GroupValue& groupValue) const;
        std::string GetValueFromGroupValue(KNXDPT& dpt, const KnxStack::GroupValue& groupValue) const;
        std::uint8_t GetValueSizeFromCO(std::uint16_t co) const;
        Vesk::KnxAppPrg::CoDescriptorData GetCoDescriptorData(std::uint16_t co) const;

    private:
        enum class TriState : std::uint32_t { False = 0, True = 1, NotAsked = 2 };
        struct IdMapEntry {
            std::uint16_t coWrite = 0; // 0 = not yet known
            std::uint16_t coRead = 0;
            TriState eventing = TriState::NotAsked;
            TriState readInternal = TriState::NotAsked;
        };
        struct CoMapEntry {
            std::uint32_t id;
            KNXDPT dpt;
        };
        using IdUrnMap = boost::bimap<boost::bimaps::unordered_set_of<std::uint32_t>,
                                      boost::bimaps::unordered_set_of<std::string>>;

        bool InitProperties(KnxStack::IPropertyService* service);
        void SetIdentification();
        void SetTranslationRange();
        void ReadTimeModeFromMemory();
        std::uint16_t AskCOFromID(std::uint32_t id, const std::string& urn, KNXDPT& dpt, OpMode mode) const;
        const IdMapEntry* FindId(std::uint32_t id) const;
        const CoMapEntry* FindCo(std::uint16_t co) const;
        IdMapEntry& EntryOfId(std::uint32_t id);
        void RememberPair(std::uint32_t id, std::uint16_t co, const KNXDPT& dpt, OpMode mode);
        std::shared_ptr<const std::string> UrnPrefix() const;
        void SetUrnPrefix(std::string prefix);
        void RememberUrn(std::uint32_t id, const std::string& urn, std::uint64_t generation);
        void FillIdUrnMap(const boost::json::value& processView);
        TriState CachedState(std::uint32_t id, TriState IdMapEntry::*field, std::uint64_t& generation) const;
        void RememberState(std::uint32_t id, TriState IdMapEntry::*field, bool state,
                           std::uint64_t generation);
        bool IsReadInternal(std::uint32_t id);
        bool SendToTimeCos(KnxStack::IGroupValueService& service, const std::string& value);

        std::atomic<std::uint8_t> m_timeMode = 0;
        DscKnxAppPrg& m_appPrg;
        mutable log4cplus::Logger m_logger; // the log macros copy a const logger, also for what is not logged

        // Set by Init; not owned. The device stack may call back as soon as the program has registered there,
        // which is before Init.
        std::atomic<KnxStack::IGroupValueService*> m_groupValueService = nullptr;
        KnxStack::IApplicationProgramMemory* m_appPrgMemory = nullptr;
        std::atomic<KnxStack::IInterfaceObjectProperty*> m_timeModeProperty = nullptr; // written by starts

        KnxPropertyHandler m_knxPropertyHandler;
        GroupAddressTranslationHandler m_translation;
        KnxPropertyHandler::InterfaceObjectMap m_interfaceObjects; // filled before the init thread starts
        DateTimeHandler m_dateTimeHandler;
        ValueConverter m_valueConverter;

        mutable std::shared_mutex m_timeTransferLock;
        std::uint64_t m_timeTransferTick = 0; // under m_timeTransferLock

        std::atomic<bool> useUrns = false;
        mutable std::mutex m_urnPrefixMutex; // a leaf
        std::shared_ptr<const std::string> urnPrefix = std::make_shared<const std::string>();

        // Under mapMutex. Each map has an index of its entries, which keep their place until ClearCoAndIdMap:
        // every telegram looks into both, and what that costs does not grow with their number. The generation
        // tells an answer that was asked for before a ClearCoAndIdMap.
        mutable std::mutex mapMutex;
        std::map<std::uint16_t, CoMapEntry> coMap;
        std::map<std::uint32_t, IdMapEntry> idMap;
        boost::unordered_flat_map<std::uint16_t, const CoMapEntry*> m_coIndex;
        boost::unordered_flat_map<std::uint32_t, IdMapEntry*> m_idIndex;
        std::uint64_t m_mapGeneration = 0;

        // Under idUrnLock. The generation tells an answer that was asked for before an UpdateIdUrnMap.
        mutable std::shared_mutex idUrnLock;
        IdUrnMap idUrnMap;
        std::uint64_t m_idUrnGeneration = 0;
    };

private:
    // Start-up.
    void ApplySettings(const std::map<std::string, std::string>& settings);
    /// A start begins, and the program is exited. What an earlier start still does in the background does
    /// not count from then on.
    void BeginStart();
    void EndStart();
    std::uint64_t CurrentStart() const;
    /// False once another start has begun or the program was exited.
    bool IsUnderway(std::uint64_t start) const;
    /// False, and nothing else, when `start` is not the current one any more.
    bool SetStartupState(std::uint64_t start, StartupState state);
    /// Nothing when `start` is not underway any more.
    void DoFinalStartupState(StartupState state, std::uint64_t start);
    bool WriteState();
    bool RequestValue(TAVOBJECTID id, std::string& error);
    bool IsCommunicationEnabled(std::uint32_t id, KnxHandler::OpMode mode);

    // Link to the device stack client. The identity is that at the device stack; its instance is a setting.
    static constexpr const char* kApplicationName = "DscKnxAppPrg";
    static constexpr const char* kApplicationType = "field";
    bool Connect();
    void Disconnect();
    void SendEmitEvent(const std::string& eventType);
    static void RestartDevice(std::unique_ptr<Vesk::IDeviceStackClient>& client);
    static void SetNtpState(std::unique_ptr<Vesk::IDeviceStackClient>& client, bool enable);
    void SetNullValue(TAVOBJECTID id);

    // Device configuration.
    struct DeviceType {
        std::string_view identifier;
        std::uint32_t type;
    };
    static const std::array<DeviceType, 7> s_deviceTypes;
    static std::uint32_t FindDeviceType(std::string_view identifier);
    void ReadDeviceConfiguration();

    // Downloads and changes of the configuration.
    UpdateAppState ExecuteDownloadHandler();
    void AnnounceConfigurationChange();
    void FinishConfigurationChange(std::uint64_t start);

    // Worker threads.
    bool StartInitThread(KnxStack::IApiHub& hub);
    bool StopInitThread(unsigned int timeoutMs);
    /// Its thread is detached: nobody waits for it but WaitForWorkers.
    bool StartConfigurationChangeThread(std::uint64_t start);
    bool StartResponseQueueThread();
    bool StopResponseQueueThread(unsigned int timeoutMs);
    template <typename Caller>
    std::shared_ptr<ThreadControl> StartWorker(std::shared_ptr<ThreadControl> control, const Caller& caller);
    /// False when the thread did not end in time. Throws the thread library's resource error on the thread
    /// itself.
    static bool JoinWithin(boost::thread& thread, unsigned int timeoutMs);
    static void InterruptAndDetach(boost::thread& thread);

    /// Counts the threads that use this object. One that was detached after a join time-out is still in here.
    struct WorkerCount {
        void Enter();
        void Leave();

        std::mutex mutex;
        std::condition_variable left;
        unsigned count = 0; // under mutex
    };

    // In the order of construction; the client may call back until it is destroyed.
    std::atomic<KnxStack::IApiHub*> m_hub = nullptr; // not owned; null before Init and after Exit
    KnxHandler m_knxHandler;
    std::unique_ptr<Vesk::IDeviceStackClient> m_client;
    // Whether there is a client: for a start-up thread that comes late, which must not look at one that is
    // going, and does not wait for whoever holds the client mutex.
    std::atomic<bool> m_connected = false;
    log4cplus::Logger m_logger;
    std::mutex m_clientMutex;
    std::shared_ptr<ThreadControl> m_initThread;          // host's thread only
    std::shared_ptr<ThreadControl> m_responseQueueThread; // host's thread only
    std::string m_deviceStackConfigPath;                  // written before an init thread starts
    std::string m_userDataPath;                           // written before an init thread starts
    std::atomic<std::uint32_t> m_deviceType = 0;
    TavEvents m_events;
    TavEvent m_event{m_events, 1};
    KnxAppPrgHandlerSet m_handlers; // any thread
    std::atomic<bool> m_downloadHandlerFlag = false;
    std::atomic<bool> m_etsConfigurationChanged = false; // announced, and the new project has not come yet
    std::atomic<CallerEntryPoint> m_callerEntryPoint = CallerEntryPoint::Init;
    mutable std::mutex m_startMutex;                                 // a leaf
    std::uint64_t m_start = 0;                                       // under m_startMutex; counts the starts
    std::atomic<StartupState> m_startupState = StartupState::Failed; // written under m_startMutex
    std::atomic<bool> m_startUpFlag = true; // false when the hub has a device restart pending
    std::string m_instanceId = "KNX";
    std::string m_handlerName = "dscknxappprg";
    std::shared_ptr<WorkerCount> m_workers = std::make_shared<WorkerCount>();
};

/// Control block of a worker thread, shared by the application program and the running thread.
struct DscKnxAppPrg::ThreadControl {
    std::atomic<bool> running = true; // false asks the thread to end at its next step
    boost::thread thread;
};

extern "C" {
TAV_EXPORT KnxStack::IApplicationProgram* createApplicationProgram();
TAV_EXPORT void deleteApplicationProgram(KnxStack::IApplicationProgram* applicationProgram);
TAV_EXPORT unsigned getKnxStackApiVersion();
}
