#include "DeviceStackProtocol/Json.h"

#include <gtest/gtest.h>

namespace {

using namespace DeviceStack;

std::string Quoted(std::string_view text) {
    std::string json;
    AppendJsonString(json, text);
    return json;
}

TEST(AppendJsonString, EscapesWhatJsonCannotHold) {
    EXPECT_EQ(Quoted(R"(a"b\c)"), R"("a\"b\\c")");
    EXPECT_EQ(Quoted(std::string_view("\0\x1f\n\r\t\x7f", 6)), "\"\\u0000\\u001f\\n\\r\\t\x7f\"");
    EXPECT_EQ(Quoted("Küche €"), "\"Küche €\"");
    EXPECT_EQ(Quoted(""), "\"\"");
}

TEST(AppendJsonString, ReplacesBytesThatAreNotUtf8) {
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(Quoted("a\xFC"
                     "b"),
              "\"a" + replacement + "b\"");
    EXPECT_EQ(Quoted("\xC0\xAF"), "\"" + replacement + replacement + "\"");                   // overlong
    EXPECT_EQ(Quoted("\xED\xA0\x80"), "\"" + replacement + replacement + replacement + "\""); // surrogate
    EXPECT_EQ(Quoted("\xE2\x82"), "\"" + replacement + replacement + "\"");                   // cut off
    EXPECT_EQ(Quoted("\xF4\x90\x80\x80").size(), 2 + 4 * replacement.size()); // above U+10FFFF
    EXPECT_EQ(Quoted("\xF0\x9F\x8F\xA0"), "\"\xF0\x9F\x8F\xA0\"");
}

TEST(JsonObject, WritesMembersInTheOrderOfTheCalls) {
    std::string json;
    JsonObject object(json);
    object.Text("b", "x").Number("a", 18446744073709551615ull).Boolean("c", false).Raw("d", "[1]").End();
    EXPECT_EQ(json, R"({"b":"x","a":18446744073709551615,"c":false,"d":[1]})");
}

TEST(NormaliseObject, BringsAnObjectIntoOneLine) {
    std::string line;
    std::string error;
    ASSERT_TRUE(NormaliseObject("{\"command\" : \"Restart\",\n \"type\":\"Device\"}", line, error));
    EXPECT_EQ(line, R"({"command":"Restart","type":"Device"})");
}

TEST(NormaliseObject, RefusesEverythingElseAndLeavesTheResultAlone) {
    std::string line = "before";
    std::string error;
    EXPECT_FALSE(NormaliseObject("[1]", line, error));
    EXPECT_EQ(error, "not a JSON object");
    EXPECT_FALSE(NormaliseObject("{\"a\":", line, error));
    EXPECT_EQ(error.rfind("not JSON: ", 0), 0u);
    EXPECT_EQ(line, "before");
}

} // namespace
