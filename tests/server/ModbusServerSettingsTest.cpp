#include "LogCapture.h"
#include "TestServer.h"

#include <orv/modbus/ModbusServer.h>
#include <orv/modbus/ModbusServerSettings.h>

#include <gtest/gtest.h>

namespace orv::modbus::test {
namespace {

using orv::test::LogCapture;

common::BaudRate baud(int value)
{
    return static_cast<common::BaudRate>(value);
}

common::Parity parity(int value)
{
    return static_cast<common::Parity>(value);
}

TEST(ModbusServerSettingsTest, BaudTableGivesEachSpeed)
{
    const int expected[] = {1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};
    for (int value = 1; value <= 8; ++value) {
        EXPECT_EQ(getBaudForLib(baud(value)), expected[value - 1]) << "value " << value;
    }
}

TEST(ModbusServerSettingsTest, UnknownBaudFallsBackTo9600)
{
    EXPECT_EQ(getBaudForLib(baud(0)), 9600);
    EXPECT_EQ(getBaudForLib(baud(9)), 9600);
    EXPECT_EQ(getBaudForLib(baud(-1)), 9600);
    EXPECT_EQ(getBaudForLib(baud(1000)), 9600);
    EXPECT_EQ(getBaudForLib(common::BaudRate::Baud9600), 9600);
    EXPECT_EQ(getBaudForLib(baud(4)), 9600);
}

TEST(ModbusServerSettingsTest, ParityLetters)
{
    EXPECT_EQ(getParityForLib(parity(1)), 'N');
    EXPECT_EQ(getParityForLib(parity(2)), 'E');
    EXPECT_EQ(getParityForLib(parity(3)), 'O');
    EXPECT_EQ(getParityForLib(parity(4)), 'N');
    EXPECT_EQ(getParityForLib(parity(0)), 'N');
    EXPECT_EQ(getParityForLib(parity(-1)), 'N');
    EXPECT_EQ(getParityForLib(common::Parity::Even), 69);
    EXPECT_EQ(getParityForLib(common::Parity::Odd), 79);
}

TEST(ModbusServerSettingsTest, BothFrontEndsDisabledGivesDisabledServerWithoutThreads)
{
    LogCapture log;
    ModbusServerSettings settings;
    settings.tcpEnabled = false;
    settings.rtuEnabled = false;
    ModbusServer server(settings, false);
    EXPECT_FALSE(server.isEnabled());

    const int threadsBefore = threadCount();
    server.run(ModbusMapsConfiguration());
    EXPECT_EQ(threadCount(), threadsBefore);
    server.stop();
    EXPECT_FALSE(log.contains("Close tcp connection"));
    EXPECT_FALSE(log.contains("Close rtu connection"));
}

TEST(ModbusServerSettingsTest, TcpFrontEndMakesServerEnabled)
{
    std::uint16_t port = 0;
    auto server = makeTcpServer(port);
    EXPECT_TRUE(server->isEnabled());
}

} // namespace
} // namespace orv::modbus::test
