// The daemon counts the server's traffic and logs one summary line every
// interval and at shutdown.

#include "ChildProcess.h"
#include "FreePort.h"
#include "WaitUntil.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace {

using namespace std::chrono_literals;

TEST(DaemonStatisticsTest, SummaryEveryIntervalAndAtShutdown)
{
    const auto dir = std::filesystem::temp_directory_path() / ("orv-daemon-statistics-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const auto config = dir / "config.json";
    std::ofstream(config) << R"({"server": {"tcp": {"enabled": true}},
        "maps": [{"id": "demo", "plugin": ")" ORV_DEMO_PLUGIN R"("}],
        "tcpUnits": [{"unitId": 1, "map": "demo", "allowedAddresses": ["^127\\.0\\.0\\.1$"]}],
        "dataStore": {"seedFile": ")" ORV_DEMO_SEED R"("},
        "statisticsIntervalSeconds": 1})";
    const std::uint16_t port = orv::test::freeTcpPort();
    orv::test::ChildProcess daemon(ORV_DAEMON_BINARY, {"--config", config.string(), "--tcp-port", std::to_string(port)});
    ASSERT_TRUE(daemon.waitForOutput("serving Modbus TCP", 30s)) << daemon.standardError();

    // One good request and one for a unit without a map.
    const std::string mbpoll = "mbpoll -m tcp -p " + std::to_string(port) + " -0 -1 -o 1 -t 3 -r 10 ";
    orv::test::runAndCapture(mbpoll + "-a 1 127.0.0.1", 10s);
    orv::test::runAndCapture(mbpoll + "-a 2 127.0.0.1", 10s);

    const std::string expected = "statistics: tcp received=2 bad-unit=1 accepted=1 refused=0 processed=1";
    EXPECT_TRUE(orv::test::waitUntil([&] { return daemon.standardError().find(expected) != std::string::npos; }, 5s))
        << daemon.standardError();
    daemon.signal(SIGTERM);
    ASSERT_EQ(daemon.waitForExit(5s), 0);
    const std::string log = daemon.standardError();
    EXPECT_NE(log.find(expected, log.find("stopping on signal")), std::string::npos) << log;
    std::filesystem::remove_all(dir);
}

} // namespace
