#include "TestServer.h"

#include "FreePort.h"
#include "WaitUntil.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

namespace orv::modbus::test {
namespace {

// How long a joined thread's task may stay listed, emulated on a busy
// machine included; a thread that was not joined stays far longer.
constexpr std::chrono::milliseconds g_taskExitTimeout{500};

} // namespace

void onFreePort(std::uint16_t& port, const std::function<void(std::uint16_t)>& open)
{
    const std::string inUse = std::strerror(EADDRINUSE);
    for (int attempt = 0;; ++attempt) {
        port = orv::test::freeTcpPort();
        try {
            open(port);
            return;
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
    std::unique_ptr<ModbusServer> server;
    onFreePort(port, [&](std::uint16_t freePort) {
        settings.tcpPort = freePort;
        server = std::make_unique<ModbusServer>(settings, statistics, false);
    });
    return server;
}

std::unique_ptr<TcpFrontEnd> makeTcpFrontEnd(std::uint16_t& port)
{
    std::unique_ptr<TcpFrontEnd> frontEnd;
    onFreePort(port, [&frontEnd](std::uint16_t freePort) { frontEnd = std::make_unique<TcpFrontEnd>(freePort, false); });
    return frontEnd;
}

ServedTcpFrontEnd::ServedTcpFrontEnd(std::unique_ptr<TcpFrontEnd> frontEnd, const ModbusMapSettingsTable& maps,
                                     std::shared_ptr<ModbusStatisticHandlers> statistics)
    : m_pFrontEnd(std::move(frontEnd))
    , m_handler([frontEnd = m_pFrontEnd.get(), maps, notifier = StatisticsNotifier(std::move(statistics))](
                    std::stop_token stopToken) { frontEnd->serve(std::move(stopToken), maps, notifier); })
{
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

bool noThreadNamed(const std::string& name)
{
    return orv::test::waitUntil([&] { return threadsNamed(name) == 0; }, g_taskExitTimeout);
}

int threadCount()
{
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<int>(std::distance(std::filesystem::begin(tasks), std::filesystem::end(tasks)));
}

::testing::AssertionResult scanExitedBeforeLoop(const orv::test::LogCapture& log)
{
    const long scanExit = log.indexOf("Exit handleTcp thread");
    const long loopExit = log.indexOf("Exit handlerTcp thread");
    if (scanExit == -1 || loopExit == -1 || scanExit > loopExit) {
        return ::testing::AssertionFailure() << "scan exit at line " << scanExit << ", loop exit at line " << loopExit;
    }
    return ::testing::AssertionSuccess();
}

} // namespace orv::modbus::test
