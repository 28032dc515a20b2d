// The shipped knxappdata, from its command line to the files it writes.
#include "../support/TemporaryDirectory.h"
#include "ProjectFile/ApplicationData.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/wait.h>

using TestSupport::TemporaryDirectory;

namespace {

class AppdataTest : public testing::Test {
protected:
    /// Runs knxappdata in the directory; its exit status.
    int Run(const std::string& arguments) {
        const std::string line =
            "cd '" + m_directory.Path() + "' && '" KNXAPPDATA "' >out " + arguments + " 2>err </dev/null";
        const int status = std::system(line.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string Out() const { return m_directory.Read("out"); }
    std::string Error() const { return m_directory.Read("err"); }

    TemporaryDirectory m_directory;
};

} // namespace

TEST_F(AppdataTest, HouseComesBackFromItsData) {
    ASSERT_EQ(Run("encode '" HOUSE_EXAMPLE "/project.json' data.bin"), 0) << Error();
    EXPECT_EQ(Out() + Error(), "");
    ASSERT_EQ(Run("decode data.bin"), 0) << Error();
    EXPECT_EQ(Error(), "");
    const auto house = ProjectFile::LoadProject(HOUSE_EXAMPLE "/project.json");
    const auto printed = ProjectFile::ParseProject(Out(), "printed");
    ASSERT_TRUE(house && printed) << house.Error() << printed.Error();
    EXPECT_EQ(*printed.project, *house.project);
}

TEST_F(AppdataTest, SpellingsOfATypeAreTheSameData) {
    const auto dataOf = [&](const std::string& spelling) {
        m_directory.Write("project.json", R"({"version": 1, "device": "d", "dataPoints": [{"id": 1,
            "name": "A", "dpt": ")" + spelling +
                                              "\"}]}");
        EXPECT_EQ(Run("encode project.json data.bin"), 0) << spelling << Error();
        return m_directory.Read("data.bin");
    };
    const auto type = dataOf("9.001");
    for (const auto* spelling : {"9.1", "DPT9.001", "DPT 9.001", "DPT-9.001", "DPST-9-1"})
        EXPECT_EQ(dataOf(spelling), type) << spelling;
    const auto mainNumber = dataOf("9");
    EXPECT_NE(mainNumber, type);
    for (const auto* spelling : {"9.xxx", "9.*", "DPT9", "DPT-9"})
        EXPECT_EQ(dataOf(spelling), mainNumber) << spelling;
}

TEST_F(AppdataTest, RefusedProjectIsStatus2AndLeavesTheFormerDataAlone) {
    m_directory.Write("project.json", R"({"version": 1, "device": "d", "dataPoints": [{"id": 0}]})");
    m_directory.Write("data.bin", "former");
    EXPECT_EQ(Run("encode project.json data.bin"), 2);
    EXPECT_EQ(
        Error(),
        "knxappdata: project.json: /dataPoints/0/id: must be a whole number from 1 to 4294967294, not 0\n");
    EXPECT_EQ(m_directory.Read("data.bin"), "former");
}

TEST_F(AppdataTest, TextThatIsTooLongIsStatus2) {
    m_directory.Write("project.json", R"({"version": 1, "device": "d", "dataPoints": [{"id": 1, "name": "A",
        "dpt": "1.001", "unit": ")" + std::string(65536, 'x') +
                                          "\"}]}");
    EXPECT_EQ(Run("encode project.json data.bin"), 2);
    EXPECT_EQ(Error(),
              "knxappdata: project.json: data point 1 has a text that is too long: 65536 bytes for a "
              "record that holds 65535\n");
}

TEST_F(AppdataTest, RefusedDataAreStatus2) {
    m_directory.Write("data.bin", "KAPD");
    EXPECT_EQ(Run("decode data.bin"), 2);
    EXPECT_EQ(Out(), "");
    EXPECT_EQ(Error(),
              "knxappdata: data.bin: byte 0: the data are cut short: 4 bytes, and the header alone has 16\n");
}

TEST_F(AppdataTest, FileThatCannotBeReadOrWrittenIsStatus2) {
    EXPECT_EQ(Run("decode nowhere"), 2);
    EXPECT_EQ(Error(), "knxappdata: nowhere: cannot be read: No such file or directory\n");
    EXPECT_EQ(Run("decode ."), 2);
    EXPECT_EQ(Error(), "knxappdata: .: cannot be read: Is a directory\n");
    EXPECT_EQ(Run("encode '" HOUSE_EXAMPLE "/project.json' nowhere/data.bin"), 2);
    EXPECT_EQ(Error(), "knxappdata: nowhere/data.bin: cannot be written: No such file or directory\n");
    EXPECT_EQ(Run("encode '" HOUSE_EXAMPLE "/project.json' /dev/full"), 2);
    EXPECT_EQ(Error(), "knxappdata: /dev/full: cannot be written: No space left on device\n");
    ASSERT_EQ(Run("encode '" HOUSE_EXAMPLE "/project.json' data.bin"), 0);
    EXPECT_EQ(Run("decode data.bin >/dev/full"), 2);
    EXPECT_EQ(Error(), "knxappdata: standard output: cannot be written: No space left on device\n");
}

TEST_F(AppdataTest, WrongCommandLineIsStatus2AndHelpIsNot) {
    EXPECT_EQ(Run(""), 2);
    EXPECT_EQ(Run("encode"), 2);
    EXPECT_EQ(Run("encode a b c"), 2);
    EXPECT_EQ(Run("decode"), 2);
    EXPECT_EQ(Run("turn data.bin"), 2);
    EXPECT_EQ(Run("--help"), 0);
    EXPECT_NE(Out().find("knxappdata encode project.json data.bin"), std::string::npos);
    EXPECT_EQ(Run("--version"), 0);
}
