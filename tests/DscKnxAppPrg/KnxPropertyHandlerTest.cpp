// The interface object of the program itself, and its properties.
#include "KnxPropertyHandlerTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST_F(PropertyTest, WithoutAService_NothingIsDoneAndTheMapStays) {
    Load();
    map[7] = {nullptr};
    EXPECT_FALSE(registration.Init(nullptr, map));
    EXPECT_THAT(map, ElementsAre(Pair(7, ElementsAre(nullptr))));
    ExpectRecord("host", "ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Property service is NULL.");
}

TEST_F(PropertyTest, NeitherOwnNorExtendedObjects_EmptyTheMap) {
    own.interfaceObjectId = 0;
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    map[7] = {nullptr};
    EXPECT_TRUE(Init());
    EXPECT_THAT(map, IsEmpty());
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        plugin A GetExtendedProperties()
    )");
}

TEST_F(PropertyTest, WithoutPlugins_NothingIsWanted) {
    Load({});
    EXPECT_TRUE(registration.Init(&propertyService, map));
    EXPECT_THAT(map, IsEmpty());
    ExpectRecord("host", "");
}

TEST_F(PropertyTest, OwnObjectThatTheStackDoesNotHave_Fails) {
    own.interfaceObjectId = 50009;
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    map[7] = {nullptr};
    EXPECT_FALSE(Init());
    EXPECT_THAT(map, IsEmpty());
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50009) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Failed to get interface object type 50009
    )");
}

TEST_F(PropertyTest, OwnProperties_AreAskedForByIndexUntilThereIsNone) {
    own.recordsGivenProperty = true;
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 0},
                      {.name = "zone", .propertyId = 202, .dataType = 3, .elementCount = 1},
                      {.name = "table", .propertyId = 203, .dataType = 4, .elementCount = 2},
                      {.name = "", .propertyId = 65535, .dataType = 255, .elementCount = 65535}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(map, ElementsAre(Pair(50001, ElementsAre(Object(50001)))));
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50001) -> 50001/1
        plugin A GetPropertyByIndex(1)
        plugin A is given '', 0, 0
        object 50001/1 CreateProperty(201, 17, 0, 1)
        property 50001/1/201 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=201, name=mode
        plugin A GetPropertyByIndex(2)
        plugin A is given '', 0, 0
        object 50001/1 CreateProperty(202, 3, 0, 1)
        property 50001/1/202 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=202, name=zone
        plugin A GetPropertyByIndex(3)
        plugin A is given '', 0, 0
        object 50001/1 CreateArrayProperty(203, 4, 2, 0, 1)
        property 50001/1/203 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=203, name=table
        plugin A GetPropertyByIndex(4)
        plugin A is given '', 0, 0
        object 50001/1 CreateArrayProperty(65535, 255, 65535, 0, 1)
        property 50001/1/65535 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=65535, name=
        plugin A GetPropertyByIndex(5)
        plugin A is given '', 0, 0
        plugin A GetExtendedProperties()
    )");
}

TEST_F(PropertyTest, WithoutAPropertyAtIndexOne_ThoseBehindItAreNotFound) {
    own.properties = {{}, {.name = "zone", .propertyId = 202, .dataType = 3, .elementCount = 1}};
    EXPECT_TRUE(Init());
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50001) -> 50001/1
        plugin A GetPropertyByIndex(1)
        plugin A GetExtendedProperties()
    )");
}

TEST_F(PropertyTest, PropertyIds_HaveSixteenBits) {
    own.propertyIdOffset = 0x10000;
    own.properties = {{.name = "none", .propertyId = 0}, {.name = "mode", .propertyId = 201}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(recorder.LinesWith("INFO"),
                ElementsAre("INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, "
                            "count=1, pid=0, name=none",
                            "INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, "
                            "count=1, pid=201, name=mode"));
}

TEST_F(PropertyTest, OwnObjectOfAHighId_IsMappedByItAndItsPropertiesByTheLowBits) {
    propertyService.Add(50001);
    own.interfaceObjectId = 0x10000 + 50001; // the second one of its type
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(map, ElementsAre(Pair(0x10000 + 50001, ElementsAre(Object(50001, 2)))));
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(115537) -> 50001/2
        plugin A GetPropertyByIndex(1)
        object 50001/2 CreateProperty(201, 17, 0, 1)
        property 50001/2/201 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=201, name=mode
        plugin A GetPropertyByIndex(2)
        plugin A GetExtendedProperties()
    )");
}

TEST_F(PropertyTest, OwnObjectWhoseLowBitsAreZero_GetsNoProperties) {
    propertyService.Add(0);
    propertyService.Add(0);
    own.interfaceObjectId = 0x10000;
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    EXPECT_TRUE(Init());
    EXPECT_THAT(map, ElementsAre(Pair(0x10000, ElementsAre(Object(0, 2)))));
    EXPECT_THAT(recorder.LinesWith("GetPropertyByIndex"), IsEmpty());
}

TEST_F(PropertyTest, OwnPropertiesThatCannotBeCreated_AreLoggedAndTheNextOneFollows) {
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1},
                      {.name = "table", .propertyId = 203, .dataType = 4, .elementCount = 2}};
    propertyService.faults.Refuse("CreateProperty");
    EXPECT_TRUE(Init());
    ExpectRecord("host", R"(
        plugin A GetInterfaceObjectId()
        properties GetInterfaceObjectById(50001) -> 50001/1
        plugin A GetPropertyByIndex(1)
        object 50001/1 CreateProperty(201, 17, 0, 1) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error register property oid=50001, pid=201, name="mode"
        plugin A GetPropertyByIndex(2)
        object 50001/1 CreateArrayProperty(203, 4, 2, 0, 1)
        property 50001/1/203 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=50001, count=1, pid=203, name=table
        plugin A GetPropertyByIndex(3)
        plugin A GetExtendedProperties()
    )");
}

TEST_F(PropertyTest, OwnProperties_OfNoObjectOrWithoutInit_AreNotAskedFor) {
    Load();
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    registration.RegisterKnxProperties(50001);
    ASSERT_TRUE(registration.Init(&propertyService, map));
    recorder.Clear();
    registration.RegisterKnxProperties(0);
    registration.Exit();
    registration.RegisterKnxProperties(50001);
    ExpectRecord("host", "");

    own.interfaceObjectId = 0;
    KnxPropertyHandler withoutObject(program);
    ASSERT_TRUE(withoutObject.Init(&propertyService, map));
    recorder.Clear();
    withoutObject.RegisterKnxProperties(50001);
    ExpectRecord("host", "");
}

TEST_F(PropertyTest, OwnProperties_BearTheIdThatIsGiven) {
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    ASSERT_TRUE(Init());
    recorder.Clear();
    registration.RegisterKnxProperties(7);
    ExpectRecord("host", R"(
        plugin A GetPropertyByIndex(1)
        object 50001/1 CreateProperty(201, 17, 0, 1)
        property 50001/1/201 SetActive(1)
        INFO KnxStack.DscKnxAppPrg.KnxPropertyHandler | Registered property oid=7, count=1, pid=201, name=mode
        plugin A GetPropertyByIndex(2)
    )");
}

TEST_F(PropertyTest, PropertyObject_IsThatOfTheOwnObject) {
    KnxStack::IInterfaceObjectProperty* const property = &propertyService.Object(50001).Add(201);
    ASSERT_TRUE(Init());
    recorder.Clear();
    EXPECT_EQ(registration.GetKnxPropertyObject(201), property);
    EXPECT_EQ(registration.GetKnxPropertyObject(202), nullptr);
    ExpectRecord("host", R"(
        object 50001/1 GetProperty(201)
        object 50001/1 GetProperty(202) -> null
    )");
}

TEST_F(PropertyTest, PropertyObject_WithoutAnOwnObject_IsAnError) {
    EXPECT_EQ(registration.GetKnxPropertyObject(201), nullptr);
    ExpectRecord("host", "ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator "
                         "configuration interface object");
}

TEST_F(PropertyTest, Exit_KeepsTheOwnObjectAndTheMap) {
    propertyService.Object(50001).Add(201);
    ASSERT_TRUE(Init());
    registration.Exit();
    EXPECT_NE(registration.GetKnxPropertyObject(201), nullptr);
    EXPECT_THAT(map, ElementsAre(Pair(50001, ElementsAre(Object(50001)))));
}

TEST_F(PropertyTest, InitAgain_StartsAfresh) {
    own.extendedProperties = {{"level", 51, 4, 1, 50002, 1}};
    ASSERT_TRUE(Init());
    own.extendedProperties = {{"names", 52, 2, 1, 50003, 1}};
    EXPECT_TRUE(registration.Init(&propertyService, map));
    EXPECT_THAT(
        map, ElementsAre(Pair(50001, ElementsAre(Object(50001))), Pair(50003, ElementsAre(Object(50003)))));
}

TEST_F(PropertyTest, InitAgain_WithoutAService_ForgetsTheFormerOne) {
    own.properties = {{.name = "mode", .propertyId = 201, .dataType = 17, .elementCount = 1}};
    ASSERT_TRUE(Init());
    EXPECT_FALSE(registration.Init(nullptr, map));
    EXPECT_THAT(map, ElementsAre(Pair(50001, ElementsAre(Object(50001))))); // untouched
    recorder.Clear();
    registration.RegisterKnxProperties(50001);
    ExpectRecord("host", "");
}

TEST_F(PropertyTest, InitAgain_WhereTheOwnObjectIsGone_ForgetsIt) {
    ASSERT_TRUE(Init());
    propertyService.faults.Refuse("GetInterfaceObjectById");
    EXPECT_FALSE(registration.Init(&propertyService, map));
    EXPECT_THAT(map, IsEmpty());
    EXPECT_EQ(registration.GetKnxPropertyObject(201), nullptr);
    EXPECT_THAT(recorder.LinesWith("GetProperty("), IsEmpty());
}

TEST_F(PropertyTest, Destruction_CallsNothing) {
    Load();
    {
        KnxPropertyHandler other(program);
        ASSERT_TRUE(other.Init(&propertyService, map));
        recorder.Clear();
    }
    ExpectRecord("host", "");
    EXPECT_THAT(map, ElementsAre(Pair(50001, ElementsAre(Object(50001)))));
}

} // namespace
