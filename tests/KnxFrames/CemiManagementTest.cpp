#include "KnxFrames/CemiManagement.h"

#include <gtest/gtest.h>

#include <vector>

namespace KnxFrames {
namespace {

using Bytes = std::vector<std::uint8_t>;

// KNXnet/IP parameter object (000Bh), instance 1, PID 52 (34h), one element from 1 on, unless said otherwise.
const Bytes kRead = {0xFC, 0x00, 0x0B, 0x01, 0x34, 0x10, 0x01};
const Bytes kReadConfirmation = {0xFB, 0x00, 0x0B, 0x01, 0x34, 0x10, 0x01, 0x11, 0xFA};
const Bytes kReadRefusal = {0xFB, 0x00, 0x0B, 0x01, 0x34, 0x00, 0x01, 0x07};
const Bytes kWrite = {0xF6, 0x00, 0x0B, 0x02, 0x4C, 0xF1, 0x23, 0x41, 0x42}; // PID 76, 15 elements from 291
const Bytes kWriteConfirmation = {0xF5, 0x00, 0x0B, 0x02, 0x4C, 0xF1, 0x23};
const Bytes kCommand = {0xF8, 0x00, 0x0B, 0x02, 0xC9, 0x00, 0x01};
const Bytes kStateRead = {0xF9, 0x00, 0x0B, 0x02, 0xC9};
const Bytes kFunctionConfirmation = {0xFA, 0x00, 0x0B, 0x02, 0xC9, 0x00, 0x2A};
const Bytes kInfo = {0xF7, 0x00, 0x00, 0x01, 0x36, 0x10, 0x01, 0x01};

Bytes Encoded(const ManagementMessage& message) {
    const auto octets = EncodeManagement(message);
    return {octets.Data(), octets.Data() + octets.Size()};
}

ManagementMessage Parsed(const Bytes& bytes) {
    const auto message = ParseManagement(bytes);
    EXPECT_TRUE(message) << message.Error().cause;
    return message ? *message : ManagementMessage{};
}

TEST(CemiManagement, EveryMessageSurvivesReadingAndWriting) {
    for (const Bytes& each : {kRead, kReadConfirmation, kReadRefusal, kWrite, kWriteConfirmation, kInfo,
                              kCommand, kStateRead, kFunctionConfirmation, Bytes{0xF1}, Bytes{0xF0}})
        EXPECT_EQ(Encoded(Parsed(each)), each);
}

TEST(CemiManagement, ReadsTheFields) {
    const auto write = Parsed(kWrite);
    EXPECT_EQ(write.code, MessageCode::MPropWriteReq);
    EXPECT_EQ(write.objectType, 11);
    EXPECT_EQ(write.instance, 2);
    EXPECT_EQ(write.property, 76);
    EXPECT_EQ(write.count, 15);
    EXPECT_EQ(write.start, 0x123);
    EXPECT_EQ(Bytes(write.data.Data(), write.data.Data() + write.data.Size()), Bytes({0x41, 0x42}));
    EXPECT_FALSE(write.IsReset());
    EXPECT_TRUE(Parsed({0xF1}).IsReset());
}

TEST(CemiManagement, ConfirmationsNameWhatWasAsked) {
    auto confirmation = Parsed(kRead).Confirmation();
    confirmation.data.Append16(0x11FA);
    EXPECT_EQ(Encoded(confirmation), kReadConfirmation);
    EXPECT_EQ(Encoded(Parsed(kRead).Refusal(PropertyError::NoSuchProperty)), kReadRefusal);
    EXPECT_EQ(Encoded(Parsed(kWrite).Confirmation()), kWriteConfirmation);
    EXPECT_EQ(Encoded(Parsed(kWrite).Refusal(PropertyError::ReadOnly)),
              Bytes({0xF5, 0x00, 0x0B, 0x02, 0x4C, 0x01, 0x23, 0x05}));
}

TEST(CemiManagement, AFunctionHasNoElementsAndItsRefusalNoReason) {
    const auto command = Parsed(kCommand);
    EXPECT_TRUE(command.IsFunction());
    EXPECT_FALSE(Parsed(kInfo).IsFunction());
    EXPECT_EQ(command.property, 0xC9);
    EXPECT_EQ(Bytes(command.data.Data(), command.data.Data() + command.data.Size()), Bytes({0x00, 0x01}));
    auto confirmation = Parsed(kStateRead).Confirmation();
    confirmation.data.Append16(0x002A);
    EXPECT_EQ(Encoded(confirmation), kFunctionConfirmation);
    EXPECT_EQ(Encoded(command.Refusal(PropertyError::NoSuchProperty)), Bytes({0xFA, 0x00, 0x0B, 0x02, 0xC9}));
}

TEST(CemiManagement, RefusesWhatIsNone) {
    struct Case {
        Bytes bytes;
        FrameError::Kind kind;
        const char* cause;
    };
    Bytes large = kWrite;
    large.resize(7 + ManagementMessage::kLongestData + 1);
    Bytes largeCommand = kStateRead;
    largeCommand.resize(5 + ManagementMessage::kLongestData + 1);
    Bytes readWithData = kRead;
    readWithData.push_back(0);
    const Case cases[] = {
        {{}, FrameError::Kind::Malformed, "the cEMI message is empty"},
        {{0xF1, 0x00}, FrameError::Kind::Malformed, "something follows an M_Reset"},
        {{0x29, 0x00}, FrameError::Kind::Unsupported, "the cEMI message is not one of device management"},
        {{0xF2, 0, 0, 1, 1, 1},
         FrameError::Kind::Unsupported,
         "the cEMI message is not one of device management"},
        {{0xF8, 0, 0, 1}, FrameError::Kind::Malformed, "the cEMI message ends within its header"},
        {largeCommand, FrameError::Kind::Unsupported, "the property has more data than are handled"},
        {{0xFC, 0, 0, 1, 1, 1}, FrameError::Kind::Malformed, "the cEMI message ends within its header"},
        {readWithData, FrameError::Kind::Malformed, "an M_PropRead.req has data"},
        {large, FrameError::Kind::Unsupported, "the property has more data than are handled"},
    };
    for (const auto& each : cases) {
        const auto message = ParseManagement(each.bytes);
        ASSERT_FALSE(message) << each.cause;
        EXPECT_EQ(message.Error().kind, each.kind) << each.cause;
        EXPECT_STREQ(message.Error().cause, each.cause);
    }
    large.pop_back();
    EXPECT_EQ(Encoded(Parsed(large)), large);
}

} // namespace
} // namespace KnxFrames
