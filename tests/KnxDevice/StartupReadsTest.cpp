#include "KnxDevice/StartupReads.h"

#include <gmock/gmock.h>

namespace KnxDevice {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kReads = Flags{}.With(Flag::Communication).With(Flag::ReadOnInit);

GroupObjectDefinition Object(std::uint16_t number, Flags flags = kReads) {
    return {
        .number = number, .sizeInBits = 8, .flags = flags, .groupAddresses = {GroupAddress(1, 0, number)}};
}

class Reads : public testing::Test {
protected:
    void Begin(unsigned objects) {
        std::vector<GroupObjectDefinition> definitions;
        for (unsigned number = 1; number <= objects; ++number)
            definitions.push_back(Object(static_cast<std::uint16_t>(number)));
        m_reads.Begin(GroupObjectTable(definitions));
    }
    /// Everything that is asked for within the time.
    std::vector<std::uint16_t> Pass(milliseconds time) {
        std::vector<std::uint16_t> asked;
        const auto end = m_now + time;
        for (auto next = m_reads.NextTime(m_now); next && *next <= end; next = m_reads.NextTime(m_now)) {
            m_now = *next;
            if (const auto object = m_reads.Next(m_now))
                asked.push_back(*object);
        }
        m_now = end;
        return asked;
    }

    StartupReads m_reads;
    TimePoint m_now{seconds(1000)};
};

TEST_F(Reads, AskTwoAtATimeAndTheNextWhenOneIsAnswered) {
    Begin(4);
    EXPECT_THAT(Pass(seconds(1)), ElementsAre(1, 2));
    m_reads.OnValue(2);
    EXPECT_THAT(Pass(milliseconds(500)), ElementsAre(3));
    m_reads.OnValue(1);
    m_reads.OnValue(3);
    EXPECT_THAT(Pass(milliseconds(500)), ElementsAre(4));
    EXPECT_FALSE(m_reads.IsIdle());
    m_reads.OnValue(4);
    EXPECT_TRUE(m_reads.IsIdle());
    EXPECT_FALSE(m_reads.NextTime(m_now).has_value());
    EXPECT_EQ(4u, m_reads.Result().known);
}

TEST_F(Reads, AreAtLeast20MillisecondsApart) {
    Begin(3);
    EXPECT_THAT(Pass(milliseconds(19)), ElementsAre(1));
    m_reads.OnValue(1);
    EXPECT_THAT(Pass(milliseconds(1)), ElementsAre(2));
}

TEST_F(Reads, GoOnAfter2SecondsWithoutAnAnswerAndDoNotAskAgain) {
    Begin(3);
    EXPECT_THAT(Pass(milliseconds(1999)), ElementsAre(1, 2));
    EXPECT_THAT(Pass(milliseconds(21)), ElementsAre(3));
    EXPECT_THAT(Pass(seconds(60)), IsEmpty());
    EXPECT_TRUE(m_reads.IsIdle());
    EXPECT_EQ(3u, m_reads.Result().unanswered);
    m_reads.OnValue(1);
    EXPECT_EQ(0u, m_reads.Result().known) << "too late to count";
}

TEST_F(Reads, DoNotAskForWhatIsKnownByThen) {
    Begin(5);
    EXPECT_THAT(Pass(seconds(1)), ElementsAre(1, 2));
    m_reads.OnValue(3);
    m_reads.OnValue(4);
    m_reads.OnValue(1);
    EXPECT_THAT(Pass(milliseconds(500)), ElementsAre(5));
    EXPECT_EQ(3u, m_reads.Result().known);
}

TEST_F(Reads, AreForObjectsWithFlagsAndAddressAlone) {
    auto withoutAddress = Object(3);
    withoutAddress.groupAddresses.clear();
    m_reads.Begin(GroupObjectTable(std::vector{Object(1, Flags{}.With(Flag::ReadOnInit)),
                                               Object(2, Flags{}.With(Flag::Communication)), withoutAddress,
                                               Object(65534)}));
    EXPECT_THAT(Pass(seconds(1)), ElementsAre(65534));
}

TEST_F(Reads, BeginAnewWithTheNewTable) {
    Begin(5);
    EXPECT_THAT(Pass(seconds(1)), ElementsAre(1, 2));
    Begin(1);
    EXPECT_EQ(1u, m_reads.Result().wanted);
    EXPECT_THAT(Pass(seconds(10)), ElementsAre(1));
    EXPECT_TRUE(m_reads.IsIdle());
}

} // namespace
} // namespace KnxDevice
