// Reaches what the application program keeps to itself, without the class knowing of tests: an explicit
// instantiation may name private members.
#pragma once

#include "DscKnxAppPrg.h"

namespace PrivateMembers {

template <typename Tag, typename Tag::Type Member>
struct Grant {
    friend typename Tag::Type Reach(Tag) { return Member; }
};

// Defines Name so that (program.*Reach(Name()))(…) is the member.
#define KNX_PRIVATE_MEMBER(Name, MemberType, Member)                                                         \
    struct Name {                                                                                            \
        using Type = MemberType;                                                                             \
        friend Type Reach(Name);                                                                             \
    };                                                                                                       \
    template struct Grant<Name, &DscKnxAppPrg::Member>

using StartupState = KnxStack::IApplicationProgram::StartupState;
using OpMode = DscKnxAppPrg::KnxHandler::OpMode;
using ClientPointer = std::unique_ptr<Vesk::IDeviceStackClient>;

KNX_PRIVATE_MEMBER(KnxHandler, DscKnxAppPrg::KnxHandler DscKnxAppPrg::*, m_knxHandler);
KNX_PRIVATE_MEMBER(Client, ClientPointer DscKnxAppPrg::*, m_client);
KNX_PRIVATE_MEMBER(ClientMutex, std::mutex DscKnxAppPrg::*, m_clientMutex);
KNX_PRIVATE_MEMBER(InitThread, std::shared_ptr<DscKnxAppPrg::ThreadControl> DscKnxAppPrg::*, m_initThread);
KNX_PRIVATE_MEMBER(CurrentState, std::atomic<StartupState> DscKnxAppPrg::*, m_startupState);
KNX_PRIVATE_MEMBER(StackConfigPath, std::string DscKnxAppPrg::*, m_deviceStackConfigPath);
KNX_PRIVATE_MEMBER(UserDataPath, std::string DscKnxAppPrg::*, m_userDataPath);
KNX_PRIVATE_MEMBER(DeviceTypeNumber, std::atomic<std::uint32_t> DscKnxAppPrg::*, m_deviceType);
KNX_PRIVATE_MEMBER(Events, TavEvents DscKnxAppPrg::*, m_events);
KNX_PRIVATE_MEMBER(Event, TavEvent DscKnxAppPrg::*, m_event);
KNX_PRIVATE_MEMBER(Handlers, KnxAppPrgHandlerSet DscKnxAppPrg::*, m_handlers);
KNX_PRIVATE_MEMBER(Connect, bool (DscKnxAppPrg::*)(), Connect);
KNX_PRIVATE_MEMBER(Disconnect, void (DscKnxAppPrg::*)(), Disconnect);
KNX_PRIVATE_MEMBER(ReadDeviceConfiguration, void (DscKnxAppPrg::*)(), ReadDeviceConfiguration);
KNX_PRIVATE_MEMBER(FindDeviceType, std::uint32_t (*)(std::string_view), FindDeviceType);
KNX_PRIVATE_MEMBER(SendEmitEvent, void (DscKnxAppPrg::*)(const std::string&), SendEmitEvent);
KNX_PRIVATE_MEMBER(RestartDevice, void (*)(ClientPointer&), RestartDevice);
KNX_PRIVATE_MEMBER(SetNtpState, void (*)(ClientPointer&, bool), SetNtpState);
KNX_PRIVATE_MEMBER(DoFinalStartupState, void (DscKnxAppPrg::*)(StartupState, std::uint64_t),
                   DoFinalStartupState);
KNX_PRIVATE_MEMBER(CurrentStart, std::uint64_t (DscKnxAppPrg::*)() const, CurrentStart);
KNX_PRIVATE_MEMBER(ExecuteDownloadHandler, DscKnxAppPrg::UpdateAppState (DscKnxAppPrg::*)(),
                   ExecuteDownloadHandler);
KNX_PRIVATE_MEMBER(AnnounceConfigurationChange, void (DscKnxAppPrg::*)(), AnnounceConfigurationChange);
KNX_PRIVATE_MEMBER(ChangeIsAnnounced, std::atomic<bool> DscKnxAppPrg::*, m_etsConfigurationChanged);
KNX_PRIVATE_MEMBER(OnConfigurationChanged,
                   bool (DscKnxAppPrg::*)(void*, std::uint32_t, const std::string&, const std::string&),
                   OnConfigurationChanged);
KNX_PRIVATE_MEMBER(WriteState, bool (DscKnxAppPrg::*)(), WriteState);
KNX_PRIVATE_MEMBER(OnReadValue, bool (DscKnxAppPrg::*)(void*, std::uint32_t, const std::string&),
                   OnReadValue);
KNX_PRIVATE_MEMBER(OnWriteValue,
                   bool (DscKnxAppPrg::*)(void*, std::uint32_t, const std::string&, const std::string&),
                   OnWriteValue);
KNX_PRIVATE_MEMBER(IsCommunicationEnabled, bool (DscKnxAppPrg::*)(std::uint32_t, OpMode),
                   IsCommunicationEnabled);
KNX_PRIVATE_MEMBER(StopInitThread, bool (DscKnxAppPrg::*)(unsigned), StopInitThread);
KNX_PRIVATE_MEMBER(StartResponseQueueThread, bool (DscKnxAppPrg::*)(), StartResponseQueueThread);
KNX_PRIVATE_MEMBER(StopResponseQueueThread, bool (DscKnxAppPrg::*)(unsigned), StopResponseQueueThread);

} // namespace PrivateMembers
