#include "DaemonSupport/Files.h"
#include "DaemonSupport/LogSettings.h"
#include "DeviceStackServer/Configuration.h"
#include "DeviceStackServer/Server.h"
#include "DeviceStackServer/StateFiles.h"
#include "ProjectFile/JsonMembers.h"
#include "ProjectFile/Project.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/loggingmacros.h>

#include <csignal>
#include <iostream>
#include <optional>
#include <tuple>

namespace {

using DeviceStackServer::Configuration;

constexpr int kConfigurationError = 2;
constexpr const char* kDefaultConfiguration = "/etc/devicestack/devicestackd.json";

struct Options {
    std::optional<std::string> config;
    std::optional<std::string> project;
    std::optional<std::string> socket;
    std::optional<std::string> stateDirectory;
    std::optional<std::string> logLevel;
    bool checkConfig = false;

    std::string ConfigPath() const { return config.value_or(kDefaultConfiguration); }
};

/// Reads the configuration file, if there is one. "" or one sentence.
std::string ReadFile(const Options& options, Configuration& configuration) {
    const auto path = options.ConfigPath();
    std::string error;
    const auto text = DaemonSupport::ReadFile(path, error);
    if (!error.empty())
        return path + ": cannot be read: " + error;
    if (text)
        return DeviceStackServer::ReadConfiguration(*text, path, configuration);
    return options.config ? path + ": there is no such file" : std::string();
}

/// The file, if there is one, and what the command line says over it. "" or one sentence.
std::string Configure(const Options& options, Configuration& configuration) {
    if (auto error = ReadFile(options, configuration); !error.empty())
        return error;
    const std::tuple<const char*, const std::optional<std::string>&, std::string&> paths[] = {
        {"--project", options.project, configuration.project},
        {"--socket", options.socket, configuration.socket},
        {"--state-dir", options.stateDirectory, configuration.stateDirectory}};
    for (const auto& [name, option, member] : paths) {
        if (option && option->empty())
            return std::string(name) + ": must be a path, not an empty text";
        member = option.value_or(member);
    }
    if (options.logLevel) {
        const auto level = DaemonSupport::LogLevelOf(*options.logLevel);
        if (!level)
            return fmt::format("--log-level: must be {}", DaemonSupport::kLogLevels);
        configuration.logLevel = *level;
    }
    if (configuration.project.empty())
        return options.ConfigPath() +
               ": /project: no project file is named; name it in the configuration or with --project";
    return {};
}

void ConfigureLog(const Configuration& configuration) {
    log4cplus::SharedAppenderPtr appender;
    if (configuration.logFile.empty())
        appender = new log4cplus::ConsoleAppender(true, true);
    else
        appender = new log4cplus::FileAppender(LOG4CPLUS_STRING_TO_TSTRING(configuration.logFile),
                                               std::ios_base::app, true, true);
    appender->setLayout(
        std::make_unique<log4cplus::PatternLayout>(LOG4CPLUS_TEXT("%D{%Y-%m-%d %H:%M:%S.%q} %-5p %c: %m%n")));
    log4cplus::Logger::getRoot().addAppender(appender);
    DaemonSupport::SetLogLevel(configuration.logLevel);
}

int Refuse(const std::string& error) {
    std::cerr << "devicestackd: " << error << '\n';
    return kConfigurationError;
}

/// What is wrong with the project, as far as can be told without starting: one sentence each.
std::vector<std::string> FaultsOf(const Configuration& configuration, const ProjectFile::LoadResult& loaded) {
    if (!loaded)
        return loaded.errors;
    auto fault =
        ProjectFile::IdFaultOnDisk(configuration.stateDirectory, configuration.project, *loaded.project);
    return fault.empty() ? std::vector<std::string>() : std::vector<std::string>{std::move(fault)};
}

/// `devicestackd check`: all that is wrong with the project.
int Check(const Configuration& configuration) {
    const auto loaded = ProjectFile::LoadProject(configuration.project);
    const auto faults = FaultsOf(configuration, loaded);
    for (const auto& fault : faults)
        std::cerr << fault << '\n';
    if (!faults.empty())
        return kConfigurationError;
    std::cout << configuration.project << ": " << loaded.project->dataPoints.size() << " data points of "
              << loaded.project->device << ", no errors\n";
    return 0;
}

int CheckConfig(const Configuration& configuration) {
    const auto faults = FaultsOf(configuration, ProjectFile::LoadProject(configuration.project));
    return faults.empty() ? 0 : Refuse(ProjectFile::FirstOf(faults));
}

int Serve(const Options& options, const Configuration& configuration) {
    std::signal(SIGPIPE, SIG_IGN);
    if (!configuration.logFile.empty())
        if (const auto fault = DaemonSupport::LogFileFault(configuration.logFile); !fault.empty())
            return Refuse(options.ConfigPath() + ": /log/file: " + fault);
    const log4cplus::Initializer log;
    ConfigureLog(configuration);
    DeviceStackServer::Server server(configuration, DEVICESTACK_VERSION);
    if (const auto error = server.Start(); !error.empty())
        return Refuse(error);
    server.Run();
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Data point server of a device: values, events and configuration for its applications.");
    Options options;
    app.add_option("--config", options.config, "Configuration file")
        ->option_text(std::string("FILE [") + kDefaultConfiguration + "]");
    app.add_option("--project", options.project, "Project file")->option_text("FILE");
    app.add_option("--socket", options.socket, "Socket that clients connect to")->option_text("PATH");
    app.add_option("--state-dir", options.stateDirectory, "Directory for persistent values")
        ->option_text("DIR");
    app.add_option("--log-level", options.logLevel, "trace, debug, info, warn, error, fatal or off")
        ->option_text("LEVEL");
    app.add_flag("--check-config", options.checkConfig, "Check configuration and project, and end");
    app.set_version_flag("--version", "devicestackd " DEVICESTACK_VERSION);
    auto* const check = app.add_subcommand("check", "List every error of the project file, and end");
    check->fallthrough();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? 0 : kConfigurationError;
    }
    try {
        Configuration configuration;
        if (const auto error = Configure(options, configuration); !error.empty())
            return Refuse(error);
        if (check->parsed())
            return Check(configuration);
        if (options.checkConfig)
            return CheckConfig(configuration);
        return Serve(options, configuration);
    } catch (const std::exception& error) {
        std::cerr << "devicestackd: " << error.what() << '\n';
        return 1;
    }
}
