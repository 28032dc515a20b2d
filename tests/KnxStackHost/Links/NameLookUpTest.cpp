#include "KnxStackHost/Links/NameLookUp.h"

#include <gmock/gmock.h>

#include <future>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <utility>

namespace KnxStackHost {
namespace {

using std::chrono::seconds;

class LookUp : public testing::Test {
protected:
    LookedUp Result(NameLookUp& lookUp, const std::string& name) {
        std::optional<LookedUp> result;
        lookUp.Start(name, [&](const LookedUp& answer) { result = answer; });
        const auto end = std::chrono::steady_clock::now() + seconds(30);
        while (!result && std::chrono::steady_clock::now() < end) {
            m_context.restart();
            m_context.run_for(std::chrono::milliseconds(10));
        }
        EXPECT_TRUE(result) << "no answer for " << name;
        return result.value_or(LookedUp{});
    }

    boost::asio::io_context m_context{1};
};

TEST_F(LookUp, FindsTheAddressOfAName) {
    NameLookUp lookUp(m_context);
    EXPECT_EQ(INADDR_LOOPBACK, Result(lookUp, "localhost").address);
}

TEST_F(LookUp, SaysWhyANameIsNotKnown) {
    NameLookUp lookUp(m_context);
    const auto result = Result(lookUp, std::string(70, 'x')); // longer than a label may be
    EXPECT_EQ(0u, result.address);
    EXPECT_NE("", result.cause);
}

TEST_F(LookUp, AQuestionThatThrowsIsAnsweredWithTheCause) {
    NameLookUp lookUp(m_context, [](const std::string& name) -> LookedUp {
        throw std::runtime_error("nobody knows " + name);
    });
    EXPECT_EQ("nobody knows it", Result(lookUp, "it").cause);
}

/// Tells when the last copy of a question is gone, the one of the thread that asks it.
class LastCopy {
public:
    explicit LastCopy(std::shared_ptr<std::promise<void>> gone) : m_gone(std::move(gone)) {}
    ~LastCopy() { m_gone->set_value(); }
    LastCopy(const LastCopy&) = delete;
    LastCopy& operator=(const LastCopy&) = delete;

private:
    std::shared_ptr<std::promise<void>> m_gone;
};

TEST_F(LookUp, NobodyWaitsForOneThatIsStillAsking) {
    // Shared with the thread that is left behind.
    const auto leave = std::make_shared<std::promise<void>>();
    const auto gone = std::make_shared<std::promise<void>>();
    auto left = gone->get_future();
    auto lastCopy = std::make_shared<LastCopy>(gone);
    std::promise<void> asking;
    int answers = 0;
    {
        boost::asio::io_context context{1};
        NameLookUp lookUp(context, [&asking, leave, lastCopy](const std::string&) -> LookedUp {
            asking.set_value();
            leave->get_future().wait();
            return {1, ""};
        });
        lookUp.Start("name", [&](const LookedUp&) { ++answers; });
        asking.get_future().wait();
        lastCopy.reset();
    } // would wait for ever
    leave->set_value();
    EXPECT_EQ(std::future_status::ready, left.wait_for(seconds(30)));
    EXPECT_EQ(0, answers);
}

TEST_F(LookUp, AnAnswerThatIsOnItsWayIsNotGivenAfterCancel) {
    NameLookUp lookUp(m_context, [](const std::string&) { return LookedUp{1, ""}; });
    int answers = 0;
    lookUp.Start("name", [&](const LookedUp&) { ++answers; });
    const auto end = std::chrono::steady_clock::now() + seconds(30);
    while (m_context.poll_one() == 0 && std::chrono::steady_clock::now() < end)
        m_context.restart();
    EXPECT_EQ(1, answers);
    lookUp.Start("name", [&](const LookedUp&) { ++answers; });
    lookUp.Cancel();
    m_context.restart();
    m_context.run_for(std::chrono::milliseconds(50));
    EXPECT_EQ(1, answers);
}

} // namespace
} // namespace KnxStackHost
