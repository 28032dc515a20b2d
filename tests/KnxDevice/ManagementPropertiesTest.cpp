// Properties, memory and loading, as a tool sees them.
#include "ManagedDevice.h"

namespace KnxDevice {
namespace {

using testing::ElementsAre;

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
    EXPECT_EQ("01d3000000100b00020000000016000132", Ask("01d2 0000 00100b 0000"));
    auto* const text = m_objects.CreateInterfaceObject(50001)->CreateProperty(201, 0x10, 1, 1);
    text->SetActive(1);
    text->SetValue(KnxStack::BinaryData(std::vector<std::uint8_t>(245, 7)));
    EXPECT_EQ("01cdc3510010c9010001", Ask("01cc c351 0010c9 01 0001").substr(0, 20))
        << "as long as there is room";
    text->SetValue(KnxStack::BinaryData(std::vector<std::uint8_t>(246, 7)));
    EXPECT_EQ("01cdc3510010c9000001f4", Ask("01cc c351 0010c9 01 0001")) << "too long for an answer";
}

TEST_F(Managed, TheIpParametersAreThoseOfTheMoment) {
    EXPECT_EQ("03d60639100100000000", Ask("03d5 06 39 1001")) << "address, not known";
    IpFacts facts;
    facts.place = {0xC0A80102, 0xFFFFFF00, 0xC0A80101, {2, 0, 0, 0, 0, 1}};
    facts.multicast = 0xE000170D;
    facts.tunnels = {IndividualAddress(1, 1, 251), IndividualAddress(1, 1, 252)};
    facts.routes = true;
    m_device.SetIpFacts([&facts] { return facts; });
    EXPECT_EQ("03d606352001"
              "11fb11fc",
              Ask("03d5 06 35 2001"))
        << "addresses of tunnels";
    EXPECT_EQ("03d6064f20010102", Ask("03d5 06 4f 2001")) << "all of them are";
    for (const auto* const id : {"39", "3c"})
        EXPECT_EQ(fmt::format("03d606{}1001c0a80102", id), Ask(fmt::format("03d5 06 {} 1001", id)))
            << "address";
    for (const auto* const id : {"3a", "3d"})
        EXPECT_EQ(fmt::format("03d606{}1001ffffff00", id), Ask(fmt::format("03d5 06 {} 1001", id))) << "mask";
    for (const auto* const id : {"3b", "3e"})
        EXPECT_EQ(fmt::format("03d606{}1001c0a80101", id), Ask(fmt::format("03d5 06 {} 1001", id)))
            << "gateway";
    EXPECT_EQ("03d606401001020000000001", Ask("03d5 06 40 1001")) << "MAC address";
    EXPECT_EQ("03d606421001e000170d", Ask("03d5 06 42 1001")) << "multicast group";
    EXPECT_EQ("03d6064410010007", Ask("03d5 06 44 1001")) << "management, tunnelling, routing";
    facts.routes = false;
    EXPECT_EQ("03d6064410010003", Ask("03d5 06 44 1001"));
    EXPECT_EQ("03d60645100100", Ask("03d5 06 45 1001")) << "no fault";
    facts.busIsUnreachable = true;
    facts.lostToIp = 0x1234;
    facts.lostToBus = 0x10000;
    facts.sentToIp = 0x100000000;
    facts.sentToBus = 7;
    EXPECT_EQ("03d60645100101", Ask("03d5 06 45 1001"));
    EXPECT_EQ("03d6064810011234", Ask("03d5 06 48 1001"));
    EXPECT_EQ("03d606491001ffff", Ask("03d5 06 49 1001")) << "more than it can count";
    EXPECT_EQ("03d6064a1001ffffffff", Ask("03d5 06 4a 1001"));
    EXPECT_EQ("03d6064b100100000007", Ask("03d5 06 4b 1001"));
}

TEST_F(Managed, NoPropertyIsAFunctionButALoadControlCanBeCalled) {
    EXPECT_EQ("02c90036", Ask("02c7 00 36 00 01")) << "command: no return code";
    EXPECT_EQ("02c900ff", Ask("02c8 00 ff 00")) << "state";
    EXPECT_EQ("", Ask("02c7 00"));
    EXPECT_EQ("01d60000001036fe", Ask("01d4 0000 001036 00 01")) << "there, but of another type";
    EXPECT_EQ("01d60000001036fe", Ask("01d5 0000 001036 00"));
    EXPECT_EQ("01d600000010fffd", Ask("01d5 0000 0010ff 00")) << "no such property";
    EXPECT_EQ("01d60000002036fd", Ask("01d5 0000 002036 00")) << "no second device object";
    EXPECT_EQ("01d60000001000fd", Ask("01d4 0000 001000 00"));
    EXPECT_EQ("", Ask("01d4 0000 0010"));
    EXPECT_FALSE(m_device.IsInProgrammingMode());
    EXPECT_EQ("01d600010010050000", Ask("01d5 0001 001005 00")) << "the state is asked for: unloaded";
    EXPECT_EQ("01d600010010050002", Ask("01d4 0001 001005 01 000000000000000000")) << "start loading";
    EXPECT_EQ(LoadState::Loading, StateOf(StandardObject::AddressTable));
    EXPECT_EQ("01d60001001005f2", Ask("01d4 0001 001005 05")) << "no such event";
    EXPECT_EQ("01d60001001005fe", Ask("01d4 0001 001005")) << "none at all";
    EXPECT_EQ("01d600010010050003", Ask("01d5 0001 001005 00")) << "error";
    EXPECT_EQ("02c90105", Ask("02c7 01 05 04")) << "only by object type";
    EXPECT_EQ(LoadState::Error, StateOf(StandardObject::AddressTable));
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
    EXPECT_EQ("", Ask("0283 0200 0102")) << "the count is wrong";
    Ask("03d7 00 0e 1001 04"); // verify mode
    EXPECT_EQ("0241020099", Ask("0281 0200 99"));
    EXPECT_EQ("02400300", Ask("0281 0300 99"));
}

} // namespace
} // namespace KnxDevice
