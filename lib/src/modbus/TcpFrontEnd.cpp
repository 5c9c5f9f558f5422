#include "TcpFrontEnd.h"

#include <orv/modbus/ModbusMap.h>
#include <orv/modbus/ModbusMapsConfiguration.h>

#include "PeerAddress.h"
#include "RequestLength.h"
#include "CaughtFailures.h"
#include "ServerLogger.h"
#include "StopWake.h"
#include "TcpHandlerState.h"
#include "UnitMaps.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <set>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace orv::modbus {
namespace {

constexpr int g_listenBacklog = 32;
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

// The host has no IPv6 at all, so the dual-stack socket cannot exist.
bool isIpv6Missing(int error)
{
    return error == EAFNOSUPPORT || error == EADDRNOTAVAIL;
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

enum class RequestArrival {
    // Nothing to read now.
    None,
    // Part of a request: modbus_receive would wait for the rest.
    Partial,
    // All of a request, or a peer that closed or failed: modbus_receive
    // returns without waiting.
    Complete,
};

// Whether the peer of `socket` shut its side down or failed, so that the
// rest of a request may never come.
bool peerHungUp(int socket)
{
    pollfd watched{socket, POLLRDHUP, 0};
    return poll(&watched, 1, 0) == -1 || (watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

// How much of the next request waits on a client socket, without reading
// it: one peek, as a whole request is what mostly waits. A peer that shut
// its side down may never send the rest: libmodbus then reads what there
// is, sees the end and reports it.
RequestArrival requestArrival(int socket)
{
    std::array<std::uint8_t, MODBUS_TCP_MAX_ADU_LENGTH> bytes;
    const ssize_t peeked = recv(socket, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
    if (peeked <= 0) {
        // 0: the peer closed; an error other than "nothing yet" is for
        // libmodbus to report.
        return peeked == -1 && (errno == EAGAIN || errno == EINTR) ? RequestArrival::None
                                                                   : RequestArrival::Complete;
    }
    const auto available = static_cast<std::size_t>(peeked);
    if (tcpRequestLength(bytes.data(), available) <= available || peerHungUp(socket)) {
        return RequestArrival::Complete;
    }
    return RequestArrival::Partial;
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

// select() on `sockets` and on the stop wake-up, so that a stop does not wait
// out the timeout. The wake-up never stays in the set, and the set is empty
// after a failure (select() leaves it undefined then).
int selectOrWake(int fdMax, fd_set& sockets, timeval& timeout, int wakeFd)
{
    const bool watchWake = wakeFd >= 0 && wakeFd < FD_SETSIZE;
    if (watchWake) {
        FD_SET(wakeFd, &sockets);
    }
    const int ready = select(std::max(fdMax, watchWake ? wakeFd : -1) + 1, &sockets, nullptr, nullptr, &timeout);
    if (ready == -1) {
        FD_ZERO(&sockets);
        return ready;
    }
    if (watchWake && FD_ISSET(wakeFd, &sockets)) {
        FD_CLR(wakeFd, &sockets);
        return ready - 1;
    }
    return ready;
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

} // namespace

// What every step of one pass of the select loop works with.
struct TcpFrontEnd::Pass {
    std::stop_token stopToken;
    TcpHandlerState& state;
    const ModbusMapSettingsTable& maps;
    const StatisticsNotifier& statistics;
    Clock::time_point now;
};

TcpFrontEnd::TcpFrontEnd(std::uint32_t port, bool debug)
{
    FD_ZERO(&m_activeSockets);
    listen(std::to_string(port), debug);
}

TcpFrontEnd::~TcpFrontEnd()
{
    if (m_serverSocket != -1) {
        ::close(m_serverSocket);
    }
}

void TcpFrontEnd::setIdleLimit(Clock::duration limit)
{
    m_idleLimit = limit;
}

TcpFrontEnd::Clock::duration TcpFrontEnd::idleLimit() const
{
    return m_idleLimit;
}

void TcpFrontEnd::close()
{
    modbus_close(m_pContext.get());
}

void TcpFrontEnd::listen(const std::string& port, bool debug)
{
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Open the tcp port {}", port);
    createContext(g_dualStackNode, port, debug);
    m_serverSocket = modbus_tcp_pi_listen(m_pContext.get(), g_listenBacklog);
    if (m_serverSocket == -1 && isIpv6Missing(errno)) {
        createContext(nullptr, port, debug);
        m_serverSocket = modbus_tcp_pi_listen(m_pContext.get(), g_listenBacklog);
    }
    if (m_serverSocket >= FD_SETSIZE) {
        // select() could not watch it.
        ::close(m_serverSocket);
        m_serverSocket = -1;
        errno = EMFILE;
    }
    if (m_serverSocket == -1) {
        const int error = errno;
        modbus_close(m_pContext.get());
        throw std::runtime_error(g_tcpListenError + std::string(std::strerror(error)));
    }
    FD_SET(m_serverSocket, &m_activeSockets);
}

void TcpFrontEnd::createContext(const char* node, const std::string& port, bool debug)
{
    modbus_t* context = modbus_new_tcp_pi(node, port.c_str());
    if (context == nullptr) {
        SPDLOG_LOGGER_ERROR(serverLogger(), g_tcpOpenError);
        throw std::runtime_error(g_tcpOpenError);
    }
    m_pContext.reset(context);
    if (debug) {
        modbus_set_debug(context, 1);
    }
}

void TcpFrontEnd::serve(std::stop_token stopToken, const ModbusMapSettingsTable& maps,
                        const StatisticsNotifier& statistics)
{
    pthread_setname_np(pthread_self(), g_tcpThreadName);
    TcpHandlerState state(m_serverSocket);
    const StopWake wake(stopToken);
    while (!stopToken.stop_requested()) {
        statistics.notify(&ModbusStatisticHandlers::onTcpLoop);
        const std::vector<int> incomplete = state.socketsWithIncompleteRequest();
        const Clock::time_point before = Clock::now();
        fd_set readSockets = socketsToWaitOn(state, incomplete, before);
        // Rebuilt for every call: select() may change it.
        timeval timeout = waitTimeout(state, !incomplete.empty(), before);
        const int ready = selectOrWake(state.fdMax(), readSockets, timeout, wake.fd());
        Pass pass{stopToken, state, maps, statistics, Clock::now()};
        // Looked at on every pass: the rest of their request may be there.
        for (const int socket : incomplete) {
            FD_SET(socket, &readSockets);
        }
        if (ready > 0 || !incomplete.empty()) {
            serveReadySockets(pass, readSockets);
        }
        closeIdleClients(state, pass.now);
        closeStalledClients(state, pass.now);
    }
    SPDLOG_LOGGER_DEBUG(serverLogger(), "Exit handlerTcp thread");
    closeAllClients(state);
}

fd_set TcpFrontEnd::socketsToWaitOn(const TcpHandlerState& state, const std::vector<int>& incomplete,
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

void TcpFrontEnd::serveReadySockets(Pass& pass, const fd_set& readSockets)
{
    // The bound is re-read on every step: accepting and closing move it.
    for (int socket = 0; socket <= pass.state.fdMax(); ++socket) {
        if (pass.stopToken.stop_requested()) {
            SPDLOG_LOGGER_DEBUG(serverLogger(), "Exit handleTcp thread");
            return;
        }
        if (!FD_ISSET(socket, &readSockets)) {
            continue;
        }
        if (socket == m_serverSocket) {
            acceptClient(pass);
        } else if (!serveClient(pass, socket)) {
            return;
        }
    }
}

void TcpFrontEnd::acceptClient(Pass& pass)
{
    // Taken back here when an earlier refusal could not reopen it.
    pass.state.spare().reserve();
    sockaddr_storage peer{};
    const int socket = acceptPending(m_serverSocket, peer);
    if (socket == -1) {
        if (isOutOfDescriptors(errno)) {
            refuseWithoutDescriptor(pass.state, pass.now);
        } else {
            SPDLOG_LOGGER_DEBUG(serverLogger(), "Server accept() error");
        }
        return;
    }
    std::string address = peerAddressText(peer);
    if (socket >= FD_SETSIZE) {
        // select() cannot watch it, and neither can libmodbus, which selects
        // on the socket it reads.
        ::close(socket);
        SPDLOG_LOGGER_ERROR(serverLogger(),
                            "New Modbus TCP connection from {} refused! Socket {} is beyond the {} sockets select() "
                            "can watch.",
                            address, socket, FD_SETSIZE);
        return;
    }
    std::set<std::uint8_t> units = unitsAllowedFor(address, pass.maps);
    if (units.empty()) {
        ::close(socket);
        SPDLOG_LOGGER_ERROR(serverLogger(), "New Modbus TCP connection from {} refused! No map accessible for this IP.",
                            address);
        return;
    }
    SPDLOG_LOGGER_DEBUG(serverLogger(), "New Modbus TCP connection from {} accepted.", address);
    pass.state.admit(socket, {std::move(address), std::move(units), pass.now, std::nullopt});
    FD_SET(socket, &m_activeSockets);
}

void TcpFrontEnd::refuseWithoutDescriptor(TcpHandlerState& state, Clock::time_point now)
{
    // The pending connection keeps the listening socket readable: left
    // there, it would make every select() return at once.
    sockaddr_storage peer{};
    int socket = -1;
    if (state.spare().release()) {
        socket = acceptPending(m_serverSocket, peer);
        if (socket != -1) {
            ::close(socket);
        }
        state.spare().reserve();
    }
    if (socket == -1) {
        state.pauseAccepting(now + g_acceptRetryPause);
        SPDLOG_LOGGER_ERROR(serverLogger(), "New Modbus TCP connection refused! No file descriptor left.");
        return;
    }
    SPDLOG_LOGGER_ERROR(serverLogger(), "New Modbus TCP connection from {} refused! No file descriptor left.",
                        peerAddressText(peer));
}

bool TcpFrontEnd::serveClient(Pass& pass, int socket)
{
    TcpHandlerState::Client& client = *pass.state.find(socket);
    const RequestArrival arrival = requestArrival(socket);
    if (arrival == RequestArrival::None) {
        return true;
    }
    if (!client.incompleteSince) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "We receive a request from a socket {}", socket);
    }
    if (arrival == RequestArrival::Partial) {
        // modbus_receive would wait for the rest with no overall limit (its
        // byte timeout starts again with every byte) and serve no one else
        // meanwhile.
        client.incompleteSince = client.incompleteSince.value_or(pass.now);
        return true;
    }
    client.incompleteSince.reset();
    modbus_set_socket(m_pContext.get(), socket);
    const int length = modbus_receive(m_pContext.get(), pass.state.query());
    if (pass.stopToken.stop_requested()) {
        // The request stays unanswered; the client is closed with the others.
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Exit handleTcp thread");
        return false;
    }
    if (length == -1) {
        const std::string address = closeClient(pass.state, socket);
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Modbus TCP connection from {} closed.", address);
    } else if (length > 0) {
        answerRequest(pass, socket, length);
    }
    return true;
}

void TcpFrontEnd::answerRequest(Pass& pass, int socket, int length)
{
    pass.statistics.notify(&ModbusStatisticHandlers::onTcpRequestReceived);
    TcpHandlerState::Client& client = *pass.state.find(socket);
    client.lastActivity = pass.now;
    // The unit id is the last byte of the MBAP header.
    const std::uint8_t unit = pass.state.query()[modbus_get_header_length(m_pContext.get()) - 1];
    const ModbusMapSettings* settings = settingsFor(pass.maps, unit);
    if (settings == nullptr || !client.allowedUnits.contains(unit)) {
        pass.statistics.notify(&ModbusStatisticHandlers::onTcpBadDeviceId);
        const std::string address = closeClient(pass.state, socket);
        SPDLOG_LOGGER_ERROR(serverLogger(), "Modbus TCP connection from {} closed due to incorrect device id access.",
                            address);
        return;
    }
    pass.statistics.notify(&ModbusStatisticHandlers::onTcpRequestAccepted);
    bool processed = false;
    try {
        processed = settings->map->processRequest(m_pContext.get(), pass.state.query(),
                                                  static_cast<unsigned>(length), settings->skipReadChecks,
                                                  settings->readOnly, settings->addressShift);
    } catch (...) {
        // One failing request costs neither the connection nor the thread;
        // the client sees a response timeout. Unlike the serial line, this
        // handler keeps the log quiet about it and only counts it.
        CaughtFailures::count();
        return;
    }
    pass.statistics.notify(processed ? &ModbusStatisticHandlers::onTcpRequestProcessed
                                     : &ModbusStatisticHandlers::onTcpRequestRefused);
}

void TcpFrontEnd::closeIdleClients(TcpHandlerState& state, Clock::time_point now)
{
    for (const int socket : state.socketsIdleFor(m_idleLimit, now)) {
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Closing idle connection on socket {} from {}.", socket,
                            state.find(socket)->address);
        closeClient(state, socket);
    }
}

void TcpFrontEnd::closeStalledClients(TcpHandlerState& state, Clock::time_point now)
{
    for (const int socket : state.socketsIncompleteFor(g_requestTimeLimit, now)) {
        const std::string address = closeClient(state, socket);
        SPDLOG_LOGGER_DEBUG(serverLogger(), "Modbus TCP connection from {} closed: incomplete request.", address);
    }
}

void TcpFrontEnd::closeAllClients(TcpHandlerState& state)
{
    const std::vector<int> sockets = state.sockets();
    std::for_each(sockets.rbegin(), sockets.rend(), [this, &state](int socket) { closeClient(state, socket); });
}

std::string TcpFrontEnd::closeClient(TcpHandlerState& state, int socket)
{
    // libmodbus keeps the last socket it served and would close that number
    // again in modbus_close(), by then maybe someone else's descriptor.
    if (modbus_get_socket(m_pContext.get()) == socket) {
        modbus_set_socket(m_pContext.get(), -1);
    }
    ::close(socket);
    FD_CLR(socket, &m_activeSockets);
    std::string address = std::move(state.find(socket)->address);
    state.forget(socket);
    return address;
}

} // namespace orv::modbus
