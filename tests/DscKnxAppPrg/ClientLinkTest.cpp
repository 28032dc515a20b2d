// Callbacks of the device stack.
#include "ProgramTest.h"

namespace {

/// Data point 500 is a switch on CO 5, 600 a temperature on CO 6; both are sent when they change. 700 is on
/// CO 7 and is not sent.
class ClientLinkTest : public ProgramTest {
protected:
    ClientLinkTest() {
        plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .eventing = true},
                                 {.co = 6, .id = 600, .dpt = {16, 0, 9, 1}, .eventing = true},
                                 {.co = 7, .id = 700, .dpt = {1, 0, 1, 1}},
                                 {.co = 12, .id = 1002, .dpt = {1, 0, 1, 1}},
                                 {.co = 13, .id = 1003, .dpt = {8, 0, 5, 10}}};
        service.objects[5] = TestSupport::FakeGroupObject(1);
        service.objects[6] = TestSupport::FakeGroupObject(16);
        service.objects[7] = TestSupport::FakeGroupObject(1);
        service.objects[12] = TestSupport::FakeGroupObject(1);
        service.objects[13] = TestSupport::FakeGroupObject(8);
        RegisterPlugins({"A"});
    }
};

TEST_F(ClientLinkTest, ValueChange_IsWrittenToTheBus) {
    Start();
    EXPECT_TRUE(stack.ValueChanged(600, "urn:oxn:dp:house:temperature", "21.5").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 600 or URN 'urn:oxn:dp:house:temperature'
        plugin A IsKnxEventDataPoint(600)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state true
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 600 Urn urn:oxn:dp:house:temperature for reading
        plugin A GetCOFromID(600, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 6 and DPT 9.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(21.5, 6, 0c33) - ToKnxValue(16:9.1, 21.5, 0c33) succeeded (2).
        service SendGroupValue(6, 0c33/16, 0) -> true
    )");
}

TEST_F(ClientLinkTest, ValueChange_BeforeTheFinalState_IsIgnored) {
    CreateAndInit();
    EXPECT_TRUE(stack.ValueChanged(600, "", "21.5").get());
    ExpectRecord("client", "");
}

TEST_F(ClientLinkTest, ValueChange_OfAnotherDataPoint_IsIgnored) {
    Start();
    EXPECT_TRUE(stack.ValueChanged(700, "", "1").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 700 or URN ''
        plugin A IsKnxEventDataPoint(700)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state false
    )");
}

TEST_F(ClientLinkTest, ValueChange_ThatTheBusDoesNotTake_IsReportedBack) {
    Start();
    service.faults.Refuse("SendGroupValue");
    EXPECT_FALSE(stack.ValueChanged(600, "", "21.5").get());
    EXPECT_THAT(recorder.LinesWith("service "),
                testing::ElementsAre("service SendGroupValue(6, 0c33/16, 0) -> false"));
}

TEST_F(ClientLinkTest, ValueChange_ThatDoesNotFitTheType_IsLogged) {
    Start();
    EXPECT_FALSE(stack.ValueChanged(600, "", "warm").get());
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        testing::ElementsAre("ERROR KnxStack.DscKnxAppPrg.KnxHandler | WriteValue(): GetGroupValueFromValue "
                             "failed."));
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
}

TEST_F(ClientLinkTest, ValueChange_OfTheRestartDataPoint_RestartsWhenItIsEventing) {
    plugins["A"].bindings.push_back({.co = 40, .id = 1004, .dpt = {1, 0, 1, 1}, .eventing = true});
    Start();
    EXPECT_TRUE(stack.ValueChanged(1004, "", "0").get());
    EXPECT_THAT(recorder.LinesWith("client "),
                testing::ElementsAre(R"(client Command({"command":"Restart", "type":"Device"}))"));
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
}

TEST_F(ClientLinkTest, StatusAnswers_AreWrittenToTheBus) {
    Start();
    EXPECT_TRUE(stack.AnswerGetValue(1002, "", "1").get());
    EXPECT_TRUE(stack.AnswerGetValue(1003, "", "2").get());
    EXPECT_THAT(recorder.LinesWith("service "),
                testing::ElementsAre("service SendGroupValue(12, 01/1, 0) -> true",
                                     "service SendGroupValue(13, 02/8, 0) -> true"));
    EXPECT_THAT(recorder.LinesWith("plugin "), testing::ElementsAre("plugin A GetCOFromID(1002, reading)",
                                                                    "plugin A GetCOFromID(1003, reading)"));
}

TEST_F(ClientLinkTest, StatusAnswers_BeforeTheFinalState_AreIgnored) {
    CreateAndInit();
    EXPECT_TRUE(stack.AnswerGetValue(1002, "", "1").get());
    ExpectRecord("client", "");
}

TEST_F(ClientLinkTest, StatusAnswer_WithAnError_IsPassedOnLikeAnyOther) {
    Start();
    EXPECT_TRUE(stack.AnswerGetValue(1003, "", "2", 5).get());
    EXPECT_TRUE(stack.AnswerGetValue(1002, "", "", 5).get()); // no value, which no bus can be told
    EXPECT_THAT(recorder.LinesWith("service "),
                testing::ElementsAre("service SendGroupValue(13, 02/8, 0) -> true"));
    EXPECT_THAT(recorder.LinesWith("ERROR"),
                testing::ElementsAre(
                    "ERROR KnxStack.DscKnxAppPrg.KnxHandler | WriteValue(): GetGroupValueFromValue failed."));
}

TEST_F(ClientLinkTest, WhileADeviceRestartIsToCome_ChangesAndAnswersAreIgnored) {
    hub.restartPending = true;
    Start();
    EXPECT_TRUE(stack.ValueChanged(600, "", "21.5").get());
    EXPECT_TRUE(stack.AnswerGetValue(1002, "", "1").get());
    ExpectRecord("client", "");
}

TEST_F(ClientLinkTest, AnyId_IsPassedOnAsItIs) {
    Start();
    EXPECT_TRUE(stack.ValueChanged(0, "", "1").get());
    EXPECT_TRUE(stack.ValueChanged(4294967295, "", "1").get());
    EXPECT_FALSE(stack.ReadValue(0, "").get());
    EXPECT_FALSE(stack.WriteValue(4294967295, "1", "").get());
    EXPECT_THAT(recorder.LinesWith("plugin "),
                testing::ElementsAre(
                    "plugin A IsKnxEventDataPoint(0)", "plugin A IsKnxEventDataPoint(4294967295)",
                    "plugin A GetCOFromID(0, reading)", "plugin A GetCOFromID(4294967295, writing)"));
    EXPECT_THAT(recorder.LinesWith("client "), testing::ElementsAre("client SetValue(0, '', 1, 1)",
                                                                    "client SetValue(4294967295, '', 1, 1)"));
}

TEST_F(ClientLinkTest, OtherAnswers_AreIgnored) {
    Start();
    EXPECT_TRUE(stack.AnswerGetValue(500, "", "1").get());
    ExpectRecord("client", "");
}

TEST_F(ClientLinkTest, ReadOfADataPoint_AsksTheBus) {
    CreateAndInit();
    EXPECT_TRUE(stack.ReadValue(600, "urn:oxn:dp:house:temperature").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 600 Urn urn:oxn:dp:house:temperature for reading
        plugin A GetCOFromID(600, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 6 and DPT 9.1
        service SendReadRequest(6) -> true
    )");
}

TEST_F(ClientLinkTest, ReadOfAnUnknownDataPoint_SetsNull) {
    CreateAndInit();
    EXPECT_FALSE(stack.ReadValue(77, "urn:oxn:dp:house:none").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 77 Urn urn:oxn:dp:house:none for reading
        plugin A GetCOFromID(77, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | OnReadValue(): m_knxHandler.ReadValue failed, so set NULL value. Object ID = 77
        client SetValue(77, '', 1, 1)
    )");
}

TEST_F(ClientLinkTest, ReadThatTheBusDoesNotTake_SetsNull) {
    CreateAndInit();
    service.faults.Refuse("SendReadRequest");
    EXPECT_FALSE(stack.ReadValue(600, "").get());
    EXPECT_TRUE(recorder.InOrder("service SendReadRequest(6) -> false", "client SetValue(600, '', 1, 1)"));
}

TEST_F(ClientLinkTest, ReadWithoutGroupCommunication_SetsNull) {
    hub.groupValueService = nullptr;
    CreateAndInit();
    EXPECT_FALSE(stack.ReadValue(600, "").get());
    EXPECT_EQ(recorder.Count("client SetValue(600, '', 1, 1)"), 1u);
}

TEST_F(ClientLinkTest, WriteOfADataPoint_IsWrittenToTheBusInAnyState) {
    CreateAndInit();
    EXPECT_TRUE(stack.WriteValue(600, "21.5", "urn:oxn:dp:house:temperature").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 600 Urn urn:oxn:dp:house:temperature for writing
        plugin A GetCOFromID(600, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 6 and DPT 9.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(21.5, 6, 0c33) - ToKnxValue(16:9.1, 21.5, 0c33) succeeded (2).
        service SendGroupValue(6, 0c33/16, 0) -> true
    )");
}

TEST_F(ClientLinkTest, WriteOfAnUnknownDataPoint_SetsNull) {
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(77, "1", "urn:oxn:dp:house:none").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 77 Urn urn:oxn:dp:house:none for writing
        plugin A GetCOFromID(77, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        ERROR KnxStack.DscKnxAppPrg | OnWriteValue(): m_knxHandler.WriteValue failed, so set NULL value. Object ID = 77 Urn = urn:oxn:dp:house:none
        client SetValue(77, '', 1, 1)
    )");
}

TEST_F(ClientLinkTest, WriteWithoutGroupCommunication_SetsNull) {
    hub.groupValueService = nullptr;
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(600, "21.5", "").get());
    EXPECT_EQ(recorder.Count("client SetValue(600, '', 1, 1)"), 1u);
}

TEST_F(ClientLinkTest, WriteOfTheRestartDataPoint_RestartsTheDeviceWhateverTheValue) {
    CreateAndInit();
    EXPECT_TRUE(stack.WriteValue(1004, "0", "").get());
    ExpectRecord("client", R"(
        client Command({"command":"Restart", "type":"Device"})
    )");
}

TEST_F(ClientLinkTest, RestartThatIsRefused_IsHandledAllTheSame) {
    CreateAndInit();
    stack.faults.Refuse("Command");
    EXPECT_TRUE(stack.WriteValue(1004, "1", "").get());
    EXPECT_THAT(recorder.LinesWith("ERROR"), testing::IsEmpty());
}

TEST_F(ClientLinkTest, EveryOtherCallback_DoesNothing) {
    Start();
    EXPECT_TRUE(stack.EveryOtherCallback().get());
    ExpectRecord("client", "");
}

/// Data point 800 and the status 1002 have a CO for writing only, 900 has none in either direction.
class WritingCoTest : public ClientLinkTest {
protected:
    WritingCoTest() {
        auto& bindings = plugins["A"].bindings;
        bindings[3].reading = false;
        bindings.push_back({.co = 8, .id = 800, .dpt = {1, 0, 1, 1}, .reading = false, .eventing = true});
        bindings.push_back(
            {.co = 9, .id = 900, .dpt = {1, 0, 1, 1}, .reading = false, .writing = false, .eventing = true});
        service.objects[8] = TestSupport::FakeGroupObject(1);
        service.objects[9] = TestSupport::FakeGroupObject(1);
    }
};

TEST_F(WritingCoTest, ValueChange_WithoutAReadingCo_IsWrittenToTheWritingOne) {
    Start();
    EXPECT_TRUE(stack.ValueChanged(800, "", "1").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 800 or URN ''
        plugin A IsKnxEventDataPoint(800)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state true
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 800 Urn  for reading
        plugin A GetCOFromID(800, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 800 Urn  for writing
        plugin A GetCOFromID(800, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 8 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(1, 8, 01) - ToKnxValue(1:1.1, 1, 01) succeeded (2).
        service SendGroupValue(8, 01/1, 0) -> true
    )");
}

TEST_F(WritingCoTest, StatusAnswer_WithoutAReadingCo_IsWrittenToTheWritingOne) {
    Start();
    EXPECT_TRUE(stack.AnswerGetValue(1002, "", "1").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for reading
        plugin A GetCOFromID(1002, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 65535 and DPT 0.0
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1002 Urn  for writing
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 12 and DPT 1.1
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(1, 12, 01) - ToKnxValue(1:1.1, 1, 01) succeeded (2).
        service SendGroupValue(12, 01/1, 0) -> true
    )");
}

TEST_F(WritingCoTest, ValueChange_WithoutAnyCo_IsNotSent) {
    Start();
    EXPECT_FALSE(stack.ValueChanged(900, "", "1").get());
    EXPECT_THAT(
        recorder.LinesWith("GetCOFromID(900"),
        testing::ElementsAre("plugin A GetCOFromID(900, reading)", "plugin A GetCOFromID(900, writing)"));
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
}

TEST_F(WritingCoTest, WriteOfADataPoint_LooksForNoReadingCo) {
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(900, "1", "").get());
    EXPECT_THAT(recorder.LinesWith("GetCOFromID(900"),
                testing::ElementsAre("plugin A GetCOFromID(900, writing)"));
}

/// Date and time, data point 1005, goes to every CO that the plug-in lists.
class TimeCoTest : public ClientLinkTest {
protected:
    TimeCoTest() {
        plugins["A"].bindings.push_back({.co = 20, .id = 1005, .dpt = {8, 0, 5, 10}, .eventing = true});
        plugins["A"].timeCos = {{20, {8, 0, 5, 10}}, {21, {16, 0, 7, 1}}};
        service.objects[20] = TestSupport::FakeGroupObject(8);
        service.objects[21] = TestSupport::FakeGroupObject(16);
    }
};

TEST_F(TimeCoTest, ValueChange_GoesToEveryTimeCoInItsOwnType) {
    Start();
    EXPECT_TRUE(stack.ValueChanged(1005, "", "18").get());
    ExpectRecord("client", R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Checking if eventing for ID 1005 or URN ''
        plugin A IsKnxEventDataPoint(1005)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | IsKnxEventDataPoint(): Returning eventing state true
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Getting CO for ID 1005 Urn  for reading
        plugin A GetCOFromID(1005, reading)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetCOFromID(): Returning CO 20 and DPT 5.10
        plugin A GetTimeCoByIndex(1, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(18, 20, 12) - ToKnxValue(8:5.10, 18, 12) succeeded (2).
        service SendGroupValue(20, 12/8, 0) -> true
        plugin A GetTimeCoByIndex(2, writing)
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | GetGroupValueFromValue(18, 21, 0012) - ToKnxValue(16:7.1, 18, 0012) succeeded (2).
        service SendGroupValue(21, 0012/16, 0) -> true
        plugin A GetTimeCoByIndex(3, writing)
    )");
}

TEST_F(TimeCoTest, EachIsAskedForWithAnEmptyType) {
    plugins["A"].recordsGivenDpt = true;
    CreateAndInit();
    EXPECT_TRUE(stack.WriteValue(1005, "18", "").get());
    EXPECT_THAT(recorder.LinesWith("plugin A"),
                testing::ElementsAre("plugin A GetCOFromID(1005, writing)", "plugin A is given 0:0.0",
                                     "plugin A GetTimeCoByIndex(1, writing)", "plugin A is given 0:0.0",
                                     "plugin A GetTimeCoByIndex(2, writing)", "plugin A is given 0:0.0",
                                     "plugin A GetTimeCoByIndex(3, writing)", "plugin A is given 0:0.0"));
}

TEST_F(TimeCoTest, WithoutGroupCommunication_IsAFailure) {
    hub.groupValueService = nullptr;
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(1005, "18", "").get());
    EXPECT_THAT(recorder.LinesWith("GetTimeCoByIndex"), testing::IsEmpty());
    EXPECT_EQ(recorder.Count("client SetValue(1005, '', 1, 1)"), 1u);
}

TEST_F(TimeCoTest, DateAndTime_InTheTypesOfTheStandard) {
    plugins["A"].timeCos = {{20, {24, 0, 10, 1}}, {21, {24, 0, 11, 1}}, {22, {64, 0, 19, 1}}};
    CreateAndInit();
    EXPECT_TRUE(stack.WriteValue(1005, "2024-05-01T12:00:00", "").get());
    const auto sent = recorder.LinesWith("service ");
    EXPECT_THAT(sent, testing::Contains(testing::StartsWith("service SendGroupValue(22, 7c0501")));
}

TEST_F(TimeCoTest, ValueThatOneTypeCannotHold_GoesToTheOthers) {
    CreateAndInit();
    EXPECT_TRUE(stack.WriteValue(1005, "300", "").get());
    EXPECT_THAT(
        recorder.LinesWith("ERROR"),
        testing::ElementsAre("ERROR KnxStack.DscKnxAppPrg.KnxHandler | WriteValue(): GetGroupValueFromValue "
                             "failed. CO = 20"));
    EXPECT_THAT(recorder.LinesWith("service "),
                testing::ElementsAre("service SendGroupValue(21, 012c/16, 0) -> true"));
}

TEST_F(TimeCoTest, ValueThatNoTypeCanHold_IsAFailure) {
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(1005, "soon", "").get());
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
    EXPECT_EQ(recorder.Count("client SetValue(1005, '', 1, 1)"), 1u);
}

TEST_F(TimeCoTest, WithoutTimeCos_IsAFailure) {
    plugins["A"].timeCos.clear();
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(1005, "18", "").get());
    EXPECT_THAT(recorder.LinesWith("service "), testing::IsEmpty());
}

TEST_F(TimeCoTest, ResultIsThatOfTheLastSend) {
    plugins["A"].timeCos = {{21, {16, 0, 7, 1}}, {20, {8, 0, 5, 10}}};
    CreateAndInit();
    service.faults.Refuse("SendGroupValue");
    EXPECT_FALSE(
        stack.WriteValue(1005, "300", "").get()); // the last send is refused, the conversion after it fails
    EXPECT_THAT(recorder.LinesWith("service "),
                testing::ElementsAre("service SendGroupValue(21, 012c/16, 0) -> false"));
}

TEST_F(TimeCoTest, WithoutACoOfItsOwn_IsAFailure) {
    plugins["A"].bindings.clear();
    CreateAndInit();
    EXPECT_FALSE(stack.WriteValue(1005, "18", "").get());
    EXPECT_THAT(recorder.LinesWith("GetTimeCoByIndex"), testing::IsEmpty());
}

} // namespace
