#include "CaughtFailures.h"
#include "CountingStatistics.h"
#include "LogCapture.h"
#include "PeerAddress.h"
#include "ModbusTcpClient.h"
#include "RawTcpClient.h"
#include "SpyMap.h"
#include "TestServer.h"
#include "WaitUntil.h"

#include <orv/modbus/ModbusServer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/un.h>

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;
using orv::test::waitUntil;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;


sockaddr_storage ipv6Address(const char* text)
{
    sockaddr_storage storage{};
    auto& address = reinterpret_cast<sockaddr_in6&>(storage);
    address.sin6_family = AF_INET6;
    inet_pton(AF_INET6, text, &address.sin6_addr);
    return storage;
}

TEST(PeerAddressTextTest, Ipv4IsDottedText)
{
    sockaddr_storage storage{};
    auto& address = reinterpret_cast<sockaddr_in&>(storage);
    address.sin_family = AF_INET;
    inet_pton(AF_INET, "192.168.1.20", &address.sin_addr);
    EXPECT_EQ(peerAddressText(storage), "192.168.1.20");
}

TEST(PeerAddressTextTest, Ipv6IsUpperCase)
{
    EXPECT_EQ(peerAddressText(ipv6Address("fe80::abcd:12ef")), "FE80::ABCD:12EF");
    EXPECT_EQ(peerAddressText(ipv6Address("::1")), "::1");
}

TEST(PeerAddressTextTest, Ipv4MappedIsReducedToItsIpv4Part)
{
    EXPECT_EQ(peerAddressText(ipv6Address("::ffff:192.168.1.20")), "192.168.1.20");
    EXPECT_EQ(peerAddressText(ipv6Address("::ffff:127.0.0.1")), "127.0.0.1");
}

TEST(PeerAddressTextTest, OtherFamiliesAreEmpty)
{
    sockaddr_storage storage{};
    storage.ss_family = AF_UNIX;
    EXPECT_EQ(peerAddressText(storage), "");
}

// A TCP front end served on loopback whose unit 1 admits 127.0.0.1 only.
class ModbusServerTcpTest : public ::testing::Test {
protected:
    void start(ModbusMapsConfiguration configuration)
    {
        auto frontEnd = makeTcpFrontEnd(m_port);
        frontEnd->setIdleLimit(m_idleLimit);
        m_pServed = std::make_unique<ServedTcpFrontEnd>(std::move(frontEnd), configuration.tcpMaps, m_pStatistics);
    }

    void startWithUnitOne() { start(unitOneConfiguration()); }

    ModbusMapsConfiguration unitOneConfiguration()
    {
        ModbusMapsConfiguration configuration;
        configuration.tcpMaps[1] = allowing(m_pMap, {"^127\\.0\\.0\\.1$"});
        return configuration;
    }

    static std::string acceptedLine(const std::string& address)
    {
        return "New Modbus TCP connection from " + address + " accepted.";
    }
    static std::string refusedLine(const std::string& address)
    {
        return "New Modbus TCP connection from " + address + " refused! No map accessible for this IP.";
    }
    static std::string wrongUnitLine(const std::string& address)
    {
        return "Modbus TCP connection from " + address + " closed due to incorrect device id access.";
    }

    // A request to a unit this client may not use gets no answer, and the
    // server closes the connection.
    static void expectUnitClosesConnection(ModbusTcpClient& client, int unit)
    {
        client.setUnit(unit);
        EXPECT_FALSE(client.readHolding(0, 2).has_value()) << "unit " << unit;
        EXPECT_TRUE(client.closedByPeerWithin(2s)) << "unit " << unit;
    }

    // `client` is served on its own unit and known as `seenAs`; a request to
    // `otherUnit` closes its connection, logged as an error.
    void expectServedOnItsUnitOnly(ModbusTcpClient& client, const std::string& seenAs, int otherUnit)
    {
        ASSERT_TRUE(client.connected());
        EXPECT_EQ(client.readHolding(0, 2), g_pairWords);
        EXPECT_TRUE(m_log.contains(acceptedLine(seenAs)));
        expectUnitClosesConnection(client, otherUnit);
        EXPECT_TRUE(m_log.waitForAt(spdlog::level::err, wrongUnitLine(seenAs)));
    }

    LogCapture m_log;
    std::shared_ptr<CountingStatistics> m_pStatistics = std::make_shared<CountingStatistics>();
    std::shared_ptr<SpyMap> m_pMap = makeSpyMap();
    TcpFrontEnd::Clock::duration m_idleLimit = TcpFrontEnd::g_defaultIdleLimit;
    std::uint16_t m_port = 0;
    std::unique_ptr<ServedTcpFrontEnd> m_pServed;
};

TEST_F(ModbusServerTcpTest, Ipv4ClientIsKnownByDottedText)
{
    startWithUnitOne();
    {
        ModbusTcpClient client("127.0.0.1", m_port, 1);
        ASSERT_TRUE(client.connected());
        EXPECT_EQ(client.readHolding(0, 2), g_pairWords);
        EXPECT_TRUE(m_log.waitForAt(spdlog::level::debug, acceptedLine("127.0.0.1")));
    }
    EXPECT_TRUE(m_log.waitFor("Modbus TCP connection from 127.0.0.1 closed."));
}

TEST_F(ModbusServerTcpTest, NativeIpv6ClientIsMatchedOnItsText)
{
    ModbusMapsConfiguration configuration = unitOneConfiguration();
    configuration.tcpMaps[2] = allowing(m_pMap, {"^::1$"});
    start(configuration);

    ModbusTcpClient client("::1", m_port, 2);
    // Unit 1 admits 127.0.0.1 only.
    expectServedOnItsUnitOnly(client, "::1", 1);
}

TEST_F(ModbusServerTcpTest, Ipv4MappedClientIsKnownByItsIpv4Part)
{
    ModbusMapsConfiguration configuration = unitOneConfiguration();
    // Would admit the client if its text still carried the IPv6 prefix.
    configuration.tcpMaps[3] = allowing(m_pMap, {"FFFF", ":"});
    start(configuration);

    ModbusTcpClient client("::ffff:127.0.0.1", m_port, 1);
    expectServedOnItsUnitOnly(client, "127.0.0.1", 3);
}

TEST_F(ModbusServerTcpTest, ClientMatchingNoMapIsClosedRightAfterAccept)
{
    ModbusMapsConfiguration configuration;
    configuration.tcpMaps[1] = allowing(m_pMap, {"^10\\."});
    configuration.tcpMaps[2] = allowing(m_pMap, {});
    start(configuration);

    RawTcpClient client("127.0.0.1", m_port);
    ASSERT_TRUE(client.connected());
    EXPECT_TRUE(client.closedByPeerWithin(2s));
    EXPECT_TRUE(m_log.waitForAt(spdlog::level::err, refusedLine("127.0.0.1")));
    EXPECT_FALSE(m_log.contains(acceptedLine("127.0.0.1")));
    EXPECT_EQ(m_pStatistics->tcpRequestReceived, 0);
}

TEST_F(ModbusServerTcpTest, UnmatchedUnitClosesConnectionAndReconnectStartsAfresh)
{
    ModbusMapsConfiguration configuration = unitOneConfiguration();
    configuration.tcpMaps[2] = allowing(m_pMap, {"^10\\."});
    start(configuration);

    for (int unit : {2, 3}) { // 2 has a map closed to this client; 3 has none
        ModbusTcpClient client("127.0.0.1", m_port, 1);
        ASSERT_TRUE(client.connected());
        EXPECT_EQ(client.readHolding(0, 2), g_pairWords);
        expectUnitClosesConnection(client, unit);
    }
    EXPECT_TRUE(waitUntil([this] { return m_log.count(wrongUnitLine("127.0.0.1")) == 2; }, 2s));

    ModbusTcpClient fresh("127.0.0.1", m_port, 1);
    EXPECT_EQ(fresh.readHolding(0, 2), g_pairWords);
    EXPECT_EQ(m_pMap->calls().size(), 3u);
}

TEST_F(ModbusServerTcpTest, UnitIdsAbove247NeverHaveAMap)
{
    ModbusMapsConfiguration configuration = unitOneConfiguration();
    // Even a table grown beyond its 248 slots is not looked at there.
    configuration.tcpMaps.resize(256);
    for (std::size_t unit = 248; unit < 256; ++unit) {
        configuration.tcpMaps[unit] = allowing(m_pMap, {"127"});
    }
    start(configuration);

    for (int unit : {248, 250, 255}) {
        RawTcpClient client("127.0.0.1", m_port);
        ASSERT_TRUE(client.connected());
        ASSERT_TRUE(client.send(RawTcpClient::readHoldingFrame(static_cast<std::uint8_t>(unit), 0, 1)));
        EXPECT_TRUE(client.closedByPeerWithin(2s)) << "unit " << unit;
    }
    EXPECT_EQ(m_pStatistics->tcpBadDeviceId, 3);
    EXPECT_EQ(m_pStatistics->tcpRequestAccepted, 0);
    EXPECT_TRUE(m_pMap->calls().empty());

    RawTcpClient valid("127.0.0.1", m_port);
    ASSERT_TRUE(valid.send(RawTcpClient::readHoldingFrame(1, 0, 1)));
    const std::vector<std::uint8_t> reply = valid.receive(2s);
    ASSERT_EQ(reply.size(), 11u);
    EXPECT_EQ(reply[6], 1);
    EXPECT_EQ(reply[7], 3);
    EXPECT_EQ(reply[10], 11);
}

TEST_F(ModbusServerTcpTest, StatisticsCountAScriptedSession)
{
    ModbusMapsConfiguration configuration = unitOneConfiguration();
    configuration.tcpMaps[2] = allowing(m_pMap, {"^10\\."});
    start(configuration);

    ModbusTcpClient client("127.0.0.1", m_port, 1);
    ASSERT_TRUE(client.connected());
    EXPECT_EQ(client.readHolding(0, 2), g_pairWords); // good
    EXPECT_FALSE(client.readHolding(20, 1).has_value()); // refused: no entry at 20
    EXPECT_EQ(client.lastError(), EMBXILADD);
    client.setUnit(2); // a unit this client may not use
    EXPECT_FALSE(client.readHolding(0, 1).has_value());
    ASSERT_TRUE(client.closedByPeerWithin(2s));

    RawTcpClient badUnit("127.0.0.1", m_port);
    ASSERT_TRUE(badUnit.send(RawTcpClient::readHoldingFrame(250, 0, 1)));
    ASSERT_TRUE(badUnit.closedByPeerWithin(2s));

    RawTcpClient refused("::1", m_port); // refused at accept: counts nothing
    ASSERT_TRUE(refused.closedByPeerWithin(2s));

    EXPECT_EQ(m_pStatistics->tcpRequestReceived, 4);
    EXPECT_EQ(m_pStatistics->tcpRequestAccepted, 2);
    EXPECT_EQ(m_pStatistics->tcpRequestProcessed, 1);
    EXPECT_EQ(m_pStatistics->tcpRequestRefused, 1);
    EXPECT_EQ(m_pStatistics->tcpBadDeviceId, 2);
    EXPECT_EQ(m_pStatistics->reservedCalls, 0);
    EXPECT_EQ(m_pStatistics->rtuCalls, 0);
}

TEST_F(ModbusServerTcpTest, ExceptionWhileProcessingIsDroppedCountedAndConnectionStays)
{
    startWithUnitOne();
    const auto failuresBefore = CaughtFailures::counted();
    std::atomic<bool> fail{true};
    m_pMap->setBeforeReply([&fail] {
        if (fail.exchange(false)) {
            throw std::runtime_error("accessor exploded");
        }
    });

    ModbusTcpClient client("127.0.0.1", m_port, 1, 300ms);
    ASSERT_TRUE(client.connected());
    EXPECT_FALSE(client.readHolding(0, 2).has_value());
    EXPECT_EQ(client.lastError(), ETIMEDOUT);
    EXPECT_TRUE(isOpenNow(client.fd()));
    EXPECT_EQ(client.readHolding(0, 2), g_pairWords);

    // The count follows the reply.
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->tcpRequestProcessed == 1; }, 2s));
    EXPECT_EQ(m_pStatistics->tcpRequestAccepted, 2);
    EXPECT_EQ(m_pStatistics->tcpRequestRefused, 0);
    EXPECT_EQ(threadsNamed(g_tcpThreadName), 1);
    // Counted, but the serial line's log line stays its own.
    EXPECT_EQ(CaughtFailures::counted(), failuresBefore + 1);
    EXPECT_FALSE(m_log.contains("processRequest exception"));
}

// The time left until `deadline`, within [1 ms, `most`].
std::chrono::milliseconds slice(Clock::time_point deadline, std::chrono::milliseconds most)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return std::clamp(left, std::chrono::milliseconds(1), most);
}

TEST_F(ModbusServerTcpTest, SilentClientIsClosedOnlyAfterTheIdleLimit)
{
    m_idleLimit = 2s;
    startWithUnitOne();
    ModbusTcpClient silent("127.0.0.1", m_port, 1);
    ModbusTcpClient talker("127.0.0.1", m_port, 1);
    const auto beforeLastRequest = Clock::now();
    ASSERT_TRUE(silent.readHolding(0, 1).has_value());
    const auto lastRequest = Clock::now();

    // Just under the limit the silent client is still open; the talker keeps
    // asking all along.
    while (Clock::now() < lastRequest + 1800ms) {
        ASSERT_TRUE(talker.readHolding(0, 1).has_value());
        ASSERT_FALSE(silent.closedByPeerWithin(slice(lastRequest + 1800ms, 300ms)));
    }
    // A little over it, the silent client is closed within about a second more.
    bool closed = false;
    while (!closed && Clock::now() < lastRequest + 3500ms) {
        ASSERT_TRUE(talker.readHolding(0, 1).has_value());
        closed = silent.closedByPeerWithin(slice(lastRequest + 3500ms, 300ms));
    }
    EXPECT_TRUE(closed);
    EXPECT_GE(Clock::now() - beforeLastRequest, 2s);
    EXPECT_TRUE(m_log.waitForMatching(spdlog::level::debug,
                                       "Closing idle connection on socket [0-9]+ from 127\\.0\\.0\\.1\\."));
    // The talker has been connected for longer than the limit by now.
    EXPECT_TRUE(talker.readHolding(0, 1).has_value());
}

TEST_F(ModbusServerTcpTest, TwoHundredClientsAreServedTogether)
{
    startWithUnitOne();
    // Connected in batches that fit the listen backlog (32), so that no
    // connection waits for a SYN retransmission.
    constexpr std::size_t clientCount = 200;
    constexpr std::size_t batch = 25;
    std::vector<std::unique_ptr<ModbusTcpClient>> clients;
    while (clients.size() < clientCount) {
        for (std::size_t index = 0; index < batch && clients.size() < clientCount; ++index) {
            const char* host = clients.size() % 2 ? "127.0.0.1" : "::ffff:127.0.0.1";
            clients.push_back(std::make_unique<ModbusTcpClient>(host, m_port, 1));
            ASSERT_TRUE(clients.back()->connected()) << "client " << clients.size();
        }
        ASSERT_TRUE(
            waitUntil([&] { return m_log.count(acceptedLine("127.0.0.1")) == clients.size(); }, 5s));
    }

    // Every client has a request outstanding at the same time.
    for (auto& client : clients) {
        ASSERT_TRUE(client->sendReadHolding(0, 2));
    }
    for (std::size_t index = 0; index < clients.size(); ++index) {
        EXPECT_EQ(clients[index]->receiveReadHolding(), g_pairWords) << "client " << index;
    }
    // And each one's write lands where it belongs.
    for (std::size_t index = 0; index < clients.size(); ++index) {
        const auto value = static_cast<std::uint16_t>(1000 + index);
        ASSERT_TRUE(clients[index]->writeHolding(10, value));
        ASSERT_EQ(clients[index]->readHolding(10, 1), std::vector<std::uint16_t>{value});
    }
    for (const auto& client : clients) {
        EXPECT_TRUE(isOpenNow(client->fd()));
    }
}

TEST_F(ModbusServerTcpTest, HostileClientsLoseOnlyTheirOwnConnection)
{
    startWithUnitOne();
    std::vector<std::unique_ptr<ModbusTcpClient>> good;
    for (int index = 0; index < 3; ++index) {
        good.push_back(std::make_unique<ModbusTcpClient>("127.0.0.1", m_port, 1));
        ASSERT_TRUE(good.back()->connected());
    }
    const std::vector<std::uint8_t> validFrame = RawTcpClient::readHoldingFrame(1, 0, 2);
    const std::vector<std::uint8_t> halfFrame(validFrame.begin(), validFrame.begin() + 9);
    const std::string http = "GET / HTTP/1.1\r\nHost: gateway\r\n\r\n";
    // Write multiple registers claiming 255 data bytes: more than a frame holds.
    const std::vector<std::uint8_t> oversized{0, 1, 0, 0, 0, 0xFF, 1, 0x10, 0, 0, 0, 0x7F, 0xFF, 1, 2, 3, 4};

    std::vector<std::unique_ptr<RawTcpClient>> hostile;
    for (int index = 0; index < 4; ++index) {
        hostile.push_back(std::make_unique<RawTcpClient>("127.0.0.1", m_port));
        ASSERT_TRUE(hostile.back()->connected());
    }
    ASSERT_TRUE(hostile[0]->send(std::vector<std::uint8_t>(16, 0xFF)));
    ASSERT_TRUE(hostile[1]->send(std::vector<std::uint8_t>(http.begin(), http.end())));
    ASSERT_TRUE(hostile[2]->send(halfFrame));
    ASSERT_TRUE(hostile[3]->send(oversized));
    RawTcpClient vanishing("127.0.0.1", m_port);
    ASSERT_TRUE(vanishing.send(halfFrame));
    shutdown(vanishing.fd(), SHUT_RDWR);

    // A stalled frame holds the others up by libmodbus's byte timeout (0.5 s)
    // at most.
    for (int round = 0; round < 3; ++round) {
        for (auto& client : good) {
            const auto asked = Clock::now();
            EXPECT_EQ(client->readHolding(0, 2), g_pairWords);
            EXPECT_LT(Clock::now() - asked, 1200ms);
        }
    }
    for (std::size_t index = 0; index < hostile.size(); ++index) {
        EXPECT_TRUE(hostile[index]->closedByPeerWithin(2s)) << "hostile client " << index;
    }
    ASSERT_TRUE(m_log.waitFor("Modbus TCP connection from 127.0.0.1 closed."));
    EXPECT_EQ(threadsNamed(g_tcpThreadName), 1);
    ModbusTcpClient later("127.0.0.1", m_port, 1);
    EXPECT_EQ(later.readHolding(0, 2), g_pairWords);
    for (auto& client : good) {
        EXPECT_TRUE(isOpenNow(client->fd()));
    }
}

// Raises the soft descriptor limit enough to go past FD_SETSIZE.
bool allowDescriptorsBeyondSelectLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t wanted = FD_SETSIZE + 64;
    if (limit.rlim_cur >= wanted) {
        return true;
    }
    if (limit.rlim_max < wanted) {
        return false;
    }
    limit.rlim_cur = wanted;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

// Occupies every free descriptor below FD_SETSIZE while it lives.
class LowDescriptorsTaken {
public:
    LowDescriptorsTaken()
        : m_null(open("/dev/null", O_RDONLY | O_CLOEXEC))
    {
        for (int taken = 0; taken < FD_SETSIZE; ++taken) {
            const int fd = fcntl(m_null, F_DUPFD_CLOEXEC, 0);
            if (fd == -1 || fd >= FD_SETSIZE) {
                if (fd != -1) {
                    close(fd);
                }
                m_full = fd != -1;
                return;
            }
            m_fds.push_back(fd);
        }
    }
    ~LowDescriptorsTaken()
    {
        for (int fd : m_fds) {
            close(fd);
        }
        close(m_null);
    }
    LowDescriptorsTaken(const LowDescriptorsTaken&) = delete;
    LowDescriptorsTaken& operator=(const LowDescriptorsTaken&) = delete;
    bool full() const { return m_full; }

private:
    int m_null;
    std::vector<int> m_fds;
    bool m_full = false;
};

TEST_F(ModbusServerTcpTest, SocketBeyondSelectLimitIsClosedAndOthersAreServed)
{
    if (!allowDescriptorsBeyondSelectLimit()) {
        GTEST_SKIP() << "the hard descriptor limit is below FD_SETSIZE";
    }
    startWithUnitOne();
    ModbusTcpClient good("127.0.0.1", m_port, 1);
    ASSERT_EQ(good.readHolding(0, 2), g_pairWords);
    {
        LowDescriptorsTaken taken;
        ASSERT_TRUE(taken.full());
        // Both ends of this connection get descriptors beyond FD_SETSIZE.
        RawTcpClient tooHigh("127.0.0.1", m_port);
        ASSERT_TRUE(tooHigh.connected());
        ASSERT_GE(tooHigh.fd(), FD_SETSIZE);
        EXPECT_TRUE(tooHigh.closedByPeerWithin(2s));
        EXPECT_TRUE(m_log.waitForMatching(
            spdlog::level::err, "New Modbus TCP connection from 127\\.0\\.0\\.1 refused! Socket [0-9]+ is beyond the "
                                "1024 sockets select\\(\\) can watch\\."));
        EXPECT_EQ(good.readHolding(0, 2), g_pairWords);
    }
    ModbusTcpClient later("127.0.0.1", m_port, 1);
    EXPECT_EQ(later.readHolding(0, 2), g_pairWords);
    EXPECT_EQ(threadsNamed(g_tcpThreadName), 1);
}

TEST(ModbusServerSelectLimitTest, ListeningSocketBeyondSelectLimitFailsConstruction)
{
    if (!allowDescriptorsBeyondSelectLimit()) {
        GTEST_SKIP() << "the hard descriptor limit is below FD_SETSIZE";
    }
    LowDescriptorsTaken taken;
    ASSERT_TRUE(taken.full());
    std::uint16_t port = 0;
    try {
        makeTcpServer(port);
        FAIL() << "constructor did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  std::string("Impossible to listen on Modbus Tcp socket. Error ") + std::strerror(EMFILE));
    }
}

} // namespace
} // namespace orv::modbus::test
