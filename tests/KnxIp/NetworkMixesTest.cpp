// A tool, a tunnel and a device with 100,000 telegrams each way, in every weather.

#include "NetworkNodes.h"

#include <gtest/gtest.h>

#include <numeric>
#include <ostream>

namespace KnxIp {
namespace {

using namespace Testing;
using TestSupport::Downloader;
using TestSupport::DownloadStep;
using TestSupport::Faults;

// Sanitizers make a telegram several times as dear; a fifth of them meets each fault often enough.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::uint32_t kTelegrams = 20000;
#else
constexpr std::uint32_t kTelegrams = 100000;
#endif
constexpr std::uint32_t kAfterwards = 100;
constexpr std::uint32_t kTelegramsPerQuestion = 50;
constexpr milliseconds kPace{1000};

struct Mix {
    std::string name;
    Faults faults;
    bool disconnects = false; ///< now and then a direction is dead for a while
    /// Nothing in the mix can lose both a frame and its repetition: the one connection lasts.
    bool lasts = false;
};

void PrintTo(const Mix& mix, std::ostream* out) {
    *out << mix.name;
}

const Mix kMixes[] = {
    {"None", {}, false, true},
    {"Delay", {.shortestDelay = milliseconds(1), .longestDelay = milliseconds(400)}, false, true},
    {"LossOf1Percent", {.loss = 0.01}},
    {"LossOf5Percent", {.loss = 0.05}},
    {"Duplication", {.duplication = 0.1, .longestDuplicateDelay = milliseconds(400)}, false, true},
    {"Reordering", {.longestDelay = milliseconds(300), .reordering = 0.5}, false, true},
    {"All",
     {.loss = 0.03,
      .duplication = 0.05,
      .longestDelay = milliseconds(300),
      .longestDuplicateDelay = milliseconds(600),
      .reordering = 0.2},
     true}};

class NetworkOf : public testing::TestWithParam<Mix> {
protected:
    /// Brings two group objects of four octets into the device, through the tunnel.
    void Download() {
        const std::vector<DownloadStep> steps = {
            {DownloadStep::Kind::Load, 1, 0, {0, 2, 0x08, 0x01, 0x08, 0x02}},
            {DownloadStep::Kind::Load, 2, 0, {0, 2, 0, 1, 0, 1, 0, 2, 0, 2}},
            {DownloadStep::Kind::Load, 3, 0, {0, 2, 0x17, 0x0A, 0x47, 0x0A}}};
        const auto restarts = m_house.restarts;
        Downloader downloader(m_tool);
        ASSERT_TRUE(downloader.Run(steps)) << downloader.Fault();
        m_network.RunFor(seconds(10));
        ASSERT_EQ(restarts + 1, m_house.restarts);
        m_tool.Receive(); // the end of the connection
    }

    /// Telegrams of both sides at the same pace, and a question of the tool now and then.
    void Exchange(std::uint32_t count, milliseconds pace) {
        const auto end = m_next + count;
        while (m_next < end) {
            m_network.RunFor(pace);
            if (m_next % kTelegramsPerQuestion == 0) {
                m_tool.AskForSerialNumber();
                ++m_questions;
            }
            m_tool.SendValue(m_next);
            m_house.SendValue(m_next);
            ++m_next;
            if (GetParam().disconnects && count == kTelegrams && m_next % 1000 == 0)
                DisconnectSomething();
        }
    }

    /// One direction, for 1 s to 300 s: from a hiccup to more than a heartbeat.
    void DisconnectSomething() {
        const milliseconds duration(1000 + static_cast<int>(m_network.Random() * 299000));
        if (m_network.Random() < 0.5)
            m_network.Disconnect(kToolEndpoint, kHouseEndpoint, duration);
        else
            m_network.Disconnect(kHouseEndpoint, kToolEndpoint, duration);
    }

    /// How many of the numbers came more than once; none may come after a higher one.
    static std::uint64_t Doubles(const std::vector<std::uint32_t>& numbers) {
        std::uint64_t doubles = 0;
        for (std::size_t index = 1; index < numbers.size(); ++index) {
            EXPECT_GE(numbers[index], numbers[index - 1]) << "at " << index;
            doubles += numbers[index] == numbers[index - 1] ? 1 : 0;
        }
        return doubles;
    }

    void ExpectEverythingAccountedForFromTheTool() {
        const auto& counters = m_tool.Client().Counters();
        const auto doubles = Doubles(m_house.received);
        // Taken back after a silence: the server may have had it. That is all that can come twice.
        EXPECT_LE(doubles, counters.resent);
        const std::set<std::uint32_t> arrived(m_house.received.begin(), m_house.received.end());
        std::uint64_t missing = 0;
        for (std::uint32_t number = 0; number < m_next; ++number) {
            if (arrived.contains(number))
                continue;
            ++missing;
            ASSERT_TRUE(m_tool.notAcknowledged.contains(number)) << number << " is lost without a word";
        }
        EXPECT_EQ(0U, counters.dropped);
        RecordProperty("missingAtTheDevice", static_cast<int>(missing));
        RecordProperty("doubled", static_cast<int>(doubles));
        if (!GetParam().lasts)
            return;
        EXPECT_EQ(0U, missing);
        EXPECT_EQ(0U, doubles);
        EXPECT_EQ(0U, counters.resent);
        EXPECT_EQ(m_questions, m_tool.answers);
    }

    void ExpectEverythingAccountedForFromTheDevice() {
        EXPECT_EQ(0U, Doubles(m_tool.received));
        const auto missing = m_next - m_tool.received.size();
        EXPECT_LE(missing, m_house.dropped + m_house.sentToNobody);
        RecordProperty("missingAtTheTool", static_cast<int>(missing));
        RecordProperty("lostWithATunnel", static_cast<int>(m_house.dropped));
        RecordProperty("sentWithoutATunnel", static_cast<int>(m_house.sentToNobody));
        RecordProperty("tunnelsClosed", static_cast<int>(m_house.closed));
        if (GetParam().lasts) {
            EXPECT_EQ(0U, missing);
        }
    }

    void ExpectTheMixWasReal() {
        const auto& faults = GetParam().faults;
        const auto share = [this](double part) { return static_cast<unsigned>(m_network.sent * part * 0.9); };
        EXPECT_GE(m_network.lost, share(faults.loss));
        EXPECT_GE(m_network.duplicated, share(faults.duplication * (1 - faults.loss)));
        EXPECT_EQ(faults.reordering > 0 || faults.duplication > 0, m_network.overtaken > kTelegrams / 100);
        EXPECT_EQ(!GetParam().lasts, m_tool.Client().Counters().connections > 1);
        if (GetParam().disconnects) {
            EXPECT_GT(m_tool.failedTries, 10U);
        }
    }

    Network m_network{1};
    House m_house{m_network};
    Tool m_tool{m_network};
    std::uint32_t m_next = 0;
    unsigned m_questions = 0;
};

TEST_P(NetworkOf, NothingThatIsPromisedIsLostOrDoubledAndEverythingEndsWell) {
    m_network.RunFor(seconds(1));
    Download();
    if (HasFatalFailure())
        return;

    m_network.SetFaults(GetParam().faults);
    Exchange(kTelegrams, kPace);
    m_network.SetFaults({});
    ExpectTheMixWasReal();

    // The network is well again. A tunnel whose client has gone ends with its heartbeat, if not before.
    m_network.RunFor(std::chrono::minutes(10));
    EXPECT_TRUE(m_tool.Client().IsConnected());
    EXPECT_EQ(0U, m_tool.Client().Waiting());
    EXPECT_EQ(1U, m_house.OpenTunnels());
    const auto missing = m_tool.notAcknowledged.size();
    const auto answers = m_tool.answers;
    Exchange(kAfterwards, milliseconds(100));
    m_network.RunFor(seconds(10));
    EXPECT_EQ(missing, m_tool.notAcknowledged.size());
    EXPECT_EQ(answers + kAfterwards / kTelegramsPerQuestion, m_tool.answers);
    std::vector<std::uint32_t> last(kAfterwards);
    std::iota(last.begin(), last.end(), kTelegrams);
    EXPECT_TRUE(std::equal(last.rbegin(), last.rend(), m_house.received.rbegin()));
    EXPECT_TRUE(std::equal(last.rbegin(), last.rend(), m_tool.received.rbegin()));
    ExpectEverythingAccountedForFromTheTool();
    ExpectEverythingAccountedForFromTheDevice();

    Download();
    m_tool.Stop();
    m_network.RunFor(seconds(1));
    EXPECT_FALSE(m_tool.Client().IsConnected());
    EXPECT_FALSE(m_tool.Client().NextTime());
    EXPECT_EQ(0U, m_house.OpenTunnels());
    EXPECT_TRUE(m_house.IsIdle());
}

INSTANTIATE_TEST_SUITE_P(Faults, NetworkOf, testing::ValuesIn(kMixes),
                         [](const auto& mix) { return mix.param.name; });

} // namespace
} // namespace KnxIp
