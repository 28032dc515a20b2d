#include "DeviceStackClient/LastValueQueue.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using testing::ElementsAre;
using Queue = DeviceStackClient::LastValueQueue<std::string>;

namespace {

std::vector<std::string> Drain(Queue& queue) {
    std::vector<std::string> items;
    while (!queue.IsEmpty())
        items.push_back(queue.Pop());
    return items;
}

} // namespace

TEST(LastValueQueue, KeepsEverythingInOrderUpToTheBound) {
    Queue queue(3);
    EXPECT_TRUE(queue.IsEmpty());
    for (const auto* item : {"a", "b", "c"}) {
        EXPECT_FALSE(queue.IsFull());
        EXPECT_EQ(queue.Push(1, item), std::nullopt);
    }
    EXPECT_TRUE(queue.IsFull());
    EXPECT_THAT(Drain(queue), ElementsAre("a", "b", "c"));
}

TEST(LastValueQueue, BeyondTheBoundTheNewerOneTakesTheOldersPlaceAtTheEnd) {
    Queue queue(1);
    EXPECT_EQ(queue.Push(1, "a"), std::nullopt);
    EXPECT_EQ(queue.Push(1, "b"), std::nullopt);
    EXPECT_EQ(queue.Push(2, "c"), std::nullopt);
    EXPECT_EQ(queue.Push(1, "d"), "b");
    EXPECT_EQ(queue.Push(1, "e"), "d");
    EXPECT_EQ(queue.GetSize(), 3u);
    EXPECT_THAT(Drain(queue), ElementsAre("a", "c", "e"));
}

TEST(LastValueQueue, NothingOvertakesWhatIsBeyondTheBound) {
    Queue queue(2);
    for (const auto* item : {"a", "b", "c"})
        EXPECT_EQ(queue.Push(1, item), std::nullopt);
    EXPECT_EQ(queue.Pop(), "a");
    EXPECT_TRUE(queue.IsFull());
    EXPECT_EQ(queue.Push(2, "d"), std::nullopt);
    EXPECT_EQ(queue.Push(1, "e"), "c");
    EXPECT_THAT(Drain(queue), ElementsAre("b", "d", "e"));
    EXPECT_FALSE(queue.IsFull());
    EXPECT_EQ(queue.Push(1, "f"), std::nullopt);
    EXPECT_EQ(queue.Push(1, "g"), std::nullopt);
    EXPECT_THAT(Drain(queue), ElementsAre("f", "g"));
}

TEST(LastValueQueue, WithoutAKeyTheNewestIsRefusedBeyondTwiceTheBound) {
    Queue queue(2);
    for (const auto* item : {"a", "b", "c", "d"})
        EXPECT_EQ(queue.Push(Queue::kNoKey, item), std::nullopt);
    EXPECT_EQ(queue.Push(Queue::kNoKey, "e"), "e");
    EXPECT_EQ(queue.Push(7, "f"), std::nullopt);
    EXPECT_THAT(Drain(queue), ElementsAre("a", "b", "c", "d", "f"));
    for (const auto* item : {"a", "b", "c", "d"})
        EXPECT_EQ(queue.Push(Queue::kNoKey, item), std::nullopt);
    EXPECT_EQ(queue.Push(Queue::kNoKey, "e"), "e");
}

TEST(LastValueQueue, VisitsOldestFirst) {
    Queue queue(1);
    for (const auto* item : {"a", "b"})
        EXPECT_EQ(queue.Push(1, item), std::nullopt);
    std::string visited;
    queue.ForEach([&](std::string& item) { visited += item; });
    EXPECT_EQ(visited, "ab");
}
