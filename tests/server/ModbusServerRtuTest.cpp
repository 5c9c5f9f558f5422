// The RTU front end on a real serial line without hardware: a socat
// pseudo-terminal pair, the server on one end, a libmodbus RTU master or raw
// frames on the other.

#include "CountingStatistics.h"
#include "LogCapture.h"
#include "ModbusTcpClient.h"
#include "RtuLine.h"
#include "SocatPair.h"
#include "SpyMap.h"
#include "TestServer.h"
#include "WaitUntil.h"

#include <orv/modbus/ModbusServer.h>

#include <gtest/gtest.h>

#include <modbus/modbus.h>

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;
using orv::test::SocatPair;
using orv::test::TemporaryDirectory;
using orv::test::waitUntil;

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char* g_rtuThreadName = "orv-modbus-rtu";

// A map whose holding register 0 holds `word`, writable, and register 1.
std::shared_ptr<SpyMap> mapHolding(std::uint16_t word)
{
    return std::make_shared<SpyMap>(std::vector<ModbusMapEntry*>{
        new HoldingRegisters(0, new FakeRegistersAccessor(2, {word, 0}), true, "word", "one word", "")});
}

std::shared_ptr<ModbusMapSettings> plain(std::shared_ptr<ModbusMap> map)
{
    return std::make_shared<ModbusMapSettings>(std::move(map), false, false, false, std::vector<std::regex>{});
}

// A libmodbus RTU master on one end of the line.
class RtuMaster {
public:
    RtuMaster(const std::string& path, int baud)
        : m_pContext(modbus_new_rtu(path.c_str(), baud, 'N', 8, 1))
    {
        modbus_set_response_timeout(m_pContext, 0, 500'000);
        if (modbus_connect(m_pContext) == -1) {
            throw std::runtime_error("master cannot open " + path);
        }
    }
    ~RtuMaster()
    {
        modbus_close(m_pContext);
        modbus_free(m_pContext);
    }
    RtuMaster(const RtuMaster&) = delete;
    RtuMaster& operator=(const RtuMaster&) = delete;

    std::optional<std::vector<std::uint16_t>> readHolding(int unit, int address, int count)
    {
        modbus_set_slave(m_pContext, unit);
        std::vector<std::uint16_t> words(static_cast<std::size_t>(count));
        if (modbus_read_registers(m_pContext, address, count, words.data()) != count) {
            return std::nullopt;
        }
        return words;
    }

    bool writeHolding(int unit, int address, const std::vector<std::uint16_t>& words)
    {
        modbus_set_slave(m_pContext, unit);
        const int count = static_cast<int>(words.size());
        return modbus_write_registers(m_pContext, address, count, words.data()) == count;
    }

private:
    modbus_t* m_pContext;
};

// A server on the server end of a fresh socat pair.
class ModbusServerRtuTest : public ::testing::Test {
protected:
    ModbusServerSettings settings(common::BaudRate baud = common::BaudRate::Baud115200) const
    {
        ModbusServerSettings result;
        result.rtuEnabled = true;
        result.rtuDevice = m_pLine->serverEnd();
        result.baudRate = baud;
        return result;
    }

    void start(const ModbusMapsConfiguration& configuration, common::BaudRate baud = common::BaudRate::Baud115200)
    {
        m_pServer = std::make_unique<ModbusServer>(settings(baud), m_pStatistics, false);
        m_pServer->run(configuration);
    }

    void startWithUnitOne(common::BaudRate baud = common::BaudRate::Baud115200)
    {
        ModbusMapsConfiguration configuration;
        configuration.rtuMaps[1] = plain(m_pMap);
        start(configuration, baud);
    }

    // A read of holding register 0 of unit 1 and its expected answer.
    static Bytes readRequest(std::uint8_t unit = 1) { return withCrc({unit, 3, 0, 0, 0, 1}); }
    static Bytes readAnswer(std::uint16_t word) { return withCrc({1, 3, 2, 0, static_cast<std::uint8_t>(word)}); }

    LogCapture m_log;
    TemporaryDirectory m_directory;
    std::unique_ptr<SocatPair> m_pLine = std::make_unique<SocatPair>(m_directory.path(), "line");
    std::shared_ptr<CountingStatistics> m_pStatistics = std::make_shared<CountingStatistics>();
    std::shared_ptr<SpyMap> m_pMap = mapHolding(7);
    std::unique_ptr<ModbusServer> m_pServer;
};

// The reason for the server's own frame reader: with slave address 0,
// libmodbus's receive drops frames for every other unit id (and then reads
// what follows as that unit's answer, out of step with the frames).
TEST_F(ModbusServerRtuTest, LibmodbusReceiveWithSlaveZeroDropsFramesForOtherUnits)
{
    modbus_t* context = modbus_new_rtu(m_pLine->serverEnd().c_str(), 115200, 'N', 8, 1);
    modbus_set_slave(context, 0);
    modbus_set_indication_timeout(context, 1, 0);
    ASSERT_NE(modbus_connect(context), -1);
    RawRtuLine master(m_pLine->masterEnd());
    std::uint8_t query[MODBUS_RTU_MAX_ADU_LENGTH];

    master.send(readRequest(0));
    EXPECT_EQ(modbus_receive(context, query), 8);
    master.send(readRequest(1));
    EXPECT_EQ(modbus_receive(context, query), 0);
    modbus_close(context);
    modbus_free(context);
}

TEST_F(ModbusServerRtuTest, UnitsOneSeventeenAndTwoHundredFortySevenAreEachAnsweredFromTheirMap)
{
    ModbusMapsConfiguration configuration;
    for (const std::uint16_t unit : {1, 17, 247}) {
        configuration.rtuMaps[unit] = plain(mapHolding(unit));
    }
    start(configuration);
    RtuMaster master(m_pLine->masterEnd(), 115200);
    for (const std::uint16_t unit : {1, 17, 247}) {
        EXPECT_EQ(master.readHolding(unit, 0, 1), (std::vector<std::uint16_t>{unit})) << "unit " << unit;
    }
    EXPECT_TRUE(master.writeHolding(17, 1, {1234}));
    EXPECT_EQ(master.readHolding(17, 1, 1), (std::vector<std::uint16_t>{1234}));
    EXPECT_EQ(master.readHolding(2, 0, 1), std::nullopt);
    EXPECT_EQ(m_pStatistics->rtuRequestProcessed, 5);
    EXPECT_EQ(m_pStatistics->rtuBadDeviceId, 1);
}

TEST_F(ModbusServerRtuTest, ReadOfEightBytesIsProcessedAndOneByteMoreIsCountedAsCrcError)
{
    startWithUnitOne();
    RawRtuLine master(m_pLine->masterEnd());
    master.send(readRequest());
    EXPECT_EQ(master.receive(), readAnswer(7));

    master.send(withCrc({1, 3, 0, 0, 0, 1, 0}));
    EXPECT_TRUE(master.receive(300ms).empty());
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuCrcError == 1; }, 2s));
    EXPECT_EQ(m_pStatistics->rtuRequestReceived, 2);
    EXPECT_EQ(m_pStatistics->rtuRequestAccepted, 1);
}

TEST_F(ModbusServerRtuTest, WriteOfFourDataBytesIsProcessedOnlyAsThirteenBytes)
{
    startWithUnitOne();
    RawRtuLine master(m_pLine->masterEnd());
    const Bytes write = withCrc({1, 16, 0, 0, 0, 2, 4, 0, 9, 0, 10});
    ASSERT_EQ(write.size(), 13U);
    master.send(write);
    EXPECT_EQ(master.receive(), withCrc({1, 16, 0, 0, 0, 2}));

    master.send(withCrc({1, 16, 0, 0, 0, 2, 4, 0, 9, 0, 10, 0}));
    EXPECT_TRUE(master.receive(300ms).empty());
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuCrcError == 1; }, 2s));
    EXPECT_EQ(m_pStatistics->rtuRequestProcessed, 1);
}

TEST_F(ModbusServerRtuTest, FrameForUnit250CountsBadDeviceIdWithoutAnswer)
{
    startWithUnitOne();
    RawRtuLine master(m_pLine->masterEnd());
    master.send(withCrc({250, 3, 0, 0, 0, 1}));
    EXPECT_TRUE(master.receive(300ms).empty());
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuBadDeviceId == 1; }, 2s));
    EXPECT_EQ(m_pStatistics->rtuRequestAccepted, 0);
}

TEST_F(ModbusServerRtuTest, WrongCrcIsCountedAndUnanswered)
{
    startWithUnitOne();
    RawRtuLine master(m_pLine->masterEnd());
    Bytes frame = readRequest();
    frame.back() ^= 0x5A;
    master.send(frame);
    EXPECT_TRUE(master.receive(300ms).empty());
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuCrcError == 1; }, 2s));
    EXPECT_EQ(m_pStatistics->rtuRequestReceived, 0);
    master.send(readRequest());
    EXPECT_EQ(master.receive(), readAnswer(7));
}

// At 1200 bit/s the silent interval is 3.5 characters of 10 bits: 29 ms.
TEST_F(ModbusServerRtuTest, PauseShorterThanTheSilentIntervalKeepsOneFrame)
{
    startWithUnitOne(common::BaudRate::Baud1200);
    RawRtuLine master(m_pLine->masterEnd());
    const Bytes frame = readRequest();
    master.send(Bytes(frame.begin(), frame.begin() + 4));
    std::this_thread::sleep_for(5ms);
    master.send(Bytes(frame.begin() + 4, frame.end()));
    EXPECT_EQ(master.receive(), readAnswer(7));
}

TEST_F(ModbusServerRtuTest, PauseLongerThanTheSilentIntervalCutsTheFrameInTwo)
{
    startWithUnitOne(common::BaudRate::Baud1200);
    RawRtuLine master(m_pLine->masterEnd());
    const Bytes frame = readRequest();
    master.send(Bytes(frame.begin(), frame.begin() + 4));
    std::this_thread::sleep_for(150ms);
    master.send(Bytes(frame.begin() + 4, frame.end()));
    EXPECT_TRUE(master.receive(300ms).empty());
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuCrcError == 2; }, 2s));
    EXPECT_EQ(m_pStatistics->rtuRequestReceived, 0);
}

TEST_F(ModbusServerRtuTest, GarbageBetweenFramesCostsOnlyItself)
{
    startWithUnitOne();
    RawRtuLine master(m_pLine->masterEnd());
    master.send(readRequest());
    EXPECT_EQ(master.receive(), readAnswer(7));
    master.send({0xFF, 0x00, 0x13, 0x37, 0x42});
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuCrcError == 1; }, 2s));
    master.send(readRequest());
    EXPECT_EQ(master.receive(), readAnswer(7));
    EXPECT_EQ(m_pStatistics->rtuRequestProcessed, 2);
}

TEST_F(ModbusServerRtuTest, BroadcastWriteIsAppliedWithoutAnswer)
{
    auto broadcast = mapHolding(5);
    ModbusMapsConfiguration configuration;
    configuration.rtuMaps[0] = plain(broadcast);
    configuration.rtuMaps[1] = plain(broadcast);
    start(configuration);
    RawRtuLine master(m_pLine->masterEnd());
    master.send(withCrc({0, 6, 0, 0, 0, 42}));
    EXPECT_TRUE(master.receive(300ms).empty());
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuRequestProcessed == 1; }, 2s));
    master.send(readRequest());
    EXPECT_EQ(master.receive(), readAnswer(42));
}

TEST_F(ModbusServerRtuTest, BroadcastWithoutMapForUnitZeroIsDropped)
{
    startWithUnitOne();
    RawRtuLine master(m_pLine->masterEnd());
    master.send(withCrc({0, 6, 0, 0, 0, 42}));
    EXPECT_TRUE(master.receive(300ms).empty());
    EXPECT_TRUE(waitUntil([this] { return m_pStatistics->rtuBadDeviceId == 1; }, 2s));
    master.send(readRequest());
    EXPECT_EQ(master.receive(), readAnswer(7));
}

TEST_F(ModbusServerRtuTest, ExceptionWhileProcessingIsLoggedAndTheNextFrameServed)
{
    startWithUnitOne();
    bool thrown = false;
    m_pMap->setBeforeReply([&thrown] {
        if (!std::exchange(thrown, true)) {
            throw std::runtime_error("map broken");
        }
    });
    RawRtuLine master(m_pLine->masterEnd());
    master.send(readRequest());
    EXPECT_TRUE(m_log.waitFor("processRequest exception", 2s));
    EXPECT_EQ(m_pStatistics->rtuRequestProcessed + m_pStatistics->rtuRequestRefused, 0);
    master.send(readRequest());
    EXPECT_EQ(master.receive(), readAnswer(7));
}

// The stop wakes the thread in its poll of the quiet line: without that
// wake-up it would wait out the rest of its one-second poll.
TEST_F(ModbusServerRtuTest, StopOnAQuietLineEndsTheThreadAtOnceAfterOneReceiveError)
{
    startWithUnitOne();
    ASSERT_TRUE(waitUntil([] { return threadsNamed(g_rtuThreadName) == 1; }, 2s));
    const auto started = Clock::now();
    m_pServer->stop();
    EXPECT_LT(Clock::now() - started, 500ms);
    EXPECT_TRUE(noThreadNamed(g_rtuThreadName));
    EXPECT_EQ(m_pStatistics->rtuReceiveError, 1);
    EXPECT_EQ(m_pStatistics->rtuCalls, 1);
    EXPECT_TRUE(m_log.indexOf("Exit handlerRtu thread") < m_log.indexOf("Close rtu connection"));
}

TEST_F(ModbusServerRtuTest, TcpDisabledRunStartsOnlyTheRtuThread)
{
    startWithUnitOne();
    EXPECT_TRUE(waitUntil([] { return threadsNamed(g_rtuThreadName) == 1; }, 2s));
    EXPECT_EQ(threadsNamed(g_tcpThreadName), 0);
    m_pServer->stop();
    EXPECT_EQ(m_log.count("Close rtu connection"), 1u);
    EXPECT_FALSE(m_log.contains("Close tcp connection"));
}

// Both threads are woken from their one-second waits by the stop.
TEST_F(ModbusServerRtuTest, DestroyingARunningServerEndsBothThreadsAtOnce)
{
    ModbusServerSettings both = settings();
    std::uint16_t port = 0;
    auto server = makeTcpServer(port, m_pStatistics, both);
    ModbusMapsConfiguration configuration;
    configuration.rtuMaps[1] = plain(m_pMap);
    configuration.tcpMaps[1] = allowing(m_pMap, {"^127\\.0\\.0\\.1$"});
    server->run(configuration);
    ASSERT_TRUE(waitUntil([] { return threadsNamed(g_rtuThreadName) == 1 && threadsNamed(g_tcpThreadName) == 1; },
                          2s));
    const auto started = Clock::now();
    server.reset();
    EXPECT_LT(Clock::now() - started, 500ms);
    EXPECT_TRUE(noThreadNamed(g_rtuThreadName));
    EXPECT_TRUE(noThreadNamed(g_tcpThreadName));
}

// An unplugged adapter: the line goes away under the running server and
// comes back on the same path.
TEST_F(ModbusServerRtuTest, UnpluggedLineIsReopenedWhileTcpIsServedThroughout)
{
    std::uint16_t port = 0;
    auto server = makeTcpServer(port, m_pStatistics, settings());
    ModbusMapsConfiguration configuration;
    configuration.rtuMaps[1] = plain(m_pMap);
    configuration.tcpMaps[1] = allowing(m_pMap, {"^127\\.0\\.0\\.1$"});
    server->run(configuration);
    ModbusTcpClient tcp("127.0.0.1", port, 1);
    // The first contact is retried: on a loaded machine the new thread may
    // answer after the master's half-second response timeout.
    const auto answersSeven = [](RtuMaster& master) {
        return waitUntil([&] { return master.readHolding(1, 0, 1) == std::vector<std::uint16_t>{7}; }, 5s);
    };
    {
        RtuMaster master(m_pLine->masterEnd(), 115200);
        ASSERT_TRUE(answersSeven(master));
    }
    const std::string goneLine = "Modbus RTU device " + m_pLine->serverEnd() + " is gone. Reopening it every second.";
    const std::string backLine = "Modbus RTU device " + m_pLine->serverEnd() + " is back.";
    m_pLine.reset();
    ASSERT_TRUE(m_log.waitForAt(spdlog::level::warn, goneLine, 2s));
    EXPECT_EQ(m_pStatistics->rtuReceiveError, 1);
    ASSERT_TRUE(tcp.readHolding(0, 1).has_value());

    m_pLine = std::make_unique<SocatPair>(m_directory.path(), "line");
    ASSERT_TRUE(m_log.waitFor(backLine, 3s));
    EXPECT_EQ(m_log.count(goneLine), 1u);
    RtuMaster master(m_pLine->masterEnd(), 115200);
    EXPECT_TRUE(answersSeven(master));
    EXPECT_TRUE(tcp.readHolding(0, 1).has_value());

    // Stop still ends the thread promptly while the line is away.
    m_pLine.reset();
    ASSERT_TRUE(waitUntil([this, &goneLine] { return m_log.count(goneLine) == 2; }, 2s));
    const auto started = Clock::now();
    server->stop();
    EXPECT_LT(Clock::now() - started, 1500ms);
}

} // namespace
} // namespace orv::modbus::test
