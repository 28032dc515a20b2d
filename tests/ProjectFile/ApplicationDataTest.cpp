#include "ProjectFile/ApplicationData.h"
#include "RichProject.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <charconv>

using namespace ProjectFile;

namespace {

using Bytes = std::vector<std::uint8_t>;

/// The bytes of hexadecimal digits; spaces do not matter.
Bytes Hex(std::string text) {
    std::erase(text, ' ');
    Bytes bytes(text.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::from_chars(&text[2 * i], &text[2 * i + 2], bytes[i], 16);
    }
    return bytes;
}

std::string ToHex(const Bytes& bytes) {
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

constexpr const char* kDevice = "01 0001 68";
constexpr const char* kPoint = "10 000a 000007d1 0001 0001 00 41";

LoadResult Decode(const Bytes& data) {
    return DecodeApplicationData(data, "data");
}

/// The error of records that follow the device record.
std::string ErrorOf(const std::string& records) {
    const LoadResult result = Decode(SealApplicationData(Hex(kDevice + records)));
    EXPECT_EQ(result.project, nullptr);
    return result.Error();
}

std::shared_ptr<const Project> Accepted(const std::string& records) {
    const LoadResult result = Decode(SealApplicationData(Hex(records)));
    EXPECT_EQ(result.Error(), "");
    return result.project;
}

Bytes Encoded(const Project& project) {
    const EncodeResult result = EncodeApplicationData(project);
    EXPECT_EQ(result.error, "");
    return result.data;
}

/// A project whose data have each record that there is.
Bytes RichData() {
    return Encoded(*ProjectOf(kRichProject));
}

void ExpectComesBack(const Project& project) {
    const Bytes data = Encoded(project);
    const LoadResult again = Decode(data);
    ASSERT_TRUE(again) << again.Error();
    EXPECT_EQ(*again.project, project);
    EXPECT_EQ(Encoded(*again.project), data);
}

} // namespace

TEST(ApplicationData, BytesOfASmallProject) {
    const auto project = ProjectOf(R"({"version": 1, "device": "h", "dataPoints": [
        {"id": 2001, "name": "A", "dpt": "1.001", "knx": {"co": 1}}]})");
    const std::string kData =
        "4b41504400010000000000292e0c84ee" // the checksum is that of another implementation
        "01000168"
        "10000a000007d1000100010041"
        "1200050001000101";
    EXPECT_EQ(ToHex(Encoded(*project)), kData);
    const LoadResult decoded = Decode(Hex(kData));
    ASSERT_TRUE(decoded) << decoded.Error();
    EXPECT_EQ(*decoded.project, *project);
}

TEST(ApplicationData, EveryMemberComesBack) {
    ExpectComesBack(*ProjectOf(kRichProject));
}

TEST(ApplicationData, TheHouseComesBackAndIsSmall) {
    const LoadResult house = LoadProject(HOUSE_EXAMPLE "/project.json");
    ASSERT_TRUE(house) << house.Error();
    ExpectComesBack(*house.project);
    EXPECT_LT(Encoded(*house.project).size(), 4096u);
}

TEST(ApplicationData, EmptyProjectComesBack) {
    ExpectComesBack(*ProjectOf(R"({"version": 1, "device": "d", "dataPoints": []})"));
}

TEST(ApplicationData, OrderOfProjectRecordsDoesNotMatterToWhatFollowsFromThem) {
    // The KNX owner stands behind the data point that it is the default owner of.
    const auto project =
        Accepted(std::string(kDevice) + kPoint + "12 0005 0001 0001 01 03 0007 613a3a623a3a63");
    ASSERT_NE(project, nullptr);
    EXPECT_EQ(project->FindById(2001)->owner, "a::b::c");
}

TEST(ApplicationData, BytesBehindTheNamedLengthDoNotMatter) {
    Bytes data = RichData();
    for (const std::uint8_t octet : {0x00, 0xFF, 0x10}) {
        data.push_back(octet);
    }
    const LoadResult decoded = Decode(data);
    ASSERT_TRUE(decoded) << decoded.Error();
    EXPECT_EQ(*decoded.project, *ProjectOf(kRichProject));
}

TEST(ApplicationData, EmptyDataAreRefused) {
    EXPECT_EQ(Decode({}).Error(), "data: byte 0: the data are empty");
}

TEST(ApplicationData, DataCutAtEveryLengthAreRefused) {
    const Bytes data = RichData();
    for (std::size_t size = 1; size < data.size(); ++size) {
        const LoadResult result =
            Decode(Bytes(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size)));
        ASSERT_EQ(result.project, nullptr) << size;
        ASSERT_EQ(
            result.errors,
            std::vector<std::string>{
                size < 16
                    ? fmt::format(
                          "data: byte 0: the data are cut short: {} bytes, and the header alone has 16", size)
                    : fmt::format("data: byte 0: the data are cut short: {} bytes of {}", size,
                                  data.size())});
    }
}

TEST(ApplicationData, EveryFlippedBitIsNoticed) {
    const Bytes data = RichData();
    for (std::size_t bit = 0; bit < data.size() * 8; ++bit) {
        Bytes flipped = data;
        flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        const LoadResult result = Decode(flipped);
        ASSERT_EQ(result.project, nullptr) << bit;
        ASSERT_EQ(result.errors.size(), 1u) << bit;
    }
}

TEST(ApplicationData, HeaderFaultsAreTold) {
    const auto with = [](std::size_t at, std::uint8_t octet) {
        Bytes data = RichData();
        data[at] = octet;
        return Decode(data).Error();
    };
    EXPECT_EQ(with(0, 'X'),
              "data: byte 0: the data do not begin with \"KAPD\"; they are not made for this program");
    EXPECT_EQ(with(5, 2),
              "data: byte 0: version 2 of the format is not known to this program; it reads version 1");
    EXPECT_EQ(with(6, 0x80),
              "data: byte 0: the header has the flags 8000h, which this program does not know");
    Bytes data = SealApplicationData(Hex(kDevice));
    data[11] = 15;
    EXPECT_EQ(Decode(data).Error(), "data: byte 0: the header names a length of 15 bytes, less than its own");
    data = Hex("4b41504400010000 00000014 00000000 01000168");
    EXPECT_EQ(Decode(data).Error(),
              "data: byte 12: the data are damaged: their checksum is 070157EBh, and the "
              "header names 00000000h");
}

TEST(ApplicationData, UnknownRecordThatMayBeSkippedIsSkipped) {
    const auto project =
        Accepted("80 0000" + std::string(kDevice) + kPoint + "ff 0002 1234 12 0005 0001 0001 01");
    ASSERT_NE(project, nullptr);
    EXPECT_EQ(project->FindById(2001)->knx->readCo, 1);
}

TEST(ApplicationData, UnknownRecordThatMustBeKnownIsRefused) {
    for (const char* kind : {"00", "09", "0F", "17", "7F"}) {
        EXPECT_EQ(
            ErrorOf(std::string(kind) + "0000"),
            fmt::format(
                "data: byte 20: a record of kind {}h is not known to this program and must not be passed "
                "over; the data are made for a later version",
                kind));
    }
}

TEST(ApplicationData, RecordFaultsAreTold) {
    const std::string dp = kPoint;
    const std::string fixed = "11 0004 000003ed";
    const std::pair<std::string, std::string> kFaults[] = {
        {"10", "byte 20: 1 bytes are left, fewer than the record has"},
        {"10 00", "byte 20: 2 bytes are left, fewer than the record has"},
        {"13 0003 4142", "byte 20: 5 bytes are left, fewer than the record has"},
        {"01 0001 69", "byte 20: the device record stands here a second time"},
        {"02 0000", "byte 20: the identification record has 0 bytes instead of 1"},
        {"02 0002 0000", "byte 20: the identification record has 2 bytes instead of 1"},
        {"02 0001 02", "byte 20: the identification record has 2 instead of 0 (by id) or 1 (by URN)"},
        {"02 0001 00 02 0001 00", "byte 24: the identification record stands here a second time"},
        {"04 0005 0001000a00", "byte 20: the time CO record has 5 bytes instead of 6"},
        {"05 0005 0001000200", "byte 20: the translation range record has 5 bytes instead of 4"},
        {"06 0001 01", "byte 20: the interface object record has 1 bytes instead of 2"},
        {"07 0004 00c91100", "byte 20: the property record has 4 bytes instead of at least 5"},
        {"08 0008 0000000000000000",
         "byte 20: the extended property record has 8 bytes instead of at least 9"},
        {"10 0008 000007d100010001", "byte 20: the data point record has 8 bytes instead of at least 9"},
        {"10 000a 000007d1 0001 0001 03 41",
         "byte 20: the data point record has the flags 03h, which this program does not know"},
        {"10 000a 000007d1 0001 0001 08 41",
         "byte 20: the data point record has the flags 08h, which this program does not know"},
        {"10 000a 000003ed 0013 0001 00 41",
         "byte 20: the data point record has the id 1005, which is a fixed data "
         "point's and has a record of its own"},
        {"10 000b 000007d1 0001 0001 00 41c0",
         "byte 20: the data point record holds a text that is not UTF-8"},
        {"12 0005 0001 0001 01",
         "byte 20: the binding record belongs to a data point, and none stands before it"},
        {dp + "12 0005 0001 0001 04",
         "byte 33: the binding record has the flags 04h, which this program does not know"},
        {dp + "12 0005 0001 0001 01 12 0005 0002 0002 01",
         "byte 41: the binding record stands here a second time"},
        {dp + "14 0000 14 0000", "byte 36: the description record stands here a second time"},
        {"11 0004 000007d1",
         "byte 20: the fixed data point record has the id 2001, which is no fixed data point's"},
        {fixed + fixed, "byte 27: the fixed data point record of data point 1005 stands here a second time"},
        {fixed + "13 0000", "byte 27: the unit record belongs to data point 1005, of which this is fixed"},
        {fixed + "15 0000",
         "byte 27: the initial value record belongs to data point 1005, of which this is fixed"},
        {fixed + "16 0000", "byte 27: the owner record belongs to data point 1005, of which this is fixed"},
    };
    for (const auto& [records, error] : kFaults) {
        EXPECT_EQ(ErrorOf(records), "data: " + error);
    }
}

TEST(ApplicationData, DeviceRecordIsTheFirst) {
    EXPECT_EQ(Decode(SealApplicationData(Hex(kPoint))).Error(),
              "data: byte 16: the data point record stands before the device record, which is the first");
    EXPECT_EQ(Decode(SealApplicationData({})).Error(), "data: byte 16: there is no device record");
    EXPECT_EQ(Decode(SealApplicationData(Hex("80 0000"))).Error(),
              "data: byte 19: there is no device record");
}

TEST(ApplicationData, WhatAProjectFileMayNotSayIsRefusedWithItsPlace) {
    const std::string dp = kPoint;
    const std::pair<std::string, std::string> kFaults[] = {
        {dp + dp, "/dataPoints/1/id: id 2001 is already taken by /dataPoints/0"},
        {dp + "12 0005 0000 0000 01", "/dataPoints/0/knx/co: must be a whole number from 1 to 65534, not 0"},
        {dp + "12 0005 ffff 0001 01",
         "/dataPoints/0/knx/co/read: must be a whole number from 1 to 65534, not 65535"},
        {dp + "15 0001 32", "/dataPoints/0/initial: 1.001: 2 is above 1"},
        {"10 000a 000007d1 03e7 0001 00 41",
         "/dataPoints/0/dpt: datapoint type 999.001 is not known; 'dsctl types' lists all"},
        {"10 0009 000007d1 0001 0001 00",
         "/dataPoints/0/name: a name has 1 to 200 bytes of letters, digits, '.', '_', '-', '/' and spaces"},
        {"05 0004 0000 0005", "/knx/translationRange/0: must be a whole number from 1 to 65534, not 0"},
        {"07 0005 00c9 11 0001",
         "/knx/properties: properties need the \"interfaceObject\" that they belong to"},
        {"08 0009 c352 0100 0033 11 0001",
         "/knx/extendedProperties/0/instances: must be a whole number from 0 to 255, not 256"},
        {"04 0006 0001 0001 0001",
         "/knx/timeCos/0/dpt: a time CO carries 10.001 (time), 11.001 (date) or 19.001 (both)"},
    };
    for (const auto& [records, error] : kFaults) {
        EXPECT_EQ(ErrorOf(records), "data: " + error);
    }
    EXPECT_EQ(Decode(SealApplicationData(Hex("01 0000"))).Error(),
              "data: /device: a device name has 1 to 200 letters (a to z), digits, '.', '_' or '-'");
}

TEST(ApplicationData, OnlyUtf8IsText) {
    const auto description = [](const std::string& text) {
        const Bytes octets = Hex(text);
        return fmt::format("{}{}14{:04x}{}", kDevice, kPoint, octets.size(), text);
    };
    for (const char* text :
         {"", "00", "7f", "c280", "dfbf", "e0a080", "ed9fbf", "ee8080", "f0908080", "f48fbfbf", "41c3a442"}) {
        EXPECT_NE(Accepted(description(text)), nullptr) << text;
    }
    for (const char* text :
         {"80", "c0", "c080", "c1bf", "c3", "c341", "e09fbf", "e08080", "eda080", "e28282c3", "e282",
          "f08f8080", "f0808080", "f4908080", "f5808080", "ff", "f09f98"}) {
        EXPECT_EQ(Decode(SealApplicationData(Hex(description(text)))).Error(),
                  "data: byte 33: the description record holds a text that is not UTF-8")
            << text;
    }
}

TEST(ApplicationData, TextThatNoRecordHoldsIsRefused) {
    const auto project = [](std::size_t length) {
        return ProjectOf(
            R"({"version": 1, "device": "d", "dataPoints": [{"id": 2001, "name": "A", "dpt": "1.001",
            "description": ")" +
            std::string(length, 'x') + "\"}]}");
    };
    EXPECT_EQ(EncodeApplicationData(*project(65536)).error,
              "data point 2001 has a text that is too long: 65536 bytes for a record that holds 65535");
    EXPECT_TRUE(EncodeApplicationData(*project(65536)).data.empty());
    ExpectComesBack(*project(65535));
}
