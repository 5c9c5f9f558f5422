#pragma once
// orv-gw-modbusd: loads the data-store seed, builds the maps from their
// plug-ins, assigns them to unit ids, serves them until SIGINT or SIGTERM,
// and logs a summary of the traffic every interval and at shutdown.

#include "CommandLine.h"
#include "DaemonConfig.h"
#include "Simulator.h"

#include <orv/modbus/ModbusMapsConfiguration.h>

#include <csignal>
#include <iosfwd>
#include <optional>

namespace orv::modbusd {

class Daemon {
public:
    // Everything that can be wrong with the files is found here, before any
    // port is opened; throws std::runtime_error naming file and key.
    explicit Daemon(const CommandLine& commandLine);

    // What only starting finds out beyond the constructor's checks (the
    // simulated channels in the loaded store), without opening a port.
    void check() const;

    // Serves until SIGINT or SIGTERM; returns the exit status.
    int run();

    // Prints the export of the command line's map to `out` without opening
    // a port; returns the exit status (non-zero, with a message on `err`,
    // for a map that does not exist or is not available).
    int exportMap(std::ostream& out, std::ostream& err) const;

private:
    void startSimulator(std::optional<Simulator>& simulator) const;
    modbus::ModbusMapsConfiguration buildMapsConfiguration() const;
    void waitForStopSignal(const std::function<void()>& everyInterval) const;

    CommandLine m_commandLine;
    DaemonConfig m_config;
    sigset_t m_stopSignals{};
};

} // namespace orv::modbusd
