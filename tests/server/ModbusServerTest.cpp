#include "CountingStatistics.h"
#include "FreePort.h"
#include "LogCapture.h"
#include "ModbusTcpClient.h"
#include "PseudoTerminal.h"
#include "RawTcpClient.h"
#include "SpyMap.h"
#include "TestServer.h"
#include "WaitUntil.h"

#include <orv/modbus/ModbusServer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>

#include <netinet/in.h>

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;
using orv::test::freeTcpPort;
using orv::test::waitUntil;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// A listening socket on [::]:port (both families), holding the port.
class PortBlocker {
public:
    explicit PortBlocker(std::uint16_t port)
        : m_fd(socket(AF_INET6, SOCK_STREAM, 0))
    {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_any;
        address.sin6_port = htons(port);
        m_bound = bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 && listen(m_fd, 1) == 0;
    }
    ~PortBlocker() { close(m_fd); }
    PortBlocker(const PortBlocker&) = delete;
    PortBlocker& operator=(const PortBlocker&) = delete;
    bool bound() const { return m_bound; }

private:
    int m_fd;
    bool m_bound = false;
};

ModbusMapsConfiguration servingUnitOne(std::shared_ptr<ModbusMap> map)
{
    ModbusMapsConfiguration configuration;
    configuration.tcpMaps[1] = allowing(std::move(map), {"^127\\.0\\.0\\.1$", "^::1$"});
    return configuration;
}

// A server on a free port, running, serving a spy map as unit 1 to both
// loopback addresses.
std::unique_ptr<ModbusServer> servingUnitOneOnFreePort(std::uint16_t& port,
                                                       std::shared_ptr<ModbusStatisticHandlers> statistics = {})
{
    auto server = makeTcpServer(port, std::move(statistics));
    server->run(servingUnitOne(makeSpyMap()));
    return server;
}

// Settings whose serial line is the slave side of `terminal`.
ModbusServerSettings serialOn(const PseudoTerminal& terminal)
{
    ModbusServerSettings settings;
    settings.rtuEnabled = true;
    settings.rtuDevice = terminal.slavePath();
    return settings;
}

TEST(ModbusServerTest, PortInUseFailsWithSystemText)
{
    std::uint16_t port = 0;
    std::unique_ptr<PortBlocker> blocker;
    for (int attempt = 0; attempt < 10 && !(blocker && blocker->bound()); ++attempt) {
        port = freeTcpPort();
        blocker = std::make_unique<PortBlocker>(port);
    }
    ASSERT_TRUE(blocker->bound());

    ModbusServerSettings settings;
    settings.tcpEnabled = true;
    settings.tcpPort = port;
    try {
        ModbusServer server(settings, false);
        FAIL() << "constructor did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  std::string("Impossible to listen on Modbus Tcp socket. Error ") + std::strerror(EADDRINUSE));
    }
}

TEST(ModbusServerTest, ListensOnBothFamiliesOfOnePort)
{
    LogCapture log;
    std::uint16_t port = 0;
    auto server = makeTcpServer(port);
    EXPECT_TRUE(log.contains("Open the tcp port " + std::to_string(port)));
    server->run(servingUnitOne(makeSpyMap()));

    ModbusTcpClient ipv4("127.0.0.1", port, 1);
    ModbusTcpClient ipv6("::1", port, 1);
    ASSERT_TRUE(ipv4.connected());
    ASSERT_TRUE(ipv6.connected());
    EXPECT_EQ(ipv4.readHolding(0, 2), (std::vector<std::uint16_t>{11, 12}));
    EXPECT_EQ(ipv6.readHolding(0, 2), (std::vector<std::uint16_t>{11, 12}));
}

TEST(ModbusServerTest, MissingSerialDeviceFailsBeforeTcpIsOpened)
{
    ModbusServerSettings settings;
    settings.rtuEnabled = true;
    settings.rtuDevice = "/dev/orv-no-such-serial-device";
    settings.tcpEnabled = true;
    settings.tcpPort = freeTcpPort();
    try {
        ModbusServer server(settings, false);
        FAIL() << "constructor did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Impossible to initiat Modbus Rtu context.");
    }
    // The serial line is opened first, so the TCP socket never listened.
    EXPECT_TRUE(connectionRefused("127.0.0.1", static_cast<std::uint16_t>(settings.tcpPort)));
}

TEST(ModbusServerTest, InvalidSerialParametersFailAtContextCreation)
{
    ModbusServerSettings settings;
    settings.rtuEnabled = true;
    settings.rtuDevice = "";
    try {
        ModbusServer server(settings, false);
        FAIL() << "constructor did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Impossible to initiat Modbus Rtu context.");
    }
}

TEST(ModbusServerTest, RtuOnlyServerStartsNoTcpThreadAndClosesOnlyTheSerialLine)
{
    PseudoTerminal terminal;
    LogCapture log;
    ModbusServerSettings settings = serialOn(terminal);
    settings.tcpEnabled = false;
    ModbusServer server(settings, false);
    EXPECT_TRUE(server.isEnabled());

    server.run(ModbusMapsConfiguration());
    EXPECT_TRUE(noThreadNamed(g_tcpThreadName));
    server.stop();
    EXPECT_EQ(log.count("Close rtu connection"), 1u);
    EXPECT_FALSE(log.contains("Close tcp connection"));
    EXPECT_FALSE(log.contains("Open the tcp port 502"));
}

TEST(ModbusServerTest, StopEndsHandlerClosesClientsAndKeepsListening)
{
    LogCapture log;
    std::uint16_t port = 0;
    auto server = servingUnitOneOnFreePort(port);
    ModbusTcpClient first("127.0.0.1", port, 1);
    ModbusTcpClient second("::1", port, 1);
    ASSERT_TRUE(first.readHolding(0, 1).has_value());
    ASSERT_TRUE(second.readHolding(0, 1).has_value());
    ASSERT_EQ(threadsNamed(g_tcpThreadName), 1);

    const auto started = Clock::now();
    server->stop();
    EXPECT_LT(Clock::now() - started, 1500ms);
    EXPECT_TRUE(noThreadNamed(g_tcpThreadName));
    EXPECT_TRUE(first.closedByPeerWithin(1s));
    EXPECT_TRUE(second.closedByPeerWithin(1s));
    EXPECT_TRUE(log.contains("Exit handlerTcp thread"));
    EXPECT_TRUE(log.indexOf("Exit handlerTcp thread") < log.indexOf("Close tcp connection"));

    // The listening socket stays open until destruction.
    EXPECT_FALSE(connectionRefused("127.0.0.1", port));
    server.reset();
    EXPECT_TRUE(connectionRefused("127.0.0.1", port));
}

TEST(ModbusServerTest, StopTwiceAndStopBeforeRunAreHarmless)
{
    std::uint16_t port = 0;
    auto server = makeTcpServer(port);
    server->stop();
    server->run(servingUnitOne(makeSpyMap()));
    server->stop();
    server->stop();
    EXPECT_TRUE(noThreadNamed(g_tcpThreadName));
}

TEST(ModbusServerTest, DestroyingRunningServerEndsHandlerAndClosesClients)
{
    LogCapture log;
    std::uint16_t port = 0;
    auto server = servingUnitOneOnFreePort(port);
    ModbusTcpClient client("127.0.0.1", port, 1);
    ASSERT_TRUE(client.readHolding(0, 1).has_value());

    const auto started = Clock::now();
    server.reset();
    EXPECT_LT(Clock::now() - started, 1500ms);
    EXPECT_TRUE(noThreadNamed(g_tcpThreadName));
    EXPECT_TRUE(client.closedByPeerWithin(1s));
    EXPECT_TRUE(log.contains("Exit handlerTcp thread"));
    EXPECT_FALSE(log.contains("Close tcp connection"));
    EXPECT_TRUE(connectionRefused("127.0.0.1", port));
}

// A stop request that arrives while a pass serves sockets ends the scan
// first ("handleTcp"), then the loop ("handlerTcp").
TEST(ModbusServerTest, StopDuringScanLogsBothExitMessagesInOrder)
{
    PseudoTerminal terminal;
    LogCapture log;
    std::uint16_t port = 0;
    auto server = makeTcpServer(port, nullptr, serialOn(terminal));
    auto map = makeSpyMap();
    // Holds the request until stop() has requested the TCP stop; stop()
    // closes the serial line (and logs it) after both requests and before
    // it waits for the TCP thread.
    map->setBeforeReply([&log] { log.waitFor("Close rtu connection", 5s); });
    server->run(servingUnitOne(map));

    // The second client gets the higher socket, so the scan has a step
    // left after it served the first.
    ModbusTcpClient client("127.0.0.1", port, 1);
    ModbusTcpClient bystander("127.0.0.1", port, 1);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(bystander.connected());
    ASSERT_TRUE(waitUntil([&log] { return log.count("New Modbus TCP connection from 127.0.0.1 accepted.") == 2; }, 2s));
    auto reply = std::async(std::launch::async, [&client] { return client.readHolding(0, 1); });
    ASSERT_TRUE(waitUntil([&map] { return map->calls().size() == 1; }, 2s));
    server->stop();

    EXPECT_TRUE(scanExitedBeforeLoop(log));
    EXPECT_TRUE(reply.get().has_value());
}

TEST(ModbusServerTest, IdleLimitDefaultsToFiveMinutes)
{
    std::uint16_t port = 0;
    auto frontEnd = makeTcpFrontEnd(port);
    EXPECT_EQ(frontEnd->idleLimit(), std::chrono::seconds(300));
    frontEnd->setIdleLimit(2s);
    EXPECT_EQ(frontEnd->idleLimit(), std::chrono::seconds(2));
}

TEST(ModbusServerTest, ClientSilentForExactlyTheIdleLimitIsStillActive)
{
    // One time point serves a whole pass of the handler, so with a limit of
    // 0 a client has been silent for exactly the limit in the pass that
    // accepts it and in the pass that serves its request: it must be
    // answered. Only a later pass, silent for more than 0, closes it.
    std::uint16_t port = 0;
    auto frontEnd = makeTcpFrontEnd(port);
    frontEnd->setIdleLimit(0s);
    const ServedTcpFrontEnd served(std::move(frontEnd), servingUnitOne(makeSpyMap()).tcpMaps,
                                   std::make_shared<CountingStatistics>());
    ModbusTcpClient client("127.0.0.1", port, 1);
    ASSERT_TRUE(client.connected());
    EXPECT_TRUE(client.readHolding(0, 1).has_value());
    EXPECT_TRUE(client.closedByPeerWithin(3s));
}

TEST(ModbusServerTest, StatisticHandlerCanBeReplacedBeforeRun)
{
    std::uint16_t port = 0;
    auto first = std::make_shared<CountingStatistics>();
    auto second = std::make_shared<CountingStatistics>();
    auto server = makeTcpServer(port, first);
    server->setStatisticHandler(second);
    server->run(servingUnitOne(makeSpyMap()));
    ModbusTcpClient client("127.0.0.1", port, 1);
    ASSERT_TRUE(client.readHolding(0, 1).has_value());
    EXPECT_TRUE(waitUntil([&second] { return second->tcpRequestProcessed == 1; }, 2s));
    EXPECT_EQ(first->tcpRequestReceived, 0);
}

// Statistics that fail must not cost anybody an answer.
class ThrowingStatistics : public ModbusStatisticHandlers {
public:
    void onTcpRequestReceived() override { throw std::runtime_error("counter broken"); }
    void onTcpRequestAccepted() override { throw std::runtime_error("counter broken"); }
    void onTcpRequestProcessed() override { throw std::runtime_error("counter broken"); }
};

TEST(ModbusServerTest, ThrowingStatisticsDoNotDisturbServingAndAreLoggedAtDebugLevel)
{
    LogCapture log;
    std::uint16_t port = 0;
    auto server = servingUnitOneOnFreePort(port, std::make_shared<ThrowingStatistics>());
    ModbusTcpClient client("127.0.0.1", port, 1);
    EXPECT_EQ(client.readHolding(0, 2), (std::vector<std::uint16_t>{11, 12}));
    EXPECT_EQ(client.readHolding(10, 1), (std::vector<std::uint16_t>{100}));
    EXPECT_TRUE(log.waitForAt(spdlog::level::debug, "A statistic handler failed: counter broken"));
}

} // namespace
} // namespace orv::modbus::test
