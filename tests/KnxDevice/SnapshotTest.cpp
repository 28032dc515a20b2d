#include "KnxDevice/Snapshot.h"

#include <gtest/gtest.h>

#include <optional>

namespace KnxDevice {
namespace {

struct Counted {
    explicit Counted(int number, int& living) : value(number), m_living(&living) { ++*m_living; }
    Counted(Counted&& other) noexcept : value(other.value), m_living(other.m_living) { ++*m_living; }
    ~Counted() { --*m_living; }

    int value;

private:
    int* m_living;
};

TEST(Snapshot, AReplacedObjectDiesWhenNobodyReads) {
    int living = 0;
    {
        Snapshot<Counted> snapshot(Counted(1, living));
        EXPECT_EQ(1, living);
        snapshot.Replace(Counted(2, living));
        EXPECT_EQ(1, living);
        EXPECT_EQ(2, snapshot.Read()->value);
    }
    EXPECT_EQ(0, living);
}

TEST(Snapshot, APinnedObjectOutlivesItsReplacement) {
    int living = 0;
    Snapshot<Counted> snapshot(Counted(1, living));
    {
        const auto pin = snapshot.Read();
        snapshot.Replace(Counted(2, living));
        EXPECT_EQ(1, pin->value);
        EXPECT_EQ(2, snapshot.Read()->value);
        EXPECT_EQ(2, living);
    }
    snapshot.Replace(Counted(3, living));
    EXPECT_EQ(1, living);
    EXPECT_EQ(3, snapshot.Read()->value);
}

} // namespace
} // namespace KnxDevice
