#pragma once
// Moves a few measured values through the data store's service side, as a
// device driver would, so that a Modbus client of the demo sees them change;
// and, when asked, puts the power-distribution service in service some
// time after start, so that the maps waiting for it become available.

#include "StandInSettings.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace orv::modbusd {

class Simulator {
public:
    // Looks the channels up now; a channel that does not exist is an error.
    explicit Simulator(const SimulatorSettings& settings);

    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

private:
    struct Target {
        std::uint64_t channelId;
        float minimum;
        float maximum;
    };

    using Clock = std::chrono::steady_clock;

    void run(std::stop_token stop);
    void step(unsigned tick);
    static void followAlarm(const Target& target, float value);
    void putServiceInService();

    std::vector<Target> m_targets;
    std::chrono::milliseconds m_period;
    // The service's status channel, until it has been put in service.
    std::optional<std::uint64_t> m_pendingServiceChannel;
    Clock::time_point m_serviceStart;
    std::mutex m_mutex;
    std::condition_variable_any m_wake;
    std::jthread m_thread; // last: stopped and joined first
};

} // namespace orv::modbusd
