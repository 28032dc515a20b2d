// Addressing, access, restart, and what is not answered.
#include "ManagedDevice.h"

namespace KnxDevice {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(Managed, NamesItsDeviceDescriptor) {
    EXPECT_EQ("034057b0", Ask("0300"));
    EXPECT_EQ("037f", Ask("0302")) << "type 2 is none of ours";
    Connect();
    EXPECT_EQ("034057b0", AskConnected("0300"));
}

TEST_F(Managed, AnswersGoToWhoAskedWithTheSamePriorityAndTheDevicesHopCount) {
    LData telegram;
    telegram.control2 = 0x60;
    telegram.source = IndividualAddress(5, 6, 7);
    telegram.destination = kOwn.raw;
    telegram.SetPriority(KnxFrames::Priority::System);
    telegram.tpdu = FromHex("0300");
    m_device.SetHopCount(3);
    m_management.OnTelegram(m_now, telegram);
    ASSERT_EQ(1u, m_sent.size());
    EXPECT_EQ(IndividualAddress(5, 6, 7), m_sent[0].IndividualDestination());
    EXPECT_FALSE(m_sent[0].IsToGroup());
    EXPECT_EQ(KnxFrames::Priority::System, m_sent[0].GetPriority());
    EXPECT_EQ(0x30, m_sent[0].control2);
}

TEST_F(Managed, AnswersThroughAConnectionKeepTheirPriorityAndItsControlHasTheHighest) {
    const auto receive = [this](const Tpdu& tpdu, KnxFrames::Priority priority,
                                IndividualAddress from = kTool) {
        LData telegram;
        telegram.control2 = 0x60;
        telegram.source = from;
        telegram.destination = kOwn.raw;
        telegram.SetPriority(priority);
        telegram.tpdu = tpdu;
        m_management.OnTelegram(m_now, telegram);
    };
    const auto sent = [this] {
        std::vector<std::string> texts;
        for (const auto& telegram : std::exchange(m_sent, {}))
            texts.push_back(
                fmt::format("{} {}", Hex(telegram.tpdu), static_cast<int>(telegram.GetPriority())));
        return texts;
    };
    using enum KnxFrames::Priority;
    receive({0x80}, System);
    receive(FromHex("4300"), Low);
    receive(FromHex("4700"), Low);
    EXPECT_THAT(sent(), ElementsAre("c2 0", "434057b0 3", "c6 0"));
    receive({0x80}, Low, IndividualAddress(1, 1, 21));
    EXPECT_THAT(sent(), ElementsAre("81 0")) << "another tool is refused";
    receive(FromHex("0300"), Urgent, IndividualAddress(1, 1, 21));
    EXPECT_THAT(sent(), ElementsAre("034057b0 2"));
    m_management.OnTime(m_now += seconds(3));
    EXPECT_THAT(sent(), ElementsAre("434057b0 3")) << "repeated";
    receive({0xC2}, System);
    EXPECT_THAT(sent(), ElementsAre("474057b0 3")) << "the one that waited";
}

TEST_F(Managed, IsSilentToWhatIsNotForIt) {
    constexpr IndividualAddress kNeighbour(1, 1, 249);
    for (const auto* const digits : {"80", "81", "c2", "c3", "4300", "0300", "0380", "03d5000b1001"})
        Receive(FromHex(digits), kNeighbour);
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(m_events, IsEmpty());
    for (const auto* const digits : {"81", "c2", "c3", "4300"}) // without a connection
        Receive(FromHex(digits));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(Managed, TakesAnAddressInProgrammingModeAlone) {
    ReceiveBroadcast("00c0 11f9");
    ReceiveBroadcast("0100");
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_EQ(kOwn, m_device.Address());
    m_device.SetProgrammingMode(true);
    ReceiveBroadcast("0100");
    ASSERT_EQ(1u, m_sent.size());
    EXPECT_TRUE(m_sent[0].IsToGroup());
    EXPECT_EQ(0, m_sent[0].destination);
    EXPECT_THAT(Sent(), ElementsAre("0140"));
    ReceiveBroadcast("00c0 11f9");
    EXPECT_EQ(IndividualAddress(1, 1, 249), m_device.Address());
    EXPECT_EQ("", Ask("0300")) << "the former address is not its own any more";
}

TEST_F(Managed, TakesAnAddressByItsSerialNumber) {
    ReceiveBroadcast("03dc 00fa11223345");
    ReceiveBroadcast("03de 00fa11223345 11f9 00000000");
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_EQ(kOwn, m_device.Address());
    ReceiveBroadcast("03dc 00fa11223344");
    EXPECT_THAT(Sent(), ElementsAre("03dd00fa1122334400000000"));
    ReceiveBroadcast("03de 00fa11223344 11f9 00000000");
    EXPECT_EQ(IndividualAddress(1, 1, 249), m_device.Address());
}

TEST_F(Managed, TellsItsSerialNumberToWhoLooksForProgrammingMode) {
    ReceiveBroadcast("03da 0000 0b 01");
    ReceiveBroadcast("01c8 0000 00b0 01", true);
    EXPECT_THAT(Sent(), IsEmpty());
    m_device.SetProgrammingMode(true);
    ReceiveBroadcast("03da 0000 0b 01");
    EXPECT_THAT(Sent(), ElementsAre("03db00000b0100fa11223344"));
    ReceiveBroadcast("01c8 0000 00b0 01", true);
    ASSERT_EQ(1u, m_sent.size());
    EXPECT_EQ(0, m_sent[0].control1 & LData::kBroadcast) << "by system broadcast";
    EXPECT_THAT(Sent(), ElementsAre("01c9000000b00100fa11223344"));
    ReceiveBroadcast("03da 0000 0c 01"); // what nobody asks
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(Managed, AKeyClosesTheDeviceToWhoDoesNotHaveIt) {
    Connect();
    EXPECT_EQ("03d200", AskConnected("03d1 00 ffffffff"));
    for (const auto* const level : {"00", "01", "02"})
        EXPECT_EQ(fmt::format("03d4{}", level), AskConnected(fmt::format("03d3 {} 11223344", level)));
    EXPECT_EQ("03d4ff", AskConnected("03d3 03 11223344")) << "anybody's level has no key";
    Receive({0x81});
    EXPECT_EQ("03d600360001", Ask("03d7 00 36 1001 01"));
    EXPECT_EQ("03d60036100100", Ask("03d5 00 36 1001")) << "reading stays free";
    Connect();
    EXPECT_EQ("03d203", AskConnected("03d1 00 44332211"));
    EXPECT_EQ("03d4ff", AskConnected("03d3 02 00000000"));
    EXPECT_EQ("03d200", AskConnected("03d1 00 11223344"));
    EXPECT_EQ("03d60036100101", AskConnected("03d7 00 36 1001 01"));
    Receive({0x81});
    Connect();
    EXPECT_EQ("03d600360001", AskConnected("03d7 00 36 1001 00")) << "the key was of the other connection";
}

TEST_F(Managed, RestartsWithoutAnAnswer) {
    m_device.SetProgrammingMode(true);
    EXPECT_EQ("", Ask("0380"));
    EXPECT_THAT(m_events, ElementsAre("restart by 1.1.20"));
    EXPECT_FALSE(m_device.IsInProgrammingMode());
    m_events.clear();
    Connect();
    Receive(FromHex("4380"));
    EXPECT_THAT(Sent(), ElementsAre("c2", "81")) << "the connection ends first";
    EXPECT_THAT(m_events, ElementsAre("1.1.20 connected", "1.1.20 gone", "restart by 1.1.20"));
}

TEST_F(Managed, AMasterResetErasesWhatItsCodeNames) {
    const auto loadAll = [this] {
        Load(1, "00010a03");
        Load(2, "000100010001");
        Load(3, "000117080000");
        Load(4, "aa");
        Load(5, "bb");
        m_device.SetAddress(IndividualAddress(1, 1, 250));
        m_device.SetProjectInstallation(7);
    };
    const auto states = [this] {
        std::string text;
        for (int object = 1; object <= 5; ++object)
            text += StateOf(static_cast<StandardObject>(object)) == LoadState::Loaded ? 'L' : '-';
        return text;
    };
    const std::vector<std::pair<int, std::string>> cases = {
        {1, "LLLLL"}, {2, "-----"}, {3, "LLLLL"}, {4, "-----"}, {5, "LLL--"}, {6, "--LLL"}, {7, "-----"}};
    for (const auto& [code, left] : cases) {
        loadAll();
        EXPECT_EQ("03a1000003", Ask(fmt::format("0381 {:02x} 00", code)));
        EXPECT_EQ(left, states()) << code;
        EXPECT_EQ(code == 2 || code == 7 ? 0 : 7, m_device.ProjectInstallation()) << code;
    }
    EXPECT_EQ("03a1020000", Ask("0381 08 00")) << "no such erase code";
    EXPECT_EQ("03a1030000", Ask("0381 02 01")) << "no such channel";
    ASSERT_EQ(cases.size(), m_events.size());
    EXPECT_EQ("reset of the group addresses by 1.1.20", m_events[5]);
}

TEST_F(Managed, AResetOfTheAddressBringsBackTheFactorys) {
    m_device.SetProgrammingMode(true);
    ReceiveBroadcast("00c0 11f9");
    Receive(FromHex("0381 03 00"), IndividualAddress(1, 1, 249));
    EXPECT_EQ(kOwn, m_device.Address());
}

TEST_F(Managed, AMasterResetNeedsTheKey) {
    for (const AccessLevel level : {0, 1, 2})
        m_device.SetKey(level, 0x11223344);
    EXPECT_EQ("03a1010000", Ask("0381 02 00"));
    EXPECT_EQ("03a1000003", Ask("0381 01 00")) << "a confirmed restart erases nothing";
}

TEST_F(Managed, UnknownServicesAreNotAnswered) {
    EXPECT_EQ("", Ask("03c0"));
    EXPECT_EQ("", Ask("02c5")) << "known, but not a service of this device";
    EXPECT_THAT(m_refused, ElementsAre("A_UserManufacturerInfo_Read"));
    EXPECT_EQ("01c1000000", Ask("0181 01")) << "there is no converter: no sample";
    EXPECT_EQ("", Ask("0188 01")) << "the answer for channel 8 would be another service";
    EXPECT_EQ("", Ask("0181")) << "cut off";
    EXPECT_EQ("02c90036", Ask("02c8 00 36 00")) << "no property is a function";
}

} // namespace
} // namespace KnxDevice
