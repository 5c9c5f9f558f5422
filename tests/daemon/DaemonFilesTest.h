#pragma once
// Fixture for tests of the built daemon on files a test writes: a folder of
// its own, a free TCP port, and runs of the daemon that must fail before
// they open a port.

#include "ChildProcess.h"
#include "FreePort.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace orv::test {

class DaemonFilesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_dir = std::filesystem::temp_directory_path()
                / ("orv-daemon-files-" + std::to_string(::getpid()) + "-"
                   + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(m_dir);
        m_port = freeTcpPort();
    }

    void TearDown() override { std::filesystem::remove_all(m_dir); }

    std::string write(const std::string& name, const std::string& text) const
    {
        const auto path = m_dir / name;
        std::ofstream(path) << text;
        return path.string();
    }

    // Runs the daemon on `configPath` with `extra` arguments; expects it to
    // fail before listening and returns its standard error.
    std::string runExpectingFailure(const std::string& configPath, const std::vector<std::string>& extra = {})
    {
        std::vector<std::string> arguments{"--config", configPath, "--tcp-port", std::to_string(m_port)};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        ChildProcess daemon(ORV_DAEMON_BINARY, arguments);
        const auto status = daemon.waitForExit(std::chrono::seconds(20));
        EXPECT_TRUE(status.has_value()) << "the daemon did not stop on a bad configuration";
        EXPECT_NE(status.value_or(0), 0);
        EXPECT_EQ(daemon.standardOutput().find("serving"), std::string::npos) << daemon.standardOutput();
        EXPECT_FALSE(isListening(m_port));
        return daemon.standardError();
    }

    std::filesystem::path m_dir;
    std::uint16_t m_port = 0;
};

} // namespace orv::test
