#pragma once
// Servers on free loopback ports and what the server tests look at around
// them. Defined once in TestServer.cpp: the regular expressions and
// directory walks need not be compiled into every test file.

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusMapsConfiguration.h>
#include <orv/modbus/ModbusServer.h>
#include <orv/modbus/ModbusStatisticHandlers.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orv::modbus::test {

// A server built by `build(port)` on a free port, which is picked again
// when another process takes it in between.
std::unique_ptr<ModbusServer> onFreePort(std::uint16_t& port,
                                         const std::function<std::unique_ptr<ModbusServer>(std::uint16_t)>& build);

// A server listening on a free port, not running yet.
std::unique_ptr<ModbusServer> makeTcpServer(std::uint16_t& port,
                                            std::shared_ptr<ModbusStatisticHandlers> statistics = {},
                                            ModbusServerSettings settings = {});

// Map settings without flags that admit the addresses matching `patterns`.
std::shared_ptr<ModbusMapSettings> allowing(std::shared_ptr<ModbusMap> map, const std::vector<std::string>& patterns);

// Threads of this process whose name is `name`.
int threadsNamed(const std::string& name);

int threadCount();

constexpr const char* g_tcpThreadName = "orv-modbus-tcp";

} // namespace orv::modbus::test
