#include "DeviceStackServer/Commands.h"

#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace DeviceStackServer {
namespace {

log4cplus::Logger Log() {
    return log4cplus::Logger::getInstance("DeviceStack.Server.Commands");
}

/// How a started program is to find the process: signals at their defaults, only the standard files open.
class SpawnSettings {
public:
    SpawnSettings() {
        posix_spawn_file_actions_init(&m_actions);
        posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
        posix_spawnattr_init(&m_attributes);
        sigset_t none;
        sigset_t ours;
        sigemptyset(&none);
        sigemptyset(&ours);
        for (const int signal : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGCHLD})
            sigaddset(&ours, signal);
        posix_spawnattr_setsigmask(&m_attributes, &none);
        posix_spawnattr_setsigdefault(&m_attributes, &ours);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings() {
        posix_spawnattr_destroy(&m_attributes);
        posix_spawn_file_actions_destroy(&m_actions);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawn_file_actions_t* Actions() const { return &m_actions; }
    const posix_spawnattr_t* Attributes() const { return &m_attributes; }

private:
    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
};

} // namespace

Commands::Commands(boost::asio::io_context& context) : m_signals(context, SIGCHLD) {
    WaitForChildren();
}

void Commands::Run(const std::vector<std::string>& argv) {
    const auto text = fmt::format("{}", fmt::join(argv, " "));
    std::vector<char*> arguments;
    arguments.reserve(argv.size() + 1);
    for (const auto& argument : argv)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const SpawnSettings settings;
    pid_t pid = 0;
    const int error = ::posix_spawnp(&pid, arguments[0], settings.Actions(), settings.Attributes(),
                                     arguments.data(), environ);
    if (error != 0) {
        LOG4CPLUS_ERROR(Log(), "The command \"" << text << "\" cannot be started: "
                                                << std::generic_category().message(error) << '.');
        return;
    }
    LOG4CPLUS_INFO(Log(), "The command \"" << text << "\" runs as process " << pid << '.');
    m_running.emplace(pid, text);
}

void Commands::WaitForChildren() {
    m_signals.async_wait([this](const boost::system::error_code& error, int) {
        if (error)
            return;
        Reap();
        WaitForChildren();
    });
}

void Commands::Reap() {
    for (auto child = m_running.begin(); child != m_running.end();) {
        int status = 0;
        if (::waitpid(child->first, &status, WNOHANG) != child->first) {
            ++child;
            continue;
        }
        if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
            LOG4CPLUS_INFO(Log(), "The command \"" << child->second << "\" has ended.");
        else if (WIFEXITED(status))
            LOG4CPLUS_WARN(Log(), "The command \"" << child->second << "\" failed with exit status "
                                                   << WEXITSTATUS(status) << '.');
        else
            LOG4CPLUS_WARN(Log(), "The command \"" << child->second << "\" was ended by signal "
                                                   << WTERMSIG(status) << '.');
        child = m_running.erase(child);
    }
}

} // namespace DeviceStackServer
