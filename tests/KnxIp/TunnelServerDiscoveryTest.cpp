// Who is told what of the server.
#include "ServerBench.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using namespace ServerTesting;

const std::string kHpai = "0801c0a8010ac350";

/// Over TCP, in programming mode, with a MAC address.
TunnelServerConfig Version2() {
    TunnelServerConfig config = Config();
    config.families = CoreAndTunnelling(true);
    config.device.programmingMode = true;
    config.device.mac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    return config;
}

/// The answer to an extended search with the parameters, without the lines' ends; empty without one.
std::string Answer(ServerBench& bench, const std::string& parameters) {
    const auto size = 14 + Hex(parameters).size();
    bench.Receive(kOther, fmt::format("0610020b{:04x}", size) + kHpai + parameters);
    const auto transcript = bench.Take();
    const std::string sent = "> client ";
    const auto found = transcript.find(sent);
    return found == std::string::npos
               ? std::string()
               : transcript.substr(found + sent.size(), transcript.size() - 1 - found - sent.size());
}

const std::string kServerHpai = "0801c0a801020e57"; // where to reach it
const std::string kDeviceAndFamilies = kServerHpai +
                                       "36010201110000000000000000 00e000170c 021122334455 74657374"
                                       "0000000000000000000000000000000000000000000000000000"
                                       "060202020402";
const std::string kExtended = "0808000000fe57b0";
const std::string kTunnels = "0c0700fe11fa000711fb0007";

std::string Body(std::string body) {
    std::erase(body, ' ');
    return body;
}

TEST(TunnelServerDiscovery, AnExtendedSearchWithoutParametersIsToldEverything) {
    ServerBench bench(Version2());
    EXPECT_EQ(Answer(bench, ""), "0610020c005e " + Body(kDeviceAndFamilies + kExtended + kTunnels));
}

TEST(TunnelServerDiscovery, AWishAddsBlocksToDeviceAndFamilies) {
    ServerBench bench(Version2());
    EXPECT_EQ(Answer(bench, "0484 0102"), "0610020c004a " + Body(kDeviceAndFamilies));
    EXPECT_EQ(Answer(bench, "0484 0800"), "0610020c0052 " + Body(kDeviceAndFamilies + kExtended));
    EXPECT_EQ(Answer(bench, "0404 0700"), "0610020c0056 " + Body(kDeviceAndFamilies + kTunnels));
    EXPECT_EQ(Answer(bench, "0484 0700 0404 0800"),
              "0610020c005e " + Body(kDeviceAndFamilies + kExtended + kTunnels));
    EXPECT_EQ(Answer(bench, "0484 fe06"), "0610020c004a " + Body(kDeviceAndFamilies))
        << "what is not to be had is left out";
}

TEST(TunnelServerDiscovery, EachConditionMustHold) {
    const auto isAnswered = [](const std::string& parameters) {
        ServerBench bench(Version2());
        return !Answer(bench, parameters).empty();
    };
    EXPECT_TRUE(isAnswered("0281"));
    EXPECT_TRUE(isAnswered("0882 021122334455"));
    EXPECT_FALSE(isAnswered("0882 021122334456"));
    EXPECT_FALSE(isAnswered("0802 021122334456")) << "a condition that is known counts, mandatory or not";
    EXPECT_TRUE(isAnswered("0483 0202"));
    EXPECT_TRUE(isAnswered("0483 0401"));
    EXPECT_FALSE(isAnswered("0483 0403")) << "a later version";
    EXPECT_FALSE(isAnswered("0483 0501")) << "another family";
    EXPECT_TRUE(isAnswered("0281 0882021122334455 04830402 04840700"));
    EXPECT_FALSE(isAnswered("0281 04830403 0882021122334455"));
}

TEST(TunnelServerDiscovery, ProgrammingModeIsThatOfTheMoment) {
    ServerBench bench(Version2());
    DeviceInformation device = Version2().device;
    device.programmingMode = false;
    bench.Server().SetDevice(device);
    EXPECT_EQ(Answer(bench, "0281"), "");
    device.programmingMode = true;
    bench.Server().SetDevice(device);
    EXPECT_NE(Answer(bench, "0281"), "");
    device.name = "other";
    bench.Server().SetDevice(device);
    EXPECT_NE(Answer(bench, "").find("6f74686572"), std::string::npos);
}

TEST(TunnelServerDiscovery, WhatIsNotUnderstoodKeepsTheServerSilentOnlyWhenMandatory) {
    const auto isAnswered = [](const std::string& parameters) {
        ServerBench bench(Version2());
        return !Answer(bench, parameters).empty();
    };
    EXPECT_FALSE(isAnswered("0385ff"));
    EXPECT_TRUE(isAnswered("0305ff"));
    EXPECT_FALSE(isAnswered("0280")) << "type 0 is none";
    EXPECT_TRUE(isAnswered("0200"));
    EXPECT_FALSE(isAnswered("038100")) << "programming mode has no data";
    EXPECT_TRUE(isAnswered("030100"));
    EXPECT_FALSE(isAnswered("0782 0211223344")) << "half an address";
    EXPECT_FALSE(isAnswered("0383 04")) << "a family without a version";
}

TEST(TunnelServerDiscovery, TheTunnelsThatAreInUseAreNotFree) {
    ServerBench bench(Version2());
    bench.Connect();
    EXPECT_TRUE(Answer(bench, "04840700").ends_with("0c0700fe11fa000611fb0007"));
    bench.Receive(kClient, kDisconnectRequest);
    bench.Take();
    EXPECT_TRUE(Answer(bench, "04840700").ends_with("0c0700fe11fa000711fb0007"));
}

TEST(TunnelServerDiscovery, ADescriptionHasNoBlocksThatClientsOfVersion1DoNotKnow) {
    ServerBench bench(Version2());
    bench.Receive(kOther, "06100203000e" + kHpai);
    EXPECT_TRUE(bench.Take().ends_with("> client 061002040042 " +
                                       Body(kDeviceAndFamilies).substr(Body(kServerHpai).size()) + "\n"));
}

TEST(TunnelServerDiscovery, ABasicSearchIsAnsweredAsEver) {
    ServerBench bench(Version2());
    bench.Receive(kOther, "06100201000e" + kHpai);
    EXPECT_TRUE(bench.Take().ends_with("> client 06100202004a " + Body(kDeviceAndFamilies) + "\n"));
}

TEST(TunnelServerDiscovery, ASearchOverAStreamIsAnsweredInItWithTheEndpointForDatagrams) {
    ServerBench bench(Version2());
    bench.OpenStream(3);
    bench.ReceiveFrom(3, "0610020b0012 0802000000000000 04840102");
    const auto transcript = bench.Take();
    EXPECT_NE(transcript.find("> stream-3 0610020c004a " + Body(kDeviceAndFamilies)), std::string::npos)
        << transcript;
}

TEST(TunnelServerDiscovery, ABasicSearchInAStreamIsNotAnswered) {
    ServerBench bench(Version2());
    bench.OpenStream(3);
    bench.ReceiveFrom(3, "06100201000e 0802000000000000");
    EXPECT_EQ(bench.Take(), R"(
0.000 < stream-3 06100201000e 0802000000000000
0.000 ! a basic search came in a stream
)");
}

TEST(TunnelServerDiscovery, AnEndpointThatDoesNotFitItsWayIsNotAnswered) {
    const std::vector<std::string> services = {"06100201000e", "06100203000e", "0610020b000e"};
    const std::string cause = "an endpoint in a datagram is not one of UDP";
    for (const auto& service : services) {
        ServerBench bench(Version2());
        for (const auto* const hpai : {"0802000000000000", "0802c0a8010ac350"}) {
            bench.Receive(kOther, service + hpai);
            const auto transcript = bench.Take();
            EXPECT_TRUE(transcript.ends_with("! " + cause + "\n")) << transcript;
            EXPECT_EQ(transcript.find('>'), std::string::npos) << transcript;
        }
        bench.Receive(kOther, service + "0801000000000000");
        EXPECT_NE(bench.Take().find("> other"), std::string::npos) << service;
    }
}

TEST(TunnelServerDiscovery, AnExtendedSearchIsToldThatTheBusCannotBeReached) {
    ServerBench bench(Version2());
    bench.Server().SetInterface(bench.Now(), {.isConnected = false});
    EXPECT_TRUE(Answer(bench, "0484 0800").ends_with("0808010000fe57b0"));
    bench.Server().SetInterface(bench.Now(), {.isConnected = true});
    EXPECT_TRUE(Answer(bench, "0484 0800").ends_with(kExtended));
}

} // namespace
} // namespace KnxIp
