// What a person is told who starts the daemon with something that cannot work.
#include "DaemonProcess.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace KnxStackHost {
namespace {

using testing::HasSubstr;
using testing::Not;

class StartupError : public testing::Test {
protected:
    /// Expects exit status 2 and one sentence with the parts.
    void ExpectRefusal(const std::string& configuration, const std::vector<std::string>& parts,
                       const std::vector<std::string>& arguments = {}) {
        DaemonProcess daemon(m_directory, configuration, arguments);
        EXPECT_EQ(2, daemon.WaitForEnd(milliseconds(10000)));
        const auto log = daemon.Log();
        for (const auto& part : parts)
            EXPECT_THAT(log, HasSubstr(part));
        EXPECT_EQ(1u, CountOf(log, "\n")) << log;
        EXPECT_THAT(log, Not(HasSubstr(" - ready")));
        EXPECT_FALSE(std::filesystem::exists(m_directory / "record")) << "nothing may be half started";
    }

    /// The test configuration with a project, so that the project and its plug-ins are looked at.
    std::string WithProject(const std::string& dataPoints = "") {
        m_directory.Write("project.json",
                          R"({"version": 1, "device": "house", "dataPoints": [)" + dataPoints + "]}");
        std::string configuration = TestConfiguration();
        return configuration.insert(configuration.find('{') + 1, "\"project\": \"project.json\",");
    }

    static std::string Replaced(std::string text, const std::string& part, const std::string& by) {
        const auto found = text.find(part);
        return found == std::string::npos ? "" : text.replace(found, part.size(), by);
    }

    TemporaryDirectory m_directory;
};

TEST_F(StartupError, NoConfigurationFile) {
    ExpectRefusal("", {"no-such.json", "cannot be read: No such file or directory"},
                  {"--config", "no-such.json"});
}

TEST_F(StartupError, SyntaxErrorHasLineAndColumn) {
    ExpectRefusal("{\n  \"device\": }\n", {"knxstackd.json: 2:13: "});
}

TEST_F(StartupError, MistypedEntryHasItsPlace) {
    ExpectRefusal(Replaced(TestConfiguration(), "\"port\": 0", "\"port\": \"many\""),
                  {"knxstackd.json: /server/port: must be a number"});
}

TEST_F(StartupError, MissingLibrary) {
    ExpectRefusal(Replaced(TestConfiguration(), TEST_PROGRAM, "./libMissing.so"),
                  {"/applicationProgram/library", "libMissing.so", "cannot be loaded"});
}

TEST_F(StartupError, LibraryOfAnotherInterfaceVersion) {
    ExpectRefusal(Replaced(TestConfiguration(), TEST_PROGRAM, OLD_PROGRAM),
                  {"/applicationProgram/library", "version 22", "version 23"});
}

TEST_F(StartupError, LibraryThatIsNoApplicationProgram) {
    ExpectRefusal(Replaced(TestConfiguration(), TEST_PROGRAM, INCOMPLETE_PROGRAM),
                  {"/applicationProgram/library", "does not export getKnxStackApiVersion"});
}

std::string Registry(const std::string& program, const std::string& library) {
    return "<KnxApplicationPrograms><KnxApplicationProgram Name=\"" + program +
           "\"><DynamicHandlers><DynamicHandler Library=\"" + library +
           "\"/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>";
}

TEST_F(StartupError, InterfaceThatIsTheOwnServer) {
    const auto configuration =
        TestConfiguration("", R"(, "interface": {"host": "127.0.0.1", "port": 36710})");
    for (const auto* also : {"--check-config", "--log-level=info"})
        ExpectRefusal(configuration,
                      {"knxstackd.json: /interface: 127.0.0.1:36710 is this host's own server"},
                      {"--knx-port", "36710", also});
}

TEST_F(StartupError, MissingProjectFile) {
    const auto configuration = WithProject();
    std::filesystem::remove(m_directory / "project.json");
    ExpectRefusal(configuration, {"/project.json: cannot be read: No such file or directory"});
}

TEST_F(StartupError, ProjectFileThatIsRefused) {
    const auto configuration =
        WithProject(R"({"id": 2001, "name": "Light", "dpt": "1,001", "knx": {"co": 1}})");
    for (const auto& arguments : std::vector<std::vector<std::string>>{{}, {"--check-config"}})
        ExpectRefusal(configuration, {"/project.json: /dataPoints/0/dpt: \"1,001\" is no datapoint type"},
                      arguments);
}

TEST_F(StartupError, MissingRegistryOfPlugins) {
    ExpectRefusal(WithProject(), {"/knxappprghandlers.xml: there is no such file"});
}

TEST_F(StartupError, RegistryThatIsNoXml) {
    m_directory.Write("knxappprghandlers.xml", "<KnxApplicationPrograms>");
    ExpectRefusal(WithProject(), {"/knxappprghandlers.xml: byte "});
}

TEST_F(StartupError, RegistryWithoutAPluginForTheProgram) {
    m_directory.Write("knxappprghandlers.xml", Registry("DscKnxAppPrg", "libany.so"));
    ExpectRefusal(WithProject(), {"no plug-in is listed for the application program \"dscknxappprg\""});
}

TEST_F(StartupError, MissingPlugin) {
    m_directory.Write("knxappprghandlers.xml", Registry("dscknxappprg", "libMissing.so"));
    ExpectRefusal(WithProject(), {"the plug-in libMissing.so cannot be loaded: ", "No such file"});
}

TEST_F(StartupError, LibraryThatIsNoPlugin) {
    m_directory.Write("knxappprghandlers.xml", Registry("dscknxappprg", TEST_PROGRAM));
    ExpectRefusal(WithProject(), {"is no plug-in: it does not export CreateHandler"});
}

TEST_F(StartupError, PortInUse) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
    socklen_t length = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    const auto port = std::to_string(ntohs(address.sin_port));
    ExpectRefusal(TestConfiguration(), {"/server: 127.0.0.1:" + port, "Address already in use"},
                  {"--knx-port", port});
    ::close(socket);
}

TEST_F(StartupError, PortOfAnotherKnxstackd) {
    const TemporaryDirectory other;
    const DaemonProcess first(other, TestConfiguration());
    ExpectRefusal(TestConfiguration(), {"Address already in use"},
                  {"--knx-port", std::to_string(first.Port())});
}

TEST_F(StartupError, UnknownArgument) {
    DaemonProcess daemon(m_directory, TestConfiguration(), {"--no-such-thing"});
    EXPECT_EQ(2, daemon.WaitForEnd(milliseconds(10000)));
    EXPECT_THAT(daemon.Log(), HasSubstr("--no-such-thing"));
}

TEST_F(StartupError, BadArgumentValue) {
    DaemonProcess daemon(m_directory, TestConfiguration(), {"--knx-address", "here"});
    EXPECT_EQ(2, daemon.WaitForEnd(milliseconds(10000)));
    EXPECT_THAT(daemon.Log(), HasSubstr("is no IPv4 address"));
}

TEST_F(StartupError, LogFileThatCannotBeWritten) {
    ExpectRefusal(TestConfiguration("", R"(, "log": {"file": "no/such/place.log"})"),
                  {"/knxstackd.json: /log/file: ", "place.log cannot be written: No such file or directory"});
}

TEST_F(StartupError, EmptyPaths) {
    ExpectRefusal(TestConfiguration("", R"(, "log": {"file": ""})"),
                  {"/knxstackd.json: /log/file: must be a path, not an empty text"});
    for (const std::string name : {"project", "deviceStackSocket"})
        ExpectRefusal(TestConfiguration("", R"(, ")" + name + R"(": "")"),
                      {"/knxstackd.json: /" + name + ": must be a path, not an empty text"});
}

TEST_F(StartupError, LogLevelsInUpperCaseAreTaken) {
    DaemonProcess daemon(m_directory, TestConfiguration("", R"(, "log": {"level": "WARN"})"),
                         {"--check-config", "--log-level", "INFO"});
    EXPECT_EQ(0, daemon.WaitForEnd(milliseconds(10000))) << daemon.Log();
}

TEST_F(StartupError, CheckConfigStartsNothing) {
    DaemonProcess daemon(m_directory, TestConfiguration(), {"--check-config"});
    EXPECT_EQ(0, daemon.WaitForEnd(milliseconds(10000)));
    EXPECT_THAT(daemon.Log(), HasSubstr("5 group objects, nothing to complain of"));
    EXPECT_FALSE(std::filesystem::exists(m_directory / "record"));
}

TEST_F(StartupError, CheckComparesWithTheProject) {
    m_directory.Write("project.json", R"({"version": 1, "device": "house", "dataPoints": [
        {"id": 2001, "name": "Light", "dpt": "1.001", "knx": {"co": 1}},
        {"id": 2002, "name": "Gone", "dpt": "1.001", "knx": {"co": 99}}]})");
    DaemonProcess check(m_directory, TestConfiguration("", R"(, "project": "project.json")"), {"check"});
    EXPECT_EQ(2, check.WaitForEnd(milliseconds(10000)));
    EXPECT_THAT(check.Log(),
                HasSubstr("project.json: data point 2002 \"Gone\": CO 99: there is no such group object\n"));
    EXPECT_THAT(check.Log(), HasSubstr("5 group objects, 10 data points: 1 faults, 4 notes\n"));

    const auto file = m_directory / "knxstackd.json";
    const auto directory = m_directory.Path();
    const auto command =
        KNXSTACKD " --config " + file + " check >" + directory + "/out 2>" + directory + "/err";
    EXPECT_NE(0, std::system(command.c_str()));
    EXPECT_EQ(1u, CountOf(m_directory.Read("err"), "\n")) << "faults go to standard error";
    EXPECT_EQ(5u, CountOf(m_directory.Read("out"), "\n")) << "notes and the summary do not";
}

TEST_F(StartupError, CheckNeedsAProject) {
    ExpectRefusal(TestConfiguration(), {"/project: is missing"}, {"check"});
}

TEST_F(StartupError, CheckConfigFindsTheSameFaults) {
    ExpectRefusal(Replaced(TestConfiguration(), TEST_PROGRAM, OLD_PROGRAM), {"version 22"},
                  {"--check-config"});
}

} // namespace
} // namespace KnxStackHost
