#pragma once
// A program started by a test: its standard output and error go to files
// that the test reads, it can be signalled, and waiting for it is bounded.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace orv::test {

class ChildProcess {
public:
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments);
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void signal(int number) const;

    pid_t pid() const { return m_pid; }

    // The exit status once the program has ended within the timeout; nothing
    // if it still runs. A program killed by a signal reports 128 + signal.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout);

    std::string standardOutput() const;
    std::string standardError() const;

    // Waits, bounded, until the standard output contains the text.
    bool waitForOutput(const std::string& text, std::chrono::milliseconds timeout) const;

private:
    std::string m_outPath;
    std::string m_errPath;
    pid_t m_pid = -1;
    std::optional<int> m_status;
};

// Runs a program to its end (bounded) and returns its standard output.
std::string runAndCapture(const std::string& commandLine, std::chrono::seconds timeout, int* exitStatus = nullptr);

} // namespace orv::test
