#include "KnxDevice/DeviceImage.h"

#include <boost/crc.hpp>
#include <gmock/gmock.h>

#include <functional>

namespace KnxDevice {
namespace {

using KnxStack::BinaryData;
using Bytes = std::vector<std::uint8_t>;

DeviceState Example() {
    DeviceState state;
    state.address = IndividualAddress(1, 1, 249);
    state.keys = {1, 0x11223344, kNoKey};
    state.hopCount = 5;
    state.projectInstallation = 0x1234;
    state.friendlyName = "House";
    state.downloads = 3;
    state.restartPending = true;
    state.loaded[0] = {LoadState::Loaded, LoadFault::None, {0x200, {0, 1, 0x0A, 0x03}}, {}};
    state.loaded[1] = {LoadState::Loading, LoadFault::None, {0x300, {9, 9, 9}}, {}};
    state.loaded[2] = {LoadState::Error, LoadFault::ObjectTooBig, {}, {}};
    state.loaded[3] = {LoadState::Loaded, LoadFault::None, {0x10000, Bytes(70000, 0xAB)}, {0, 0xFA, 1, 2, 3}};
    state.properties = {{3, 1, {{201, 0x11, 1, BinaryData{0x40}, true, false}}},
                        {50001, 2, {{205, 0x12, 3, BinaryData{1, 2, 3, 4, 5, 6}, true, true}}}};
    return state;
}

void ExpectEqual(const DeviceState& expected, const DeviceState& actual) {
    EXPECT_EQ(expected.address, actual.address);
    EXPECT_EQ(expected.keys, actual.keys);
    EXPECT_EQ(expected.hopCount, actual.hopCount);
    EXPECT_EQ(expected.projectInstallation, actual.projectInstallation);
    EXPECT_EQ(expected.friendlyName, actual.friendlyName);
    EXPECT_EQ(expected.downloads, actual.downloads);
    EXPECT_EQ(expected.restartPending, actual.restartPending);
    EXPECT_TRUE(expected.loaded == actual.loaded);
    ASSERT_EQ(expected.properties.size(), actual.properties.size());
    for (std::size_t object = 0; object < expected.properties.size(); ++object) {
        EXPECT_EQ(expected.properties[object].type, actual.properties[object].type);
        EXPECT_EQ(expected.properties[object].instance, actual.properties[object].instance);
        ASSERT_EQ(1u, actual.properties[object].properties.size());
        const auto& was = expected.properties[object].properties[0];
        const auto& is = actual.properties[object].properties[0];
        EXPECT_EQ(was.id, is.id);
        EXPECT_EQ(was.dataType, is.dataType);
        EXPECT_EQ(was.elements, is.elements);
        EXPECT_EQ(was.writeEnabled, is.writeEnabled);
        EXPECT_EQ(was.value->ToString(), is.value->ToString());
    }
}

std::string FaultOf(const Bytes& image) {
    try {
        ReadDeviceImage(image);
        return "";
    } catch (const ImageError& error) {
        return error.what();
    }
}

/// An image that says its checksum is right.
Bytes Sealed(Bytes content) {
    boost::crc_32_type crc;
    crc.process_bytes(content.data(), content.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        content.push_back(static_cast<std::uint8_t>(crc.checksum() >> shift));
    return content;
}

Bytes WithoutChecksum(const DeviceState& state) {
    auto image = WriteDeviceImage(state);
    image.resize(image.size() - 4);
    return image;
}

TEST(DeviceImage, HoldsEverythingThatTheDeviceKeeps) {
    ExpectEqual(Example(), ReadDeviceImage(WriteDeviceImage(Example())));
    ExpectEqual({}, ReadDeviceImage(WriteDeviceImage({})));
}

TEST(DeviceImage, ADeviceThatStartsFromItIsAsItWas) {
    DeviceState state = Example();
    InterfaceObjects objects;
    Device device({}, objects);
    device.Restore(state);
    ExpectEqual(state, device.State());
}

TEST(DeviceImage, OneThatWasCutOffAnywhereIsRefused) {
    auto image = WriteDeviceImage({});
    while (!image.empty()) {
        image.pop_back();
        ASSERT_NE("", FaultOf(image)) << image.size();
    }
    EXPECT_EQ("it is no device image", FaultOf(image));
}

TEST(DeviceImage, OneWithAnyBitTurnedIsRefused) {
    const auto image = WriteDeviceImage({});
    for (std::size_t bit = 0; bit < image.size() * 8; ++bit) {
        auto damaged = image;
        damaged[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
        ASSERT_NE("", FaultOf(damaged)) << bit;
    }
}

TEST(DeviceImage, AnotherVersionIsNamed) {
    auto image = WriteDeviceImage({});
    image[9] = 2;
    EXPECT_EQ("it has version 2, and only version 1 can be read", FaultOf(image));
}

TEST(DeviceImage, WhatNoDeviceCanHaveIsRefused) {
    const auto faultWith = [](const std::function<void(DeviceState&)>& change) {
        auto state = Example();
        change(state);
        return FaultOf(WriteDeviceImage(state));
    };
    EXPECT_EQ("there is a load state that does not exist",
              faultWith([](DeviceState& state) { state.loaded[4].state = static_cast<LoadState>(4); }));
    EXPECT_EQ("a table in it cannot be used: the group addresses do not ascend",
              faultWith([](DeviceState& state) {
                  state.loaded[0].memory.octets = {0, 1, 0, 0};
              }));
    EXPECT_EQ("there is a segment that the memory has no room for",
              faultWith([](DeviceState& state) { state.loaded[0].memory.address = 0xFFFFFD; }));
    EXPECT_EQ("there is a segment that the memory has no room for", faultWith([](DeviceState& state) {
                  state.loaded[3].memory.octets.resize(Device::kLargestSegment + 1);
              }));
    const auto* const room = "there is a segment that the memory has no room for";
    EXPECT_EQ(room, faultWith([](DeviceState& state) { state.loaded[0].memory.address = 0x1FF; }));
    EXPECT_EQ(room, faultWith([](DeviceState& state) { state.loaded[2].memory.address = 0x1000; }));
    EXPECT_EQ("", faultWith([](DeviceState& state) { state.loaded[1].memory.address = 0x204; }));
    const auto* const shared = "two segments share memory";
    EXPECT_EQ(shared, faultWith([](DeviceState& state) { state.loaded[1].memory.address = 0x203; }));
    EXPECT_EQ(shared, faultWith([](DeviceState& state) { state.loaded[1].memory.address = 0x200; }));
    const auto* const mismatch = "there is a load state that does not go with the rest of its object";
    EXPECT_EQ(mismatch, faultWith([](DeviceState& state) { state.loaded[0].fault = LoadFault::NoMemory; }));
    EXPECT_EQ(mismatch, faultWith([](DeviceState& state) { state.loaded[2].fault = LoadFault::None; }));
    EXPECT_EQ(mismatch, faultWith([](DeviceState& state) { state.loaded[1].state = LoadState::Unloaded; }));
    EXPECT_EQ("there is a hop count that does not exist",
              faultWith([](DeviceState& state) { state.hopCount = 8; }));
    EXPECT_EQ("its friendly name is too long",
              faultWith([](DeviceState& state) { state.friendlyName = std::string(31, 'x'); }));
    EXPECT_EQ("instance 1 of interface object type 3 is there twice",
              faultWith([](DeviceState& state) { state.properties[1] = state.properties[0]; }));
    EXPECT_EQ("property 201 is there twice", faultWith([](DeviceState& state) {
                  auto& properties = state.properties[0].properties;
                  properties.push_back(properties[0]);
              }));
    EXPECT_EQ("an interface object cannot have 0 properties",
              faultWith([](DeviceState& state) { state.properties[0].properties.clear(); }));
    EXPECT_EQ("no device can have 516 interface objects", faultWith([](DeviceState& state) {
                  state.properties[0].instance = 255;
                  state.properties[1].instance = 255;
              }));
    EXPECT_EQ("there cannot be an instance 0 of an interface object",
              faultWith([](DeviceState& state) { state.properties[0].instance = 0; }));
    EXPECT_EQ("property 205 has a value that its data type cannot have",
              faultWith([](DeviceState& state) { state.properties[1].properties[0].value = BinaryData{1}; }));
}

TEST(DeviceImage, ANumberThatIsNeitherYesNorNoIsRefused) {
    // Behind magic, version, address, keys, hop count, installation, an empty name and the count of loads.
    constexpr std::size_t kRestartPending = 9 + 1 + 2 + 12 + 1 + 2 + 4 + 2;
    auto image = WithoutChecksum({});
    ASSERT_EQ(0, image[kRestartPending]);
    image[kRestartPending] = 1;
    EXPECT_TRUE(ReadDeviceImage(Sealed(image)).restartPending);
    image[kRestartPending] = 2;
    EXPECT_EQ("there is neither yes nor no where one of them must be", FaultOf(Sealed(image)));
}

TEST(DeviceImage, SizesThatItDoesNotHaveAreRefused) {
    auto longer = WithoutChecksum({});
    longer.push_back(0);
    EXPECT_EQ("it has more behind its end", FaultOf(Sealed(longer)));
    auto shorter = WithoutChecksum({});
    shorter.pop_back();
    EXPECT_EQ("it ends too early", FaultOf(Sealed(shorter)));
}

} // namespace
} // namespace KnxDevice
