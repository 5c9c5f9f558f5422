#include "TestServer.h"

#include "FreePort.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

namespace orv::modbus::test {

std::unique_ptr<ModbusServer> onFreePort(std::uint16_t& port,
                                         const std::function<std::unique_ptr<ModbusServer>(std::uint16_t)>& build)
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

std::unique_ptr<ModbusServer> makeTcpServer(std::uint16_t& port, std::shared_ptr<ModbusStatisticHandlers> statistics,
                                            ModbusServerSettings settings)
{
    settings.tcpEnabled = true;
    return onFreePort(port, [&](std::uint16_t freePort) {
        settings.tcpPort = freePort;
        return std::make_unique<ModbusServer>(settings, statistics, false);
    });
}

std::shared_ptr<ModbusMapSettings> allowing(std::shared_ptr<ModbusMap> map, const std::vector<std::string>& patterns)
{
    std::vector<std::regex> expressions;
    for (const auto& pattern : patterns) {
        expressions.emplace_back(pattern);
    }
    return std::make_shared<ModbusMapSettings>(std::move(map), false, false, false, expressions);
}

int threadsNamed(const std::string& name)
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

int threadCount()
{
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<int>(std::distance(std::filesystem::begin(tasks), std::filesystem::end(tasks)));
}

} // namespace orv::modbus::test
