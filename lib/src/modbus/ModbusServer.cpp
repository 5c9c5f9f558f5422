#include <orv/modbus/ModbusServer.h>

#include <orv/logging/Logger.h>
#include <orv/modbus/ModbusMap.h>

#include "TcpHandlerState.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <regex>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

namespace orv::modbus {
namespace {

constexpr int g_listenBacklog = 32;
constexpr const char* g_rtuInitError = "Impossible to initiat Modbus Rtu context.";
constexpr const char* g_tcpOpenError = "Impossible to open Modbus Tcp socket.";
constexpr const char* g_tcpListenError = "Impossible to listen on Modbus Tcp socket. Error ";
// Listening on "::" gives one socket for both families on Linux, where
// IPV6_V6ONLY is off by default: IPv4 clients then arrive as IPv4-mapped
// IPv6 addresses. libmodbus with no node would bind 0.0.0.0 only.
constexpr const char* g_dualStackNode = "::";
constexpr const char* g_tcpThreadName = "orv-modbus-tcp";

// "::FFFF:" followed by a dotted quad: an IPv4 client seen through an IPv6
// socket, once the text is in upper case.
const std::regex g_ipv4MappedAddress("::FFFF:((?:[0-9]{1,3}\\.){3}[0-9]{1,3})");
constexpr std::size_t g_ipv4MappedPrefixLength = 7;

const std::shared_ptr<spdlog::logger>& logger()
{
    static const auto instance = orv::logging::getLogger("ModbusServer");
    return instance;
}

// The host has no IPv6 at all, so the dual-stack socket cannot exist.
bool isIpv6Missing(int error)
{
    return error == EAFNOSUPPORT || error == EADDRNOTAVAIL;
}

// The settings of a unit id whose map can answer, or nullptr. Slots beyond
// the 248 unit ids never count, whatever size the table has.
const ModbusMapSettings* settingsFor(const ModbusMapSettingsTable& maps, std::size_t unit)
{
    if (unit >= ModbusMapsConfiguration::g_unitCount || unit >= maps.size()) {
        return nullptr;
    }
    const auto& settings = maps[unit];
    return settings && settings->map ? settings.get() : nullptr;
}

std::set<std::uint8_t> unitsAllowedFor(const std::string& address, const ModbusMapSettingsTable& maps)
{
    std::set<std::uint8_t> units;
    for (std::size_t unit = 0; unit < ModbusMapsConfiguration::g_unitCount; ++unit) {
        const ModbusMapSettings* settings = settingsFor(maps, unit);
        if (settings != nullptr && settings->allowsAddress(address)) {
            units.insert(static_cast<std::uint8_t>(unit));
        }
    }
    return units;
}

std::string ipv6Text(const sockaddr_in6& address)
{
    char buffer[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, &address.sin6_addr, buffer, sizeof(buffer));
    std::string text(buffer);
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    if (std::regex_search(text, g_ipv4MappedAddress)) {
        text.erase(0, g_ipv4MappedPrefixLength);
    }
    return text;
}

std::string ipv4Text(const sockaddr_in& address)
{
    char buffer[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address.sin_addr, buffer, sizeof(buffer));
    return buffer;
}

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

} // namespace

std::string peerAddressText(const sockaddr_storage& address)
{
    switch (address.ss_family) {
    case AF_INET:
        return ipv4Text(reinterpret_cast<const sockaddr_in&>(address));
    case AF_INET6:
        return ipv6Text(reinterpret_cast<const sockaddr_in6&>(address));
    default:
        return {};
    }
}

void ModbusServer::ContextDeleter::operator()(modbus_t* context) const
{
    // Without this, a serial line of a server destroyed without stop(), or
    // whose TCP socket failed to open, would stay open: modbus_free does not
    // close it.
    modbus_close(context);
    modbus_free(context);
}

ModbusServer::ModbusServer(const ModbusServerSettings& settings,
                           std::shared_ptr<ModbusStatisticHandlers> statisticHandlers, bool debug)
    : m_pStatisticHandlers(std::move(statisticHandlers))
{
    FD_ZERO(&m_activeSockets);
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
    // The handlers go first: they use the listening socket and the contexts.
    requestStop(m_rtuThread);
    requestStop(m_tcpThread);
    join(m_rtuThread);
    join(m_tcpThread);
    if (m_serverSocket != -1) {
        close(m_serverSocket);
    }
}

void ModbusServer::setStatisticHandler(std::shared_ptr<ModbusStatisticHandlers> statisticHandlers)
{
    m_pStatisticHandlers = std::move(statisticHandlers);
}

void ModbusServer::setIdleLimit(Clock::duration limit)
{
    m_idleLimit = limit;
}

ModbusServer::Clock::duration ModbusServer::idleLimit() const
{
    return m_idleLimit;
}

bool ModbusServer::isEnabled() const
{
    return m_pRtuContext || m_pTcpContext;
}

void ModbusServer::initRtu(const ModbusServerSettings& settings, bool debug)
{
    modbus_t* context = modbus_new_rtu(settings.rtuDevice.c_str(), getBaudForLib(settings.baudRate),
                                       getParityForLib(settings.parity), settings.dataBits, settings.stopBits);
    if (context == nullptr) {
        throw std::runtime_error(g_rtuInitError);
    }
    m_pRtuContext.reset(context);
    if (debug) {
        modbus_set_debug(context, 1);
    }
    modbus_rtu_set_serial_mode(context, MODBUS_RTU_RS485);
    modbus_rtu_set_rts(context, MODBUS_RTU_RTS_UP);
    modbus_set_error_recovery(context, MODBUS_ERROR_RECOVERY_NONE);
    modbus_set_slave(context, 0);
    // The serial handler polls its stop request between receives.
    modbus_set_indication_timeout(context, 1, 0);
    if (modbus_connect(context) == -1) {
        throw std::runtime_error(g_rtuInitError);
    }
}

void ModbusServer::initTcp(const ModbusServerSettings& settings, bool debug)
{
    const std::string port = std::to_string(settings.tcpPort);
    SPDLOG_LOGGER_DEBUG(logger(), "Open the tcp port {}", port);
    createTcpContext(g_dualStackNode, port, debug);
    m_serverSocket = modbus_tcp_pi_listen(m_pTcpContext.get(), g_listenBacklog);
    if (m_serverSocket == -1 && isIpv6Missing(errno)) {
        createTcpContext(nullptr, port, debug);
        m_serverSocket = modbus_tcp_pi_listen(m_pTcpContext.get(), g_listenBacklog);
    }
    if (m_serverSocket >= FD_SETSIZE) {
        // select() could not watch it.
        close(m_serverSocket);
        m_serverSocket = -1;
        errno = EMFILE;
    }
    if (m_serverSocket == -1) {
        const int error = errno;
        modbus_close(m_pTcpContext.get());
        throw std::runtime_error(g_tcpListenError + std::string(std::strerror(error)));
    }
    FD_ZERO(&m_activeSockets);
    FD_SET(m_serverSocket, &m_activeSockets);
}

void ModbusServer::createTcpContext(const char* node, const std::string& port, bool debug)
{
    modbus_t* context = modbus_new_tcp_pi(node, port.c_str());
    if (context == nullptr) {
        SPDLOG_LOGGER_ERROR(logger(), g_tcpOpenError);
        throw std::runtime_error(g_tcpOpenError);
    }
    m_pTcpContext.reset(context);
    if (debug) {
        modbus_set_debug(context, 1);
    }
}

void ModbusServer::run(const ModbusMapsConfiguration& maps)
{
    // The serial line is opened by the constructor but not served yet: its
    // handler thread (m_rtuThread, fed with maps.rtuMaps) starts here once it
    // exists.
    if (m_pTcpContext) {
        m_tcpThread.emplace([this, tcpMaps = maps.tcpMaps](std::stop_token stopToken) {
            handlerTcp(std::move(stopToken), tcpMaps);
        });
    }
}

void ModbusServer::stop()
{
    // Both stops first, so that the two threads wind down in parallel.
    requestStop(m_rtuThread);
    requestStop(m_tcpThread);
    if (m_pRtuContext) {
        join(m_rtuThread);
        modbus_close(m_pRtuContext.get());
        SPDLOG_LOGGER_DEBUG(logger(), "Close rtu connection");
    }
    if (m_pTcpContext) {
        join(m_tcpThread);
        modbus_close(m_pTcpContext.get());
        SPDLOG_LOGGER_DEBUG(logger(), "Close tcp connection");
    }
}

void ModbusServer::handlerTcp(std::stop_token stopToken, const ModbusMapSettingsTable& maps)
{
    pthread_setname_np(pthread_self(), g_tcpThreadName);
    TcpHandlerState state(m_serverSocket);
    while (!stopToken.stop_requested()) {
        fd_set readSockets = m_activeSockets;
        // Rebuilt for every call: select() may change it. The timeout is what
        // bounds the time to notice a stop request.
        timeval timeout{1, 0};
        const int ready = select(state.fdMax() + 1, &readSockets, nullptr, nullptr, &timeout);
        const Clock::time_point now = Clock::now();
        if (ready > 0) {
            serveReadySockets(stopToken, state, readSockets, maps, now);
        }
        closeIdleClients(state, now);
    }
    SPDLOG_LOGGER_DEBUG(logger(), "Exit handlerTcp thread");
    closeAllClients(state);
}

void ModbusServer::serveReadySockets(std::stop_token stopToken, TcpHandlerState& state, const fd_set& readSockets,
                                     const ModbusMapSettingsTable& maps, Clock::time_point now)
{
    // The bound is re-read on every step: accepting and closing move it.
    for (int socket = 0; socket <= state.fdMax(); ++socket) {
        if (stopToken.stop_requested()) {
            SPDLOG_LOGGER_DEBUG(logger(), "Exit handleTcp thread");
            return;
        }
        if (!FD_ISSET(socket, &readSockets)) {
            continue;
        }
        if (socket == m_serverSocket) {
            acceptClient(state, maps, now);
        } else if (!serveClient(stopToken, state, socket, maps, now)) {
            return;
        }
    }
}

void ModbusServer::acceptClient(TcpHandlerState& state, const ModbusMapSettingsTable& maps, Clock::time_point now)
{
    sockaddr_storage peer{};
    socklen_t peerLength = sizeof(peer);
    const int socket = accept4(m_serverSocket, reinterpret_cast<sockaddr*>(&peer), &peerLength, SOCK_CLOEXEC);
    if (socket == -1) {
        SPDLOG_LOGGER_DEBUG(logger(), "Server accept() error");
        return;
    }
    std::string address = peerAddressText(peer);
    if (socket >= FD_SETSIZE) {
        // select() cannot watch it, and neither can libmodbus, which selects
        // on the socket it reads.
        close(socket);
        SPDLOG_LOGGER_ERROR(logger(),
                            "New Modbus TCP connection from {} refused! Socket {} is beyond the {} sockets select() "
                            "can watch.",
                            address, socket, FD_SETSIZE);
        return;
    }
    std::set<std::uint8_t> units = unitsAllowedFor(address, maps);
    if (units.empty()) {
        close(socket);
        SPDLOG_LOGGER_ERROR(logger(), "New Modbus TCP connection from {} refused! No map accessible for this IP.",
                            address);
        return;
    }
    SPDLOG_LOGGER_DEBUG(logger(), "New Modbus TCP connection from {} accepted.", address);
    state.admit(socket, {std::move(address), std::move(units), now});
    FD_SET(socket, &m_activeSockets);
}

bool ModbusServer::serveClient(std::stop_token stopToken, TcpHandlerState& state, int socket,
                               const ModbusMapSettingsTable& maps, Clock::time_point now)
{
    SPDLOG_LOGGER_DEBUG(logger(), "We receive a request from a socket {}", socket);
    modbus_set_socket(m_pTcpContext.get(), socket);
    const int length = modbus_receive(m_pTcpContext.get(), state.query());
    if (stopToken.stop_requested()) {
        // The request stays unanswered; the client is closed with the others.
        SPDLOG_LOGGER_DEBUG(logger(), "Exit handleTcp thread");
        return false;
    }
    if (length == -1) {
        const std::string address = closeClient(state, socket);
        SPDLOG_LOGGER_DEBUG(logger(), "Modbus TCP connection from {} closed.", address);
    } else if (length > 0) {
        answerRequest(state, socket, length, maps, now);
    }
    return true;
}

void ModbusServer::answerRequest(TcpHandlerState& state, int socket, int length, const ModbusMapSettingsTable& maps,
                                 Clock::time_point now)
{
    notify(&ModbusStatisticHandlers::onTcpRequestReceived);
    TcpHandlerState::Client& client = *state.find(socket);
    client.lastActivity = now;
    // The unit id is the last byte of the MBAP header.
    const std::uint8_t unit = state.query()[modbus_get_header_length(m_pTcpContext.get()) - 1];
    const ModbusMapSettings* settings = settingsFor(maps, unit);
    if (settings == nullptr || !client.allowedUnits.contains(unit)) {
        notify(&ModbusStatisticHandlers::onTcpBadDeviceId);
        const std::string address = closeClient(state, socket);
        SPDLOG_LOGGER_ERROR(logger(), "Modbus TCP connection from {} closed due to incorrect device id access.",
                            address);
        return;
    }
    notify(&ModbusStatisticHandlers::onTcpRequestAccepted);
    bool processed = false;
    try {
        processed = settings->map->processRequest(m_pTcpContext.get(), state.query(), static_cast<unsigned>(length),
                                                  settings->skipReadChecks, settings->readOnly,
                                                  settings->addressShift);
    } catch (...) {
        // One failing request costs neither the connection nor the thread;
        // the client sees a response timeout.
        return;
    }
    notify(processed ? &ModbusStatisticHandlers::onTcpRequestProcessed
                     : &ModbusStatisticHandlers::onTcpRequestRefused);
}

void ModbusServer::closeIdleClients(TcpHandlerState& state, Clock::time_point now)
{
    for (const int socket : state.socketsIdleFor(m_idleLimit, now)) {
        SPDLOG_LOGGER_DEBUG(logger(), "Closing idle connection on socket {} from {}.", socket,
                            state.find(socket)->address);
        closeClient(state, socket);
    }
}

void ModbusServer::closeAllClients(TcpHandlerState& state)
{
    const std::vector<int> sockets = state.sockets();
    std::for_each(sockets.rbegin(), sockets.rend(), [this, &state](int socket) { closeClient(state, socket); });
}

std::string ModbusServer::closeClient(TcpHandlerState& state, int socket)
{
    // libmodbus keeps the last socket it served and would close that number
    // again in modbus_close(), by then maybe someone else's descriptor.
    if (modbus_get_socket(m_pTcpContext.get()) == socket) {
        modbus_set_socket(m_pTcpContext.get(), -1);
    }
    close(socket);
    FD_CLR(socket, &m_activeSockets);
    std::string address = std::move(state.find(socket)->address);
    state.forget(socket);
    return address;
}

void ModbusServer::notify(void (ModbusStatisticHandlers::*event)()) const
{
    if (!m_pStatisticHandlers) {
        return;
    }
    try {
        (m_pStatisticHandlers.get()->*event)();
    } catch (...) {
        // Counting must never cost a client its answer.
    }
}

} // namespace orv::modbus
