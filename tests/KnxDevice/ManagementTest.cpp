// Bus management as a tool sees it: octets in, octets out.
#include "KnxDevice/Management.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <charconv>

namespace KnxDevice {
namespace {

using KnxFrames::LData;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IndividualAddress kOwn(1, 1, 250); // 11FAh
constexpr IndividualAddress kTool(1, 1, 20);

std::string Hex(Octets octets) {
    std::string text;
    for (const auto octet : octets)
        text += fmt::format("{:02x}", octet);
    return text;
}

/// "03d5 00 0b": blanks do not count.
Tpdu FromHex(std::string_view digits) {
    std::string packed;
    for (const char each : digits)
        if (each != ' ')
            packed += each;
    Tpdu tpdu;
    for (std::size_t at = 0; at + 1 < packed.size(); at += 2) {
        std::uint8_t octet = 0;
        std::from_chars(packed.data() + at, packed.data() + at + 2, octet, 16);
        tpdu.Append(octet);
    }
    return tpdu;
}

DeviceIdentity Identity() {
    DeviceIdentity identity;
    identity.serialNumber = {0x00, 0xFA, 0x11, 0x22, 0x33, 0x44};
    identity.manufacturer = 0x00FA;
    identity.hardwareType = {0, 0, 0, 0, 1, 2};
    identity.order = {'O', 'P', 'E', 'N'};
    identity.factoryAddress = kOwn;
    return identity;
}

class Managed : public testing::Test, protected ManagementListener {
protected:
    Managed() {
        m_device.SetListener([this](DeviceChange change) { m_changes.push_back(change); });
    }

    void SendTelegram(const LData& telegram) override { m_sent.push_back(telegram); }
    void OnRestart(Erase erase, IndividualAddress by) override {
        m_events.push_back(fmt::format("{} by {}", ToString(erase), by.ToString()));
    }
    void OnConnection(IndividualAddress tool, bool open) override {
        m_events.push_back(fmt::format("{} {}", tool.ToString(), open ? "connected" : "gone"));
    }
    void OnRefused(IndividualAddress, KnxFrames::Service service, const char*) override {
        m_refused.push_back(KnxFrames::ToString(service));
    }

    void Receive(const Tpdu& tpdu, IndividualAddress to = kOwn) {
        LData telegram;
        telegram.control2 = 0x60;
        telegram.source = kTool;
        telegram.destination = to.raw;
        telegram.tpdu = tpdu;
        m_management.OnTelegram(m_now, telegram);
    }
    void ReceiveBroadcast(std::string_view digits, bool system = false) {
        LData telegram;
        telegram.source = kTool;
        telegram.destination = 0;
        telegram.tpdu = FromHex(digits);
        if (system)
            telegram.control1 &= static_cast<std::uint8_t>(~LData::kBroadcast);
        m_management.OnTelegram(m_now, telegram);
    }
    std::vector<std::string> Sent() {
        std::vector<std::string> texts;
        for (const auto& telegram : std::exchange(m_sent, {}))
            texts.push_back(Hex(telegram.tpdu));
        return texts;
    }
    /// The answer to a connectionless request; "" for none.
    std::string Ask(std::string_view digits) {
        Receive(FromHex(digits));
        const auto sent = Sent();
        EXPECT_LE(sent.size(), 1u);
        return sent.empty() ? "" : sent.front();
    }
    void Connect() {
        Receive({0x80});
        m_sequence = 0;
        EXPECT_THAT(Sent(), IsEmpty());
    }
    /// The answer over the connection, as unnumbered data; acknowledged.
    std::string AskConnected(std::string_view digits) {
        auto request = FromHex(digits);
        request[0] = static_cast<std::uint8_t>(request[0] | 0x40 | m_sequence << 2);
        Receive(request);
        auto sent = Sent();
        EXPECT_FALSE(sent.empty());
        EXPECT_EQ(fmt::format("{:02x}", 0xC2 | m_sequence << 2), sent.at(0));
        m_sequence = (m_sequence + 1) % 16;
        if (sent.size() < 2)
            return "";
        auto answer = FromHex(sent[1]);
        Receive({static_cast<std::uint8_t>(0xC2 | (answer[0] & 0x3C))});
        answer[0] &= 0x03;
        return Hex(answer);
    }
    /// Unload, start loading, allocate, write, complete: all by telegrams.
    void Load(std::uint8_t object, const std::string& content) {
        const auto control = [&](std::string_view event) {
            Ask(fmt::format("03d7 {:02x} 05 1001 {}", object, event));
        };
        control("04000000000000000000");
        control("01000000000000000000");
        control(fmt::format("030b{:08x}010000 00", content.size() / 2));
        const auto address = Ask(fmt::format("03d5 {:02x} 07 1001", object)).substr(12);
        EXPECT_EQ("01fc00" + address.substr(2),
                  Ask(fmt::format("01fb {:02x} {} {}", content.size() / 2, address.substr(2), content)));
        control("02000000000000000000");
    }
    LoadState StateOf(StandardObject object) const { return m_device.Loadable(object).State(); }

    TimePoint m_now{seconds(1000)};
    InterfaceObjects m_objects;
    Device m_device{Identity(), m_objects};
    Management m_management{m_device, *this};
    std::vector<LData> m_sent;
    std::vector<std::string> m_events;
    std::vector<std::string> m_refused;
    std::vector<DeviceChange> m_changes;
    int m_sequence = 0;
};

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

TEST_F(Managed, ReadsAndDescribesProperties) {
    EXPECT_EQ("03d6000b100100fa11223344", Ask("03d5 00 0b 1001")) << "serial number";
    EXPECT_EQ("03d6000c100100fa", Ask("03d5 00 0c 1001")) << "manufacturer";
    EXPECT_EQ("03d6000f10014f50454e000000000000", Ask("03d5 00 0f 1001")) << "order number";
    EXPECT_EQ("03d60038100100fe", Ask("03d5 00 38 1001")) << "longest APDU";
    EXPECT_EQ("03d60039100111", Ask("03d5 00 39 1001")) << "area and line";
    EXPECT_EQ("03d6003a1001fa", Ask("03d5 00 3a 1001")) << "device";
    EXPECT_EQ("03d60053100157b0", Ask("03d5 00 53 1001")) << "device descriptor";
    EXPECT_EQ("03d600477001000000010002000900030004000b", Ask("03d5 00 47 7001")) << "types of all objects";
    EXPECT_EQ("03d6004710000007", Ask("03d5 00 47 1000")) << "how many";
    EXPECT_EQ("03d9000b0216000132", Ask("03d8 00 0b 00"))
        << "by id: PDT_GENERIC_06, one element, read 3, write 2";
    EXPECT_EQ("03d9000b0216000132", Ask("03d8 00 00 02")) << "by index";
    EXPECT_EQ("03d9003608b3000132", Ask("03d8 00 36 00")) << "writable, the ninth: PDT_BITSET8";
}

TEST_F(Managed, AnswersWhatIsNotThereWithACountOf0) {
    EXPECT_EQ("03d600ff0001", Ask("03d5 00 ff 1001")) << "no such property";
    EXPECT_EQ("03d6630b0001", Ask("03d5 63 0b 1001")) << "no such object";
    EXPECT_EQ("03d6000b0002", Ask("03d5 00 0b 1002")) << "no such element";
    EXPECT_EQ("03d6000b0001", Ask("03d5 00 0b 2001")) << "too many elements";
    EXPECT_EQ("03d6000b0001", Ask("03d7 00 0b 1001 000000000000")) << "read only";
    EXPECT_EQ("03d600360001", Ask("03d7 00 36 1001 0101")) << "too long";
    EXPECT_EQ("03d900ff0000000000", Ask("03d8 00 ff 00"));
    EXPECT_EQ("03d900006300000000", Ask("03d8 00 00 63"));
    EXPECT_EQ("", Ask("03d5 00 0b 10")) << "cut off";
    EXPECT_EQ("", Ask("03d7 00 36 1001")) << "nothing to write";
}

TEST_F(Managed, KnowsPropertiesByTypeAndInstanceToo) {
    // Object type 0000h, instance 001h and property 00Bh, one element from number 1.
    EXPECT_EQ("01cd000000100b01000100fa11223344", Ask("01cc 0000 00100b 01 0001"));
    EXPECT_EQ("01cd000b00103401000111fa", Ask("01cc 000b 001034 01 0001")) << "address, of the IP parameters";
    EXPECT_EQ("01cd000000200b000001fd", Ask("01cc 0000 00200b 01 0001")) << "no second device object";
    EXPECT_EQ("01cf000000103601000100", Ask("01ce 0000 001036 01 0001 01"));
    EXPECT_TRUE(m_device.IsInProgrammingMode());
    EXPECT_EQ("", Ask("01d0 0000 001036 01 0001 00")) << "unconfirmed";
    EXPECT_FALSE(m_device.IsInProgrammingMode());
    EXPECT_EQ("01cf000000100b010001fb", Ask("01ce 0000 00100b 01 0001 000000000000")) << "read only";
    EXPECT_EQ("01cf00000010ff010001fd", Ask("01ce 0000 0010ff 01 0001 00")) << "no such property";
    EXPECT_EQ("01cf0000001000010001fd", Ask("01ce 0000 001000 01 0001 00")) << "nor one without a number";
    EXPECT_EQ("01cf0000001036010001fc", Ask("01ce 0000 001036 01 0001 0101")) << "too long for it";
    EXPECT_EQ("01d3000000100b00020000000016000132", Ask("01d2 0000 00100b 0000"));
    auto* const text = m_objects.CreateInterfaceObject(50001)->CreateProperty(201, 0x10, 1, 1);
    text->SetActive(1);
    text->SetValue(KnxStack::BinaryData(std::vector<std::uint8_t>(245, 7)));
    EXPECT_EQ("01cdc3510010c9010001", Ask("01cc c351 0010c9 01 0001").substr(0, 20))
        << "as long as there is room";
    text->SetValue(KnxStack::BinaryData(std::vector<std::uint8_t>(246, 7)));
    EXPECT_EQ("01cdc3510010c9000001f4", Ask("01cc c351 0010c9 01 0001")) << "too long for an answer";
}

TEST_F(Managed, PropertiesOfTheApplicationProgramAreThereOnceItShowsThem) {
    auto* const object = m_objects.CreateInterfaceObject(50001);
    auto* const property = object->CreateArrayProperty(201, 0x12, 3, 1, 1); // three elements of two octets
    EXPECT_EQ("03d607c90001", Ask("03d5 07 c9 1001"));
    property->SetActive(1);
    EXPECT_EQ("03d607011001c351", Ask("03d5 07 01 1001")) << "its type: 50001";
    EXPECT_EQ("03d607c910000000", Ask("03d5 07 c9 1000")) << "nothing was written yet";
    EXPECT_EQ("03d607c910020102", Ask("03d7 07 c9 1002 0102")) << "the second element";
    EXPECT_EQ("000001020000", property->GetValue().ToString());
    EXPECT_THAT(m_changes, ElementsAre(DeviceChange::Stored));
    EXPECT_EQ("03d607c93001000001020000", Ask("03d5 07 c9 3001"));
    EXPECT_EQ("03d607c90004", Ask("03d7 07 c9 1004 0102")) << "there are three";
    EXPECT_EQ("03d907c90192000332", Ask("03d8 07 c9 00"));
    auto* const fixed = object->CreateProperty(202, 0x11, 0, 0);
    fixed->SetActive(1);
    fixed->SetValue(KnxStack::BinaryData{5});
    EXPECT_EQ("03d607ca0001", Ask("03d7 07 ca 1001 09"));
    EXPECT_EQ("03d607ca100105", Ask("03d5 07 ca 1001"));
}

TEST_F(Managed, ProgrammingModeByPropertyAndByMemory) {
    EXPECT_EQ("0241006000", Ask("0201 0060"));
    EXPECT_EQ("03d60036100101", Ask("03d7 00 36 1001 01"));
    EXPECT_TRUE(m_device.IsInProgrammingMode());
    EXPECT_EQ("0241006081", Ask("0201 0060")) << "with even parity";
    EXPECT_EQ("", Ask("0281 0060 00"));
    EXPECT_FALSE(m_device.IsInProgrammingMode());
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

TEST_F(Managed, ADownloadLoadsTablesAndProgram) {
    Load(1, "00010a03");
    Load(2, "000100010001");
    Load(3, "000117080000");
    Load(4, "aabbcc");
    for (const auto object : {StandardObject::AddressTable, StandardObject::AssociationTable,
                              StandardObject::GroupObjectTable, StandardObject::Program1})
        EXPECT_EQ(LoadState::Loaded, StateOf(object)) << ToString(object);
    EXPECT_EQ("03d6011710010a03", Ask("03d5 01 17 1001")) << "the table as a property";
    EXPECT_EQ("03d60405100101", Ask("03d5 04 05 1001"));
    const auto loaded = m_device.LoadedGroupObjects();
    ASSERT_EQ(1u, loaded.size());
    EXPECT_THAT(loaded[0].groupAddresses, ElementsAre(GroupAddress(1, 2, 3)));
    EXPECT_EQ(16u, loaded[0].sizeInBits);
    EXPECT_EQ(4, m_device.Downloads());
}

TEST_F(Managed, AnUnsortedTableIsAnErrorThatSaysWhy) {
    Load(1, "00020a030a02");
    EXPECT_EQ(LoadState::Error, StateOf(StandardObject::AddressTable));
    EXPECT_EQ("03d6011c10010f", Ask("03d5 01 1c 1001"));
}

TEST_F(Managed, MemoryIsReadAndWrittenByEachService) {
    Ask("03d7 04 05 1001 01000000000000000000");
    Ask("03d7 04 05 1001 030b00000010010000 00"); // 16 octets
    ASSERT_EQ("03d60407100100000200", Ask("03d5 04 07 1001"));
    EXPECT_EQ("", Ask("0283 0200 010203"));
    EXPECT_EQ("02430200010203", Ask("0203 0200"));
    EXPECT_EQ("02400210", Ask("0201 0210")) << "behind the end";
    EXPECT_EQ("024001ff", Ask("0202 01ff")) << "before the beginning";
    EXPECT_EQ("", Ask("02c2 02 0203 0405"));
    EXPECT_EQ("02c10502000102030405", Ask("02c0 05 0200"));
    EXPECT_EQ("02c1100200", Ask("02c0 11 0200")) << "four more bits of address: 10200h";
    EXPECT_EQ("01fc00000205", Ask("01fb 02 000205 0607"));
    EXPECT_EQ("01fe00000203040506", Ask("01fd 03 000203"));
    EXPECT_EQ("01fefd00020f", Ask("01fd 02 00020f"));
    EXPECT_EQ("01fcf100020f", Ask("01fb 02 00020f 0102"));
    EXPECT_EQ("", Ask("0283 0200 0102")) << "the count is wrong";
    Ask("03d7 00 0e 1001 04"); // verify mode
    EXPECT_EQ("0241020099", Ask("0281 0200 99"));
    EXPECT_EQ("02400300", Ask("0281 0300 99"));
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
