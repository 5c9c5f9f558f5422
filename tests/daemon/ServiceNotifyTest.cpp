// The daemon under a test-owned notify socket: it says READY=1 once clients
// can connect, feeds the watchdog while its loops turn, and says STOPPING=1
// on SIGTERM.

#include "ChildProcess.h"
#include "FreePort.h"
#include "ServiceNotifier.h"
#include "ServiceNotifySocket.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <memory>

namespace {

using namespace std::chrono_literals;
using orv::modbusd::ServiceNotifier;
using orv::test::ChildProcess;
using orv::test::ServiceNotifySocket;

class ServiceNotifyTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_socket = std::make_unique<ServiceNotifySocket>(
            "/tmp/orv-notify-" + std::to_string(::getpid()) + "-"
            + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        // Inherited by the daemon; a test process runs one test only.
        setenv("NOTIFY_SOCKET", m_socket->path().c_str(), 1);
        unsetenv("WATCHDOG_PID");
    }

    void TearDown() override
    {
        unsetenv("NOTIFY_SOCKET");
        unsetenv("WATCHDOG_USEC");
    }

    std::unique_ptr<ChildProcess> startDaemon()
    {
        m_port = orv::test::freeTcpPort();
        return std::make_unique<ChildProcess>(
            ORV_DAEMON_BINARY, std::vector<std::string>{"--config", ORV_DEMO_CONFIG, "--tcp-port",
                                                        std::to_string(m_port)});
    }

    std::unique_ptr<ServiceNotifySocket> m_socket;
    std::uint16_t m_port = 0;
};

TEST_F(ServiceNotifyTest, ReadyIsSentOnceTheTcpPortAcceptsConnections)
{
    auto daemon = startDaemon();
    ASSERT_TRUE(m_socket->waitFor("READY=1", 30s)) << daemon->standardError();
    EXPECT_TRUE(orv::test::isListening(m_port));
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->waitForExit(10s), 0);
}

TEST_F(ServiceNotifyTest, StoppingIsSentOnSigterm)
{
    auto daemon = startDaemon();
    ASSERT_TRUE(m_socket->waitFor("READY=1", 30s)) << daemon->standardError();
    daemon->signal(SIGTERM);
    EXPECT_TRUE(m_socket->waitFor("STOPPING=1", 10s));
    EXPECT_EQ(daemon->waitForExit(10s), 0);
}

TEST_F(ServiceNotifyTest, WatchdogIsFedPeriodicallyWhileServing)
{
    setenv("WATCHDOG_USEC", "400000", 1);
    auto daemon = startDaemon();
    ASSERT_TRUE(m_socket->waitFor("READY=1", 30s)) << daemon->standardError();
    // Fed every 200 ms; the idle TCP loop turns once a second at least.
    for (int feed = 0; feed < 2; ++feed) {
        EXPECT_TRUE(m_socket->waitFor("WATCHDOG=1", 5s)) << "feed " << feed;
    }
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->waitForExit(10s), 0);
}

TEST_F(ServiceNotifyTest, WithoutAWatchdogNothingIsFed)
{
    ServiceNotifier notifier;
    for (int turn = 0; turn < 3; ++turn) {
        notifier.loopTurned(ServiceNotifier::Loop::Tcp);
    }
    notifier.ready();
    EXPECT_TRUE(m_socket->waitFor("READY=1", 5s));
    EXPECT_FALSE(m_socket->waitFor("WATCHDOG=1", 200ms));
}

TEST_F(ServiceNotifyTest, OneStuckLoopStopsTheWatchdogFeeds)
{
    setenv("WATCHDOG_USEC", "20000", 1);
    ServiceNotifier notifier;
    const auto turnUntilFed = [&](bool withRtu) {
        const auto deadline = std::chrono::steady_clock::now() + 1s;
        while (std::chrono::steady_clock::now() < deadline) {
            notifier.loopTurned(ServiceNotifier::Loop::Tcp);
            if (withRtu) {
                notifier.loopTurned(ServiceNotifier::Loop::Rtu);
            }
            if (m_socket->waitFor("WATCHDOG=1", 2ms)) {
                return true;
            }
        }
        return false;
    };
    ASSERT_TRUE(turnUntilFed(true)) << "both loops turning feed the watchdog";
    ASSERT_TRUE(turnUntilFed(true));
    // The RTU loop stops turning: at most the feed already due goes out.
    turnUntilFed(false);
    EXPECT_FALSE(turnUntilFed(false)) << "a stuck RTU loop must starve the watchdog";
}

} // namespace
