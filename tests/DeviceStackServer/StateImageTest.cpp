#include "DeviceStackServer/StateImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace DeviceStackServer {
namespace {

TEST(StateImage, IdsAndValuesSurviveTheirFiles) {
    StateImage image;
    image.ids = {{"urn:oxn:dp:house:A", 1}, {"urn:oxn:dp:house:Ä \"x\"", 4294967294u}};
    image.values = {{"urn:oxn:dp:house:A", {"21.5\n", "a::b::c", Milliseconds(1714557600123)}},
                    {"urn:oxn:dp:house:B", {"", "connection#1", Milliseconds(0)}}};
    StateImage read;
    EXPECT_EQ(ReadIds(WriteIds(image), read), "");
    EXPECT_EQ(ReadValues(WriteValues(image), read), "");
    EXPECT_EQ(read, image);
}

TEST(StateImage, AnEmptyImageHasFilesToo) {
    StateImage read;
    EXPECT_EQ(ReadIds(WriteIds({}), read), "");
    EXPECT_EQ(ReadValues(WriteValues({}), read), "");
    EXPECT_EQ(read, StateImage());
}

TEST(StateImage, WhatCannotBeReadIsNamedAndLeavesTheImageAlone) {
    StateImage image;
    image.ids["u"] = 5;
    const auto before = image;
    EXPECT_THAT(ReadIds("{\"version\":1,\"ids\":{", image), testing::StartsWith("not JSON: "));
    EXPECT_EQ(ReadIds("[]", image), "no version");
    EXPECT_EQ(ReadIds(R"({"version":2,"ids":{}})", image), "version 2 is not known here");
    EXPECT_EQ(ReadIds(R"({"version":1})", image), "member \"ids\" is missing");
    EXPECT_EQ(ReadIds(R"({"version":1,"ids":{"a":1,"b":-1}})", image),
              "the id of \"b\" is no number from 1 to 4294967294");
    EXPECT_EQ(ReadValues(R"({"version":1,"values":{"a":{"value":"1","origin":"x"}}})", image),
              "\"a\" lacks a value, its origin or its time");
    EXPECT_EQ(ReadValues(R"({"version":1,"values":{"a":{"value":"1","origin":"x","time":"now"}}})", image),
              "the time of \"a\" cannot be read");
    EXPECT_EQ(image, before);
}

} // namespace
} // namespace DeviceStackServer
