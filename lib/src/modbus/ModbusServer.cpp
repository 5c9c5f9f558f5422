#include <orv/modbus/ModbusServer.h>

#include <orv/logging/Logger.h>
#include <orv/modbus/ModbusMap.h>

#include "TcpHandlerState.h"

#include <algorithm>
#include <array>
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
#include <poll.h>
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

// How long select() waits when nothing else is due: it bounds the time to
// notice a stop request.
constexpr std::chrono::seconds g_selectTimeout{1};
// While part of a request waits, select() leaves that socket out (its bytes
// would make it return at once, every pass) and waits this long at most, so
// that the socket is looked at again about fifty times a second: the rest of
// its request is noticed soon, and the thread never spins on it.
constexpr std::chrono::milliseconds g_incompleteRequestPoll{20};
// Without a spare descriptor a pending connection cannot even be refused;
// the listening socket is then left alone this long between attempts.
constexpr std::chrono::seconds g_acceptRetryPause{1};

// The MBAP header, then the function code.
constexpr std::size_t g_functionIndex = 7;

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

// Bytes libmodbus reads after the function code of a request before it
// knows how much data follows: address and count (or value), and the byte
// count of the writes of many values. Codes it does not know have none.
std::size_t fieldsLength(std::uint8_t function)
{
    switch (function) {
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        return 5;
    case MODBUS_FC_MASK_WRITE_REGISTER:
        return 6;
    case MODBUS_FC_WRITE_AND_READ_REGISTERS:
        return 9;
    default:
        return function <= MODBUS_FC_WRITE_SINGLE_REGISTER ? 4 : 0;
    }
}

// The data bytes announced by the byte count in the fields after `function`.
std::size_t dataLength(const std::uint8_t* function)
{
    switch (*function) {
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        return function[5];
    case MODBUS_FC_WRITE_AND_READ_REGISTERS:
        return function[9];
    default:
        return 0;
    }
}

enum class RequestArrival {
    // Nothing to read now.
    None,
    // Part of a request: modbus_receive would wait for the rest.
    Partial,
    // All of a request, or a peer that closed or failed: modbus_receive
    // returns without waiting.
    Complete,
};

// How much of the next request waits on a client socket, without reading
// it. A peer that shut its side down may never send the rest: libmodbus
// then reads what there is, sees the end and reports it.
RequestArrival requestArrival(int socket)
{
    pollfd watched{socket, POLLIN | POLLRDHUP, 0};
    if (poll(&watched, 1, 0) == -1 || (watched.revents & (POLLIN | POLLRDHUP | POLLHUP | POLLERR)) == 0) {
        return RequestArrival::None;
    }
    if ((watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        return RequestArrival::Complete;
    }
    std::array<std::uint8_t, MODBUS_TCP_MAX_ADU_LENGTH> bytes;
    const ssize_t peeked = recv(socket, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
    if (peeked <= 0) {
        return peeked == -1 && (errno == EAGAIN || errno == EINTR) ? RequestArrival::None
                                                                   : RequestArrival::Complete;
    }
    const auto available = static_cast<std::size_t>(peeked);
    return tcpRequestLength(bytes.data(), available) <= available ? RequestArrival::Complete
                                                                  : RequestArrival::Partial;
}

bool isOutOfDescriptors(int error)
{
    return error == EMFILE || error == ENFILE;
}

int acceptPending(int serverSocket, sockaddr_storage& peer)
{
    peer = {};
    socklen_t peerLength = sizeof(peer);
    return accept4(serverSocket, reinterpret_cast<sockaddr*>(&peer), &peerLength, SOCK_CLOEXEC);
}

timeval toTimeval(std::chrono::microseconds wait)
{
    return {static_cast<time_t>(wait.count() / 1'000'000), static_cast<suseconds_t>(wait.count() % 1'000'000)};
}

// How long select() may wait in this pass.
timeval waitTimeout(const TcpHandlerState& state, bool incompleteRequests, std::chrono::steady_clock::time_point now)
{
    std::chrono::microseconds wait = g_selectTimeout;
    if (incompleteRequests) {
        wait = g_incompleteRequestPoll;
    }
    if (!state.isAccepting(now)) {
        wait = std::min(wait, std::chrono::ceil<std::chrono::microseconds>(state.acceptResumesAt() - now));
    }
    return toTimeval(wait);
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

std::size_t tcpRequestLength(const std::uint8_t* bytes, std::size_t available)
{
    std::size_t length = g_functionIndex + 1;
    if (available < length) {
        return length;
    }
    const std::uint8_t* function = bytes + g_functionIndex;
    length += fieldsLength(*function);
    if (available < length) {
        return length;
    }
    const std::size_t whole = length + dataLength(function);
    return whole > MODBUS_TCP_MAX_ADU_LENGTH ? length : whole;
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
        notify(&ModbusStatisticHandlers::onTcpLoop);
        const std::vector<int> incomplete = state.socketsWithIncompleteRequest();
        const Clock::time_point before = Clock::now();
        fd_set readSockets = socketsToWaitOn(state, incomplete, before);
        // Rebuilt for every call: select() may change it.
        timeval timeout = waitTimeout(state, !incomplete.empty(), before);
        const int ready = select(state.fdMax() + 1, &readSockets, nullptr, nullptr, &timeout);
        const Clock::time_point now = Clock::now();
        if (ready == -1) {
            // The set is undefined after a failure.
            FD_ZERO(&readSockets);
        }
        // Looked at on every pass: the rest of their request may be there.
        for (const int socket : incomplete) {
            FD_SET(socket, &readSockets);
        }
        if (ready > 0 || !incomplete.empty()) {
            serveReadySockets(stopToken, state, readSockets, maps, now);
        }
        closeIdleClients(state, now);
        closeStalledClients(state, now);
    }
    SPDLOG_LOGGER_DEBUG(logger(), "Exit handlerTcp thread");
    closeAllClients(state);
}

fd_set ModbusServer::socketsToWaitOn(const TcpHandlerState& state, const std::vector<int>& incomplete,
                                     Clock::time_point now) const
{
    fd_set sockets = m_activeSockets;
    for (const int socket : incomplete) {
        FD_CLR(socket, &sockets);
    }
    if (!state.isAccepting(now)) {
        FD_CLR(m_serverSocket, &sockets);
    }
    return sockets;
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
    // Taken back here when an earlier refusal could not reopen it.
    state.spare().reserve();
    sockaddr_storage peer{};
    const int socket = acceptPending(m_serverSocket, peer);
    if (socket == -1) {
        if (isOutOfDescriptors(errno)) {
            refuseWithoutDescriptor(state, now);
        } else {
            SPDLOG_LOGGER_DEBUG(logger(), "Server accept() error");
        }
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
    state.admit(socket, {std::move(address), std::move(units), now, std::nullopt});
    FD_SET(socket, &m_activeSockets);
}

void ModbusServer::refuseWithoutDescriptor(TcpHandlerState& state, Clock::time_point now)
{
    // The pending connection keeps the listening socket readable: left
    // there, it would make every select() return at once.
    sockaddr_storage peer{};
    int socket = -1;
    if (state.spare().release()) {
        socket = acceptPending(m_serverSocket, peer);
        if (socket != -1) {
            close(socket);
        }
        state.spare().reserve();
    }
    if (socket == -1) {
        state.pauseAccepting(now + g_acceptRetryPause);
        SPDLOG_LOGGER_ERROR(logger(), "New Modbus TCP connection refused! No file descriptor left.");
        return;
    }
    SPDLOG_LOGGER_ERROR(logger(), "New Modbus TCP connection from {} refused! No file descriptor left.",
                        peerAddressText(peer));
}

bool ModbusServer::serveClient(std::stop_token stopToken, TcpHandlerState& state, int socket,
                               const ModbusMapSettingsTable& maps, Clock::time_point now)
{
    TcpHandlerState::Client& client = *state.find(socket);
    const RequestArrival arrival = requestArrival(socket);
    if (arrival == RequestArrival::None) {
        return true;
    }
    if (!client.incompleteSince) {
        SPDLOG_LOGGER_DEBUG(logger(), "We receive a request from a socket {}", socket);
    }
    if (arrival == RequestArrival::Partial) {
        // modbus_receive would wait for the rest with no overall limit (its
        // byte timeout starts again with every byte) and serve no one else
        // meanwhile.
        client.incompleteSince = client.incompleteSince.value_or(now);
        return true;
    }
    client.incompleteSince.reset();
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

void ModbusServer::closeStalledClients(TcpHandlerState& state, Clock::time_point now)
{
    for (const int socket : state.socketsIncompleteFor(g_requestTimeLimit, now)) {
        const std::string address = closeClient(state, socket);
        SPDLOG_LOGGER_DEBUG(logger(), "Modbus TCP connection from {} closed: incomplete request.", address);
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
