#include "Simulator.h"

#include <cdsapi/CdsAccessor.h>
#include <cdsapi/DataStore.h>
#include <orv/logging/Logger.h>
#include <zu/CValue.h>

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

std::uint64_t findChannel(cdsapi::CdsAccessor& client, const SimulatedChannel& channel)
{
    try {
        const std::uint64_t device = client.getDeviceByName(channel.device);
        const std::uint64_t id = client.getChannelId(device, channel.channel);
        if (id != 0) {
            return id;
        }
    } catch (const std::exception&) {
    }
    throw std::runtime_error("simulator: no channel \"" + channel.channel + "\" on device \"" + channel.device
                             + "\" in the data store");
}

} // namespace

Simulator::Simulator(const SimulatorSettings& settings)
    : m_period(settings.period)
{
    cdsapi::CdsAccessor client("orv-gw-modbusd-simulator", true);
    for (const SimulatedChannel& channel : settings.channels) {
        m_targets.push_back({findChannel(client, channel), channel.minimum, channel.maximum});
    }
    m_thread = std::jthread([this](std::stop_token stop) { run(std::move(stop)); });
}

void Simulator::run(std::stop_token stop)
{
    std::unique_lock lock(m_mutex);
    for (unsigned tick = 1;; ++tick) {
        m_wake.wait_for(lock, stop, m_period, [] { return false; });
        if (stop.stop_requested()) {
            return;
        }
        step(tick);
    }
}

// Each value follows its own sine between its bounds, one turn a minute at
// the default period, phases spread so that they do not move in step.
void Simulator::step(unsigned tick)
{
    auto& store = cdsapi::DataStore::instance();
    for (std::size_t i = 0; i < m_targets.size(); ++i) {
        const Target& target = m_targets[i];
        const double angle = 2.0 * std::numbers::pi * ((tick % g_ticksPerTurn) / double(g_ticksPerTurn) + i / 7.0);
        const double middle = (target.minimum + target.maximum) / 2.0;
        const double amplitude = (target.maximum - target.minimum) / 2.0;
        const auto value = static_cast<float>(std::round((middle + amplitude * std::sin(angle)) * 100.0) / 100.0);
        try {
            store.setChannelCValue(target.channelId, zu::CValue(value));
            followAlarm(target, value);
        } catch (const std::exception& error) {
            SPDLOG_LOGGER_ERROR(logging::getLogger("orv-gw-modbusd"), "simulator: {}", error.what());
        }
    }
}

// A channel whose alarm is enabled gets a high alarm near the top of its
// swing, cleared again below, so that its alarm discretes change now and
// then.
void Simulator::followAlarm(const Target& target, float value)
{
    auto& store = cdsapi::DataStore::instance();
    if (!store.getChannelAlarmEnabled(target.channelId)) {
        return;
    }
    if (value >= target.minimum + g_highAlarmLevel * (target.maximum - target.minimum)) {
        store.raiseAlarm(target.channelId, zu::CAlarmTrigger{g_highAlarm.code, g_highAlarm.flag, target.maximum});
    } else {
        store.clearAlarm(target.channelId, g_highAlarm);
    }
}

} // namespace orv::modbusd
