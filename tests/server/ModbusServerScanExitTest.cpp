#include "LogCapture.h"
#include "RawTcpClient.h"
#include "SpyMap.h"
#include "TestServer.h"

#include <orv/modbus/ModbusServer.h>

#include <gtest/gtest.h>

namespace orv::modbus::test {
namespace {

using namespace std::chrono_literals;
using orv::test::LogCapture;

// A stop request that arrives while the handler waits for the rest of a
// request from the highest socket still ends the scan with its own message
// before the loop ends, although no socket is left to scan after it.
TEST(ModbusServerScanExitTest, StopDuringReceiveOnTheLastSocketLogsTheScanExit)
{
    LogCapture log;
    std::uint16_t port = 0;
    auto server = makeTcpServer(port);
    ModbusMapsConfiguration configuration;
    configuration.tcpMaps[1] = allowing(makeSpyMap(), {"^127\\.0\\.0\\.1$"});
    server->run(configuration);

    RawTcpClient client("127.0.0.1", port);
    ASSERT_TRUE(client.connected());
    ASSERT_TRUE(log.waitFor("New Modbus TCP connection from 127.0.0.1 accepted."));
    // The start of a request: the handler looks for the rest of it on every
    // pass, scanning up to this socket again and again.
    const auto frame = RawTcpClient::readHoldingFrame(1, 0, 1);
    ASSERT_TRUE(client.send({frame.begin(), frame.begin() + 3}));
    ASSERT_TRUE(log.waitForMatching(spdlog::level::debug, "We receive a request from a socket [0-9]+"));
    server->stop();

    EXPECT_TRUE(scanExitedBeforeLoop(log));
    EXPECT_TRUE(client.closedByPeerWithin(1s));
}

} // namespace
} // namespace orv::modbus::test
