// Questions to several plug-ins, and who keeps them loaded.
#include "DynamicKnxAppPrgHandlers.h"
#include "World.h"

#include <future>
#include <typeinfo>

namespace {

using testing::IsEmpty;
using testing::Pair;

class FacadeTest : public World {
protected:
    /// Loads A and B; the record then is empty.
    void Load() {
        RegisterPlugins({"A", "B"});
        ASSERT_TRUE(set.Init(files / "stack", "", "dscknxappprg"));
        recorder.Clear();
    }

    DynamicKnxAppPrgHandlers set;
    KNXDPT dpt;
};

TEST_F(FacadeTest, WithoutPlugins_EveryQuestionHasItsNoAnswer) {
    std::uint8_t dataType = 1;
    std::uint16_t count = 2;
    std::string name = "before";
    EXPECT_EQ(set.GetIDFromCO(1, dpt), 0u);
    EXPECT_EQ(set.GetUrnFromCO(1, dpt), "");
    EXPECT_EQ(set.GetCOFromID(1, true, dpt), 0xFFFF);
    EXPECT_EQ(set.GetCOFromUrn("x", true, dpt), 0xFFFF);
    EXPECT_FALSE(set.IsKnxEventDataPoint(1));
    EXPECT_FALSE(set.IsKnxEventDataPoint("x"));
    EXPECT_FALSE(set.IsOxnReadInternalDataPoint(1));
    EXPECT_FALSE(set.IsOxnReadInternalDataPoint("x"));
    EXPECT_EQ(set.GetTimeCoByIndex(1, true, dpt), 0xFFFF);
    EXPECT_EQ(set.GetInterfaceObjectId(), 0u);
    EXPECT_EQ(set.GetPropertyByIndex(1, dataType, name, count), 0u);
    EXPECT_EQ(set.GetExtendedInterfaceObjectType(), 0u);
    EXPECT_THAT(set.GetExtendedProperties(), IsEmpty());
    EXPECT_THAT(set.GetGroupAddressTranslationRange(), Pair(0, 0));
    EXPECT_FALSE(set.GetUseUrns());
    EXPECT_FALSE(set.Reload());
    EXPECT_EQ(name, "before");
}

TEST_F(FacadeTest, FirstAnswer_Counts) {
    plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}}};
    plugins["B"].bindings = {{.co = 5, .id = 501, .dpt = {8, 0, 5, 1}},
                             {.co = 12, .id = 600, .dpt = {16, 0, 9, 1}}};
    Load();
    EXPECT_EQ(set.GetIDFromCO(5, dpt), 500u);
    EXPECT_EQ(dpt, (KNXDPT{1, 0, 1, 1}));
    EXPECT_THAT(recorder.LinesWith("plugin B"), IsEmpty());
    EXPECT_EQ(set.GetCOFromID(600, false, dpt), 12);
    EXPECT_EQ(dpt, (KNXDPT{16, 0, 9, 1}));
    ExpectRecord("host", R"(
        plugin A GetIDFromCO(5)
        plugin A GetCOFromID(600, writing)
        plugin B GetCOFromID(600, writing)
    )");
}

TEST_F(FacadeTest, CoZero_IsAnAnswer) {
    plugins["A"].bindings = {{.co = 0, .id = 500, .dpt = {}, .urn = "lamp"}};
    plugins["B"].bindings = {{.co = 12, .id = 500, .dpt = {}, .urn = "lamp"}};
    Load();
    EXPECT_EQ(set.GetCOFromID(500, true, dpt), 0);
    EXPECT_EQ(set.GetCOFromUrn("lamp", true, dpt), 0);
}

TEST_F(FacadeTest, NoAnswerAtAll_LeavesWhatTheLastPluginWrote) {
    plugins["B"].writesDptAlways = true;
    Load();
    EXPECT_EQ(set.GetIDFromCO(5, dpt), 0u);
    EXPECT_EQ(dpt, (KNXDPT{77, 0, 88, 99}));
}

TEST_F(FacadeTest, EveryQuestion_IsPassedOnWithItsArguments) {
    std::uint8_t dataType = 0;
    std::uint16_t count = 0;
    std::string name;
    plugins["B"].properties = {{.name = "name", .propertyId = 52, .dataType = 5, .elementCount = 3}};
    plugins["B"].interfaceObjectId = 400;
    plugins["B"].extendedObjectType = 50001;
    plugins["B"].extendedProperties = {{.name = "p", .propertyId = 51}};
    plugins["B"].useUrns = true;
    plugins["B"].timeCos = {{20, {24, 0, 10, 1}}};
    plugins["B"].bindings = {
        {.co = 5, .id = 500, .dpt = {1, 0, 1, 1}, .urn = "lamp", .eventing = true, .readInternal = true}};
    Load();
    EXPECT_EQ(set.GetUrnFromCO(5, dpt), "lamp");
    EXPECT_EQ(set.GetCOFromUrn("lamp", true, dpt), 5);
    EXPECT_TRUE(set.IsKnxEventDataPoint(500));
    EXPECT_TRUE(set.IsKnxEventDataPoint("lamp"));
    EXPECT_TRUE(set.IsOxnReadInternalDataPoint(500));
    EXPECT_TRUE(set.IsOxnReadInternalDataPoint("lamp"));
    EXPECT_EQ(set.GetTimeCoByIndex(1, true, dpt), 20);
    EXPECT_EQ(set.GetInterfaceObjectId(), 400u);
    EXPECT_EQ(set.GetPropertyByIndex(1, dataType, name, count), 52u);
    EXPECT_EQ(dataType, 5);
    EXPECT_EQ(name, "name");
    EXPECT_EQ(count, 3);
    EXPECT_EQ(set.GetExtendedInterfaceObjectType(), 50001u);
    EXPECT_THAT(set.GetExtendedProperties(), testing::SizeIs(1));
    EXPECT_TRUE(set.GetUseUrns());
    const auto lines = recorder.LinesWith("plugin B");
    ExpectTranscript(lines, R"(
        plugin B GetUrnFromCO(5)
        plugin B GetCOFromUrn('lamp', reading)
        plugin B IsKnxEventDataPoint(500)
        plugin B IsKnxEventDataPoint('lamp')
        plugin B IsOxnReadInternalDataPoint(500)
        plugin B IsOxnReadInternalDataPoint('lamp')
        plugin B GetTimeCoByIndex(1, writing)
        plugin B GetInterfaceObjectId()
        plugin B GetPropertyByIndex(1)
        plugin B GetExtendedInterfaceObjectType()
        plugin B GetExtendedProperties()
        plugin B GetUseUrns()
    )");
}

TEST_F(FacadeTest, ExtendedProperties_AreThoseOfTheFirstPluginThatHasSome) {
    plugins["A"].extendedProperties = {{.name = "a", .propertyId = 51}};
    plugins["B"].extendedProperties = {{.name = "b", .propertyId = 52}};
    Load();
    const auto properties = set.GetExtendedProperties();
    ASSERT_THAT(properties, testing::SizeIs(1));
    EXPECT_EQ(properties.front().name, "a");
}

TEST_F(FacadeTest, PluginsException_PassesThroughAndEndsTheQuestion) {
    plugins["A"].faults.Throw("GetIDFromCO", "no");
    Load();
    try {
        set.GetIDFromCO(5, dpt);
        FAIL() << "nothing was thrown";
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "no");
        EXPECT_THAT(typeid(error).name(), testing::HasSubstr("PluginFailure")); // the plug-in's own
    }
    EXPECT_THAT(recorder.LinesWith("plugin B"), IsEmpty());
}

TEST_F(FacadeTest, EveryQuestion_IsPutToThePluginsInTheirOrder) {
    std::uint8_t dataType = 0;
    std::uint16_t count = 0;
    std::string name;
    Load();
    set.GetIDFromCO(5, dpt);
    set.GetUrnFromCO(5, dpt);
    set.GetCOFromID(500, false, dpt);
    set.GetCOFromUrn("lamp", false, dpt);
    set.IsKnxEventDataPoint(500);
    set.IsKnxEventDataPoint("lamp");
    set.IsOxnReadInternalDataPoint(500);
    set.IsOxnReadInternalDataPoint("lamp");
    set.GetTimeCoByIndex(1, false, dpt);
    set.GetInterfaceObjectId();
    set.GetPropertyByIndex(1, dataType, name, count);
    set.GetExtendedInterfaceObjectType();
    set.GetExtendedProperties();
    set.GetGroupAddressTranslationRange();
    set.GetUseUrns();
    set.Reload();
    ExpectRecord("host", R"(
        plugin A GetIDFromCO(5)
        plugin B GetIDFromCO(5)
        plugin A GetUrnFromCO(5)
        plugin B GetUrnFromCO(5)
        plugin A GetCOFromID(500, writing)
        plugin B GetCOFromID(500, writing)
        plugin A GetCOFromUrn('lamp', writing)
        plugin B GetCOFromUrn('lamp', writing)
        plugin A IsKnxEventDataPoint(500)
        plugin B IsKnxEventDataPoint(500)
        plugin A IsKnxEventDataPoint('lamp')
        plugin B IsKnxEventDataPoint('lamp')
        plugin A IsOxnReadInternalDataPoint(500)
        plugin B IsOxnReadInternalDataPoint(500)
        plugin A IsOxnReadInternalDataPoint('lamp')
        plugin B IsOxnReadInternalDataPoint('lamp')
        plugin A GetTimeCoByIndex(1, reading)
        plugin B GetTimeCoByIndex(1, reading)
        plugin A GetInterfaceObjectId()
        plugin B GetInterfaceObjectId()
        plugin A GetPropertyByIndex(1)
        plugin B GetPropertyByIndex(1)
        plugin A GetExtendedInterfaceObjectType()
        plugin B GetExtendedInterfaceObjectType()
        plugin A GetExtendedProperties()
        plugin B GetExtendedProperties()
        plugin A GetGroupAddressTranslationRange()
        plugin B GetGroupAddressTranslationRange()
        plugin A GetUseUrns()
        plugin B GetUseUrns()
        plugin A Reload()
        plugin B Reload()
    )");
}

struct RangeCase {
    std::pair<std::uint16_t, std::uint16_t> first;
    std::pair<std::uint16_t, std::uint16_t> second;
    std::pair<std::uint16_t, std::uint16_t> result;
    bool asksTheSecond;
};

TEST_F(FacadeTest, TranslationRange_IsTheFirstWholeOneOrTheLastOneAsked) {
    Load();
    for (const RangeCase& row :
         {RangeCase{{5, 0}, {0, 0}, {0, 0}, true}, RangeCase{{0, 0}, {5, 0}, {5, 0}, true},
          RangeCase{{5, 9}, {1, 2}, {5, 9}, false}, RangeCase{{0, 9}, {1, 2}, {1, 2}, true},
          RangeCase{{0, 9}, {0, 7}, {0, 7}, true}}) {
        plugins["A"].translationRange = row.first;
        plugins["B"].translationRange = row.second;
        recorder.Clear();
        EXPECT_EQ(set.GetGroupAddressTranslationRange(), row.result);
        EXPECT_EQ(recorder.LinesWith("plugin B").size(), row.asksTheSecond ? 1u : 0u);
    }
}

TEST_F(FacadeTest, Reload_TellsEveryPluginAndAnswersForTheLast) {
    Load();
    plugins["B"].reloads = false;
    EXPECT_FALSE(set.Reload());
    plugins["A"].reloads = false;
    plugins["B"].reloads = true;
    EXPECT_TRUE(set.Reload());
    ExpectRecord("host", R"(
        plugin A Reload()
        plugin B Reload()
        plugin A Reload()
        plugin B Reload()
    )");
}

class HandlerSetTest : public World {
protected:
    bool Load() { return set.Load(files / "stack", files / "user", "dscknxappprg"); }
    bool AskUseUrns() {
        return set.Ask([](const auto& handlers) { return handlers.GetUseUrns(); });
    }

    KnxAppPrgHandlerSet set;
};

TEST_F(HandlerSetTest, BeforeLoading_QuestionsHaveNoAnswer) {
    EXPECT_FALSE(AskUseUrns());
}

TEST_F(HandlerSetTest, ClearWithACallerInside_WaitsForNobodyAndUnloadsWithTheCaller) {
    RegisterPlugins({"A"});
    ASSERT_TRUE(Load());
    const auto gate = plugins["A"].faults.Block("GetUseUrns");
    auto caller = std::async(std::launch::async, [&] { return AskUseUrns(); });
    ASSERT_TRUE(gate->WaitForArrival());
    set.Clear(); // returns although the plug-in hangs
    EXPECT_EQ(recorder.Count("library A unloaded"), 0u);
    EXPECT_FALSE(AskUseUrns());
    gate->Open();
    EXPECT_FALSE(caller.get());
    EXPECT_TRUE(recorder.InOrder("plugin A DeleteHandler()", "library A unloaded"));
    EXPECT_THAT(recorder.LinesOf("host"), testing::Not(testing::Contains("plugin A DeleteHandler()")));
}

TEST_F(HandlerSetTest, LoadAgain_DropsTheFormerSetFirst) {
    RegisterPlugins({"A"});
    ASSERT_TRUE(Load());
    recorder.Clear();
    ASSERT_TRUE(Load());
    ExpectRecord("host", R"(
        plugin A DeleteHandler()
        library A unloaded
        library A loaded
        plugin A CreateHandler(A.json)
        plugin A Initialize()
    )");
}

TEST_F(HandlerSetTest, PluginsException_ComesOutAsOneOfTheProgram) {
    RegisterPlugins({"A"});
    ASSERT_TRUE(Load());
    plugins["A"].faults.Throw("GetUseUrns", "plug-in says no");
    try {
        AskUseUrns();
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        set.Clear(); // the type must not need the library any more
        EXPECT_STREQ(error.what(), "plug-in says no");
    }
}

TEST_F(HandlerSetTest, UnknownException_ComesOutAsOneOfTheProgram) {
    try {
        set.Ask([](const auto&) -> bool { throw 42; });
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "unknown exception of a handler plug-in");
    }
}

TEST_F(HandlerSetTest, Interruption_PassesThrough) {
    EXPECT_THROW(set.Ask([](const auto&) -> bool { throw boost::thread_interrupted(); }),
                 boost::thread_interrupted);
}

} // namespace
