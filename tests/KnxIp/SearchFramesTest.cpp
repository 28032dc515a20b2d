// Frames of the extended search, and the blocks that only it asks for.
#include "KnxIp/Frames.h"

#include "Transcript.h"

#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using Bytes = std::vector<std::uint8_t>;
using KnxFrames::FrameError;
using KnxFrames::IndividualAddress;
using Slot = TunnellingInformation::Slot;
using Testing::Hex;

const std::string kHpai = "0801c0a8010ac350"; // 192.168.1.10:50000
const Hpai kClient{{0xC0A8010A, 50000}};
const std::string kDevice = "360102011100123400fa01020304 e000170c 021122334455"
                            "74657374 0000000000000000000000000000000000000000000000000000";
const std::string kFamilies = "0602 0202 0402";
/// The bus is not reached; APDUs of 254 octets, descriptor 57B0h.
const std::string kExtended = "0808 01 00 00fe 57b0";
/// APDUs of 248 octets; 1.1.250 free, authorised and usable, 1.1.251 authorised and usable.
const std::string kTunnelling = "0c07 00f8 11fa0007 11fb0006";

Bytes Frame(const std::string& service, const std::string& body) {
    const Bytes octets = Hex(body);
    Bytes frame = Hex("0610" + service + "0000");
    frame.insert(frame.end(), octets.begin(), octets.end());
    frame[4] = static_cast<std::uint8_t>(frame.size() >> 8);
    frame[5] = static_cast<std::uint8_t>(frame.size() & 0xFF);
    return frame;
}

Bytes ToBytes(const Datagram& datagram) {
    return {datagram.Data(), datagram.Data() + datagram.Size()};
}

TEST(SearchFrames, TheParametersOfARequestAreTakenOneByOne) {
    const auto bytes = Frame("020b", kHpai + "0281 0882aabbccddeeff 04030402 0604 01020800 0389ff");
    const auto frame = ReadFrame(bytes);
    ASSERT_TRUE(frame) << frame.Error().cause;
    const auto& request = std::get<SearchRequestExtended>(*frame);
    EXPECT_EQ(request.discovery, kClient);
    EXPECT_EQ(ToBytes(WriteFrame(request)), bytes);

    struct Expected {
        int type;
        bool mandatory;
        Bytes data;
    };
    Octets left = request.parameters;
    for (const Expected& expected :
         {Expected{1, true, {}}, Expected{2, true, Hex("aabbccddeeff")}, Expected{3, false, Hex("0402")},
          Expected{4, false, Hex("01020800")}, Expected{9, true, Hex("ff")}}) {
        const auto parameter = TakeSearchParameter(left);
        ASSERT_TRUE(parameter);
        EXPECT_EQ(static_cast<int>(parameter->type), expected.type);
        EXPECT_EQ(parameter->mandatory, expected.mandatory) << expected.type;
        EXPECT_EQ(Bytes(parameter->data.begin(), parameter->data.end()), expected.data) << expected.type;
    }
    EXPECT_FALSE(TakeSearchParameter(left));
}

TEST(SearchFrames, AParameterThatIsNotWholeIsMalformed) {
    const std::pair<const char*, const char*> cases[] = {
        {"0281 01", "a search parameter is shorter than its header"},
        {"0281 0081", "a search parameter is shorter than its header"},
        {"0882aabbccddee", "the frame ends too early"},
    };
    for (const auto& [parameters, cause] : cases) {
        const auto frame = ReadFrame(Frame("020b", kHpai + parameters));
        ASSERT_FALSE(frame) << parameters;
        EXPECT_EQ(frame.Error().kind, FrameError::Kind::Malformed);
        EXPECT_STREQ(frame.Error().cause, cause);
    }
    Octets none;
    EXPECT_FALSE(TakeSearchParameter(none));
    for (const char* cut : {"01", "0181", "0381"}) {
        const Bytes bytes = Hex(cut);
        Octets left = bytes;
        EXPECT_FALSE(TakeSearchParameter(left)) << cut;
    }
}

TEST(SearchFrames, AResponseHasTheBlocksOfDeviceFamiliesAndTunnels) {
    const auto bytes = Frame("020c", "0801c0a801020e57" + kDevice + kFamilies + kExtended + kTunnelling);
    const auto frame = ReadFrame(bytes);
    ASSERT_TRUE(frame) << frame.Error().cause;
    const auto& response = std::get<SearchResponseExtended>(*frame);
    EXPECT_EQ(response.control, (Hpai{{0xC0A80102, 3671}}));
    EXPECT_EQ(response.description.device.name, "test");
    EXPECT_EQ(response.description.families, (std::vector<ServiceFamily>{{2, 2}, {4, 2}}));
    EXPECT_EQ(response.description.extended,
              (ExtendedDeviceInformation{ExtendedDeviceInformation::kMediumOffline, 254, 0x57B0}));
    EXPECT_EQ(response.description.tunnelling,
              (TunnellingInformation{
                  248,
                  {{IndividualAddress(1, 1, 250), Slot::kFree | Slot::kAuthorised | Slot::kUsable},
                   {IndividualAddress(1, 1, 251), Slot::kAuthorised | Slot::kUsable}}}));
    EXPECT_EQ(ToBytes(WriteFrame(response)), bytes);
}

TEST(SearchFrames, BlocksThatDoNotAddUpAreMalformed) {
    const std::pair<const char*, const char*> cases[] = {
        {"07080100 00fe57", "the extended device information is not 8 octets long"},
        {"09080100 00fe57b000", "the extended device information is not 8 octets long"},
        {"0307f8", "the tunnelling information has half a slot"},
        {"060700f8 11fa", "the tunnelling information has half a slot"},
    };
    for (const auto& [block, cause] : cases) {
        const auto frame = ReadFrame(Frame("020c", "0801c0a801020e57" + kDevice + kFamilies + block));
        ASSERT_FALSE(frame) << block;
        EXPECT_STREQ(frame.Error().cause, cause);
    }
}

TEST(SearchFrames, TheLargestAnswerFitsIntoADatagram) {
    SearchResponseExtended response;
    response.description.families.resize(20);
    response.description.extended.emplace();
    response.description.tunnelling.emplace().slots.resize(255, {IndividualAddress(1, 1, 1), 7});
    const Datagram datagram = WriteFrame(response);
    EXPECT_EQ(datagram.Size(), 362U);
    const auto frame = ReadFrame(datagram);
    ASSERT_TRUE(frame) << frame.Error().cause;
    EXPECT_EQ(std::get<SearchResponseExtended>(*frame).description.tunnelling->slots.size(),
              TunnellingInformation::kMostSlots);
}

} // namespace
} // namespace KnxIp
