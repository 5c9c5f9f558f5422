#include "Simulator.h"

#include "DaemonLogger.h"

#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>
#include <orv/common/service/OperatingStatus.h>
#include <zu/CValue.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace orv::modbusd {
namespace {

constexpr unsigned g_ticksPerTurn = 60;
// The alarm raised near the top of a value's swing: code 7 with flag 1, the
// trigger the Modbus alarm discretes of type 4 report.
constexpr zu::CAlarmTrigger g_highAlarm{7, 1, 0.0f};
// The part of the swing, from the bottom, above which the alarm is raised.
constexpr float g_highAlarmLevel = 0.8f;

constexpr const char* g_statusChannel = "PowerDistribution.Status.OperatingStatus";

std::uint64_t findChannel(cdsapi::CdsAccessor& client, const std::string& device, const std::string& channel)
{
    try {
        const std::uint64_t id = client.getChannelId(client.getDeviceByName(device), channel);
        if (id != 0) {
            return id;
        }
    } catch (const std::exception&) {
    }
    throw std::runtime_error("simulator: no channel \"" + channel + "\" on device \"" + device
                             + "\" in the data store");
}

// A failed write is logged and the demo goes on (a driver would not stop
// either).
bool writeChannel(std::uint64_t channel, const zu::CValue& value)
{
    try {
        cdsapi::DataStore::instance().setChannelCValue(channel, value);
        return true;
    } catch (const std::exception& error) {
        SPDLOG_LOGGER_ERROR(daemonLogger(), "simulator: {}", error.what());
        return false;
    }
}

} // namespace

Simulator::Simulator(const SimulatorSettings& settings)
    : m_period(settings.period)
{
    cdsapi::CdsAccessor client("orv-gw-modbusd-simulator", true);
    for (const SimulatedChannel& channel : settings.channels) {
        m_targets.push_back({findChannel(client, channel.device, channel.channel), channel.minimum, channel.maximum});
    }
    if (settings.powerDistribution) {
        m_pendingServiceChannel = findChannel(client, settings.powerDistribution->device, g_statusChannel);
        m_serviceStart = Clock::now() + settings.powerDistribution->inServiceAfter;
    }
    m_thread = std::jthread([this](std::stop_token stop) { run(std::move(stop)); });
}

void Simulator::run(std::stop_token stop)
{
    std::unique_lock lock(m_mutex);
    auto nextStep = Clock::now() + m_period;
    for (unsigned tick = 1;;) {
        const auto wakeAt = m_pendingServiceChannel ? std::min(nextStep, m_serviceStart) : nextStep;
        m_wake.wait_until(lock, stop, wakeAt, [] { return false; });
        if (stop.stop_requested()) {
            return;
        }
        const auto now = Clock::now();
        if (m_pendingServiceChannel && now >= m_serviceStart) {
            putServiceInService();
        }
        if (now >= nextStep) {
            step(tick++);
            nextStep += m_period;
        }
    }
}

void Simulator::putServiceInService()
{
    const std::uint64_t channel = *m_pendingServiceChannel;
    m_pendingServiceChannel.reset();
    if (writeChannel(channel, zu::CValue(static_cast<std::uint32_t>(common::service::OperatingStatus::Running)))) {
        SPDLOG_LOGGER_INFO(daemonLogger(), "simulator: the power-distribution service runs");
    }
}

// Each value follows its own sine between its bounds, one turn a minute at
// the default period, phases spread so that they do not move in step.
void Simulator::step(unsigned tick)
{
    for (std::size_t i = 0; i < m_targets.size(); ++i) {
        const Target& target = m_targets[i];
        const double angle = 2.0 * std::numbers::pi * ((tick % g_ticksPerTurn) / double(g_ticksPerTurn) + i / 7.0);
        const double middle = (target.minimum + target.maximum) / 2.0;
        const double amplitude = (target.maximum - target.minimum) / 2.0;
        const auto value = static_cast<float>(std::round((middle + amplitude * std::sin(angle)) * 100.0) / 100.0);
        if (writeChannel(target.channelId, zu::CValue(value))) {
            followAlarm(target, value);
        }
    }
}

// A channel whose alarm is enabled gets a high alarm near the top of its
// swing, cleared again below, so that its alarm discretes change now and
// then.
void Simulator::followAlarm(const Target& target, float value)
{
    auto& store = cdsapi::DataStore::instance();
    try {
        if (!store.getChannelAlarmEnabled(target.channelId)) {
            return;
        }
        if (value >= target.minimum + g_highAlarmLevel * (target.maximum - target.minimum)) {
            store.raiseAlarm(target.channelId, zu::CAlarmTrigger{g_highAlarm.code, g_highAlarm.flag, target.maximum});
        } else {
            store.clearAlarm(target.channelId, g_highAlarm);
        }
    } catch (const std::exception& error) {
        SPDLOG_LOGGER_ERROR(daemonLogger(), "simulator: {}", error.what());
    }
}

} // namespace orv::modbusd
