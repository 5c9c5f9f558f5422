#pragma once

#include "FreePort.h"

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusMapsConfiguration.h>
#include <orv/modbus/ModbusServer.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace orv::modbus::test {

// A server built by `build(port)` on a free port, which is picked again
// when another process takes it in between.
template <class Build>
std::unique_ptr<ModbusServer> onFreePort(std::uint16_t& port, Build build)
{
    const std::string inUse = std::strerror(EADDRINUSE);
    for (int attempt = 0;; ++attempt) {
        port = orv::test::freeTcpPort();
        try {
            return build(port);
        } catch (const std::runtime_error& error) {
            if (attempt == 9 || std::string(error.what()).find(inUse) == std::string::npos) {
                throw;
            }
        }
    }
}

// A server listening on a free port, not running yet.
inline std::unique_ptr<ModbusServer> makeTcpServer(std::uint16_t& port,
                                                   std::shared_ptr<ModbusStatisticHandlers> statistics = {},
                                                   ModbusServerSettings settings = {})
{
    settings.tcpEnabled = true;
    return onFreePort(port, [&](std::uint16_t freePort) {
        settings.tcpPort = freePort;
        return std::make_unique<ModbusServer>(settings, statistics, false);
    });
}

// Map settings without flags that admit the addresses matching `patterns`.
inline std::shared_ptr<ModbusMapSettings> allowing(std::shared_ptr<ModbusMap> map,
                                                   const std::vector<std::string>& patterns)
{
    std::vector<std::regex> expressions;
    for (const auto& pattern : patterns) {
        expressions.emplace_back(pattern);
    }
    return std::make_shared<ModbusMapSettings>(std::move(map), false, false, false, expressions);
}

// Threads of this process whose name is `name`.
inline int threadsNamed(const std::string& name)
{
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string taskName;
        if (std::getline(comm, taskName) && taskName == name) {
            ++count;
        }
    }
    return count;
}

inline int threadCount()
{
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<int>(std::distance(std::filesystem::begin(tasks), std::filesystem::end(tasks)));
}

constexpr const char* g_tcpThreadName = "orv-modbus-tcp";

} // namespace orv::modbus::test
