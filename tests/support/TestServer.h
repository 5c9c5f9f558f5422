#pragma once
// Servers on free loopback ports and what the server tests look at around
// them. Defined once in TestServer.cpp: the regular expressions and
// directory walks need not be compiled into every test file.

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusMapsConfiguration.h>
#include <orv/modbus/ModbusServer.h>
#include <orv/modbus/ModbusStatisticHandlers.h>

#include "LogCapture.h"
#include "StatisticsNotifier.h"
#include "TcpFrontEnd.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace orv::modbus::test {

// Calls `open(port)` with a free port, which is picked again when another
// process takes it in between.
void onFreePort(std::uint16_t& port, const std::function<void(std::uint16_t)>& open);

// A server listening on a free port, not running yet.
std::unique_ptr<ModbusServer> makeTcpServer(std::uint16_t& port,
                                            std::shared_ptr<ModbusStatisticHandlers> statistics = {},
                                            ModbusServerSettings settings = {});

// A TCP front end listening on a free port, not serving yet.
std::unique_ptr<TcpFrontEnd> makeTcpFrontEnd(std::uint16_t& port);

// A TCP front end served by its own thread, as a server's would be.
class ServedTcpFrontEnd {
public:
    ServedTcpFrontEnd(std::unique_ptr<TcpFrontEnd> frontEnd, const ModbusMapSettingsTable& maps,
                      std::shared_ptr<ModbusStatisticHandlers> statistics);

private:
    std::unique_ptr<TcpFrontEnd> m_pFrontEnd;
    std::jthread m_handler;
};

// Map settings without flags that admit the addresses matching `patterns`.
std::shared_ptr<ModbusMapSettings> allowing(std::shared_ptr<ModbusMap> map, const std::vector<std::string>& patterns);

// Threads of this process whose name is `name`.
int threadsNamed(const std::string& name);

// Whether no thread of this process is named `name`, waiting a moment for
// it: a joined thread's task leaves /proc shortly after the join returns (the
// kernel wakes the joiner on the way out, and under qemu-user the emulator's
// own thread ends later still).
bool noThreadNamed(const std::string& name);

int threadCount();

// Whether the TCP handler's scan of its sockets said it ended before the
// handler's loop did, as a stop must let it.
::testing::AssertionResult scanExitedBeforeLoop(const orv::test::LogCapture& log);

constexpr const char* g_tcpThreadName = "orv-modbus-tcp";

} // namespace orv::modbus::test
