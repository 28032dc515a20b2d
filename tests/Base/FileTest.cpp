#include "Helper/File.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

TEST(FileTest, MakePathGivesADirectoryToWhichAFileNameCanBeAppended) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"/", "/"},
        {"//", "/"},
        {"///", "/"},
        {"/etc", "/etc"},
        {"/etc/", "/etc"},
        {"/etc///", "/etc"},
        {"//etc//knx//", "/etc/knx"},
        {"relative/dir/", "relative/dir"},
        {".", "."},
        {"./", "."},
        {"..//x/", "../x"},
        {"with space/ /", "with space/ "},
    };
    for (const auto& [directory, path] : cases) {
        EXPECT_EQ(Helper::File::make_path(directory), path) << directory;
    }
}

} // namespace
