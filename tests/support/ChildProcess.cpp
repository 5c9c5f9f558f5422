#include "ChildProcess.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orv::test {
namespace {

std::string readFile(const std::string& path)
{
    std::ifstream stream(path);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::string temporaryPath(const char* suffix)
{
    std::string pattern = "/tmp/orv-test-XXXXXX";
    const int fd = mkstemp(pattern.data());
    if (fd == -1) {
        throw std::runtime_error("mkstemp failed");
    }
    close(fd);
    return pattern + suffix;
}

int decodeStatus(int status)
{
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return 128 + WTERMSIG(status);
}

} // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : m_outPath(temporaryPath(".out"))
    , m_errPath(temporaryPath(".err"))
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, m_errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);

    std::vector<std::string> all{program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : all) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    const int error = posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("cannot start " + program);
    }
}

ChildProcess::~ChildProcess()
{
    if (!m_status) {
        kill(m_pid, SIGKILL);
        int status = 0;
        waitpid(m_pid, &status, 0);
    }
    std::remove(m_outPath.c_str());
    std::remove(m_errPath.c_str());
}

void ChildProcess::signal(int number) const
{
    kill(m_pid, number);
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!m_status) {
        int status = 0;
        if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_status = decodeStatus(status);
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return m_status;
}

std::string ChildProcess::standardOutput() const
{
    return readFile(m_outPath);
}

std::string ChildProcess::standardError() const
{
    return readFile(m_errPath);
}

bool ChildProcess::waitForOutput(const std::string& text, std::chrono::milliseconds timeout) const
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (standardOutput().find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

std::string runAndCapture(const std::string& commandLine, std::chrono::seconds timeout, int* exitStatus)
{
    ChildProcess child("/usr/bin/timeout", {std::to_string(timeout.count()), "/bin/sh", "-c", commandLine});
    const auto status = child.waitForExit(timeout + std::chrono::seconds(5));
    if (exitStatus != nullptr) {
        *exitStatus = status.value_or(-1);
    }
    return child.standardOutput();
}

} // namespace orv::test
