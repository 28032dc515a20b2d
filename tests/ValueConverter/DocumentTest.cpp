// The list of all types in docs/datapoint-types.md.
#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace {

constexpr std::string_view kHeading = "## All types\n";

std::string OrDash(std::string_view text) {
    return text.empty() ? "-" : std::string(text);
}

std::string ListOfTypes() {
    std::string list(kHeading);
    list += "\n| Type | Name | Bits | Unit | Range | Resolution |\n|---|---|---|---|---|---|\n";
    for (const auto& type : Datapoint::AllTypes()) {
        const unsigned bits = Datapoint::SizeInBits(type);
        list += "| " + Datapoint::ToString(type.GetNumber()) + " | " + std::string(type.name) + " | " +
                (bits == 0 ? "any" : std::to_string(bits)) + " | " + OrDash(type.unit) + " | " +
                OrDash(Datapoint::Range(type)) + " | " + OrDash(type.resolution) + " |\n";
    }
    return list;
}

} // namespace

// Where they differ, the file that this test leaves is the end that the page should have.
TEST(Document, ListsEveryTypeAsTheTableHasIt) {
    std::ifstream file(KNX_DATAPOINT_TYPES_PAGE);
    std::ostringstream page;
    page << file.rdbuf();
    const std::string text = page.str();
    const auto begin = text.find(kHeading);
    const std::string expected = ListOfTypes();
    const bool same = begin != std::string::npos && text.substr(begin) == expected;
    if (!same) {
        std::ofstream("datapoint-types.list.md") << expected;
    }
    EXPECT_TRUE(same) << "the page differs from datapoint-types.list.md in the working directory";
}
