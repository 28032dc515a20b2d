#include "DeviceStackServer/Configuration.h"
#include "DeviceStackServer/Files.h"
#include "DeviceStackServer/Server.h"
#include "ProjectFile/Project.h"

#include <CLI/CLI.hpp>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/loggingmacros.h>

#include <csignal>
#include <filesystem>
#include <iostream>

namespace {

using DeviceStackServer::Configuration;

constexpr int kConfigurationError = 2;
constexpr const char* kDefaultConfiguration = "/etc/devicestack/devicestackd.json";

struct Options {
    std::string config;
    std::string project;
    std::string socket;
    std::string stateDirectory;
    std::string logLevel;
    bool checkConfig = false;
};

/// The file, if there is one, and what the command line says over it. "" or one sentence.
std::string Configure(const Options& options, Configuration& configuration) {
    const bool given = !options.config.empty();
    const auto path = given ? options.config : std::string(kDefaultConfiguration);
    std::string error;
    const auto text = DeviceStackServer::ReadFile(path, error);
    if (!error.empty())
        return path + ": cannot be read: " + error;
    if (!text && given)
        return path + ": there is no such file";
    if (text) {
        const auto directory = std::filesystem::absolute(path).parent_path().string();
        const auto fault = DeviceStackServer::ReadConfiguration(*text, directory, configuration);
        if (!fault.empty())
            return path + ':' + (fault.front() == '/' ? " " : "") + fault;
    }
    const auto take = [](const std::string& option, std::string& member) {
        if (!option.empty())
            member = option;
    };
    take(options.project, configuration.project);
    take(options.socket, configuration.socket);
    take(options.stateDirectory, configuration.stateDirectory);
    take(options.logLevel, configuration.logLevel);
    if (const auto fault = DeviceStackServer::LogLevelFault(configuration.logLevel); !fault.empty())
        return "--log-level: " + fault;
    if (configuration.project.empty())
        return (text ? path + ": /project: " : std::string()) +
               "no project file is named; name it in the configuration or with --project";
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
    auto root = log4cplus::Logger::getRoot();
    root.addAppender(appender);
    root.setLogLevel(
        log4cplus::getLogLevelManager().fromString(LOG4CPLUS_STRING_TO_TSTRING(configuration.logLevel)));
}

int Refuse(const std::string& error) {
    std::cerr << "devicestackd: " << error << '\n';
    return kConfigurationError;
}

/// `devicestackd check`: all that is wrong with the project.
int Check(const Configuration& configuration) {
    const auto loaded = ProjectFile::LoadProject(configuration.project);
    for (const auto& error : loaded.errors)
        std::cerr << error << '\n';
    if (!loaded)
        return kConfigurationError;
    std::cout << configuration.project << ": " << loaded.project->dataPoints.size() << " data points of "
              << loaded.project->device << ", no errors\n";
    return 0;
}

int CheckConfig(const Configuration& configuration) {
    const auto loaded = ProjectFile::LoadProject(configuration.project);
    return loaded ? 0 : Refuse(loaded.Error());
}

int Serve(const Configuration& configuration) {
    std::signal(SIGPIPE, SIG_IGN);
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
    app.add_option("--log-level", options.logLevel, "TRACE, DEBUG, INFO, WARN, ERROR, FATAL or OFF")
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
        return Serve(configuration);
    } catch (const std::exception& error) {
        std::cerr << "devicestackd: " << error.what() << '\n';
        return 1;
    }
}
