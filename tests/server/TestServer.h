#pragma once

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

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv::modbus::test {

// A port nobody listens on right now: the kernel's pick for port 0.
inline std::uint16_t pickFreePort()
{
    const int fd = socket(AF_INET6, SOCK_STREAM, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_any;
    socklen_t length = sizeof(address);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        close(fd);
        throw std::runtime_error("no free port");
    }
    close(fd);
    return ntohs(address.sin6_port);
}

// A server listening on a free port (picked again if another process took
// it in between), not running yet.
inline std::unique_ptr<ModbusServer> makeTcpServer(std::uint16_t& port,
                                                   std::shared_ptr<ModbusStatisticHandlers> statistics = {},
                                                   ModbusServerSettings settings = {})
{
    settings.tcpEnabled = true;
    const std::string inUse = std::strerror(EADDRINUSE);
    for (int attempt = 0;; ++attempt) {
        port = pickFreePort();
        settings.tcpPort = port;
        try {
            return std::make_unique<ModbusServer>(settings, statistics, false);
        } catch (const std::runtime_error& error) {
            if (attempt == 9 || std::string(error.what()).find(inUse) == std::string::npos) {
                throw;
            }
        }
    }
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
