#pragma once
// Tells the service manager how the daemon is doing (sd_notify): ready once
// every front end listens or has its line open, alive while the server's
// loops turn, stopping when a stop signal arrived. Without a notify socket
// (no systemd: tests, containers, a shell) every call does nothing.

#include <array>
#include <chrono>
#include <mutex>
#include <optional>

namespace orv::modbusd {

class ServiceNotifier {
public:
    enum class Loop { Tcp, Rtu };

    // Reads the watchdog interval the service manager asked for, if any.
    ServiceNotifier();

    void ready() const;
    void stopping() const;

    // Called by a server loop on every turn, from its own thread. The
    // watchdog is fed only when every loop that has turned at all has turned
    // again since the last feed: one stuck loop is enough for the service
    // manager to restart the daemon.
    void loopTurned(Loop loop);

private:
    using Clock = std::chrono::steady_clock;

    std::optional<Clock::duration> m_feedInterval;
    std::mutex m_mutex;
    Clock::time_point m_lastFeed;
    std::array<std::optional<Clock::time_point>, 2> m_lastTurn;
};

} // namespace orv::modbusd
