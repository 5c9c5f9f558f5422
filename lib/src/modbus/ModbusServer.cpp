#include <orv/modbus/ModbusServer.h>

#include "RtuFrontEnd.h"
#include "ServerLogger.h"
#include "StatisticsNotifier.h"
#include "TcpFrontEnd.h"

#include <utility>

namespace orv::modbus {
namespace {

void requestStop(std::optional<std::jthread>& thread)
{
    if (thread) {
        thread->request_stop();
    }
}

void join(std::optional<std::jthread>& thread)
{
    if (thread && thread->joinable()) {
        thread->join();
    }
}

// Starts `frontEnd`'s handler on its own thread with its own copy of its
// table and of the statistic handlers.
template <class FrontEnd>
void start(std::optional<std::jthread>& thread, FrontEnd& frontEnd, const ModbusMapSettingsTable& maps,
           const std::shared_ptr<ModbusStatisticHandlers>& handlers)
{
    thread.emplace([&frontEnd, maps, statistics = StatisticsNotifier(handlers)](std::stop_token stopToken) {
        frontEnd.serve(std::move(stopToken), maps, statistics);
    });
}

} // namespace

ModbusServer::ModbusServer(const ModbusServerSettings& settings,
                           std::shared_ptr<ModbusStatisticHandlers> statisticHandlers, bool debug)
    : m_pStatisticHandlers(std::move(statisticHandlers))
{
    if (settings.rtuEnabled) {
        initRtu(settings, debug);
    }
    if (settings.tcpEnabled) {
        initTcp(settings, debug);
    }
}

ModbusServer::ModbusServer(const ModbusServerSettings& settings, bool debug)
    : ModbusServer(settings, nullptr, debug)
{
}

ModbusServer::~ModbusServer()
{
    // The handlers go first: they use the front ends.
    requestStop(m_rtuThread);
    requestStop(m_tcpThread);
    join(m_rtuThread);
    join(m_tcpThread);
}

void ModbusServer::setStatisticHandler(std::shared_ptr<ModbusStatisticHandlers> statisticHandlers)
{
    m_pStatisticHandlers = std::move(statisticHandlers);
}

bool ModbusServer::isEnabled() const
{
    return m_pRtu || m_pTcp;
}

void ModbusServer::initRtu(const ModbusServerSettings& settings, bool debug)
{
    m_pRtu = std::make_unique<RtuFrontEnd>(settings, debug);
}

void ModbusServer::initTcp(const ModbusServerSettings& settings, bool debug)
{
    m_pTcp = std::make_unique<TcpFrontEnd>(settings.tcpPort, debug);
}

void ModbusServer::run(const ModbusMapsConfiguration& maps)
{
    if (m_pRtu) {
        start(m_rtuThread, *m_pRtu, maps.rtuMaps, m_pStatisticHandlers);
    }
    if (m_pTcp) {
        start(m_tcpThread, *m_pTcp, maps.tcpMaps, m_pStatisticHandlers);
    }
}

void ModbusServer::stop()
{
    // Both stops first, so that the two threads wind down in parallel.
    requestStop(m_rtuThread);
    requestStop(m_tcpThread);
    if (m_pRtu) {
        join(m_rtuThread);
        m_pRtu->close();
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Close rtu connection");
    }
    if (m_pTcp) {
        join(m_tcpThread);
        m_pTcp->close();
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Close tcp connection");
    }
}

} // namespace orv::modbus
