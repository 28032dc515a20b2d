// Properties that the plug-ins want on further interface objects.
#include "KnxPropertyHandlerTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

/// Properties on further objects; there is no own one.
class ExtendedPropertyTest : public PropertyTest {
protected:
    ExtendedPropertyTest() { own.interfaceObjectId = 0; }
};

TEST_F(ExtendedPropertyTest, TwoOfOneType_ShareItsObjects) {
    own.extendedProperties = {{"level", 51, 4, 1, 50002, 3}, {"names", 52, 2, 10, 50002, 3}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(map,
                ElementsAre(Pair(50002, ElementsAre(Object(50002, 1), Object(50002, 2), Object(50002, 3)))));
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        plugin A GetExtendedProperties()
        properties GetInterfaceObject(50002, 1) -> null
        properties CreateInterfaceObject(50002) -> 50002/1
        properties CreateInterfaceObject(50002) -> 50002/2
        properties CreateInterfaceObject(50002) -> 50002/3
        object 50002/1 CreateProperty(51, 4, 0, 1)
        property 50002/1/51 SetActive(1)
        object 50002/2 CreateProperty(51, 4, 0, 1)
        property 50002/2/51 SetActive(1)
        object 50002/3 CreateProperty(51, 4, 0, 1)
        property 50002/3/51 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=3, pid=51, name=level
        object 50002/1 CreateArrayProperty(52, 2, 10, 0, 1)
        property 50002/1/52 SetActive(1)
        object 50002/2 CreateArrayProperty(52, 2, 10, 0, 1)
        property 50002/2/52 SetActive(1)
        object 50002/3 CreateArrayProperty(52, 2, 10, 0, 1)
        property 50002/3/52 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=3, pid=52, name=names
    )");
}

TEST_F(ExtendedPropertyTest, ObjectsThatExist_AreTakenUpToTheFirstThatDoesNot) {
    propertyService.Add(50002);
    own.extendedProperties = {{"level", 51, 4, 0, 50002, 3}};
    EXPECT_TRUE(Init());
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        plugin A GetExtendedProperties()
        properties GetInterfaceObject(50002, 1) -> 50002/1
        properties GetInterfaceObject(50002, 2) -> null
        properties CreateInterfaceObject(50002) -> 50002/2
        properties CreateInterfaceObject(50002) -> 50002/3
        object 50002/1 CreateProperty(51, 4, 0, 1)
        property 50002/1/51 SetActive(1)
        object 50002/2 CreateProperty(51, 4, 0, 1)
        property 50002/2/51 SetActive(1)
        object 50002/3 CreateProperty(51, 4, 0, 1)
        property 50002/3/51 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=3, pid=51, name=level
    )");
}

TEST_F(ExtendedPropertyTest, OfAnotherTypeBehindACreatedOne_AreAskedForAgain) {
    propertyService.Add(50003);
    own.extendedProperties = {{"level", 51, 4, 1, 50002, 1}, {"names", 52, 2, 1, 50003, 1}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(recorder.LinesWith("properties "),
                ElementsAre("properties GetInterfaceObject(50002, 1) -> null",
                            "properties CreateInterfaceObject(50002) -> 50002/1",
                            "properties GetInterfaceObject(50003, 1) -> 50003/1"));
    EXPECT_THAT(
        map, ElementsAre(Pair(50002, ElementsAre(Object(50002))), Pair(50003, ElementsAre(Object(50003)))));
}

TEST_F(ExtendedPropertyTest, OfTheTypeOfTheOwnObject_AreRegisteredThere) {
    own.interfaceObjectId = 50001;
    own.extendedProperties = {{"level", 51, 4, 1, 50001, 3}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(map, ElementsAre(Pair(50001, ElementsAre(Object(50001)))));
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50001) -> 50001/1
        plugin A GetPropertyByIndex(1)
        plugin A GetExtendedProperties()
        object 50001/1 CreateProperty(51, 4, 0, 1)
        property 50001/1/51 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=51, name=level
    )");
}

TEST_F(ExtendedPropertyTest, WithoutInstances_ProvideNoObject) {
    propertyService.Add(50002);
    own.extendedProperties = {{"level", 51, 4, 1, 50002, 0}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(map, IsEmpty());
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        plugin A GetExtendedProperties()
    )");
}

TEST_F(ExtendedPropertyTest, WithoutInstances_AreRegisteredOnTheObjectsOfAnother) {
    own.extendedProperties = {{"level", 51, 4, 1, 50002, 0}, {"names", 52, 2, 1, 50002, 1}};
    EXPECT_TRUE(Init());
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        plugin A GetExtendedProperties()
        properties GetInterfaceObject(50002, 1) -> null
        properties CreateInterfaceObject(50002) -> 50002/1
        object 50002/1 CreateProperty(51, 4, 0, 1)
        property 50002/1/51 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=1, pid=51, name=level
        object 50002/1 CreateProperty(52, 2, 0, 1)
        property 50002/1/52 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=1, pid=52, name=names
    )");
}

TEST_F(ExtendedPropertyTest, ThatCannotBeCreatedOnOneObject_AreCountedWithoutIt) {
    own.extendedProperties = {{"level", 51, 4, 1, 50002, 3}};
    propertyService.faults.Refuse("CreateProperty 50002/2");
    EXPECT_TRUE(Init());
    const auto lines = recorder.LinesOf("host");
    ASSERT_GT(lines.size(), 6u);
    ExpectTranscript({lines.begin() + 6, lines.end()}, R"(
        object 50002/1 CreateProperty(51, 4, 0, 1)
        property 50002/1/51 SetActive(1)
        object 50002/2 CreateProperty(51, 4, 0, 1) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error register property oid=50002, pid=51, name="level"
        object 50002/3 CreateProperty(51, 4, 0, 1)
        property 50002/3/51 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50002, count=2, pid=51, name=level
    )");
}

TEST_F(ExtendedPropertyTest, ThatCannotBeCreatedAnywhere_AreNotSaidToBe) {
    own.extendedProperties = {{"names", 52, 2, 10, 50002, 2}};
    propertyService.faults.Refuse("CreateArrayProperty");
    EXPECT_TRUE(Init());
    const auto lines = recorder.LinesOf("host");
    ASSERT_GT(lines.size(), 5u);
    ExpectTranscript({lines.begin() + 5, lines.end()}, R"(
        object 50002/1 CreateArrayProperty(52, 2, 10, 0, 1) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error register property oid=50002, pid=52, name="names"
        object 50002/2 CreateArrayProperty(52, 2, 10, 0, 1) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error register property oid=50002, pid=52, name="names"
    )");
}

TEST_F(ExtendedPropertyTest, WhoseObjectCannotBeCreated_FailTheWhole) {
    own.interfaceObjectId = 50001;
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    propertyService.Add(50002);
    own.extendedProperties = {{"level", 51, 4, 1, 50002, 1}, // is there
                              {"names", 52, 2, 1, 50003, 1},
                              {"scene", 53, 2, 1, 50004, 1}};
    propertyService.faults.Refuse("CreateInterfaceObject");
    EXPECT_FALSE(Init());
    EXPECT_THAT(
        map, ElementsAre(Pair(50001, ElementsAre(Object(50001))), Pair(50002, ElementsAre(Object(50002)))));
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50001) -> 50001/1
        plugin A GetPropertyByIndex(1)
        object 50001/1 CreateProperty(201, 17, 0, 1)
        property 50001/1/201 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=201, name=mode
        plugin A GetPropertyByIndex(2)
        plugin A GetExtendedProperties()
        properties GetInterfaceObject(50002, 1) -> 50002/1
        properties GetInterfaceObject(50003, 1) -> null
        properties CreateInterfaceObject(50003) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating extended interface object with type = 50003
    )");
}

TEST_F(ExtendedPropertyTest, OfSeveralPlugins_AreThoseOfTheFirstThatHasSome) {
    plugins["B"].extendedProperties = {{"level", 51, 4, 1, 50002, 1}};
    plugins["C"].extendedProperties = {{"names", 52, 2, 1, 50003, 1}};
    Load({"A", "B", "C"});
    EXPECT_TRUE(registration.Init(&propertyService, map));
    EXPECT_THAT(map, ElementsAre(Pair(50002, ElementsAre(Object(50002)))));
}

TEST_F(PropertyTest, ExtendedProperties_WithoutAnObject_AreSkippedSilently) {
    map[50002] = {};
    map[50003] = {Object(50001)};
    registration.RegisterExtendedKnxProperties(map, {});
    registration.RegisterExtendedKnxProperties({}, {{"level", 51, 4, 1, 50002, 1}});
    ExpectRecord("host", "");
    registration.RegisterExtendedKnxProperties(
        map, {{"level", 51, 4, 1, 50002, 1}, {"names", 52, 2, 1, 50004, 1}, {"scene", 53, 2, 1, 50003, 1}});
    ExpectRecord("host", R"(
        object 50001/1 CreateProperty(53, 2, 0, 1)
        property 50001/1/53 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50003, count=1, pid=53, name=scene
    )");
}

} // namespace
