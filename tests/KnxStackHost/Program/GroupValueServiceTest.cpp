#include "KnxStackHost/Program/GroupValueService.h"

#include "../Fakes.h"
#include "KnxStack/IGroupObject.h"

#include <gmock/gmock.h>

#include <future>
#include <thread>

namespace KnxStackHost {
namespace {

using KnxFrames::GroupServiceKind;
using testing::ElementsAre;
using testing::IsEmpty;

class Service : public testing::Test {
protected:
    KnxDevice::GroupObjects m_objects{TestTable()};
    FakeOutlet m_outlet;
    GroupValueService m_service{m_objects, m_outlet};
    FakeUser m_user;
    const KnxStack::GroupValue m_one{KnxStack::BinaryData{1}, 1};
};

TEST_F(Service, DeliversEachServiceToItsCallback) {
    m_service.RegisterGroupValueUser(&m_user);
    EXPECT_TRUE(m_service.Deliver(WriteTo(2, 0x42)));
    EXPECT_TRUE(m_service.Deliver({1, GroupServiceKind::Response, m_one}));
    EXPECT_TRUE(m_service.Deliver({1, GroupServiceKind::Read, {}}));
    EXPECT_THAT(m_user.Calls(), ElementsAre("write 2 42", "response 1 01", "read 1"));
    EXPECT_THAT(m_outlet.All(), IsEmpty()) << "the user did not answer the read";
}

TEST_F(Service, SendsTheAnswerOfARead) {
    m_service.RegisterGroupValueUser(&m_user);
    m_user.answers = true;
    m_user.answer = m_one;
    EXPECT_TRUE(m_service.Deliver({1, GroupServiceKind::Read, {}}));
    const auto sent = m_outlet.All();
    ASSERT_EQ(1u, sent.size());
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x41}), sent[0].telegram.tpdu);
    EXPECT_EQ(1, sent[0].sender);
}

TEST_F(Service, DoesNotSendAnAnswerOfAnotherSize) {
    m_service.RegisterGroupValueUser(&m_user);
    m_user.answers = true;
    m_user.answer = {KnxStack::BinaryData{1}, 8};
    EXPECT_TRUE(m_service.Deliver({1, GroupServiceKind::Read, {}}));
    EXPECT_THAT(m_outlet.All(), IsEmpty());
}

TEST_F(Service, DropsWhatNobodyIsRegisteredFor) {
    EXPECT_FALSE(m_service.Deliver(WriteTo(1, 1)));
    m_service.RegisterGroupValueUser(&m_user);
    m_service.RegisterGroupValueUser(nullptr);
    EXPECT_FALSE(m_service.Deliver(WriteTo(1, 1)));
    EXPECT_THAT(m_user.Calls(), IsEmpty());
}

TEST_F(Service, DropsACallbackWhoseObjectHasChanged) {
    m_service.RegisterGroupValueUser(&m_user);
    m_objects.Replace(KnxDevice::GroupObjectTable());
    EXPECT_FALSE(m_service.Deliver(WriteTo(1, 1)));
    EXPECT_THAT(m_user.Calls(), IsEmpty());
}

TEST_F(Service, SendsWritesResponsesAndReadRequests) {
    EXPECT_TRUE(m_service.SendGroupValue(1, m_one, KnxStack::IGroupValueService::kWrite));
    EXPECT_TRUE(m_service.SendGroupValue(1, m_one, KnxStack::IGroupValueService::kResponse));
    EXPECT_TRUE(m_service.SendReadRequest(1));
    const auto sent = m_outlet.All();
    ASSERT_EQ(3u, sent.size());
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x81}), sent[0].telegram.tpdu);
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x41}), sent[1].telegram.tpdu);
    EXPECT_EQ(KnxFrames::Tpdu({0x00, 0x00}), sent[2].telegram.tpdu);
}

TEST_F(Service, AnswersFalseForWhatCannotBeSent) {
    const KnxStack::GroupValue byte{KnxStack::BinaryData{1}, 8};
    EXPECT_FALSE(m_service.SendGroupValue(1, byte, 0)) << "another size";
    EXPECT_FALSE(m_service.SendGroupValue(2, byte, 0)) << "no transmit flag";
    EXPECT_FALSE(m_service.SendGroupValue(3, byte, 0)) << "no such object";
    EXPECT_FALSE(m_service.SendGroupValue(1, m_one, 7)) << "no such kind";
    EXPECT_FALSE(m_service.SendReadRequest(65535));
    m_outlet.LimitTo(0);
    EXPECT_FALSE(m_service.SendGroupValue(1, m_one, 0)) << "no room";
    EXPECT_THAT(m_outlet.All(), IsEmpty());
}

TEST_F(Service, HasAGroupObjectForEveryNumber) {
    EXPECT_TRUE(m_service.GetGroupObject(1).Exists(1));
    EXPECT_FALSE(m_service.GetGroupObject(0).Exists(1));
    EXPECT_FALSE(m_service.GetGroupObject(65535).Exists(1));
}

TEST_F(Service, MayBeUsedFromInsideACallback) {
    m_service.RegisterGroupValueUser(&m_user);
    m_user.inside = [this](int co) {
        EXPECT_TRUE(m_service.GetGroupObject(static_cast<std::uint16_t>(co)).Exists(1));
        EXPECT_TRUE(m_service.SendGroupValue(1, m_one, 0));
        EXPECT_TRUE(m_service.SendReadRequest(1));
        m_service.RegisterGroupValueUser(nullptr); // returns although a callback is running: this one
    };
    EXPECT_TRUE(m_service.Deliver(WriteTo(2, 1)));
    EXPECT_EQ(2u, m_outlet.All().size());
    EXPECT_FALSE(m_service.Deliver(WriteTo(2, 1)));
}

TEST_F(Service, SigningOffWaitsForTheRunningCallback) {
    m_service.RegisterGroupValueUser(&m_user);
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> left{false};
    m_user.inside = [&](int) {
        entered.set_value();
        leave.get_future().wait();
        left = true;
    };
    std::jthread bus([this] { m_service.Deliver(WriteTo(1, 1)); });
    entered.get_future().wait();
    auto signedOff = std::async(std::launch::async, [this, &left] {
        m_service.RegisterGroupValueUser(nullptr);
        return left.load();
    });
    EXPECT_EQ(std::future_status::timeout, signedOff.wait_for(std::chrono::milliseconds(50)));
    leave.set_value();
    EXPECT_TRUE(signedOff.get()) << "returned while a callback was running";
}

TEST_F(Service, ReplacingTheUserWaitsForItsRunningCallback) {
    m_service.RegisterGroupValueUser(&m_user);
    FakeUser next;
    std::promise<void> entered;
    std::promise<void> leave;
    m_user.inside = [&](int) {
        entered.set_value();
        leave.get_future().wait();
    };
    std::jthread bus([this] { m_service.Deliver(WriteTo(1, 1)); });
    entered.get_future().wait();
    auto replaced = std::async(std::launch::async, [&] { m_service.RegisterGroupValueUser(&next); });
    EXPECT_EQ(std::future_status::timeout, replaced.wait_for(std::chrono::milliseconds(50)));
    leave.set_value();
    replaced.get();
    bus.join();
    EXPECT_TRUE(m_service.Deliver(WriteTo(1, 0)));
    EXPECT_THAT(next.Calls(), ElementsAre("write 1 00"));
}

TEST_F(Service, AThrowingCallbackCountsAsEnded) {
    m_service.RegisterGroupValueUser(&m_user);
    m_user.inside = [](int) { throw std::runtime_error("no"); };
    EXPECT_THROW(m_service.Deliver(WriteTo(1, 1)), std::runtime_error);
    m_service.RegisterGroupValueUser(nullptr); // would wait for ever otherwise
}

TEST_F(Service, SendingNeverWaitsForARunningCallback) {
    m_service.RegisterGroupValueUser(&m_user);
    std::promise<void> entered;
    std::promise<void> leave;
    m_user.inside = [&](int) {
        entered.set_value();
        leave.get_future().wait();
    };
    std::jthread bus([this] { m_service.Deliver(WriteTo(1, 1)); });
    entered.get_future().wait();
    EXPECT_TRUE(m_service.SendGroupValue(1, m_one, 0));
    EXPECT_TRUE(m_service.SendReadRequest(1));
    EXPECT_TRUE(m_service.GetGroupObject(1).Exists(1));
    leave.set_value();
}

} // namespace
} // namespace KnxStackHost
