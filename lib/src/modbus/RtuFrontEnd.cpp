#include "RtuFrontEnd.h"

#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/ModbusRtuRequestHandler.h>

#include "ServerLogger.h"
#include "StopWake.h"
#include "UnitMaps.h"

#include <condition_variable>
#include <mutex>
#include <stdexcept>

#include <pthread.h>

namespace orv::modbus {
namespace {

constexpr const char* g_rtuInitError = "Impossible to initiat Modbus Rtu context.";
constexpr const char* g_rtuThreadName = "orv-modbus-rtu";
// How long a quiet line is waited on before the stop request is looked at.
constexpr std::chrono::seconds g_quietPoll{1};
// How often a vanished device is opened again.
constexpr std::chrono::seconds g_reopenPause{1};

modbus_t* openContext(const ModbusServerSettings& settings)
{
    modbus_t* context = modbus_new_rtu(settings.rtuDevice.c_str(), getBaudForLib(settings.baudRate),
                                       getParityForLib(settings.parity), settings.dataBits, settings.stopBits);
    if (context == nullptr) {
        throw std::runtime_error(g_rtuInitError);
    }
    return context;
}

// Sleeps `pause` unless a stop is requested first; false then.
bool pauseUnlessStopped(const std::stop_token& stopToken, std::chrono::seconds pause)
{
    std::mutex mutex;
    std::condition_variable_any wakeUp;
    std::unique_lock lock(mutex);
    return !wakeUp.wait_for(lock, stopToken, pause, [] { return false; }) && !stopToken.stop_requested();
}

} // namespace

RtuFrontEnd::RtuFrontEnd(const ModbusServerSettings& settings, bool debug)
    : m_pContext(openContext(settings))
    , m_device(settings.rtuDevice)
    , m_reader(getBaudForLib(settings.baudRate), settings.dataBits, getParityForLib(settings.parity),
               settings.stopBits)
{
    modbus_t* context = m_pContext.get();
    if (debug) {
        modbus_set_debug(context, 1);
    }
    modbus_rtu_set_serial_mode(context, MODBUS_RTU_RS485);
    modbus_rtu_set_rts(context, MODBUS_RTU_RTS_UP);
    modbus_set_error_recovery(context, MODBUS_ERROR_RECOVERY_NONE);
    modbus_set_slave(context, 0);
    // The handler polls its stop request between receives.
    modbus_set_indication_timeout(context, 1, 0);
    if (modbus_connect(context) == -1) {
        throw std::runtime_error(g_rtuInitError);
    }
}

void RtuFrontEnd::close()
{
    modbus_close(m_pContext.get());
}

void RtuFrontEnd::serve(std::stop_token stopToken, const ModbusMapSettingsTable& maps,
                        const StatisticsNotifier& statistics)
{
    pthread_setname_np(pthread_self(), g_rtuThreadName);
    const StopWake wake(stopToken);
    while (!stopToken.stop_requested()) {
        switch (awaitFrame(stopToken, wake.fd(), statistics)) {
        case RtuFrameReader::Outcome::Frame:
            answerFrame(maps, statistics);
            break;
        case RtuFrameReader::Outcome::BadCrc:
            statistics.notify(&ModbusStatisticHandlers::onRtuCrcError);
            break;
        case RtuFrameReader::Outcome::Gone:
            statistics.notify(&ModbusStatisticHandlers::onRtuReceiveError);
            reopen(stopToken, statistics);
            break;
        default:
            // Too long a frame, or a stop requested while the line was quiet.
            statistics.notify(&ModbusStatisticHandlers::onRtuReceiveError);
            break;
        }
    }
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Exit handlerRtu thread");
}

RtuFrameReader::Outcome RtuFrontEnd::awaitFrame(const std::stop_token& stopToken, int wakeFd,
                                                const StatisticsNotifier& statistics)
{
    const int fd = modbus_get_socket(m_pContext.get());
    statistics.notify(&ModbusStatisticHandlers::onRtuLoop);
    RtuFrameReader::Outcome outcome = m_reader.read(fd, g_quietPoll, wakeFd);
    while (outcome == RtuFrameReader::Outcome::Quiet && !stopToken.stop_requested()) {
        // A quiet line is a live loop: the watchdog hears from it every poll.
        statistics.notify(&ModbusStatisticHandlers::onRtuLoop);
        outcome = m_reader.read(fd, g_quietPoll, wakeFd);
    }
    return outcome;
}

void RtuFrontEnd::answerFrame(const ModbusMapSettingsTable& maps, const StatisticsNotifier& statistics)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "querySize: {}", m_reader.length());
    statistics.notify(&ModbusStatisticHandlers::onRtuRequestReceived);
    // The unit id ends the (one-byte) RTU header.
    const std::uint8_t unit = m_reader.frame()[modbus_get_header_length(m_pContext.get()) - 1];
    SPDLOG_LOGGER_DEBUG(serverLogger(), "deviceID: {}", unit);
    const ModbusMapSettings* settings = settingsFor(maps, unit);
    if (settings == nullptr) {
        statistics.notify(&ModbusStatisticHandlers::onRtuBadDeviceId);
        return;
    }
    if (ModbusRtuRequestHandler::getRequestSize(m_reader.frame(), m_reader.length()) != m_reader.length()) {
        // A frame of the wrong length counts as a checksum error.
        statistics.notify(&ModbusStatisticHandlers::onRtuCrcError);
        return;
    }
    SPDLOG_LOGGER_DEBUG(serverLogger(), "request is valid");
    statistics.notify(&ModbusStatisticHandlers::onRtuRequestAccepted);
    try {
        process(*settings, statistics);
    } catch (...) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "processRequest exception");
    }
}

void RtuFrontEnd::process(const ModbusMapSettings& settings, const StatisticsNotifier& statistics)
{
    const bool processed =
        settings.map->processRequest(m_pContext.get(), m_reader.frame(), static_cast<unsigned>(m_reader.length()),
                                     settings.skipReadChecks, settings.readOnly, settings.addressShift);
    statistics.notify(processed ? &ModbusStatisticHandlers::onRtuRequestProcessed
                                : &ModbusStatisticHandlers::onRtuRequestRefused);
}

void RtuFrontEnd::reopen(const std::stop_token& stopToken, const StatisticsNotifier& statistics)
{
    SPDLOG_LOGGER_WARN(serverLogger(), "Modbus RTU device {} is gone. Reopening it every second.", m_device);
    modbus_close(m_pContext.get());
    while (pauseUnlessStopped(stopToken, g_reopenPause)) {
        statistics.notify(&ModbusStatisticHandlers::onRtuLoop);
        if (modbus_connect(m_pContext.get()) != -1) {
            SPDLOG_LOGGER_INFO(serverLogger(), "Modbus RTU device {} is back.", m_device);
            return;
        }
    }
}

} // namespace orv::modbus
