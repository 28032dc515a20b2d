#include "KnxDevice/InterfaceObjects.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <set>
#include <thread>

namespace KnxDevice {
namespace {

using KnxStack::BinaryData;

constexpr std::uint8_t kOneByte = 17; // PDT_GENERIC_01
constexpr std::uint8_t kTwoBytes = 18;

InterfaceObjectDefinition Define(std::uint16_t type, std::uint16_t instance,
                                 std::vector<PropertyDefinition> properties = {}) {
    return {type, instance, std::move(properties)};
}

std::string ValueOf(InterfaceObjects& objects, std::uint16_t type, std::uint16_t instance,
                    KnxStack::PropertyId id) {
    auto* const object = objects.GetInterfaceObject(type, instance);
    auto* const property = object == nullptr ? nullptr : object->GetProperty(id);
    return property == nullptr ? "none" : property->GetValue().ToString();
}

TEST(InterfaceObjects, ADeviceWithoutDefinitionsHasNone) {
    InterfaceObjects objects;
    EXPECT_EQ(nullptr, objects.GetInterfaceObjectById(0));
    EXPECT_EQ(nullptr, objects.GetInterfaceObject(0, 1));
    EXPECT_EQ(nullptr, objects.GetInterfaceObject(50001, 1));
}

TEST(InterfaceObjects, CreatedObjectsAreTheNextInstancesOfTheirType) {
    InterfaceObjects objects;
    auto* const first = objects.CreateInterfaceObject(50001);
    auto* const other = objects.CreateInterfaceObject(50002);
    auto* const second = objects.CreateInterfaceObject(50001);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(3u, (std::set{first, other, second}.size()));
    EXPECT_EQ(first, objects.GetInterfaceObject(50001, 1));
    EXPECT_EQ(second, objects.GetInterfaceObject(50001, 2));
    EXPECT_EQ(other, objects.GetInterfaceObject(50002, 1));
    EXPECT_EQ(nullptr, objects.GetInterfaceObject(50001, 3));
    EXPECT_EQ(nullptr, objects.GetInterfaceObject(50001, 0)) << "instances are counted from 1";
}

TEST(InterfaceObjects, AnIdIsTheTypeAndAboveItTheInstancesBefore) {
    InterfaceObjects objects;
    auto* const first = objects.CreateInterfaceObject(50001);
    auto* const second = objects.CreateInterfaceObject(50001);
    EXPECT_EQ(50001u, InterfaceObjects::IdOf(50001, 1));
    EXPECT_EQ(50001u + 65536u, InterfaceObjects::IdOf(50001, 2));
    EXPECT_EQ(first, objects.GetInterfaceObjectById(50001));
    EXPECT_EQ(second, objects.GetInterfaceObjectById(InterfaceObjects::IdOf(50001, 2)));
    EXPECT_EQ(nullptr, objects.GetInterfaceObjectById(InterfaceObjects::IdOf(50001, 3)));
    EXPECT_EQ(nullptr, objects.GetInterfaceObjectById(0xFFFF0000u | 50001u));
    EXPECT_EQ(nullptr, objects.GetInterfaceObjectById(50002));
}

TEST(InterfaceObjects, ThereIsRoomFor255Objects) {
    InterfaceObjects objects;
    for (unsigned i = 0; i < 255; ++i)
        ASSERT_NE(nullptr, objects.CreateInterfaceObject(static_cast<std::uint16_t>(i % 7)));
    EXPECT_EQ(nullptr, objects.CreateInterfaceObject(1));
    EXPECT_EQ(nullptr, objects.CreateInterfaceObject(7));
    EXPECT_EQ(nullptr, objects.GetInterfaceObject(7, 1));
}

TEST(InterfaceObjects, APropertyIsHiddenAndEmptyWhenItIsCreated) {
    InterfaceObjects objects;
    auto* const object = objects.CreateInterfaceObject(50001);
    EXPECT_EQ(nullptr, object->GetProperty(201));
    auto* const property =
        dynamic_cast<InterfaceObjectProperty*>(object->CreateProperty(201, kOneByte, 0, 1));
    ASSERT_NE(nullptr, property);
    EXPECT_FALSE(property->IsActive());
    EXPECT_FALSE(property->IsPersistent());
    EXPECT_TRUE(property->IsWriteEnabled());
    EXPECT_EQ(0u, property->GetValue().GetSize());
    EXPECT_EQ(property, object->GetProperty(201));
    property->SetActive(1);
    EXPECT_TRUE(property->IsActive());
    property->SetActive(0);
    EXPECT_FALSE(property->IsActive());
    auto* const other = dynamic_cast<InterfaceObjectProperty*>(object->CreateProperty(202, kOneByte, 1, 0));
    EXPECT_TRUE(other->IsPersistent());
    EXPECT_FALSE(other->IsWriteEnabled());
}

TEST(InterfaceObjects, AValueOfAnotherSizeChangesNothing) {
    InterfaceObjects objects;
    auto* const property = objects.CreateInterfaceObject(50001)->CreateArrayProperty(9, kTwoBytes, 2, 0, 1);
    property->SetValue({1, 2, 3, 4});
    EXPECT_EQ("01020304", property->GetValue().ToString());
    for (const auto& wrong : {BinaryData{}, BinaryData{1, 2, 3}, BinaryData{1, 2, 3, 4, 5}}) {
        property->SetValue(wrong);
        EXPECT_EQ("01020304", property->GetValue().ToString());
    }
    property->SetValue({5, 6, 7, 8});
    EXPECT_EQ("05060708", property->GetValue().ToString());
}

TEST(InterfaceObjects, AnExistingPropertyIsGivenBackAsItIs) {
    InterfaceObjects objects;
    auto* const object = objects.CreateInterfaceObject(50001);
    auto* const property =
        dynamic_cast<InterfaceObjectProperty*>(object->CreateProperty(201, kOneByte, 0, 1));
    property->SetActive(1);
    property->SetValue({0x40});
    EXPECT_EQ(property, object->CreateProperty(201, kOneByte, 1, 0));
    EXPECT_EQ(property, object->CreateArrayProperty(201, kOneByte, 1, 0, 1)) << "one element either way";
    EXPECT_EQ("40", property->GetValue().ToString());
    EXPECT_TRUE(property->IsActive());
    EXPECT_TRUE(property->IsWriteEnabled());
}

TEST(InterfaceObjects, AnExistingPropertyOfAnotherShapeIsRefusedAndStays) {
    InterfaceObjects objects;
    auto* const object = objects.CreateInterfaceObject(50001);
    auto* const property = object->CreateProperty(201, kOneByte, 0, 1);
    property->SetValue({0x40});
    EXPECT_EQ(nullptr, object->CreateProperty(201, kTwoBytes, 0, 1));
    EXPECT_EQ(nullptr, object->CreateArrayProperty(201, kOneByte, 2, 0, 1));
    EXPECT_EQ(property, object->GetProperty(201));
    EXPECT_EQ("40", property->GetValue().ToString());
}

TEST(InterfaceObjects, APropertyWithoutSizeCannotBeCreated) {
    InterfaceObjects objects;
    auto* const object = objects.CreateInterfaceObject(50001);
    EXPECT_EQ(nullptr, object->CreateProperty(201, 0x3E, 0, 1)) << "PDT_FUNCTION";
    EXPECT_EQ(nullptr, object->CreateProperty(201, 0xFF, 0, 1));
    EXPECT_EQ(nullptr, object->CreateArrayProperty(201, kOneByte, 0, 0, 1));
    EXPECT_EQ(nullptr, object->GetProperty(201));
}

TEST(InterfaceObjects, AnObjectHasRoomFor255Properties) {
    InterfaceObjects objects;
    auto* const object = objects.CreateInterfaceObject(50001);
    for (KnxStack::PropertyId id = 1; id <= 255; ++id)
        ASSERT_NE(nullptr, object->CreateProperty(id, kOneByte, 0, 1)) << id;
    EXPECT_EQ(nullptr, object->CreateProperty(256, kOneByte, 0, 1));
    EXPECT_EQ(nullptr, object->GetProperty(256));
    EXPECT_NE(nullptr, object->CreateProperty(255, kOneByte, 0, 1)) << "it exists";
    EXPECT_NE(nullptr, objects.CreateInterfaceObject(50001)->CreateProperty(256, kOneByte, 0, 1));
}

TEST(InterfaceObjects, DefinitionsMakeObjectsAndGiveValues) {
    const std::vector definitions = {
        Define(50001, 1, {{201, kOneByte, 1, BinaryData{0x40}}, {202, kTwoBytes, 2, std::nullopt}}),
        Define(7, 2, {{1, kTwoBytes, 1, BinaryData{1, 2}}})};
    InterfaceObjects objects(definitions);
    EXPECT_EQ("40", ValueOf(objects, 50001, 1, 201));
    EXPECT_EQ("", ValueOf(objects, 50001, 1, 202));
    EXPECT_EQ("none", ValueOf(objects, 7, 1, 1)) << "instance 1 comes before 2, without properties";
    EXPECT_NE(nullptr, objects.GetInterfaceObject(7, 1));
    EXPECT_EQ("0102", ValueOf(objects, 7, 2, 1));
    auto* const object = objects.GetInterfaceObjectById(50001);
    const auto* const property = dynamic_cast<InterfaceObjectProperty*>(object->GetProperty(201));
    EXPECT_FALSE(property->IsActive());
    EXPECT_TRUE(property->IsPersistent());
    EXPECT_TRUE(property->IsWriteEnabled());
    EXPECT_EQ(property, object->CreateProperty(201, kOneByte, 0, 1));
}

TEST(InterfaceObjects, LoadingAgainReplacesNamedValuesAndNothingElse) {
    InterfaceObjects objects(std::vector{
        Define(50001, 1, {{201, kOneByte, 1, BinaryData{0x40}}, {202, kOneByte, 1, std::nullopt}})});
    auto* const object = objects.GetInterfaceObject(50001, 1);
    auto* const named = object->GetProperty(201);
    object->GetProperty(202)->SetValue({2});
    object->CreateProperty(203, kOneByte, 0, 1)->SetValue({3});
    auto* const created = objects.CreateInterfaceObject(50002);
    objects.Load(std::vector{
        Define(50001, 1, {{201, kOneByte, 1, BinaryData{0x80}}, {202, kOneByte, 1, std::nullopt}})});
    EXPECT_EQ(object, objects.GetInterfaceObject(50001, 1));
    EXPECT_EQ(named, object->GetProperty(201));
    EXPECT_EQ("80", named->GetValue().ToString());
    EXPECT_EQ("02", ValueOf(objects, 50001, 1, 202));
    EXPECT_EQ("03", ValueOf(objects, 50001, 1, 203));
    EXPECT_EQ(created, objects.GetInterfaceObject(50002, 1));
    EXPECT_EQ(nullptr, objects.GetInterfaceObject(50001, 2)) << "it was there already";
}

TEST(InterfaceObjects, LoadingAnotherShapeKeepsThePlaceAndDropsTheValue) {
    InterfaceObjects objects(std::vector{Define(50001, 1, {{201, kOneByte, 1, BinaryData{0x40}}})});
    auto* const property = objects.GetInterfaceObject(50001, 1)->GetProperty(201);
    objects.Load(std::vector{Define(50001, 1, {{201, kTwoBytes, 1, std::nullopt}})});
    EXPECT_EQ(property, objects.GetInterfaceObject(50001, 1)->GetProperty(201));
    EXPECT_EQ("", property->GetValue().ToString());
    property->SetValue({1, 2});
    EXPECT_EQ("0102", property->GetValue().ToString());
    objects.Load(std::vector{Define(50001, 1, {{201, kTwoBytes, 2, BinaryData{1, 2, 3, 4}}})});
    EXPECT_EQ("01020304", property->GetValue().ToString());
}

TEST(InterfaceObjects, LoadingIsNotHeldUpByWhatTheProgramMade) {
    InterfaceObjects objects;
    while (objects.CreateInterfaceObject(1) != nullptr) {
    }
    objects.Load(std::vector{Define(50001, 1, {{201, kOneByte, 1, BinaryData{0x40}}})});
    EXPECT_EQ("40", ValueOf(objects, 50001, 1, 201));
    EXPECT_EQ(nullptr, objects.CreateInterfaceObject(50001));
}

TEST(InterfaceObjects, ReadersNeverSeeHalfAValueNorHalfALoad) {
    constexpr std::uint16_t kElements = 25000; // so that most of a load is copying the second value
    constexpr std::uint8_t kTwentyBytes = 36;
    const auto definitions = [&](unsigned byte) {
        const std::vector<std::uint8_t> many(kElements * 20u, static_cast<std::uint8_t>(byte));
        return std::vector{Define(
            50001, 1,
            {{1, kOneByte, 1, BinaryData{many.front()}}, {2, kTwentyBytes, kElements, BinaryData(many)}})};
    };
    InterfaceObjects objects(definitions(0));
    auto* const object = objects.GetInterfaceObject(50001, 1);
    std::atomic<bool> stop{false};
    std::atomic<unsigned> halves{0};
    std::atomic<unsigned> reads{0};
    {
        std::array<std::jthread, 2> readers;
        for (auto& reader : readers)
            reader = std::jthread([&] {
                while (!stop) {
                    // What is loaded only grows: the value that is read second is not older than the first.
                    const auto first = object->GetProperty(1)->GetValue().Bytes().front();
                    const auto second = object->GetProperty(2)->GetValue();
                    const auto bytes = second.Bytes();
                    if (bytes.front() != bytes.back() || static_cast<std::int8_t>(bytes.front() - first) < 0)
                        ++halves;
                    ++reads;
                }
            });
        for (unsigned i = 1; i < 150 || reads < 100; ++i) {
            objects.Load(definitions(i));
            objects.CreateInterfaceObject(static_cast<std::uint16_t>(i));
            object->CreateProperty(static_cast<KnxStack::PropertyId>(i), kOneByte, 0, 1);
        }
        stop = true;
    }
    EXPECT_EQ(0u, halves);
}

} // namespace
} // namespace KnxDevice
