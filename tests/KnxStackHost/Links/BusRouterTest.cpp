#include "KnxStackHost/Links/BusRouter.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <utility>

namespace KnxStackHost {
namespace {

using KnxFrames::GroupAddress;
using KnxFrames::GroupServiceKind;
using KnxFrames::IndividualAddress;
using KnxFrames::LData;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IndividualAddress kOwn(1, 1, 250);
constexpr IndividualAddress kTunnels[] = {IndividualAddress(1, 1, 251), IndividualAddress(1, 1, 252)};
constexpr IndividualAddress kSensor(1, 1, 4);
constexpr IndividualAddress kStranger(1, 1, 77);
constexpr GroupAddress kAddress(1, 2, 3);

class RecordingPorts final : public BusPorts {
public:
    void ToTunnels(const LData& telegram, std::optional<std::uint8_t> except) override {
        went.push_back(fmt::format("tunnels{}: {}", except ? fmt::format(" but {}", *except) : "",
                                   KnxFrames::Describe(telegram)));
    }
    void ToTunnel(const LData& telegram, std::uint8_t tunnel) override {
        went.push_back(fmt::format("tunnel {}: {}", tunnel, KnxFrames::Describe(telegram)));
    }
    void ToInterface(const LData& telegram) override {
        went.push_back(fmt::format("interface: {}", KnxFrames::Describe(telegram)));
    }
    void ToProgram(Callback callback) override {
        went.push_back(fmt::format("program: {} {} {}", static_cast<int>(callback.kind), callback.object,
                                   callback.value.GetRawData().ToString()));
    }

    void ToManagement(const LData& telegram) override {
        went.push_back(fmt::format("management: {}", KnxFrames::Describe(telegram)));
    }

    void ToMonitor(const LData& telegram, Origin origin) override {
        monitored.push_back(fmt::format("{} {}: {}", static_cast<int>(origin.kind), origin.tunnel,
                                        KnxFrames::Describe(telegram)));
    }

    std::vector<std::string> went;
    std::vector<std::string> monitored;
};

KnxDevice::GroupObjectTable Table() {
    std::vector<KnxDevice::GroupObjectDefinition> definitions(3);
    for (std::uint16_t i = 0; i < 3; ++i) {
        definitions[i].number = static_cast<std::uint16_t>(i + 1);
        definitions[i].sizeInBits = i == 2 ? 8 : 1;
        definitions[i].flags.bits = 0x1F;
        definitions[i].groupAddresses = {i == 2 ? GroupAddress(1, 2, 4) : kAddress};
    }
    return KnxDevice::GroupObjectTable(definitions);
}

LData Telegram(IndividualAddress source, const KnxFrames::Tpdu& tpdu, GroupAddress destination = kAddress) {
    auto telegram = KnxFrames::MakeGroupTelegram(source, destination, tpdu);
    telegram.code = KnxFrames::MessageCode::LDataInd;
    return telegram;
}

LData WriteOne(IndividualAddress source) {
    return Telegram(source, KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, 1));
}

LData ToDevice(IndividualAddress source, IndividualAddress destination) {
    auto telegram = Telegram(source, {0x80}); // T_Connect
    telegram.control2 = 0x60;
    telegram.destination = destination.raw;
    return telegram;
}

class Router : public testing::Test {
protected:
    /// What went where, and nothing else.
    std::vector<std::string> Taken() { return std::exchange(m_ports.went, {}); }

    KnxDevice::GroupObjects m_objects{Table()};
    RecordingPorts m_ports;
    BusRouter m_router{kOwn, kTunnels, m_objects, m_ports};
};

TEST_F(Router, FromATunnelToDeviceOtherTunnelsAndInterface) {
    m_router.FromTunnel(1, WriteOne(kTunnels[1]));
    EXPECT_THAT(m_ports.went, ElementsAre("tunnels but 1: 1.1.252 -> 1/2/3 GroupValue_Write 01",
                                          "interface: 1.1.252 -> 1/2/3 GroupValue_Write 01",
                                          "program: 128 1 01", "program: 128 2 01"));
}

TEST_F(Router, FromTheInterfaceToDeviceAndAllTunnels) {
    m_router.FromInterface(WriteOne(kSensor));
    EXPECT_THAT(m_ports.went, ElementsAre("tunnels: 1.1.4 -> 1/2/3 GroupValue_Write 01", "program: 128 1 01",
                                          "program: 128 2 01"));
}

TEST_F(Router, FromTheDeviceToItsOtherObjectsTunnelsAndInterface) {
    m_router.FromDevice(WriteOne({}), 1);
    EXPECT_THAT(m_ports.went,
                ElementsAre("tunnels: 1.1.250 -> 1/2/3 GroupValue_Write 01",
                            "interface: 1.1.250 -> 1/2/3 GroupValue_Write 01", "program: 128 2 01"));
}

TEST_F(Router, AnEchoOfOurOwnTelegramGoesNowhere) {
    m_router.FromInterface(WriteOne(kOwn));
    m_router.FromInterface(WriteOne(kTunnels[0]));
    EXPECT_THAT(m_ports.went, IsEmpty());
}

TEST_F(Router, WhatComesBackThroughATunnelGoesNowhere) {
    m_router.FromTunnel(1, WriteOne(kOwn));
    m_router.FromTunnel(1, WriteOne(kTunnels[0]));
    EXPECT_THAT(m_ports.went, IsEmpty());
}

TEST_F(Router, AClientMaySpeakForDevicesBehindIt) {
    m_router.FromTunnel(1, WriteOne(kSensor));
    EXPECT_THAT(m_ports.went, ElementsAre("tunnels but 1: 1.1.4 -> 1/2/3 GroupValue_Write 01",
                                          "interface: 1.1.4 -> 1/2/3 GroupValue_Write 01",
                                          "program: 128 1 01", "program: 128 2 01"));
}

TEST_F(Router, ReadsAndResponsesKeepTheirService) {
    m_router.FromInterface(Telegram(kSensor, KnxFrames::MakeGroupRead(), GroupAddress(1, 2, 4)));
    const std::uint8_t value[] = {0x42};
    m_router.FromInterface(Telegram(
        kSensor, *KnxFrames::MakeGroupLongValue(GroupServiceKind::Response, value), GroupAddress(1, 2, 4)));
    EXPECT_EQ("program: 0 3 ", m_ports.went.at(1));
    EXPECT_EQ("program: 64 3 42", m_ports.went.at(3));
}

TEST_F(Router, WhatTheDeviceCannotUseIsPassedOnAllTheSame) {
    const std::uint8_t value[] = {1, 2};
    m_router.FromTunnel(0, Telegram(kSensor, *KnxFrames::MakeGroupLongValue(GroupServiceKind::Write, value)));
    m_router.FromTunnel(0, Telegram(kSensor, {0x03, 0xD5}));
    m_router.FromTunnel(0, Telegram(kSensor, KnxFrames::MakeGroupRead(), GroupAddress(31, 7, 255)));
    EXPECT_EQ(6u, m_ports.went.size()) << "each to the tunnels and to the interface, none to the program";
}

TEST_F(Router, ATelegramToTheAddressOfATunnelGoesToThatTunnelAlone) {
    m_router.FromTunnel(0, ToDevice(kTunnels[0], kTunnels[1]));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 1: 1.1.251 -> 1.1.252 T_Connect 80"));
    m_router.FromInterface(ToDevice(kSensor, kTunnels[0]));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 0: 1.1.4 -> 1.1.251 T_Connect 80"));
    m_router.FromManagement(ToDevice({}, kTunnels[0]));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 0: 1.1.250 -> 1.1.251 T_Connect 80"));
    m_router.FromTunnel(0, ToDevice(kTunnels[0], kTunnels[0]));
    EXPECT_THAT(Taken(), IsEmpty()) << "to itself";
}

TEST_F(Router, ATelegramToAnAddressThatNobodyKnowsGoesEverywhere) {
    m_router.FromTunnel(0, ToDevice(kTunnels[0], kSensor));
    EXPECT_THAT(Taken(), ElementsAre("tunnels but 0: 1.1.251 -> 1.1.4 T_Connect 80",
                                     "interface: 1.1.251 -> 1.1.4 T_Connect 80"));
    m_router.FromInterface(ToDevice(kSensor, kStranger));
    EXPECT_THAT(Taken(), ElementsAre("tunnels: 1.1.4 -> 1.1.77 T_Connect 80"));
}

TEST_F(Router, WhatIsForTheDeviceItselfGoesToItsManagementAlone) {
    m_router.FromTunnel(0, ToDevice(kTunnels[0], kOwn));
    EXPECT_THAT(Taken(), ElementsAre("management: 1.1.251 -> 1.1.250 T_Connect 80"));
    m_router.FromInterface(ToDevice(kSensor, kOwn));
    EXPECT_THAT(Taken(), ElementsAre("management: 1.1.4 -> 1.1.250 T_Connect 80"));
}

TEST_F(Router, ADeviceThatWasHeardBehindATunnelIsReachedThroughThatTunnelAlone) {
    m_router.FromTunnel(1, WriteOne(kStranger)); // a telegram to a group tells as much as any other
    m_ports.went.clear();
    m_router.FromManagement(ToDevice({}, kStranger));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 1: 1.1.250 -> 1.1.77 T_Connect 80"));
    m_router.FromTunnel(0, ToDevice(kTunnels[0], kStranger));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 1: 1.1.251 -> 1.1.77 T_Connect 80"));
    m_router.FromInterface(ToDevice(kSensor, kStranger));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 1: 1.1.4 -> 1.1.77 T_Connect 80"));
    m_router.FromTunnel(1, ToDevice(kTunnels[1], kStranger));
    EXPECT_THAT(Taken(), IsEmpty()) << "both are behind the same tunnel";
}

TEST_F(Router, ADeviceThatIsHeardElsewhereHasMoved) {
    m_router.FromTunnel(1, WriteOne(kStranger));
    m_router.FromTunnel(0, WriteOne(kStranger));
    m_ports.went.clear();
    m_router.FromManagement(ToDevice({}, kStranger));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 0: 1.1.250 -> 1.1.77 T_Connect 80"));
    m_router.FromInterface(WriteOne(kStranger));
    m_ports.went.clear();
    m_router.FromManagement(ToDevice({}, kStranger));
    EXPECT_THAT(Taken(), ElementsAre("tunnels: 1.1.250 -> 1.1.77 T_Connect 80",
                                     "interface: 1.1.250 -> 1.1.77 T_Connect 80"));
}

TEST_F(Router, DevicesBehindATunnelAreForgottenWithIt) {
    m_router.FromTunnel(0, WriteOne(kSensor));
    m_router.FromTunnel(1, WriteOne(kStranger));
    m_router.OnTunnelClosed(1);
    m_ports.went.clear();
    m_router.FromManagement(ToDevice({}, kStranger));
    EXPECT_THAT(Taken(), ElementsAre("tunnels: 1.1.250 -> 1.1.77 T_Connect 80",
                                     "interface: 1.1.250 -> 1.1.77 T_Connect 80"));
    m_router.FromManagement(ToDevice({}, kSensor));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 0: 1.1.250 -> 1.1.4 T_Connect 80"))
        << "the other tunnel is open";
    m_router.FromManagement(ToDevice({}, kTunnels[1]));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 1: 1.1.250 -> 1.1.252 T_Connect 80")) << "for whom comes next";
}

TEST_F(Router, TheFirstAddressOfNewDevicesIsInNoParticularPlace) {
    m_router.FromTunnel(1, WriteOne(IndividualAddress(15, 15, 255)));
    m_ports.went.clear();
    m_router.FromManagement(ToDevice({}, IndividualAddress(15, 15, 255)));
    EXPECT_EQ(2u, Taken().size());
}

TEST_F(Router, WhatWentRoundTeachesNothing) {
    m_router.FromTunnel(1, WriteOne(kTunnels[0]));
    m_router.FromInterface(WriteOne(kTunnels[0]));
    m_router.FromManagement(ToDevice({}, kTunnels[0]));
    EXPECT_THAT(Taken(), ElementsAre("tunnel 0: 1.1.250 -> 1.1.251 T_Connect 80"));
}

TEST_F(Router, ABroadcastGoesToManagementToo) {
    m_router.FromInterface(Telegram(kSensor, {0x01, 0x00}, GroupAddress())); // A_IndividualAddress_Read
    ASSERT_EQ(2u, m_ports.went.size());
    EXPECT_EQ("management: 1.1.4", m_ports.went[1].substr(0, 17));
}

TEST_F(Router, WhatManagementSendsGoesOutWithTheDevicesAddress) {
    m_router.FromManagement(ToDevice({}, kSensor));
    ASSERT_EQ(2u, m_ports.went.size());
    EXPECT_EQ("tunnels: 1.1.250 -> 1.1.4", m_ports.went[0].substr(0, 25));
    EXPECT_EQ("interface: 1.1.250 -> 1.1.4", m_ports.went[1].substr(0, 27));
}

TEST_F(Router, ANewAddressOfTheDeviceCountsFromThenOn) {
    constexpr IndividualAddress kNew(1, 1, 249);
    m_router.SetOwnAddress(kNew);
    m_router.FromInterface(ToDevice(kSensor, kOwn));
    EXPECT_THAT(Taken(), ElementsAre("tunnels: 1.1.4 -> 1.1.250 T_Connect 80"))
        << "the former address is somebody else's";
    m_router.FromInterface(ToDevice(kSensor, kNew));
    EXPECT_THAT(Taken(), ElementsAre("management: 1.1.4 -> 1.1.249 T_Connect 80"));
    m_router.FromDevice(WriteOne({}), 1);
    EXPECT_EQ("tunnels: 1.1.249 -> 1/2/3", m_ports.went.at(0).substr(0, 25));
    m_ports.went.clear();
    m_router.FromInterface(WriteOne(kNew));
    EXPECT_THAT(m_ports.went, IsEmpty()) << "an echo";
}

TEST_F(Router, TheMonitorIsToldOnceOfEachTelegramWithItsFinalSource) {
    m_router.FromTunnel(1, WriteOne(kTunnels[1]));
    m_router.FromInterface(WriteOne(kSensor));
    m_router.FromDevice(WriteOne({}), 1);
    m_router.FromManagement(ToDevice({}, kSensor));
    m_router.FromControl(WriteOne({}));
    m_router.Inject(WriteOne(kSensor));
    m_router.FromInterface(WriteOne(kOwn)); // an echo goes nowhere
    EXPECT_THAT(
        m_ports.monitored,
        ElementsAre("0 1: 1.1.252 -> 1/2/3 GroupValue_Write 01", "1 0: 1.1.4 -> 1/2/3 GroupValue_Write 01",
                    "2 0: 1.1.250 -> 1/2/3 GroupValue_Write 01", "3 0: 1.1.250 -> 1.1.4 T_Connect 80",
                    "4 0: 1.1.250 -> 1/2/3 GroupValue_Write 01", "4 0: 1.1.4 -> 1/2/3 GroupValue_Write 01"));
}

TEST_F(Router, FromControlToEverybodyAndAllObjectsOfTheDevice) {
    m_router.FromControl(WriteOne({}));
    EXPECT_THAT(m_ports.went, ElementsAre("tunnels: 1.1.250 -> 1/2/3 GroupValue_Write 01",
                                          "interface: 1.1.250 -> 1/2/3 GroupValue_Write 01",
                                          "program: 128 1 01", "program: 128 2 01"));
}

TEST_F(Router, WhatIsInjectedDoesNotGoToTheInterface) {
    m_router.Inject(WriteOne(kSensor));
    EXPECT_THAT(m_ports.went, ElementsAre("tunnels: 1.1.4 -> 1/2/3 GroupValue_Write 01", "program: 128 1 01",
                                          "program: 128 2 01"));
}

TEST_F(Router, KnowsWhatFitsNoGroupObjectOfAnAddress) {
    const auto fits = [this](const KnxFrames::Tpdu& tpdu, GroupAddress destination) {
        return m_router.FitsGroup(Telegram({}, tpdu, destination));
    };
    const std::uint8_t octet[] = {7};
    const auto byte = *KnxFrames::MakeGroupLongValue(GroupServiceKind::Write, octet);
    const auto bit = KnxFrames::MakeGroupShortValue(GroupServiceKind::Write, 1);
    EXPECT_TRUE(fits(bit, kAddress));
    EXPECT_FALSE(fits(byte, kAddress));
    EXPECT_TRUE(fits(byte, GroupAddress(1, 2, 4)));
    EXPECT_FALSE(fits(bit, GroupAddress(1, 2, 4)));
    EXPECT_TRUE(fits(bit, GroupAddress(9, 9, 9))) << "nobody is known there";
    EXPECT_TRUE(fits(KnxFrames::MakeGroupRead(), kAddress));
}

} // namespace
} // namespace KnxStackHost
