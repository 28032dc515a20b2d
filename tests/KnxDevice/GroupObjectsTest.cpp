#include "KnxDevice/GroupObjects.h"

#include "Definitions.h"
#include "KnxStack/IGroupObject.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace KnxDevice {
namespace {

TEST(GroupObjects, ViewShowsSizeAsCodeBytesAndElements) {
    GroupObjects objects(TableOf({Define(1, 1, "CW", {1}), Define(2, 7, "W", {1}), Define(3, 16, "C", {1}),
                                  Define(4, 14 * 8, "C", {})}));
    const auto& bit = objects.View(1);
    EXPECT_EQ(1, bit.GetSizeCode());
    EXPECT_EQ(1u, bit.GetLengthInBytes());
    EXPECT_EQ(1, bit.GetElementWidth() * bit.GetElementCount());
    EXPECT_TRUE(bit.IsCommunicationEnabled());
    EXPECT_EQ(7, objects.View(2).GetSizeCode());
    EXPECT_FALSE(objects.View(2).IsCommunicationEnabled());
    EXPECT_EQ(8, objects.View(3).GetSizeCode());
    EXPECT_EQ(2u, objects.View(3).GetLengthInBytes());
    EXPECT_EQ(8, objects.View(4).GetSizeCode());
    EXPECT_EQ(112, objects.View(4).GetElementWidth() * objects.View(4).GetElementCount());
}

TEST(GroupObjects, ExistsInApplicationProgramOneOnly) {
    GroupObjects objects(TableOf({Define(1, 1, "C", {1})}));
    EXPECT_TRUE(objects.View(1).Exists(1));
    EXPECT_FALSE(objects.View(1).Exists(0));
    EXPECT_FALSE(objects.View(1).Exists(2));
    EXPECT_FALSE(objects.View(2).Exists(1));
}

TEST(GroupObjects, EveryNumberHasAViewOfItsOwnThatStays) {
    GroupObjects objects(TableOf({Define(300, 1, "C", {1})}));
    std::set<const KnxStack::IGroupObject*> views;
    for (unsigned number = 0; number <= 65535; ++number) {
        const auto& view = objects.View(static_cast<std::uint16_t>(number));
        views.insert(&view);
        ASSERT_EQ(number == 300, view.Exists(1)) << number;
    }
    EXPECT_EQ(65536u, views.size());
    for (unsigned number = 0; number <= 65535; ++number)
        ASSERT_EQ(1u, views.count(&objects.View(static_cast<std::uint16_t>(number))));
}

TEST(GroupObjects, AMissingObjectAnswersZeros) {
    GroupObjects objects{GroupObjectTable{}};
    for (const std::uint16_t number : {0, 1, 65535}) {
        const auto& view = objects.View(number);
        EXPECT_FALSE(view.Exists(1));
        EXPECT_FALSE(view.IsCommunicationEnabled());
        EXPECT_EQ(0, view.GetSizeCode());
        EXPECT_EQ(0u, view.GetLengthInBytes());
        EXPECT_EQ(0, view.GetElementWidth());
        EXPECT_EQ(0, view.GetElementCount());
    }
}

TEST(GroupObjects, AfterAReplacementTheSameViewHasTheNewContent) {
    GroupObjects objects(TableOf({Define(1, 1, "C", {1})}));
    const auto& one = objects.View(1);
    const auto& two = objects.View(2);
    objects.Replace(TableOf({Define(2, 32, "CW", {1})}));
    EXPECT_FALSE(one.Exists(1));
    EXPECT_TRUE(two.Exists(1));
    EXPECT_EQ(4u, two.GetLengthInBytes());
    EXPECT_EQ(&two, &objects.View(2));
}

TEST(GroupObjects, ThreadsThatAskForTheSameViewGetTheSameOne) {
    GroupObjects objects(TableOf({Define(1, 1, "C", {1})}));
    std::array<const KnxStack::IGroupObject*, 4> seen{};
    {
        std::array<std::jthread, 4> threads;
        for (std::size_t i = 0; i < threads.size(); ++i)
            threads[i] = std::jthread([&, i] { seen[i] = &objects.View(1000); });
    }
    for (const auto* view : seen)
        EXPECT_EQ(seen[0], view);
}

TEST(GroupObjects, ReadersSeeWholeTablesWhileTheyAreReplaced) {
    // Each table has objects of one size only: a reader that saw two of them at once would find a mixture.
    const auto tableWith = [](unsigned bytes) {
        return TableOf({Define(1, bytes * 8, "C", {1}), Define(2, bytes * 8, "C", {1})});
    };
    GroupObjects objects(tableWith(1));
    std::atomic<bool> stop{false};
    std::atomic<unsigned> mixtures{0};
    {
        std::array<std::jthread, 2> readers;
        for (auto& reader : readers)
            reader = std::jthread([&] {
                while (!stop) {
                    const auto tables = objects.Tables();
                    if (tables->Object(1).sizeInBits != tables->Object(2).sizeInBits)
                        ++mixtures;
                    if (!objects.View(2).Exists(1))
                        ++mixtures;
                }
            });
        for (unsigned round = 0; round < 2000; ++round)
            objects.Replace(tableWith(1 + round % 4));
        stop = true;
    }
    EXPECT_EQ(0u, mixtures);
}

} // namespace
} // namespace KnxDevice
