// What a configuration is refused for.
#include "ConfigurationText.h"

#include <gmock/gmock.h>

namespace KnxStackHost {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(Configuration, RefusesWhatIsNoDatapointTypeWithOneSentence) {
    for (const std::string text :
         {"", "9,001", "DPT", "9.", "9.001x", "-9", "0.001", "9.65535", "temperature"})
        EXPECT_EQ(kFile + ": /groupObjects/0/dpt: \"" + text +
                      "\" is no known datapoint type; write it like 9.001, or give the \"size\" alone",
                  RefusalOf(Changed("1.001", text)));
}

struct FaultCase {
    const char* part;
    const char* by;
    const char* message; ///< behind the file name
};

TEST(Configuration, NamesFilePlaceAndCauseOfEveryFault) {
    const FaultCase cases[] = {
        {"\"device\": {", "\"devise\": {", "/devise: unknown member \"devise\"; did you mean \"device\"?"},
        {"\"1.1.250\"", "\"1.1.300\"", "/device/individualAddress: \"1.1.300\" is no individual address: "},
        {"\"1.1.250\"", "\"0.0.0\"", "/device/individualAddress: 0.0.0 stands for no address"},
        {"\"1.1.250\"", "11250", "/device/individualAddress: must be an individual address"},
        {"\"1.1.252\"", "\"1.1.250\"",
         "/server/tunnels/1: 1.1.250 is taken by /device/individualAddress already"},
        {"\"1.1.252\"", "\"1.1.251\"", "/server/tunnels/1: 1.1.251 is taken by /server/tunnels/0 already"},
        {"\"name\": \"house\"", "\"name\": \"\"", "/device/name: must have 1 to 29 bytes"},
        {"\"groupObjects\"", "\"control\": {\"path\": \"x\"}, \"groupObjects\"",
         "/control/path: unknown member \"path\""},
        {"\"groupObjects\"", "\"control\": {\"socketMode\": \"0888\"}, \"groupObjects\"",
         "/control/socketMode: must be the octal digits of permissions, e.g. \"0660\""},
        {"\"name\": \"house\"", "\"serialNumber\": \"00fa1122334\"",
         "/device/serialNumber: \"00fa1122334\" must be 6 bytes of two hexadecimal digits each"},
        {"\"name\": \"house\"", "\"serialNumber\": \"00fa1122334x\"",
         "/device/serialNumber: \"00fa1122334x\" must be 6 bytes of two hexadecimal digits each"},
        {"\"name\": \"house\"", "\"hardwareType\": \"\"",
         "/device/hardwareType: \"\" must be 6 bytes of two hexadecimal digits each"},
        {"\"name\": \"house\"", "\"manufacturer\": 65536", "/device/manufacturer: "},
        {"\"name\": \"house\"", "\"order\": \"12345678901\"", "/device/order: must have at most 10 bytes"},
        {"\"name\": \"house\"", "\"name\": \"123456789.123456789.123456789.\"",
         "/device/name: must have 1 to 29 bytes"},
        {"[\"1.1.251\", \"1.1.252\"]", "[]",
         "/server/tunnels: the server needs at least one individual address"},
        {"127.0.0.1", "localhost", "/server/address: \"localhost\" is no IPv4 address"},
        {"127.0.0.1", "224.0.0.1", "/server/address: 224.0.0.1 is no address of a network interface"},
        {"3672", R"(3672, "multicastGroup": "224.0.23.12", "multicastInterface": "255.255.255.255")",
         "/server/multicastInterface: 255.255.255.255 is no address of a network interface"},
        {"\"groupObjects\"",
         R"("interface": {"host": "gateway", "localAddress": "240.0.0.1"}, "groupObjects")",
         "/interface/localAddress: 240.0.0.1 is no address of a network interface"},
        {"\"groupObjects\"", R"("routing": {"interface": "224.0.23.12"}, "groupObjects")",
         "/routing/interface: 224.0.23.12 is no address of a network interface"},
        {"3672", "70000", "/server/port: must be a whole number from 0 to 65535, not 70000"},
        {"3672", "3672, \"enabled\": false",
         "/server/enabled: without a server there must be an \"interface\" or \"routing\""},
        {"\"groupObjects\"", R"("interface": {"host": "gateway", "protocol": "TCP"}, "groupObjects")",
         "/interface/protocol: must be \"udp\" or \"tcp\""},
        {"\"groupObjects\"", R"("routing": {"group": "10.0.0.1"}, "groupObjects")",
         "/routing/group: 10.0.0.1 is no multicast group; KNX uses 224.0.23.12"},
        {"\"groupObjects\"", R"("routing": {"interface": "lo"}, "groupObjects")",
         "/routing/interface: \"lo\" is no IPv4 address"},
        {"\"groupObjects\"", R"("routing": {"rate": 0}, "groupObjects")",
         "/routing/rate: must be a whole number from 1 to 1000, not 0"},
        {"\"groupObjects\"", R"("routing": {}, "interface": {"host": "gateway"}, "groupObjects")",
         "/routing: stands beside \"interface\"; the device can be on one bus only"},
        {"3672", "3672, \"multicastGroup\": \"10.0.0.1\"",
         "/server/multicastGroup: 10.0.0.1 is no multicast group"},
        {"3672", "3672, \"multicastInterface\": \"10.0.0.1\"",
         "/server/multicastInterface: says where to join"},
        {"\"number\": 7", "\"number\": 0",
         "/groupObjects/0/number: must be a whole number from 1 to 65534, not 0"},
        {"\"number\": 7, ", "", "/groupObjects/0: \"number\" is missing"},
        {"\"number\": 2", "\"number\": 7", "/groupObjects/1/number: 7 is taken by /groupObjects/0 already"},
        {"\"1.001\"", "\"1.001\", \"size\": 8", "/groupObjects/0/size: 8 bits, but a value of 1.001 has 1"},
        {"\"1.001\"", "\"999.001\"", "/groupObjects/0/dpt: \"999.001\" is no known datapoint type"},
        {"\"dpt\": \"1.001\", ", "", "/groupObjects/0: \"dpt\" or \"size\" is missing"},
        {"\"size\": 24", "\"size\": 25", "/groupObjects/1/size: must be 1 to 7 bits or a multiple of 8"},
        {"\"CW\"", "\"CX\"", "/groupObjects/1/flags: \"CX\" must consist of the letters C, R, W, T, U and I"},
        {"\"CW\"", "\"CC\"", "/groupObjects/1/flags: \"CC\" must consist of the letters"},
        {"\"flags\": \"CW\", ", "", "/groupObjects/1: \"flags\" is missing"},
        {"\"urgent\"", "\"high\"",
         "/groupObjects/0/priority: must be \"system\", \"normal\", \"urgent\" or \"low\""},
        {"\"1/2/4\"", "\"1/2/400\"", "/groupObjects/0/addresses/1: \"1/2/400\" is no group address: "},
        {"\"1/2/4\"", "\"0/0/0\"", "/groupObjects/0/addresses/1: 0/0/0 is the broadcast address"},
        {"\"1/2/4\"", "\"1/2/3\"", "/groupObjects/0/addresses/1: 1/2/3 is listed already"},
        {"\"1/2/4\"", "124", "/groupObjects/0/addresses/1: must be a group address"},
        {"\"type\": 50001, ", "", "/interfaceObjects/0: \"type\" is missing"},
        {"50001", "0", "/interfaceObjects/0/type: must be a whole number from 1 to 65535, not 0"},
        {"50001", "1, \"instances\": 0",
         "/interfaceObjects/0/instances: must be a whole number from 1 to 255"},
        {"50001", "7, \"instances\": 248}, {\"type\": 8",
         "/interfaceObjects: the device would have 256 interface objects, with the 7 that every device has"},
        {"50001", "1}, 7, {\"type\": 2", "/interfaceObjects/1: must be an object with \"type\""},
        {"50001", "1, \"instance\": 2",
         "/interfaceObjects/0/instance: unknown member \"instance\"; did you mean \"instances\"?"},
        {"\"id\": 202, ", "", "/interfaceObjects/0/properties/1: \"id\" is missing"},
        {"\"id\": 202", "\"id\": 0", "/interfaceObjects/0/properties/1/id: must be a whole number from 1"},
        {"\"id\": 202", "\"id\": 201",
         "/interfaceObjects/0/properties/1/id: the object has a property 201 already"},
        {"{\"id\": 202", "7, {\"id\": 202",
         "/interfaceObjects/0/properties/1: must be an object with \"id\""},
        {"\"dataType\": 17, ", "", "/interfaceObjects/0/properties/0: \"dataType\" is missing"},
        {"\"dataType\": 17", "\"dataType\": 62",
         "/interfaceObjects/0/properties/0/dataType: 62 is no property data type with a value"},
        {"\"dataType\": 17", "\"dataType\": 256",
         "/interfaceObjects/0/properties/0/dataType: must be a whole"},
        {"\"elements\": 2", "\"elements\": 0", "/interfaceObjects/0/properties/1/elements: must be a whole"},
        {"\"elements\": 2", "\"elements\": 2, \"value\": \"000102\"",
         "/interfaceObjects/0/properties/1/value: has 3 bytes; data type 3 with 2 elements needs 4"},
        {"\"dataType\": 3", "\"dataType\": 16, \"value\": \"00\"",
         "/interfaceObjects/0/properties/1/value: has 1 bytes; data type 16 with 2 elements needs 2 to 508"},
        {"\"40\"", "\"\"",
         "/interfaceObjects/0/properties/0/value: has 0 bytes; data type 17 with 1 elements"},
        {"\"40\"", "\"4\"", "/interfaceObjects/0/properties/0/value: \"4\" must be bytes of two hexadecimal"},
        {"\"40\"", "\"4g\"", "/interfaceObjects/0/properties/0/value: \"4g\" must be bytes"},
        {"\"40\"", "\"+4\"", "/interfaceObjects/0/properties/0/value: \"+4\" must be bytes"},
        {"\"40\"", "\"0x40\"", "/interfaceObjects/0/properties/0/value: \"0x40\" must be bytes"},
        {"\"40\"", "64", "/interfaceObjects/0/properties/0/value: must be a text"},
        {"\"lib/libprogram.so\"", "\"\"", "/applicationProgram/library: must be the path or name"},
        {"\"library\": \"lib/libprogram.so\", ", "", "/applicationProgram: \"library\" is missing"},
        {"\"KNX\"", "7", "/applicationProgram/settings/DscInstanceId: must be a text"},
        {"\"KNX\"}}", "\"KNX\"}}, \"log\": {\"level\": \"loud\"}", "/log/level: must be \"trace\""},
        {"\"KNX\"}}", "\"KNX\"}}, \"interface\": {}", "/interface: \"host\" is missing"},
        {"\"KNX\"}}", "\"KNX\"}}, \"interface\": {\"host\": \"a\", \"port\": 0}", "/interface/port: must be"},
    };
    for (const auto& c : cases)
        EXPECT_THAT(RefusalOf(Changed(c.part, c.by)), StartsWith(kFile + ": " + c.message));
}

TEST(Configuration, CountsFurtherFaults) {
    EXPECT_THAT(RefusalOf("{}"), HasSubstr("\"device\" is missing (and 2 more)"));
}

TEST(Configuration, NamesLineAndColumnOfASyntaxError) {
    EXPECT_THAT(RefusalOf("{\n\n  \"device\" 1}"), StartsWith(kFile + ": 3:"));
}

TEST(Configuration, RefusesAMemberThatStandsTwice) {
    EXPECT_THAT(RefusalOf(R"({"log": {}, "log": {}})"), StartsWith(kFile + ": 1:"));
}

TEST(Configuration, RefusesATextThatIsNoObject) {
    EXPECT_THAT(RefusalOf("[]"), HasSubstr("must be an object"));
}

TEST(Configuration, RefusesADirectory) {
    EXPECT_THROW(LoadConfiguration("/"), ConfigurationError);
}

} // namespace
} // namespace KnxStackHost
