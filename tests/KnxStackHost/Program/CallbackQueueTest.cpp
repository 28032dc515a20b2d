#include "KnxStackHost/Program/CallbackQueue.h"

#include <gmock/gmock.h>

namespace KnxStackHost {
namespace {

using KnxFrames::GroupServiceKind;
using testing::ElementsAre;

Callback Write(std::uint16_t object, std::uint8_t value) {
    return {object, GroupServiceKind::Write, {KnxStack::BinaryData{value}, 8}};
}

/// "object=value" of all that waits, in order.
std::vector<std::string> Drain(CallbackQueue& queue) {
    std::vector<std::string> all;
    while (!queue.IsEmpty()) {
        const auto callback = queue.Pop();
        all.push_back(std::to_string(callback.object) + "=" +
                      std::to_string(callback.value.GetAsUnsigned8()));
    }
    return all;
}

TEST(CallbackQueue, KeepsEverythingInOrderUpToItsBound) {
    CallbackQueue queue(4);
    EXPECT_TRUE(queue.Push(Write(1, 1)));
    EXPECT_TRUE(queue.Push(Write(1, 2)));
    EXPECT_TRUE(queue.Push(Write(2, 1)));
    EXPECT_TRUE(queue.Push(Write(1, 3)));
    EXPECT_THAT(Drain(queue), ElementsAre("1=1", "1=2", "2=1", "1=3"));
}

TEST(CallbackQueue, BeyondItsBoundTheNewestOfAnObjectIsReplaced) {
    CallbackQueue queue(3);
    queue.Push(Write(1, 1));
    queue.Push(Write(2, 1));
    queue.Push(Write(1, 2));
    EXPECT_FALSE(queue.Push(Write(1, 3)));
    EXPECT_FALSE(queue.Push(Write(1, 4)));
    EXPECT_FALSE(queue.Push(Write(2, 5)));
    EXPECT_THAT(Drain(queue), ElementsAre("1=1", "1=4", "2=5"));
}

TEST(CallbackQueue, BeyondItsBoundAnObjectThatDoesNotWaitYetIsAdded) {
    CallbackQueue queue(1);
    queue.Push(Write(1, 1));
    EXPECT_TRUE(queue.Push(Write(2, 2)));
    EXPECT_TRUE(queue.Push({1, GroupServiceKind::Read, {}}));
    EXPECT_FALSE(queue.Push({1, GroupServiceKind::Read, {}}));
    EXPECT_EQ(3u, queue.Size());
}

TEST(CallbackQueue, ForgetsTheNewestOnceItWasTaken) {
    CallbackQueue queue(2);
    queue.Push(Write(1, 1));
    queue.Push(Write(2, 1));
    queue.Pop();
    queue.Push(Write(3, 1));
    EXPECT_TRUE(queue.Push(Write(1, 2))) << "the first one of object 1 is gone already";
    EXPECT_THAT(Drain(queue), ElementsAre("2=1", "3=1", "1=2"));
    queue.Push(Write(1, 1));
    queue.Clear();
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_TRUE(queue.Push(Write(1, 1)));
}

TEST(CallbackQueue, EveryObjectKeepsItsLastValueUnderAFlood) {
    CallbackQueue queue(16);
    for (unsigned i = 0; i < 10000; ++i)
        queue.Push(Write(static_cast<std::uint16_t>(1 + i % 12), static_cast<std::uint8_t>(i % 251)));
    EXPECT_LE(queue.Size(), 16u + 12u);
    std::map<int, int> last;
    while (!queue.IsEmpty()) {
        const auto callback = queue.Pop();
        last[callback.object] = callback.value.GetAsUnsigned8();
    }
    for (unsigned i = 10000 - 12; i < 10000; ++i)
        EXPECT_EQ(static_cast<int>(i % 251), last[static_cast<int>(1 + i % 12)]);
}

} // namespace
} // namespace KnxStackHost
