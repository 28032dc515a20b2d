// The range, and telegrams of translated COs as messages.
#include "GroupAddressTranslationHandlerTest.h"

#include <fmt/format.h>

namespace {

using TestSupport::Bits;
using TestSupport::Octets;

TEST_F(TranslationHandlerTest, WithoutRange_NoCoIsTranslated) {
    EXPECT_FALSE(handler.IsEnabled());
    EXPECT_FALSE(handler.IsGroupAddressTranslationCo(0));
    EXPECT_FALSE(handler.IsGroupAddressTranslationCo(1));
}

TEST_F(TranslationHandlerTest, ARangeWithAZeroBound_Disables) {
    for (const auto& range : {std::array<std::uint16_t, 2>{0, 25}, {25, 0}, {0, 0}}) {
        handler.SetRange({10, 20});
        handler.SetRange(range);
        EXPECT_FALSE(handler.IsEnabled());
        for (unsigned co = 0; co <= 0xFFFF; ++co)
            ASSERT_FALSE(handler.IsGroupAddressTranslationCo(static_cast<std::uint16_t>(co))) << co;
    }
}

TEST_F(TranslationHandlerTest, ARange_IncludesBothBounds) {
    handler.SetRange({10, 20});
    EXPECT_TRUE(handler.IsEnabled());
    for (unsigned co = 0; co <= 0xFFFF; ++co)
        ASSERT_EQ(handler.IsGroupAddressTranslationCo(static_cast<std::uint16_t>(co)), co >= 10 && co <= 20)
            << co;
}

TEST_F(TranslationHandlerTest, ARange_MayBeOneCoOrAll) {
    handler.SetRange({7, 7});
    EXPECT_TRUE(handler.IsEnabled());
    EXPECT_FALSE(handler.IsGroupAddressTranslationCo(6));
    EXPECT_TRUE(handler.IsGroupAddressTranslationCo(7));
    EXPECT_FALSE(handler.IsGroupAddressTranslationCo(8));
    handler.SetRange({1, 0xFFFF});
    EXPECT_FALSE(handler.IsGroupAddressTranslationCo(0));
    EXPECT_TRUE(handler.IsGroupAddressTranslationCo(1));
    EXPECT_TRUE(handler.IsGroupAddressTranslationCo(0xFFFF));
}

TEST_F(TranslationHandlerTest, AReversedRange_EnablesButMatchesNoCo) {
    handler.SetRange({20, 10});
    EXPECT_TRUE(handler.IsEnabled());
    for (unsigned co = 0; co <= 0xFFFF; ++co)
        ASSERT_FALSE(handler.IsGroupAddressTranslationCo(static_cast<std::uint16_t>(co))) << co;
}

// Telegrams to messages.

TEST_F(TranslationHandlerTest, AWrite_IsSentWithCoSizeAndBytes) {
    EXPECT_TRUE(handler.OnGroupValueWrite(0x1A2B, Octets({0xAB, 0x01})));
    ExpectRecord(
        "host",
        R"(client Command({"command":"EmitEvent","eventType":"application","to":"DscKnxAppPrg::field::5","message":"!1a2b10ab01"}))");
}

TEST_F(TranslationHandlerTest, AResponse_IsSentWithCoSizeAndBytes) {
    EXPECT_TRUE(handler.OnGroupValueResponse(300, Octets({0x0C, 0x1A})));
    ExpectRecord("host", Sent("#012c100c1a"));
}

TEST_F(TranslationHandlerTest, ARead_IsSentWithItsCoAlone) {
    EXPECT_TRUE(handler.OnGroupValueRead(5));
    EXPECT_TRUE(handler.OnGroupValueRead(7));
    EXPECT_TRUE(handler.OnGroupValueRead(0xFFFF));
    ExpectRecord("host", Sent("?0005") + "\n" + Sent("?0007") + "\n" + Sent("?ffff"));
}

TEST_F(TranslationHandlerTest, ARead_LooksAtNoValue) {
    const auto value = Bits(1, 1);
    EXPECT_TRUE(handler.SendEvent(5, EventType::Read, &value));
    ExpectRecord("host", Sent("?0005"));
}

TEST_F(TranslationHandlerTest, AValueOfEverySize_IsSentAsItIs) {
    std::string expected;
    for (unsigned size = 1; size <= 255; ++size) {
        KnxStack::BinaryData data;
        std::string bytes;
        for (unsigned i = 0; i != (size + 7) / 8; ++i) {
            data.Append(static_cast<std::uint8_t>(size + i));
            bytes += fmt::format("{:02x}", (size + i) & 0xFF);
        }
        EXPECT_TRUE(handler.OnGroupValueWrite(18, KnxStack::GroupValue(data, size)));
        expected += Sent(fmt::format("!0012{:02x}{}", size, bytes)) + "\n";
    }
    ExpectRecord("host", expected);
}

TEST_F(TranslationHandlerTest, ASizeBeyondTwoDigits_IsWrittenWithThree) {
    EXPECT_TRUE(handler.OnGroupValueWrite(18, KnxStack::GroupValue(KnxStack::BinaryData{0x0A}, 256)));
    ExpectRecord("host", Sent("!00121000a"));
}

TEST_F(TranslationHandlerTest, AValueWithoutBytes_IsSentWithoutBytes) {
    EXPECT_TRUE(handler.OnGroupValueResponse(18, KnxStack::GroupValue()));
    ExpectRecord("host", Sent("#001200"));
}

TEST_F(TranslationHandlerTest, AnUnknownType_IsSentLikeAWriteBehindADot) {
    const auto value = Octets({0x12});
    EXPECT_TRUE(handler.SendEvent(18, static_cast<EventType>(4), &value));
    EXPECT_TRUE(handler.SendEvent(18, static_cast<EventType>(0xFFFFFFFF), &value));
    ExpectRecord("host", Sent(".00120812") + "\n" + Sent(".00120812"));
}

TEST_F(TranslationHandlerTest, TheTargetName_IsInsertedAsItIs) {
    handler.SetTargetName(R"(a"\{}b)");
    EXPECT_TRUE(handler.OnGroupValueRead(5));
    ExpectRecord(
        "host",
        R"(client Command({"command":"EmitEvent","eventType":"application","to":"a"\{}b","message":"?0005"}))");
}

TEST_F(TranslationHandlerTest, SendingAsksNeitherForTheRangeNorWhetherItIsEnabled) {
    handler.SetRange({0, 0});
    EXPECT_TRUE(handler.OnGroupValueRead(5));
    ExpectRecord("host", Sent("?0005"));
}

TEST_F(TranslationHandlerTest, WithoutTarget_EveryEventIsRefused) {
    handler.SetTargetName("");
    EXPECT_FALSE(handler.OnGroupValueWrite(18, Bits(1, 1)));
    EXPECT_FALSE(handler.OnGroupValueResponse(18, Bits(1, 1)));
    EXPECT_FALSE(handler.OnGroupValueRead(18));
    EXPECT_FALSE(handler.SendEvent(0, EventType::Error, nullptr)); // the target comes first
    ExpectRecord("host", R"(
        ERROR GroupAddressTranslation | Sending event not possible, target name is empty or DSC not connected.
        ERROR GroupAddressTranslation | Sending event not possible, target name is empty or DSC not connected.
        ERROR GroupAddressTranslation | Sending event not possible, target name is empty or DSC not connected.
        ERROR GroupAddressTranslation | Sending event not possible, target name is empty or DSC not connected.
    )");
}

TEST_F(TranslationHandlerTest, WithoutClient_EventsAreRefused) {
    handler.Init(nullptr, &service);
    EXPECT_FALSE(handler.OnGroupValueRead(18));
    ExpectRecord("host",
                 "ERROR GroupAddressTranslation | Sending event not possible, target name is empty or "
                 "DSC not connected.");
}

TEST_F(TranslationHandlerTest, BeforeInit_NothingIsSentEitherWay) {
    GroupAddressTranslationHandler fresh;
    fresh.SetTargetName("DscKnxAppPrg::field::5");
    fresh.ReplaceClient(client.get()); // waits for Init
    EXPECT_FALSE(fresh.OnGroupValueRead(18));
    EXPECT_FALSE(fresh.OnMessageReceived("?0012"));
    EXPECT_FALSE(fresh.OnMessageReceived("!00120101"));
    ExpectRecord("host", R"(
        ERROR GroupAddressTranslation | Sending event not possible, target name is empty or DSC not connected.
        ERROR GroupAddressTranslation | Received message can't be sent, there is no group value service.
        ERROR GroupAddressTranslation | Received message can't be sent, there is no group value service.
    )");
}

TEST_F(TranslationHandlerTest, AReplacedClient_IsTheOneThatIsAsked) {
    handler.ReplaceClient(nullptr);
    EXPECT_FALSE(handler.OnGroupValueRead(18));
    handler.ReplaceClient(client.get());
    EXPECT_TRUE(handler.OnGroupValueRead(18));
    ExpectRecord("host",
                 "ERROR GroupAddressTranslation | Sending event not possible, target name is empty or DSC "
                 "not connected.\n" +
                     Sent("?0012"));
}

TEST_F(TranslationHandlerTest, CoZeroAndTheTypeError_AreRefused) {
    const auto value = Bits(1, 1);
    EXPECT_FALSE(handler.OnGroupValueWrite(0, value));
    EXPECT_FALSE(handler.OnGroupValueResponse(0, value));
    EXPECT_FALSE(handler.OnGroupValueRead(0));
    EXPECT_FALSE(handler.SendEvent(18, EventType::Error, &value));
    EXPECT_FALSE(handler.SendEvent(0, EventType::Write, nullptr)); // the CO comes before the value
    ExpectRecord("host", R"(
        ERROR GroupAddressTranslation | Sending event not possible, CO is 0 or type is error.
        ERROR GroupAddressTranslation | Sending event not possible, CO is 0 or type is error.
        ERROR GroupAddressTranslation | Sending event not possible, CO is 0 or type is error.
        ERROR GroupAddressTranslation | Sending event not possible, CO is 0 or type is error.
        ERROR GroupAddressTranslation | Sending event not possible, CO is 0 or type is error.
    )");
}

TEST_F(TranslationHandlerTest, AWriteOrResponseWithoutValue_IsRefused) {
    EXPECT_FALSE(handler.SendEvent(18, EventType::Write, nullptr));
    EXPECT_FALSE(handler.SendEvent(18, EventType::Response, nullptr));
    ExpectRecord("host", R"(
        ERROR GroupAddressTranslation | Missing value for sending write/response event.
        ERROR GroupAddressTranslation | Missing value for sending write/response event.
    )");
}

TEST_F(TranslationHandlerTest, AnEventThatTheClientDoesNotTake_IsNotRepeated) {
    stack.faults.Refuse("Command");
    EXPECT_FALSE(handler.OnGroupValueRead(18));
    ExpectRecord("host", Sent("?0012") + "\nERROR GroupAddressTranslation | Failed to send event.");
}

} // namespace
