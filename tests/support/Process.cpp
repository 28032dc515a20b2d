#include "Process.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport {

Process::Process(const std::vector<std::string>& argv, const std::string& errorFile,
                 const std::vector<std::string>& environment) {
    std::vector<char*> arguments;
    for (const auto& argument : argv)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    std::vector<char*> variables;
    for (const auto& variable : environment)
        variables.push_back(const_cast<char*>(variable.c_str()));
    for (char** variable = environ; *variable; ++variable)
        variables.push_back(*variable);
    variables.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, errorFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    posix_spawn_file_actions_adddup2(&actions, 2, 1);
    const int error =
        ::posix_spawn(&m_pid, arguments[0], &actions, nullptr, arguments.data(), variables.data());
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(error, 0) << argv[0];
}

Process::~Process() {
    if (!m_status && m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

void Process::Signal(int signal) const {
    ASSERT_EQ(::kill(m_pid, signal), 0);
}

int Process::Wait(std::chrono::milliseconds limit) {
    Eventually(
        [&] {
            int status = 0;
            if (!m_status && ::waitpid(m_pid, &status, WNOHANG) == m_pid)
                m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return m_status.has_value();
        },
        limit);
    return m_status.value_or(-1);
}

} // namespace TestSupport
