#include <orv/synchronizer/PowerDistributionsSynchronizer.h>

#include <cdsapi/CdsAccessor.h>
#include <orv/common/lwjson/Deserializer.h>
#include <orv/logging/Logger.h>

#include <chrono>
#include <exception>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace orv::synchronizer {
namespace {

using common::service::OperatingStatus;

constexpr std::uint64_t g_unresolved = std::numeric_limits<std::uint64_t>::max();

std::shared_ptr<spdlog::logger> logger()
{
    return logging::getLogger("powerdistribution");
}

bool isInService(OperatingStatus status)
{
    return status == OperatingStatus::Running || status == OperatingStatus::RunningDegraded;
}

std::uint64_t readDeviceId(const std::string& configPath)
{
    std::ifstream file(configPath);
    if (!file) {
        throw std::runtime_error("cannot open the file");
    }
    std::ostringstream text;
    text << file.rdbuf();
    const common::lwjson::Deserializer root(text.str());
    std::uint64_t deviceId = g_unresolved;
    root.getMember("database").getMember("args").getMember("serviceStorage").getMember("deviceId").extractValue(
        deviceId);
    return deviceId;
}

std::uint64_t deviceIdOrUnresolved(const std::string& configPath)
{
    try {
        return readDeviceId(configPath);
    } catch (const std::exception& error) {
        SPDLOG_LOGGER_WARN(logger(),
                           "power-distribution configuration {}: {}; maps that wait for the service stay "
                           "unavailable",
                           configPath, error.what());
        return g_unresolved;
    }
}

} // namespace

PowerDistributionsSynchronizer::PowerDistributionsSynchronizer(cdsapi::CdsAccessor& client,
                                                               const std::string& configPath)
    : m_client(client)
    , m_channelId(g_unresolved)
    , m_deviceId(deviceIdOrUnresolved(configPath))
{
}

OperatingStatus PowerDistributionsSynchronizer::getPowerDistributionStatus()
{
    if (m_channelId == g_unresolved && m_deviceId != g_unresolved) {
        m_channelId = m_client.getCatchedChannelId(m_deviceId, g_statusChannel);
    }
    auto status = OperatingStatus::Unknown;
    if (m_channelId != g_unresolved) {
        try {
            status = static_cast<OperatingStatus>(m_client.getChannelCValue(m_channelId).as_uint32());
        } catch (const std::exception&) {
            m_channelId = g_unresolved;
        }
    }
    SPDLOG_LOGGER_DEBUG(logger(), "status = {}", common::service::toString(status));
    return status;
}

bool PowerDistributionsSynchronizer::waitInService(common::time::SecondsDuration timeout)
{
    return waitFor(true, timeout, "waitInService");
}

bool PowerDistributionsSynchronizer::waitNotInService(common::time::SecondsDuration timeout)
{
    return waitFor(false, timeout, "waitNotInService");
}

bool PowerDistributionsSynchronizer::waitFor(bool inService, common::time::SecondsDuration timeout,
                                             const char* function)
{
    OperatingStatus status = getPowerDistributionStatus();
    const auto deadline = timeout.toTimepoint();
    while (isInService(status) != inService) {
        if (std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        // Resumed by the library when a signal interrupts it.
        std::this_thread::sleep_for(std::chrono::seconds(1));
        status = getPowerDistributionStatus();
        logger()->log(spdlog::source_loc{__FILE__, __LINE__, function}, spdlog::level::debug,
                      "powerDistributionStatus = {}", common::service::toString(status));
    }
    return isInService(status) == inService;
}

} // namespace orv::synchronizer
