// knxstackd: the KNX stack host.
#include "DaemonSupport/LogSettings.h"
#include "KnxStackHost/Configuration/Configuration.h"
#include "KnxStackHost/Configuration/ProjectCheck.h"
#include "KnxStackHost/Host.h"
#include "KnxStackHost/Logging.h"
#include "KnxStackHost/Program/HandlerRegistry.h"
#include "ProjectFile/Project.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <log4cplus/initializer.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace {

using KnxStackHost::Configuration;
using KnxStackHost::ConfigurationError;

constexpr int kConfigurationExit = 2; // a service manager need not try again

struct CommandLine {
    std::string configFile = "knxstackd.json";
    bool checkConfig = false;
    std::optional<std::uint16_t> knxPort;
    std::optional<std::string> knxAddress;
    std::optional<std::string> deviceStackSocket;
    std::optional<std::string> logLevel;
};

void Describe(CLI::App& app, CommandLine& line) {
    const auto known = [](auto&& holds, const char* cause) {
        return [holds, cause](const std::string& text) {
            return static_cast<bool>(holds(text)) ? std::string() : std::string(cause);
        };
    };
    app.add_option("--config", line.configFile, "Configuration file")->capture_default_str();
    app.add_flag(
        "--check-config", line.checkConfig,
        "Only check the configuration file, the library it names, the project file and the plug-ins");
    app.add_option("--knx-port", line.knxPort, "UDP port of the KNXnet/IP server, 0 for any free one");
    app.add_option("--knx-address", line.knxAddress, "IPv4 address that the KNXnet/IP server listens on")
        ->check(CLI::Validator(known(KnxStackHost::IsIpv4Address, "is no IPv4 address"), "IPV4"));
    app.add_option("--device-stack-socket", line.deviceStackSocket, "Socket of the device stack");
    app.add_option("--log-level", line.logLevel, "trace, debug, info, warn, error, fatal or off")
        ->check(CLI::Validator(known(DaemonSupport::LogLevelOf, "is no log level"), "LEVEL"));
    app.add_subcommand("check", "Compare the group objects with the bindings of the project file")
        ->fallthrough();
    app.footer(
        "Signals: SIGTERM and SIGINT end it, SIGHUP reads the configuration again and starts the\n"
        "application program anew, SIGUSR1 says that a download has ended: the device is loaded again\n"
        "from the configuration, and the application program is told of the restart.");
    app.set_version_flag("--version", "knxstackd " KNXSTACKD_VERSION);
}

/// The file's configuration with what the command line says on top.
Configuration ReadConfiguration(const CommandLine& line) {
    auto configuration = KnxStackHost::LoadConfiguration(line.configFile);
    configuration.server.port = line.knxPort.value_or(configuration.server.port);
    configuration.server.address = line.knxAddress.value_or(configuration.server.address);
    configuration.deviceStackSocket = line.deviceStackSocket.value_or(configuration.deviceStackSocket);
    configuration.log.level =
        DaemonSupport::LogLevelOf(line.logLevel.value_or(configuration.log.level)).value();
    if (KnxStackHost::LeadsBackToServer(configuration))
        throw ConfigurationError(fmt::format(
            "{}: /interface: {}:{} is this host's own server; every telegram would go round for ever",
            line.configFile, configuration.interface->host, configuration.interface->port));
    return configuration;
}

void EnterEnvironment(const Configuration& configuration) {
    // Before any thread exists: the environment has no lock.
    if (!configuration.deviceStackSocket.empty())
        ::setenv("DEVICESTACK_SOCKET", configuration.deviceStackSocket.c_str(), 1);
    std::filesystem::current_path(configuration.directory);
    std::signal(SIGPIPE, SIG_IGN);
}

int Serve(const CommandLine& line) {
    auto configuration = ReadConfiguration(line);
    EnterEnvironment(configuration);
    const log4cplus::Initializer logging;
    if (const auto& file = configuration.log.file; !file.empty())
        if (const auto fault = DaemonSupport::LogFileFault(file); !fault.empty())
            throw ConfigurationError(fmt::format("{}: /log/file: {}", line.configFile, fault));
    KnxStackHost::StartLogging(configuration.log);
    const auto library = KnxStackHost::LoadProgramLibrary(configuration.program.library);
    KnxStackHost::CheckProjectFile(configuration);
    KnxStackHost::CheckHandlerRegistry(configuration);
    KnxStackHost::Host host(std::move(configuration), library, [&line](KnxStackHost::Host::Scope scope) {
        auto next = ReadConfiguration(line);
        try {
            KnxStackHost::CheckProjectFile(next);
        } catch (const ConfigurationError&) {
            // A download may be what brings the project in order, so it does not depend on it.
            if (scope == KnxStackHost::Host::Scope::Everything)
                throw;
        }
        return next;
    });
    host.Open();
    if (host.Run())
        return EXIT_SUCCESS;
    std::fflush(nullptr);
    std::_Exit(EXIT_FAILURE);
}

/// `check`: one line per finding; faults go to standard error, the rest to standard output.
int CheckProject(const CommandLine& line) {
    const auto configuration = ReadConfiguration(line);
    if (configuration.project.empty())
        throw ConfigurationError(line.configFile +
                                 ": /project: is missing, so there is nothing to compare with");
    const auto loaded = ProjectFile::LoadProject(configuration.project);
    for (const auto& error : loaded.errors)
        fmt::print(stderr, "{}\n", error);
    if (!loaded)
        return kConfigurationExit;
    const auto findings = KnxStackHost::CompareWithProject(configuration, *loaded.project);
    for (const auto& fault : findings.faults)
        fmt::print(stderr, "{}: {}\n", configuration.project, fault);
    for (const auto& note : findings.notes)
        fmt::print("{}: note: {}\n", line.configFile, note);
    fmt::print("{} group objects, {} data points: {} faults, {} notes\n", configuration.groupObjects.size(),
               loaded.project->dataPoints.size(), findings.faults.size(), findings.notes.size());
    return findings.faults.empty() ? EXIT_SUCCESS : kConfigurationExit;
}

int CheckConfiguration(const CommandLine& line) {
    auto configuration = ReadConfiguration(line);
    EnterEnvironment(configuration);
    const log4cplus::Initializer logging;
    KnxStackHost::StartLogging({"error", ""});
    KnxStackHost::LoadProgramLibrary(configuration.program.library);
    KnxStackHost::CheckProjectFile(configuration);
    KnxStackHost::CheckHandlerRegistry(configuration);
    fmt::print("{}: {} group objects, nothing to complain of\n", line.configFile,
               configuration.groupObjects.size());
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("KNX stack host: joins KNX/IP tunnels, a KNX/IP interface and an application program",
                 "knxstackd");
    CommandLine line;
    Describe(app, line);
    try {
        app.parse(argc, argv);
        line.configFile = std::filesystem::absolute(line.configFile).string();
        if (line.deviceStackSocket) // given relative to where we are, which is not where we stay
            line.deviceStackSocket = std::filesystem::absolute(*line.deviceStackSocket).string();
        if (app.got_subcommand("check"))
            return CheckProject(line);
        return line.checkConfig ? CheckConfiguration(line) : Serve(line);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kConfigurationExit;
    } catch (const ConfigurationError& error) {
        fmt::print(stderr, "knxstackd: {}\n", error.what());
    } catch (const KnxStackHost::ProgramLibraryError& error) {
        fmt::print(stderr, "knxstackd: {}: /applicationProgram/library: {}\n", line.configFile, error.what());
    } catch (const KnxStackHost::LinkError& error) {
        fmt::print(stderr, "knxstackd: {}: {}\n", line.configFile, error.what());
    } catch (const std::exception& error) {
        fmt::print(stderr, "knxstackd: {}\n", error.what());
        return EXIT_FAILURE;
    }
    return kConfigurationExit;
}
