// Group address translation of a whole application program: settings, range, telegrams, messages.
#include "TranslationTest.h"

#include <algorithm>

namespace {

using TestSupport::Bits;
using TestSupport::Octets;

// The settings.

TEST_F(TranslationTest, TheTarget_IsTheSecondOfTheSettings) {
    hub.settings["DscInstanceId"] = "4";
    hub.settings["AppPrgHandlerName"] = "other";
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ExpectTranscript(Settings(), R"(
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = 4
        INFO KnxStack.DscKnxAppPrg | Init(): GroupAddressTranslationTargetId = 5
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = other
    )");
    EXPECT_TRUE(recorder.InOrder("INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = other",
                                 "DEBUG KnxStack.DscKnxAppPrg | Connect(): starting..."));
}

TEST_F(TranslationTest, AnEmptyTarget_IsIgnoredWithoutAMessage) {
    hub.settings["GroupAddressTranslationTargetId"] = "";
    Start();
    service.Read(12);
    ExpectRecord("host",
                 "ERROR GroupAddressTranslation | Sending event not possible, target name is empty or "
                 "DSC not connected.");
}

TEST_F(TranslationTest, AnEmptyTarget_HasNoLineAmongTheSettings) {
    hub.settings["GroupAddressTranslationTargetId"] = "";
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ExpectTranscript(Settings(), R"(
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
    )");
}

TEST_F(TranslationTest, TheTarget_IsTheInstanceWhateverItLooksLike) {
    hub.settings["GroupAddressTranslationTargetId"] = " House {} 2";
    Start();
    service.Read(12);
    ExpectRecord("host", Sent("?000c", " House {} 2"));
}

TEST_F(TranslationTest, ATargetThatIsGoneAtALaterInit_IsNoTargetAnyMore) {
    Start();
    service.Read(12);
    ExpectRecord("host", Sent("?000c"));
    Exit();
    hub.settings.clear();
    recorder.Clear();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ExpectTranscript(Settings(), R"(
        INFO KnxStack.DscKnxAppPrg | Init(): DscInstanceId = KNX
        INFO KnxStack.DscKnxAppPrg | Init(): AppPrgHandlerName = dscknxappprg
    )");
    recorder.Clear();
    service.Read(12);
    ExpectRecord("host",
                 "ERROR GroupAddressTranslation | Sending event not possible, target name is empty or "
                 "DSC not connected.");
}

TEST_F(TranslationTest, ATargetThatIsEmptyAtALaterInit_IsNoTargetAnyMore) {
    Start();
    Exit();
    hub.settings["GroupAddressTranslationTargetId"] = "";
    ASSERT_EQ(Init(), StartupState::InProgress);
    recorder.Clear();
    service.Read(12);
    EXPECT_THAT(recorder.LinesWith("client Command"), testing::IsEmpty());
}

TEST_F(TranslationTest, AnotherTargetAtALaterInit_IsTheTarget) {
    Start();
    Exit();
    hub.settings["GroupAddressTranslationTargetId"] = "6";
    ASSERT_EQ(Init(), StartupState::InProgress);
    recorder.Clear();
    service.Read(12);
    EXPECT_THAT(recorder.LinesWith("client Command"), testing::ElementsAre(Sent("?000c", "6")));
}

// The range.

TEST_F(TranslationTest, TheRange_IsReadAtTheEndOfTheIdentification) {
    CreateAndInit();
    ASSERT_TRUE(InitThreadFinished());
    const auto lines = recorder.LinesOf("worker 1");
    const auto from = std::find(lines.begin(), lines.end(), "plugin A GetUseUrns()");
    ASSERT_GE(lines.end() - from, 4);
    ExpectTranscript({from, from + 4}, R"(
        plugin A GetUseUrns()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Checking whether to use URNs instead of IDs: false
        plugin A GetGroupAddressTranslationRange()
        INFO KnxStack.DscKnxAppPrg.KnxHandler | Group address translation is enabled for COs 10 to 20.
    )");
}

TEST_F(TranslationTest, BeforeTheRangeIsKnown_NothingIsTranslated) {
    CreateAndInit();
    service.Write(12, Bits(1, 1));
    EXPECT_TRUE(Receive("?000c"));
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre("client SetValue(500, '1', 0, 0)"));
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
}

struct RangeCase {
    const char* name;
    std::pair<std::uint16_t, std::uint16_t> range;
};

class IgnoredRange : public TranslationTest, public testing::WithParamInterface<RangeCase> {};

TEST_P(IgnoredRange, EnablesNothing) {
    plugins["A"].translationRange = GetParam().range;
    CreateAndInit();
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count("plugin A GetGroupAddressTranslationRange()"), 1u);
    EXPECT_THAT(recorder.LinesWith("translation is enabled"), testing::IsEmpty());
    recorder.Clear();
    service.Write(12, Bits(1, 1));
    EXPECT_TRUE(Receive("?000c"));
    EXPECT_TRUE(Receive("nonsense"));
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre("client SetValue(500, '1', 0, 0)"));
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
    ExpectRecord("client", "");
}

TEST_P(IgnoredRange, AfterARestart_LeavesTheFormerOneInForce) {
    Start();
    plugins["A"].translationRange = GetParam().range;
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(recorder.Count("plugin A GetGroupAddressTranslationRange()"), 1u);
    EXPECT_THAT(recorder.LinesWith("translation is enabled"), testing::IsEmpty());
    recorder.Clear();
    service.Write(12, Bits(1, 1));
    ExpectRecord("host", Sent("!000c0101"));
}

INSTANTIATE_TEST_SUITE_P(TranslationTest, IgnoredRange,
                         testing::Values(RangeCase{"FromZero", {0, 20}}, RangeCase{"ToZero", {10, 0}},
                                         RangeCase{"None", {0, 0}}),
                         [](const auto& row) { return row.param.name; });

TEST_F(TranslationTest, AReversedRange_TranslatesNoCoButReceives) {
    plugins["A"].translationRange = {20, 10};
    CreateAndInit();
    ASSERT_TRUE(InitThreadFinished());
    EXPECT_EQ(
        recorder.Count("INFO KnxStack.DscKnxAppPrg.KnxHandler | Group address translation is enabled for "
                       "COs 20 to 10."),
        1u);
    recorder.Clear();
    service.Write(12, Bits(1, 1));
    EXPECT_TRUE(Receive("?000c"));
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre("client SetValue(500, '1', 0, 0)"));
    EXPECT_THAT(recorder.LinesWith("service "), testing::ElementsAre("service SendReadRequest(12) -> true"));
}

TEST_F(TranslationTest, AnotherRangeAfterARestart_ReplacesTheFormerOne) {
    Start();
    plugins["A"].translationRange = {13, 14};
    ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    recorder.Clear();
    service.Read(12);
    service.Read(13);
    EXPECT_THAT(recorder.LinesWith("client Command"), testing::ElementsAre(Sent("?000d")));
}

TEST_F(TranslationTest, TheFirstPluginWithAWholeRange_IsTheOneThatCounts) {
    plugins["A"].translationRange = {0, 9};
    plugins["B"].translationRange = {12, 12};
    RegisterPlugins({"A", "B"});
    Start();
    service.Read(11);
    service.Read(12);
    EXPECT_THAT(recorder.LinesWith("client Command"), testing::ElementsAre(Sent("?000c")));
}

// Telegrams of the bus.

TEST_F(TranslationTest, AWrite_BecomesAMessageAndNothingElse) {
    Start();
    service.Write(12, Bits(1, 1));
    ExpectRecord(
        "host",
        R"(client Command({"command":"EmitEvent","eventType":"application","to":"DscKnxAppPrg::field::5","message":"!000c0101"}))");
}

TEST_F(TranslationTest, AResponse_BecomesAMessageAndNothingElse) {
    Start();
    service.Response(20, Octets({0x0C, 0x1A}));
    ExpectRecord("host", Sent("#0014100c1a"));
}

TEST_F(TranslationTest, ARead_BecomesAMessageAndHasNoAnswerOfItsOwn) {
    stack.values[500] = "1";
    Start();
    EXPECT_EQ(service.Read(12), std::nullopt);
    ExpectRecord("host", Sent("?000c"));
}

TEST_F(TranslationTest, BothBoundsAreTranslatedAndTheirNeighboursAreNot) {
    Start();
    for (const int co : {9, 10, 20, 21})
        service.Read(co);
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre(Sent("?000a"), Sent("?0014")));
    EXPECT_THAT(recorder.LinesWith("plugin "),
                testing::ElementsAre("plugin A GetIDFromCO(9)", "plugin A GetIDFromCO(21)"));
}

TEST_F(TranslationTest, OnlyTheLowSixteenBitsOfACoCount) {
    Start();
    service.Read(0x7000C);
    ExpectRecord("host", Sent("?000c"));
}

TEST_F(TranslationTest, ATelegramThatCannotBeSentOn_IsDropped) {
    stack.values[500] = "1";
    Start();
    stack.faults.Refuse("Command");
    service.Write(12, Bits(1, 1));
    service.Response(12, Bits(1, 0));
    EXPECT_EQ(service.Read(12), std::nullopt);
    ExpectRecord("host", Sent("!000c0101") + "\nERROR GroupAddressTranslation | Failed to send event.\n" +
                             Sent("#000c0100") + "\nERROR GroupAddressTranslation | Failed to send event.\n" +
                             Sent("?000c") + "\nERROR GroupAddressTranslation | Failed to send event.");
}

TEST_F(TranslationTest, OtherCos_AreForwardedAsEver) {
    Start();
    service.Write(5, Bits(1, 1));
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre("client SetValue(500, '1', 0, 0)"));
}

// Messages of another application program.

TEST_F(TranslationTest, AMessage_IsATelegramAndNothingElse) {
    Start();
    EXPECT_TRUE(Receive("!000c0101"));
    EXPECT_TRUE(Receive("#0014100c1a"));
    EXPECT_TRUE(Receive("?000c"));
    ExpectRecord("client", R"(
        service SendGroupValue(12, 01/1, 0) -> true
        service SendGroupValue(20, 0c1a/16, 3) -> true
        service SendReadRequest(12) -> true
    )");
}

TEST_F(TranslationTest, AMessage_MayNameACoOutsideTheRange) {
    Start();
    EXPECT_TRUE(Receive("!00050101"));
    ExpectRecord("client", "service SendGroupValue(5, 01/1, 0) -> true");
}

TEST_F(TranslationTest, AWrongMessage_IsAnsweredWithFalse) {
    Start();
    EXPECT_FALSE(Receive("!0014080c"));
    ExpectRecord("client",
                 "ERROR GroupAddressTranslation | Received message for CO 20 has size of 8 bit but CO "
                 "has size of 16 bit.");
}

TEST_F(TranslationTest, ATelegramThatTheBusDoesNotTake_IsAnsweredWithFalse) {
    Start();
    service.faults.Refuse("SendReadRequest");
    EXPECT_FALSE(Receive("?000c"));
    ExpectRecord("client", "service SendReadRequest(12) -> false");
}

class OtherSenders : public TranslationTest, public testing::WithParamInterface<std::string> {};

TEST_P(OtherSenders, AreIgnored) {
    Start();
    EXPECT_TRUE(Receive("?000c", GetParam()));
    EXPECT_TRUE(Receive("nonsense", GetParam()));
    ExpectRecord("client", "");
}

INSTANTIATE_TEST_SUITE_P(TranslationTest, OtherSenders,
                         testing::Values("", "DscKnxAppPr", "DscKnxAppPrgs", "dscknxappprg", " DscKnxAppPrg",
                                         "DscKnxAppPrg::field::5", std::string("DscKnxAppPrg\0", 13)));

TEST_F(TranslationTest, MessagesAndTelegramsBeforeTheFinalState_AreForwardedOnceTheRangeIsKnown) {
    CreateAndInit();
    const auto gate = hub.faults.Block("OnApplicationProgramStartupStateChanged");
    ASSERT_TRUE(gate->WaitForArrival()); // the final state is about to be reported
    recorder.Clear();
    service.Read(12);
    EXPECT_TRUE(Receive("?000c"));
    ExpectRecord("host", Sent("?000c"));
    ExpectRecord("client", "service SendReadRequest(12) -> true");
    gate->Open();
}

TEST_F(TranslationTest, WithoutGroupCommunication_AMessageIsRefused) {
    hub.groupValueService = nullptr;
    Start();
    EXPECT_FALSE(Receive("?000c"));
    EXPECT_FALSE(Receive("!000c0101"));
    ExpectRecord("client", R"(
        ERROR GroupAddressTranslation | Received message can't be sent, there is no group value service.
        ERROR GroupAddressTranslation | Received message can't be sent, there is no group value service.
    )");
}

} // namespace
