#include "ServiceNotifier.h"

#include <systemd/sd-daemon.h>

#include <cstdint>

namespace orv::modbusd {

ServiceNotifier::ServiceNotifier()
    : m_lastFeed(Clock::now())
{
    std::uint64_t watchdogMicroseconds = 0;
    if (sd_watchdog_enabled(0, &watchdogMicroseconds) > 0) {
        // Fed twice per interval, so that a late turn does not miss it.
        m_feedInterval = std::chrono::microseconds(watchdogMicroseconds / 2);
    }
}

void ServiceNotifier::ready() const
{
    sd_notify(0, "READY=1");
}

void ServiceNotifier::stopping() const
{
    sd_notify(0, "STOPPING=1");
}

void ServiceNotifier::loopTurned(Loop loop)
{
    if (!m_feedInterval) {
        return;
    }
    const Clock::time_point now = Clock::now();
    const std::lock_guard lock(m_mutex);
    m_lastTurn[static_cast<std::size_t>(loop)] = now;
    if (now - m_lastFeed < *m_feedInterval) {
        return;
    }
    for (const auto& turn : m_lastTurn) {
        if (turn && *turn < m_lastFeed) {
            return;
        }
    }
    sd_notify(0, "WATCHDOG=1");
    m_lastFeed = now;
}

} // namespace orv::modbusd
