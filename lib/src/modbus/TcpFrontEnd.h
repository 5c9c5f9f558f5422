#pragma once

#include <orv/modbus/ModbusMapSettings.h>

#include "ContextHandle.h"
#include "StatisticsNotifier.h"

#include <chrono>
#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

#include <sys/select.h>

namespace orv::modbus {

class TcpHandlerState;

// The Modbus TCP front end: one listening socket on every local IPv4 and
// IPv6 address, one libmodbus context, and the select loop that serves
// every client from one thread.
class TcpFrontEnd {
public:
    using Clock = std::chrono::steady_clock;

    // How long a client may stay silent before it is disconnected; it is
    // closed once it has been silent for more than this.
    static constexpr Clock::duration g_defaultIdleLimit = std::chrono::seconds(300);
    // How long the rest of a request may take to arrive once its first
    // bytes are there. A client that drips a request byte by byte loses its
    // connection after this; everyone else is served meanwhile.
    static constexpr Clock::duration g_requestTimeLimit = std::chrono::seconds(1);

    // Listens on `port`. Throws std::runtime_error when it cannot.
    TcpFrontEnd(std::uint32_t port, bool debug);
    // Closes the listening socket.
    ~TcpFrontEnd();

    TcpFrontEnd(const TcpFrontEnd&) = delete;
    TcpFrontEnd& operator=(const TcpFrontEnd&) = delete;

    // Call it before serve().
    void setIdleLimit(Clock::duration limit);
    Clock::duration idleLimit() const;

    // The handler thread's body: serves until a stop is requested, then
    // closes every client. The listening socket stays open.
    void serve(std::stop_token stopToken, const ModbusMapSettingsTable& maps, const StatisticsNotifier& statistics);

    // Closes the context's connection once the handler has ended.
    void close();

private:
    struct Pass;

    // Replaces the context by a new one for `node` (nullptr: IPv4 only).
    void createContext(const char* node, const std::string& port, bool debug);
    void listen(const std::string& port, bool debug);

    // One pass over the sockets select() found readable.
    void serveReadySockets(Pass& pass, const fd_set& readSockets);
    // The sockets select() waits on in this pass: every active one except
    // those holding an incomplete request (`incomplete`), and the listening
    // socket only while accepting is not paused.
    fd_set socketsToWaitOn(const TcpHandlerState& state, const std::vector<int>& incomplete,
                           Clock::time_point now) const;
    void acceptClient(Pass& pass);
    // Takes a pending connection off the listening socket and closes it when
    // the process has no descriptor left for it.
    void refuseWithoutDescriptor(TcpHandlerState& state, Clock::time_point now);
    // Receives and answers one request once all of it has arrived; false
    // when a stop was requested meanwhile, which ends the scan.
    bool serveClient(Pass& pass, int socket);
    // Answers one received request of `length` bytes, or closes the
    // connection when the client may not address its unit id.
    void answerRequest(Pass& pass, int socket, int length);
    void closeIdleClients(TcpHandlerState& state, Clock::time_point now);
    // Closes the clients whose request has been incomplete for too long.
    void closeStalledClients(TcpHandlerState& state, Clock::time_point now);
    void closeAllClients(TcpHandlerState& state);
    // Closes and forgets one client; returns its address text.
    std::string closeClient(TcpHandlerState& state, int socket);

    ContextHandle m_pContext;
    int m_serverSocket = -1;
    // The listening socket and every admitted client socket.
    fd_set m_activeSockets;
    Clock::duration m_idleLimit = g_defaultIdleLimit;
};

} // namespace orv::modbus
