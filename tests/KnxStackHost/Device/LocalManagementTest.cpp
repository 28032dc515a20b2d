// What clients of management connections are answered that somebody without a key gets.
#include "KnxStackHost/Device/LocalManagement.h"

#include <gtest/gtest.h>

namespace KnxStackHost {
namespace {

TEST(LocalManagement, WhoHasNotTheLevelFindsThePropertyReadOnly) {
    KnxDevice::InterfaceObjects objects;
    KnxDevice::Device device({}, objects);
    KnxDevice::PropertyAccess properties(device);
    KnxFrames::ManagementMessage write;
    write.code = KnxFrames::MessageCode::MPropWriteReq;
    write.property = 54; // programming mode
    write.data.Append(1);
    EXPECT_EQ(write.Refusal(KnxFrames::PropertyError::ReadOnly),
              AnswerManagement(properties, KnxDevice::kAnybody, write));
    EXPECT_FALSE(device.IsInProgrammingMode());
    EXPECT_EQ(write.Confirmation(), AnswerManagement(properties, 2, write));
    EXPECT_TRUE(device.IsInProgrammingMode());
}

} // namespace
} // namespace KnxStackHost
