#include "ConfigurationText.h"

#include "../../support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

namespace KnxStackHost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(Configuration, ReadsEveryMember) {
    const auto configuration = ParseConfiguration(
        Changed(
            "\"port\": 3672",
            R"("port": 3672, "tcp": false, "multicastGroup": "224.0.23.12", "multicastInterface": "10.0.0.1")")
            .replace(
                0, 1,
                R"({ "interface": {"host": "gateway", "port": 3700, "protocol": "tcp", "nat": true, "localAddress": "10.0.0.1"},
                "deviceStackSocket": "run/ds.sock", "project": "house.json",
                "log": {"level": "debug", "file": "/var/log/knx.log"},)"),
        kFile);
    EXPECT_EQ("/etc/knx", configuration.directory);
    EXPECT_EQ(KnxFrames::IndividualAddress(1, 1, 250), configuration.individualAddress);
    EXPECT_EQ("house", configuration.deviceName);
    EXPECT_TRUE(configuration.server.enabled);
    EXPECT_EQ("127.0.0.1", configuration.server.address);
    EXPECT_EQ(3672, configuration.server.port);
    EXPECT_FALSE(configuration.server.tcp);
    EXPECT_THAT(configuration.server.tunnels, ElementsAre(KnxFrames::IndividualAddress(1, 1, 251),
                                                          KnxFrames::IndividualAddress(1, 1, 252)));
    EXPECT_EQ("224.0.23.12", configuration.server.multicastGroup);
    EXPECT_EQ("10.0.0.1", configuration.server.multicastInterface);
    ASSERT_TRUE(configuration.interface);
    EXPECT_EQ("gateway", configuration.interface->host);
    EXPECT_EQ(3700, configuration.interface->port);
    EXPECT_TRUE(configuration.interface->nat);
    EXPECT_TRUE(configuration.interface->tcp);
    EXPECT_EQ("10.0.0.1", configuration.interface->localAddress);
    EXPECT_EQ("/etc/knx/run/ds.sock", configuration.deviceStackSocket);
    EXPECT_EQ("/etc/knx/house.json", configuration.project);
    EXPECT_EQ("debug", configuration.log.level);
    EXPECT_EQ("/var/log/knx.log", configuration.log.file);
    EXPECT_EQ("/etc/knx/lib/libprogram.so", configuration.program.library);
    EXPECT_THAT(configuration.program.settings, ElementsAre(std::pair("DscInstanceId", "KNX")));
}

TEST(Configuration, ReadsGroupObjects) {
    const auto configuration = ParseConfiguration(Changed("house", "house"), kFile);
    ASSERT_EQ(2u, configuration.groupObjects.size());
    const auto& light = configuration.groupObjects[0];
    EXPECT_EQ("light", light.name);
    EXPECT_EQ((Datapoint::Number{1, 1}), light.dpt);
    EXPECT_EQ(7, light.definition.number);
    EXPECT_EQ(1u, light.definition.sizeInBits);
    EXPECT_EQ(0x1F, light.definition.flags.bits);
    EXPECT_EQ(KnxFrames::Priority::Urgent, light.definition.priority);
    EXPECT_THAT(light.definition.groupAddresses,
                ElementsAre(KnxFrames::GroupAddress(1, 2, 3), KnxFrames::GroupAddress(1, 2, 4)));
    const auto& bytes = configuration.groupObjects[1];
    EXPECT_FALSE(bytes.dpt);
    EXPECT_EQ(24u, bytes.definition.sizeInBits);
    EXPECT_TRUE(light.definition.ownTelegrams);
    EXPECT_FALSE(bytes.definition.ownTelegrams);
    EXPECT_EQ(KnxFrames::Priority::Low, bytes.definition.priority);
    EXPECT_EQ(2u, configuration.MakeTable().Count());
}

TEST(Configuration, TextsOfAnyLengthAreFilledUp) {
    const auto fillsUp = [](const std::string& type) {
        const auto configuration = ParseConfiguration(Changed(R"("size": 24)", type), kFile);
        return configuration.groupObjects[1].definition.fillsUp;
    };
    EXPECT_TRUE(fillsUp(R"("dpt": "28.001", "size": 240)"));
    EXPECT_TRUE(fillsUp(R"("dpt": "24.xxx", "size": 112)"));
    EXPECT_FALSE(fillsUp(R"("dpt": "16.001")"));
    EXPECT_FALSE(fillsUp(R"("size": 240)"));
}

TEST(Configuration, ReadsInterfaceObjects) {
    const auto objects =
        ParseConfiguration(
            Changed(
                "\"type\": 50001,",
                R"("type": 7, "instances": 2, "properties": [{"id": 1, "dataType": 16, "elements": 2, "value": "00aB"}]},
                       {"type": 50001}, {"type": 7}, {"type": 50001,)"),
            kFile)
            .interfaceObjects;
    ASSERT_EQ(5u, objects.size());
    const std::pair<unsigned, unsigned> expected[] = {{7, 1}, {7, 2}, {50001, 1}, {7, 3}, {50001, 2}};
    for (std::size_t i = 0; i < objects.size(); ++i) {
        EXPECT_EQ(expected[i].first, objects[i].type) << i;
        EXPECT_EQ(expected[i].second, objects[i].instance) << i;
    }
    for (std::size_t i = 0; i < 2; ++i) {
        ASSERT_EQ(1u, objects[i].properties.size());
        EXPECT_EQ(1, objects[i].properties[0].id);
        EXPECT_EQ(16, objects[i].properties[0].dataType);
        EXPECT_EQ(2, objects[i].properties[0].elements);
        EXPECT_EQ("00ab", objects[i].properties[0].value->ToString());
    }
    EXPECT_TRUE(objects[2].properties.empty());
    ASSERT_EQ(2u, objects[4].properties.size());
    EXPECT_EQ("40", objects[4].properties[0].value->ToString());
    EXPECT_EQ(1, objects[4].properties[0].elements);
    EXPECT_FALSE(objects[4].properties[1].value);
}

TEST(Configuration, TakesAsManyInterfaceObjectsAndPropertiesAsThereIsRoomFor) {
    const auto objects = [](int instances) {
        return Changed("50001", "50001, \"instances\": " + std::to_string(instances));
    };
    EXPECT_EQ(248u, ParseConfiguration(objects(248), kFile).interfaceObjects.size());
    auto standard = objects(248);
    standard.replace(standard.find("\"interfaceObjects\": ["), 21, "\"interfaceObjects\": [{\"type\": 11},");
    EXPECT_EQ(249u, ParseConfiguration(standard, kFile).interfaceObjects.size())
        << "one that is there anyway";
    const auto properties = [](int count) {
        std::string list = "{\"id\": 201, \"dataType\": 17, \"value\": \"40\"}";
        for (int i = 1; i < count; ++i)
            list += ", {\"id\": " + std::to_string(1000 + i) + ", \"dataType\": 17}";
        return Changed("{\"id\": 201, \"dataType\": 17, \"value\": \"40\"}", list);
    };
    EXPECT_EQ(255u, ParseConfiguration(properties(254), kFile).interfaceObjects[0].properties.size());
    EXPECT_THAT(
        RefusalOf(properties(255)),
        HasSubstr(
            "/interfaceObjects/0/properties: an interface object can have at most 255 properties, not 256"));
}

TEST(Configuration, LeavesABareLibraryNameToTheLoader) {
    EXPECT_EQ("libprogram.so",
              ParseConfiguration(Changed("lib/libprogram.so", "libprogram.so"), kFile).program.library);
}

/// A configuration in a directory of its own, whose program has a memory or data file.
class ConfiguredBlock : public testing::Test {
protected:
    std::string File() const { return m_directory / "knxstackd.json"; }

    Configuration Load(const std::string& member) const {
        m_directory.Write("knxstackd.json", Changed("\"settings\"", member + ", \"settings\""));
        return LoadConfiguration(File());
    }

    std::string RefusalOf(const std::string& member) const {
        try {
            Load(member);
        } catch (const ConfigurationError& error) {
            return error.what();
        }
        return "accepted";
    }

    TestSupport::TemporaryDirectory m_directory;
};

TEST_F(ConfiguredBlock, IsReadFromTheFileThatIsNamed) {
    m_directory.Write("device/memory.bin", std::string("\x00\xFF\r\n", 4));
    m_directory.Write("data.bin", std::string("KAPD"));
    const auto configuration = Load(R"("memory": "device/memory.bin", "data": "data.bin")");
    EXPECT_EQ("00ff0d0a", configuration.memory.ToString());
    EXPECT_EQ("4b415044", configuration.applicationData.ToString());
}

TEST_F(ConfiguredBlock, MayBeEmptyOrAsLongAsItsBound) {
    m_directory.Write("empty", "");
    m_directory.Write("memory", std::string(64 * 1024, 'm'));
    m_directory.Write("data", std::string(1024 * 1024, 'd'));
    EXPECT_EQ(0u, Load(R"("memory": "empty", "data": "empty")").memory.GetSize());
    const auto configuration = Load(R"("memory": "memory", "data": "data")");
    EXPECT_EQ(64u * 1024, configuration.memory.GetSize());
    EXPECT_EQ(1024u * 1024, configuration.applicationData.GetSize());
    EXPECT_EQ('d', configuration.applicationData.Bytes().back());
}

TEST_F(ConfiguredBlock, IsRefusedWithPlaceFileAndCause) {
    m_directory.Write("memory", std::string(64 * 1024 + 1, 'm'));
    m_directory.Write("data", std::string(1024 * 1024 + 1, 'd'));
    m_directory.Write("directory/file", "");
    ASSERT_EQ(0, ::mkfifo((m_directory / "pipe").c_str(), 0600));
    const auto place = File() + ": /applicationProgram/";
    EXPECT_EQ(place + "memory: " + (m_directory / "memory") + ": has more than 64 KiB",
              RefusalOf(R"("memory": "memory")"));
    EXPECT_EQ(place + "data: " + (m_directory / "data") + ": has more than 1024 KiB",
              RefusalOf(R"("data": "data")"));
    EXPECT_EQ(place + "memory: " + (m_directory / "missing") + ": cannot be read: No such file or directory",
              RefusalOf(R"("memory": "missing")"));
    EXPECT_EQ(place + "memory: " + (m_directory / "directory") + ": is no file",
              RefusalOf(R"("memory": "directory")"));
    EXPECT_EQ(place + "data: " + (m_directory / "pipe") + ": is no file", RefusalOf(R"("data": "pipe")"));
    EXPECT_EQ(place + "data: must be a path, not an empty text", RefusalOf(R"("data": "")"));
}

TEST(Configuration, ReadsRouting) {
    const auto with = [](const std::string& routing) {
        return ParseConfiguration(
                   Changed("\"groupObjects\"", "\"routing\": " + routing + ", \"groupObjects\""), kFile)
            .routing.value();
    };
    EXPECT_EQ((RoutingSettings{"224.0.23.12", "", 50}), with("{}"));
    EXPECT_EQ((RoutingSettings{"239.1.2.3", "10.0.0.1", 20}),
              with(R"({"group": "239.1.2.3", "interface": "10.0.0.1", "rate": 20})"));
}

TEST(Configuration, ReadsControl) {
    const auto with = [](const std::string& control) {
        return ParseConfiguration(
                   Changed("\"groupObjects\"", "\"control\": " + control + ", \"groupObjects\""), kFile)
            .control.value();
    };
    EXPECT_EQ((ControlSettings{"/run/knxstackd/knxstackd.sock", 0660}), with("{}"));
    EXPECT_EQ((ControlSettings{"/etc/knx/run/c.sock", 0600}),
              with(R"({"socket": "run/c.sock", "socketMode": "600"})"));
}

TEST(Configuration, ANameThatNoFileCanHaveIsLeftToTheLoader) {
    const TestSupport::TemporaryDirectory directory; // the file system judges names in one that is there
    const std::string name(300, 'l');
    const auto configuration =
        ParseConfiguration(Changed("lib/libprogram.so", name), directory / "knxstackd.json");
    EXPECT_EQ(name, configuration.program.library);
}

TEST(Configuration, HasDefaults) {
    const auto configuration = ParseConfiguration(R"({"device": {"individualAddress": "1.1.1"},
        "server": {"tunnels": ["1.1.2"]}, "applicationProgram": {"library": "libp.so"}})",
                                                  kFile);
    EXPECT_EQ("knxstackd", configuration.deviceName);
    EXPECT_EQ("0.0.0.0", configuration.server.address);
    EXPECT_EQ(3671, configuration.server.port);
    EXPECT_TRUE(configuration.server.tcp);
    EXPECT_EQ("", configuration.server.multicastGroup);
    EXPECT_FALSE(configuration.interface);
    EXPECT_FALSE(configuration.routing);
    EXPECT_FALSE(configuration.control);
    EXPECT_TRUE(configuration.groupObjects.empty());
    EXPECT_TRUE(configuration.interfaceObjects.empty());
    EXPECT_EQ(0u, configuration.memory.GetSize());
    EXPECT_EQ(0u, configuration.applicationData.GetSize());
    EXPECT_EQ("info", configuration.log.level);
}

TEST(Configuration, ReadsADatapointTypeInEverySpellingThatPeopleUse) {
    const auto typeOf = [](const std::string& spelling) {
        const auto configuration = ParseConfiguration(Changed("1.001", spelling), kFile);
        EXPECT_EQ(16U, configuration.groupObjects.at(0).definition.sizeInBits) << spelling;
        return configuration.groupObjects.at(0).dpt;
    };
    for (const auto* spelling :
         {"9.001", "9.1", "DPT9.001", "DPT 9.001", "DPT-9.001", "DPST-9-1", "dpt9.001"})
        EXPECT_EQ((Datapoint::Number{9, 1}), typeOf(spelling)) << spelling;
    for (const auto* spelling : {"9", "9.xxx", "9.*", "DPT9", "DPT-9"})
        EXPECT_EQ((Datapoint::Number{9, Datapoint::kAnySub}), typeOf(spelling)) << spelling;
    EXPECT_EQ((Datapoint::Number{9, 999}), typeOf("DPST-9-999"));
}

TEST(Configuration, SaysWhoTheDeviceIs) {
    const auto identity = ParseConfiguration(Changed("\"name\": \"house\"",
                                                     R"("name": "house", "image": "state/device.image",
        "serialNumber": "00FA11223344", "manufacturer": 250, "hardwareType": "000000000102", "order": "OPEN-1")"),
                                             kFile)
                              .MakeIdentity();
    EXPECT_THAT(identity.serialNumber, ElementsAre(0x00, 0xFA, 0x11, 0x22, 0x33, 0x44));
    EXPECT_EQ(250, identity.manufacturer);
    EXPECT_THAT(identity.hardwareType, ElementsAre(0, 0, 0, 0, 1, 2));
    EXPECT_EQ("OPEN-1", std::string(identity.order.data()));
    EXPECT_EQ(KnxFrames::IndividualAddress(1, 1, 250), identity.factoryAddress);
}

TEST(Configuration, ASerialNumberOfItsOwnStaysTheSameAndDiffersBetweenDevices) {
    const auto serialOf = [](const std::string& name, const std::string& file) {
        return ParseConfiguration(
                   Changed("\"name\": \"house\"", "\"manufacturer\": 250, \"name\": \"" + name + '"'), file)
            .MakeIdentity()
            .serialNumber;
    };
    const auto own = serialOf("house", kFile);
    EXPECT_EQ(0x00, own[0]);
    EXPECT_EQ(0xFA, own[1]);
    EXPECT_EQ(own, serialOf("house", kFile));
    EXPECT_NE(own, serialOf("garage", kFile));
    EXPECT_NE(own, serialOf("house", "/etc/other/knxstackd.json"));
}

TEST(Configuration, KnowsAnInterfaceThatIsItsOwnServer) {
    struct Case {
        const char* server;
        std::uint16_t serverPort;
        const char* interface;
        std::uint16_t port;
        bool same;
    };
    const Case cases[] = {
        {"127.0.0.1", 3671, "127.0.0.1", 3671, true},  {"127.0.0.1", 3671, "localhost", 3671, true},
        {"0.0.0.0", 3671, "127.0.0.1", 3671, true},    {"0.0.0.0", 3671, "127.1.2.3", 3671, true},
        {"0.0.0.0", 3671, "0.0.0.0", 3671, true},      {"127.0.0.2", 3671, "127.0.0.1", 3671, false},
        {"127.0.0.1", 3672, "127.0.0.1", 3671, false}, {"0.0.0.0", 3671, "192.0.2.7", 3671, false},
        {"0.0.0.0", 3671, "knx.example", 3671, false},
    };
    for (const auto& c : cases) {
        Configuration configuration;
        configuration.server.address = c.server;
        configuration.server.port = c.serverPort;
        EXPECT_FALSE(LeadsBackToServer(configuration)) << "there is no interface";
        configuration.interface = InterfaceSettings{c.interface, c.port, false, false, ""};
        EXPECT_EQ(c.same, LeadsBackToServer(configuration))
            << c.server << ':' << c.serverPort << " and " << c.interface << ':' << c.port;
        configuration.server.enabled = false;
        EXPECT_FALSE(LeadsBackToServer(configuration)) << "there is no server";
    }
}

TEST(Configuration, TakesTheLongestDeviceName) {
    const std::string longest = "123456789.123456789.123456789";
    EXPECT_EQ(longest, ParseConfiguration(Changed("\"house\"", '"' + longest + '"'), kFile).deviceName);
}

} // namespace
} // namespace KnxStackHost
