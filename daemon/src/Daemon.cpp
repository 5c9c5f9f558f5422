#include "Daemon.h"

#include "DaemonLogger.h"
#include "MapExport.h"
#include "ServiceNotifier.h"
#include "WatchedCounters.h"

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusServer.h>
#include <orv/modbus/SupportedMaps.h>

#include <cerrno>
#include <ctime>
#include <iostream>
#include <memory>
#include <regex>

namespace orv::modbusd {
namespace {

void loadMaps(const DaemonConfig& config)
{
    for (const MapPlugin& map : config.maps) {
        try {
            modbus::SupportedMaps::createMapping(map.id, map.library.string());
        } catch (const std::exception& error) {
            throw std::runtime_error("map \"" + map.id + "\" from " + map.library.string() + ": " + error.what());
        }
    }
}

std::shared_ptr<modbus::ModbusMapSettings> makeSettings(const UnitAssignment& unit)
{
    std::vector<std::regex> patterns(unit.allowedAddresses.begin(), unit.allowedAddresses.end());
    return std::make_shared<modbus::ModbusMapSettings>(modbus::SupportedMaps::getInstance().getMap(unit.mapId),
                                                       unit.oneBasedAddresses, unit.readOnly, unit.skipReadChecks,
                                                       patterns);
}

// Every thread started after this inherits the blocked stop signals, so that
// only waitForStopSignal receives them.
sigset_t blockStopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

} // namespace

Daemon::Daemon(const CommandLine& commandLine)
    : m_commandLine(commandLine)
    , m_config(DaemonConfig::load(commandLine.config, commandLine.defaults))
    , m_stopSignals(blockStopSignals())
    , m_standIn(m_config.dataStore, commandLine.config)
{
    if (m_commandLine.tcpPort) {
        m_config.server.tcpPort = *m_commandLine.tcpPort;
    }
    loadMaps(m_config);
}

void Daemon::check()
{
    m_standIn.start();
}

int Daemon::run()
{
    m_standIn.start();
    ServiceNotifier notifier;
    auto counters = std::make_shared<WatchedCounters>(notifier);
    modbus::ModbusServer server(m_config.server, counters, m_commandLine.modbusDebug);
    server.run(buildMapsConfiguration());
    // The constructor has opened every front end: clients can connect now.
    notifier.ready();
    if (m_config.server.tcpEnabled) {
        std::cout << "orv-gw-modbusd: serving Modbus TCP on port " << m_config.server.tcpPort
                  << " of every IPv4 and IPv6 address" << std::endl;
    }
    if (m_config.server.rtuEnabled) {
        const modbus::ModbusServerSettings& line = m_config.server;
        std::cout << "orv-gw-modbusd: serving Modbus RTU on " << line.rtuDevice << " at "
                  << modbus::getBaudForLib(line.baudRate) << " bit/s, " << line.dataBits
                  << modbus::getParityForLib(line.parity) << line.stopBits << std::endl;
    }

    const auto logSummary = [&counters] { SPDLOG_LOGGER_INFO(daemonLogger(), "statistics: {}", counters->summary()); };
    waitForStopSignal(logSummary);
    notifier.stopping();
    server.stop();
    logSummary();
    return 0;
}

int Daemon::exportMap(std::ostream& out, std::ostream& err) const
{
    std::string known;
    for (const MapPlugin& map : m_config.maps) {
        if (map.id == m_commandLine.exportMap) {
            return MapExport::write(*modbus::SupportedMaps::getInstance().getMap(map.id), m_commandLine.exportOneBased,
                                    m_commandLine.exportFormat, out, err);
        }
        known += (known.empty() ? "" : ", ") + map.id;
    }
    err << "orv-gw-modbusd: no map \"" << m_commandLine.exportMap << "\" in " << m_commandLine.config.string()
        << "; its maps are: " << known << "\n";
    return 1;
}

modbus::ModbusMapsConfiguration Daemon::buildMapsConfiguration() const
{
    modbus::ModbusMapsConfiguration maps;
    for (const UnitAssignment& unit : m_config.tcpUnits) {
        maps.tcpMaps[unit.unitId] = makeSettings(unit);
    }
    for (const UnitAssignment& unit : m_config.rtuUnits) {
        maps.rtuMaps[unit.unitId] = makeSettings(unit);
    }
    return maps;
}

void Daemon::waitForStopSignal(const std::function<void()>& everyInterval) const
{
    const timespec interval{static_cast<std::time_t>(m_config.statisticsInterval.count()), 0};
    for (;;) {
        const int signal = sigtimedwait(&m_stopSignals, nullptr, &interval);
        if (signal == SIGINT || signal == SIGTERM) {
            SPDLOG_LOGGER_INFO(daemonLogger(), "stopping on signal {}", signal);
            return;
        }
        if (signal == -1 && errno == EAGAIN) {
            everyInterval();
        }
    }
}

} // namespace orv::modbusd
