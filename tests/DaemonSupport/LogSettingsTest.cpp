#include "DaemonSupport/LogSettings.h"

#include <gmock/gmock.h>

namespace DaemonSupport {
namespace {

TEST(LogSettings, ALevelMayBeWrittenInEitherCase) {
    for (const auto* level : {"trace", "debug", "info", "warn", "error", "fatal", "off"})
        EXPECT_EQ(level, LogLevelOf(level));
    EXPECT_EQ("info", LogLevelOf("INFO"));
    EXPECT_EQ("off", LogLevelOf("Off"));
}

TEST(LogSettings, OtherTextsAreNoLevel) {
    for (const auto* text : {"", "loud", "info ", "2", "warning"})
        EXPECT_EQ(std::nullopt, LogLevelOf(text)) << text;
}

TEST(LogSettings, AFileThatCannotBeWrittenIsNamedWithTheCause) {
    EXPECT_EQ("/dev/null/x.log cannot be written: Not a directory", LogFileFault("/dev/null/x.log"));
    EXPECT_EQ("/ cannot be written: Is a directory", LogFileFault("/"));
    EXPECT_EQ("", LogFileFault("/dev/null"));
}

} // namespace
} // namespace DaemonSupport
