// Clients that send a request slowly, in parts, or never finish it: the
// handler waits for the rest without blocking anyone else, and gives up on
// it after TcpFrontEnd::g_requestTimeLimit.

#include "LogCapture.h"
#include "ModbusSocketPair.h"
#include "ModbusTcpClient.h"
#include "NamedParameter.h"
#include "RawTcpClient.h"
#include "RequestLength.h"
#include "SpyMap.h"
#include "TestServer.h"
#include "ProcessCpuTime.h"
#include "WaitUntil.h"

#include <orv/modbus/ModbusServer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <thread>

#include <modbus/modbus.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv::modbus::test {
namespace {

using namespace std::chrono_literals;
using orv::test::LogCapture;
using orv::test::waitUntil;
using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

// What the test map answers to RawTcpClient::readHoldingFrame(1, 0, 2).
const Bytes g_pairReply{0, 1, 0, 0, 0, 7, 1, 3, 4, 0, 11, 0, 12};
const std::string g_incompleteLine = "Modbus TCP connection from 127.0.0.1 closed: incomplete request.";
const std::string g_closedLine = "Modbus TCP connection from 127.0.0.1 closed.";
const std::string g_acceptedLine = "New Modbus TCP connection from 127.0.0.1 accepted.";
// Long enough for the handler to notice a request past its time limit.
constexpr auto g_requestTimeLimitWithSlack =
    std::chrono::duration_cast<std::chrono::milliseconds>(TcpFrontEnd::g_requestTimeLimit) + 500ms;

// ---------------------------------------------------------------------------
// tcpRequestLength against what libmodbus really reads.

// A libmodbus TCP context reading requests from one end of a socket pair.
class LibmodbusReader {
public:
    LibmodbusReader()
    {
        // A byte that never comes shows as a timeout, and soon.
        modbus_set_byte_timeout(m_wire.server(), 0, 10000);
    }

    // modbus_receive's result once `count` bytes of `bytes` were written;
    // errno tells its error.
    int receive(const Bytes& bytes, std::size_t count)
    {
        if (write(m_wire.clientSocket(), bytes.data(), count) != static_cast<ssize_t>(count)) {
            return -2;
        }
        std::uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH] = {};
        return modbus_receive(m_wire.server(), query);
    }

    // Bytes libmodbus left unread.
    std::size_t leftOver() const
    {
        std::uint8_t rest[512];
        const ssize_t count = recv(m_wire.serverSocket(), rest, sizeof(rest), MSG_DONTWAIT);
        return count > 0 ? static_cast<std::size_t>(count) : 0;
    }

private:
    orv::test::ModbusSocketPair m_wire;
};

// A request for unit 1 with `function`, whose byte counts (where the writes
// of many values have theirs) say `count`, followed by more zeros than any
// request reads.
Bytes requestWith(std::uint8_t function, std::uint8_t count)
{
    Bytes bytes(2 * MODBUS_TCP_MAX_ADU_LENGTH, 0);
    bytes[5] = 6;
    bytes[6] = 1;
    bytes[7] = function;
    bytes[12] = count;
    bytes[16] = count;
    return bytes;
}

TEST(TcpRequestLengthTest, IsWhatLibmodbusReadsForEveryFunctionCode)
{
    for (int function = 0; function < 256; ++function) {
        for (const std::uint8_t count : {0, 1, 4, 200, 255}) {
            const Bytes request = requestWith(static_cast<std::uint8_t>(function), count);
            const std::size_t length = tcpRequestLength(request.data(), request.size());
            ASSERT_LE(length, MODBUS_TCP_MAX_ADU_LENGTH);
            LibmodbusReader reader;
            const int received = reader.receive(request, length);
            const int error = errno;
            // libmodbus either takes exactly these bytes as the request or
            // refuses one that would not fit a frame, once it has read them.
            if (received == -1) {
                EXPECT_EQ(error, EMBBADDATA) << "function " << function << " count " << int(count);
            } else {
                EXPECT_EQ(received, static_cast<int>(length)) << "function " << function << " count " << int(count);
            }
            EXPECT_EQ(reader.leftOver(), 0U) << "function " << function << " count " << int(count);
        }
    }
}

TEST(TcpRequestLengthTest, OneByteLessMakesLibmodbusWait)
{
    for (const int function : {0, 3, 6, 7, 15, 16, 17, 22, 23, 43, 255}) {
        for (const std::uint8_t count : {0, 4, 255}) {
            const Bytes request = requestWith(static_cast<std::uint8_t>(function), count);
            const std::size_t length = tcpRequestLength(request.data(), request.size());
            LibmodbusReader reader;
            EXPECT_EQ(reader.receive(request, length - 1), -1) << "function " << function << " count " << int(count);
            EXPECT_EQ(errno, ETIMEDOUT) << "function " << function << " count " << int(count);
        }
    }
}

TEST(TcpRequestLengthTest, TooFewBytesAskForWhatTellsMore)
{
    const Bytes write = requestWith(MODBUS_FC_WRITE_MULTIPLE_REGISTERS, 4);
    // The MBAP header and the function code first.
    EXPECT_EQ(tcpRequestLength(write.data(), 0), 8U);
    EXPECT_EQ(tcpRequestLength(write.data(), 7), 8U);
    // Then the fields up to the byte count.
    EXPECT_EQ(tcpRequestLength(write.data(), 8), 13U);
    EXPECT_EQ(tcpRequestLength(write.data(), 12), 13U);
    // Then the data it announces.
    EXPECT_EQ(tcpRequestLength(write.data(), 13), 17U);
    EXPECT_EQ(tcpRequestLength(write.data(), 17), 17U);
    EXPECT_EQ(tcpRequestLength(write.data(), 100), 17U);
}

TEST(TcpRequestLengthTest, IgnoresTheMbapLengthAsLibmodbusDoes)
{
    Bytes read = RawTcpClient::readHoldingFrame(1, 0, 2);
    read[5] = 200;
    EXPECT_EQ(tcpRequestLength(read.data(), read.size()), 12U);
    read[5] = 1;
    EXPECT_EQ(tcpRequestLength(read.data(), read.size()), 12U);
}

// ---------------------------------------------------------------------------
// The server with slow and broken clients.

// Sends the first `burst` bytes of `frame` at once, then the rest one byte
// at a time, g_interval apart, on its own thread until all of it is sent, a
// send fails or the dripper is destroyed.
class Dripper {
public:
    static constexpr auto g_interval = 300ms;

    Dripper(const RawTcpClient& client, Bytes frame, std::size_t burst = 1)
        : m_started(Clock::now())
        , m_thread([this, &client, frame = std::move(frame), burst](std::stop_token stop) {
            drip(stop, client, frame, burst);
        })
    {
    }

    // Taken just before the first bytes were sent.
    Clock::time_point started() const { return m_started; }

private:
    void drip(std::stop_token stop, const RawTcpClient& client, const Bytes& frame, std::size_t burst)
    {
        std::mutex mutex;
        std::condition_variable_any paced;
        for (std::size_t sent = 0; sent < frame.size();) {
            const std::size_t next = sent == 0 ? std::min(burst, frame.size()) : sent + 1;
            if (!client.send({frame.begin() + static_cast<long>(sent), frame.begin() + static_cast<long>(next)})) {
                return;
            }
            sent = next;
            std::unique_lock lock(mutex);
            // Paces the drip; ends early when the dripper goes away.
            if (paced.wait_for(lock, stop, g_interval, [] { return false; }) || stop.stop_requested()) {
                return;
            }
        }
    }

    const Clock::time_point m_started;
    std::jthread m_thread;
};

using orv::test::g_byName;
using orv::test::PrintTo;

// Read holding registers 0-1 of unit 1, the MBAP header saying so.
const Bytes g_readFrame = RawTcpClient::readHoldingFrame(1, 0, 2);

// A request sent slowly: `burst` bytes at once, then a byte at a time.
struct SlowRequest {
    std::string name;
    Bytes frame;
    std::size_t burst;
};

// Write multiple registers whose MBAP header says 6 bytes follow while its
// byte count announces 200 data bytes; its first 13 bytes come at once.
// libmodbus goes by the byte count: a server that took the header's word
// for the length would hand it over right away, and libmodbus would then
// wait for the data byte by byte.
SlowRequest lyingWrite()
{
    Bytes frame{0, 2, 0, 0, 0, 6, 1, 0x10, 0, 0, 0, 100, 200};
    frame.resize(frame.size() + 200, 0);
    return {"LyingWrite", frame, 13};
}

// A running server whose unit 1 admits 127.0.0.1.
class ModbusServerSlowClientTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_pServer = makeTcpServer(m_port);
        ModbusMapsConfiguration configuration;
        configuration.tcpMaps[1] = allowing(m_pMap, {"^127\\.0\\.0\\.1$"});
        m_pServer->run(configuration);
    }

    bool waitForAccepted(std::size_t clients) const
    {
        return waitUntil([&] { return m_log.count(g_acceptedLine) == clients; }, 2s);
    }

    LogCapture m_log;
    std::shared_ptr<SpyMap> m_pMap = makeSpyMap();
    std::uint16_t m_port = 0;
    std::unique_ptr<ModbusServer> m_pServer;
};

class ModbusServerSlowDripTest : public ModbusServerSlowClientTest,
                                 public ::testing::WithParamInterface<SlowRequest> {};

TEST_P(ModbusServerSlowDripTest, OthersAreServedMeanwhileAndTheDripperIsClosedAfterTheLimit)
{
    ModbusTcpClient good("127.0.0.1", m_port, 1);
    ASSERT_EQ(good.readHolding(0, 2), g_pairWords);
    RawTcpClient slow("127.0.0.1", m_port);
    ASSERT_TRUE(slow.connected());
    ASSERT_TRUE(waitForAccepted(2));

    Dripper dripper(slow, GetParam().frame, GetParam().burst);
    const Clock::time_point giveUp = dripper.started() + g_requestTimeLimitWithSlack;
    Clock::duration slowest{};
    std::size_t reads = 0;
    // One read every 50 ms while the dripper is connected (bounded).
    while (!m_log.contains(g_incompleteLine) && Clock::now() < giveUp) {
        const auto asked = Clock::now();
        ASSERT_EQ(good.readHolding(0, 2), g_pairWords);
        slowest = std::max(slowest, Clock::now() - asked);
        ++reads;
        std::this_thread::sleep_until(asked + 50ms);
    }
    const Clock::duration closedAfter = Clock::now() - dripper.started();

    ASSERT_TRUE(m_log.contains(g_incompleteLine));
    EXPECT_TRUE(slow.closedByPeerWithin(500ms));
    // Not before the limit, and soon after it.
    EXPECT_GE(closedAfter, TcpFrontEnd::g_requestTimeLimit);
    EXPECT_LT(closedAfter, g_requestTimeLimitWithSlack);
    EXPECT_LT(slowest, 600ms);
    EXPECT_GE(reads, 10U);
    // The dripped request never reached the map.
    EXPECT_EQ(m_pMap->calls().size(), reads + 1);
    EXPECT_EQ(good.readHolding(0, 2), g_pairWords);
}

INSTANTIATE_TEST_SUITE_P(Requests, ModbusServerSlowDripTest,
                         ::testing::Values(SlowRequest{"Read", g_readFrame, 1}, lyingWrite()),
                         g_byName);

TEST_F(ModbusServerSlowClientTest, StopDuringASlowDripEndsTheThreadQuickly)
{
    RawTcpClient slow("127.0.0.1", m_port);
    ASSERT_TRUE(slow.connected());
    ASSERT_TRUE(waitForAccepted(1));
    Dripper dripper(slow, g_readFrame);
    ASSERT_TRUE(m_log.waitForMatching(spdlog::level::debug, "We receive a request from a socket [0-9]+"));

    const auto asked = Clock::now();
    m_pServer->stop();
    EXPECT_LT(Clock::now() - asked, 1500ms);
    EXPECT_TRUE(m_log.contains("Exit handlerTcp thread"));
    EXPECT_TRUE(noThreadNamed(g_tcpThreadName));
    EXPECT_TRUE(slow.closedByPeerWithin(1s));
    EXPECT_TRUE(m_pMap->calls().empty());
}

struct SplitRequest {
    std::string name;
    Bytes frame;
    std::size_t firstBurst;
    Bytes reply;
};

class ModbusServerBurstTest : public ModbusServerSlowClientTest,
                              public ::testing::WithParamInterface<SplitRequest> {};

TEST_P(ModbusServerBurstTest, RequestInTwoBurstsIsAnswered)
{
    const SplitRequest& request = GetParam();
    RawTcpClient client("127.0.0.1", m_port);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(waitForAccepted(1));

    ASSERT_TRUE(client.send({request.frame.begin(), request.frame.begin() + request.firstBurst}));
    // The second burst follows after a pause well within the limit.
    std::this_thread::sleep_for(100ms);
    ASSERT_TRUE(client.send({request.frame.begin() + request.firstBurst, request.frame.end()}));

    EXPECT_EQ(client.receive(1s), request.reply);
    EXPECT_EQ(m_pMap->calls().size(), 1U);
    EXPECT_TRUE(isOpenNow(client.fd()));
    EXPECT_FALSE(m_log.contains(g_incompleteLine));
}

INSTANTIATE_TEST_SUITE_P(
    Splits, ModbusServerBurstTest,
    ::testing::Values(
        // Inside the MBAP header.
        SplitRequest{"InsideTheHeader", g_readFrame, 5, g_pairReply},
        // Right after the function code.
        SplitRequest{"AfterTheFunctionCode", g_readFrame, 8, g_pairReply},
        // Write register 10 with 0x1234, split inside its data.
        SplitRequest{"InsideTheDataOfAWrite",
                     {0, 2, 0, 0, 0, 9, 1, 0x10, 0, 10, 0, 1, 2, 0x12, 0x34},
                     14,
                     {0, 2, 0, 0, 0, 6, 1, 0x10, 0, 10, 0, 1}}),
    g_byName);

// libmodbus 3.1.6 ignores the protocol id and the length of the MBAP header:
// such requests are answered as they always were.
struct NamedFrame {
    std::string name;
    Bytes frame;
};

class ModbusServerMbapTest : public ModbusServerSlowClientTest, public ::testing::WithParamInterface<NamedFrame> {};

TEST_P(ModbusServerMbapTest, InvalidHeaderIsLeftToLibmodbusAsBefore)
{
    RawTcpClient client("127.0.0.1", m_port);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(client.send(GetParam().frame));
    EXPECT_EQ(client.receive(1s), g_pairReply);
    EXPECT_TRUE(isOpenNow(client.fd()));
}

NamedFrame readFrameWithHeader(std::string name, std::size_t index, std::uint8_t value)
{
    Bytes frame = g_readFrame;
    frame[index] = value;
    return {std::move(name), frame};
}

INSTANTIATE_TEST_SUITE_P(Headers, ModbusServerMbapTest,
                         ::testing::Values(readFrameWithHeader("ProtocolId7", 3, 7),
                                           readFrameWithHeader("Length0", 5, 0),
                                           readFrameWithHeader("Length1", 5, 1),
                                           readFrameWithHeader("Length255", 5, 255)),
                         g_byName);

TEST_F(ModbusServerSlowClientTest, RequestLibmodbusRefusesClosesTheConnectionAtOnce)
{
    ModbusTcpClient good("127.0.0.1", m_port, 1);
    ASSERT_TRUE(good.connected());
    RawTcpClient client("127.0.0.1", m_port);
    ASSERT_TRUE(client.connected());
    // Write multiple registers announcing 255 data bytes: more than a frame
    // holds. libmodbus refuses it once it has read the byte count.
    ASSERT_TRUE(client.send({0, 1, 0, 0, 0, 0xFF, 1, 0x10, 0, 0, 0, 0x7F, 0xFF}));

    EXPECT_TRUE(client.closedByPeerWithin(500ms));
    EXPECT_TRUE(m_log.waitFor(g_closedLine, 500ms));
    EXPECT_FALSE(m_log.contains(g_incompleteLine));
    EXPECT_EQ(good.readHolding(0, 2), g_pairWords);
}

TEST_F(ModbusServerSlowClientTest, PeerThatShutsDownMidRequestIsClosedAtOnce)
{
    RawTcpClient client("127.0.0.1", m_port);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(waitForAccepted(1));
    ASSERT_TRUE(client.send({g_readFrame.begin(), g_readFrame.begin() + 9}));
    ASSERT_TRUE(m_log.waitForMatching(spdlog::level::debug, "We receive a request from a socket [0-9]+"));
    shutdown(client.fd(), SHUT_WR);

    // libmodbus reads what there is and sees the end, well before the limit.
    EXPECT_TRUE(client.closedByPeerWithin(500ms));
    EXPECT_TRUE(m_log.waitFor(g_closedLine, 500ms));
    EXPECT_FALSE(m_log.contains(g_incompleteLine));
    EXPECT_TRUE(m_pMap->calls().empty());
}

TEST_F(ModbusServerSlowClientTest, HalfClosedClientWithACompleteRequestIsAnswered)
{
    RawTcpClient client("127.0.0.1", m_port);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(client.send(g_readFrame));
    shutdown(client.fd(), SHUT_WR);

    EXPECT_EQ(client.receive(1s), g_pairReply);
    EXPECT_TRUE(m_log.waitFor(g_closedLine, 1s));
}

TEST_F(ModbusServerSlowClientTest, IncompleteRequestDoesNotMakeTheHandlerSpin)
{
    RawTcpClient client("127.0.0.1", m_port);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(waitForAccepted(1));
    const auto before = processCpuTime();

    ASSERT_TRUE(client.send({g_readFrame.begin(), g_readFrame.begin() + 9}));
    ASSERT_TRUE(m_log.waitFor(g_incompleteLine, g_requestTimeLimitWithSlack));
    const auto after = processCpuTime();
    // Spinning for the whole second would cost about that much CPU time.
    EXPECT_LT(after - before, 250ms);
    EXPECT_TRUE(client.closedByPeerWithin(500ms));
}

} // namespace
} // namespace orv::modbus::test
