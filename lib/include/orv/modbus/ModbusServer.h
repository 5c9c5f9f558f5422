#pragma once

#include <orv/modbus/ModbusMapSettings.h>
#include <orv/modbus/ModbusMapsConfiguration.h>
#include <orv/modbus/ModbusServerSettings.h>
#include <orv/modbus/ModbusStatisticHandlers.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include <modbus/modbus.h>
#include <sys/select.h>
#include <sys/socket.h>

namespace orv::modbus {

class TcpHandlerState;

// The Modbus front end of the gateway: a Modbus TCP server on every local
// IPv4 and IPv6 address and a Modbus RTU server on one serial line, each
// answered by its own thread from the maps of a ModbusMapsConfiguration.
//
// Lifecycle: the constructor opens the front ends the settings enable; run()
// starts their threads and returns at once; stop() ends the threads (each
// notices within about a second) and closes the front ends. Destroying a
// running server stops it too. All of these belong to one owning thread.
class ModbusServer {
public:
    using Clock = std::chrono::steady_clock;

    // How long a TCP client may stay silent before it is disconnected; it
    // is closed once it has been silent for more than this.
    static constexpr Clock::duration g_defaultIdleLimit = std::chrono::seconds(300);
    // How long the rest of a TCP request may take to arrive once its first
    // bytes are there. A client that drips a request byte by byte loses its
    // connection after this; everyone else is served meanwhile.
    static constexpr Clock::duration g_requestTimeLimit = std::chrono::seconds(1);

    // Opens the serial line first, then the TCP socket, each only when
    // enabled. Throws std::runtime_error when either cannot be opened.
    // `debug` makes libmodbus trace every frame on standard output.
    ModbusServer(const ModbusServerSettings& settings, std::shared_ptr<ModbusStatisticHandlers> statisticHandlers,
                 bool debug);
    ModbusServer(const ModbusServerSettings& settings, bool debug);
    ~ModbusServer();

    ModbusServer(const ModbusServer&) = delete;
    ModbusServer& operator=(const ModbusServer&) = delete;

    // Replaces the statistic handlers (may be empty). Call it before run():
    // the handler threads read it without synchronisation.
    void setStatisticHandler(std::shared_ptr<ModbusStatisticHandlers> statisticHandlers);

    // Shortens or lengthens the idle limit of TCP clients. Call it before
    // run(). Meant for tests and special deployments; the default suits
    // SCADA polling.
    void setIdleLimit(Clock::duration limit);
    Clock::duration idleLimit() const;

    // Whether at least one front end is open.
    bool isEnabled() const;

    // Starts one handler thread per open front end, each with its own copy
    // of its table of the configuration. Call it once.
    void run(const ModbusMapsConfiguration& maps);

    // Requests both threads to end, waits for them and closes the front
    // ends. The listening TCP socket stays bound until destruction.
    void stop();

private:
    // Closes the context's connection (a no-op when it has none) and frees it.
    struct ContextDeleter {
        void operator()(modbus_t* context) const;
    };
    using ContextHandle = std::unique_ptr<modbus_t, ContextDeleter>;

    void initRtu(const ModbusServerSettings& settings, bool debug);
    void initTcp(const ModbusServerSettings& settings, bool debug);
    // Replaces tcpContext by a new context for `node` (nullptr: IPv4 only).
    void createTcpContext(const char* node, const std::string& port, bool debug);

    void handlerTcp(std::stop_token stopToken, const ModbusMapSettingsTable& maps);
    // One pass over the sockets select() found readable.
    void serveReadySockets(std::stop_token stopToken, TcpHandlerState& state, const fd_set& readSockets,
                           const ModbusMapSettingsTable& maps, Clock::time_point now);
    // The sockets select() waits on in this pass: every active one except
    // those holding an incomplete request (`incomplete`), and the listening
    // socket only while accepting is not paused.
    fd_set socketsToWaitOn(const TcpHandlerState& state, const std::vector<int>& incomplete,
                           Clock::time_point now) const;
    void acceptClient(TcpHandlerState& state, const ModbusMapSettingsTable& maps, Clock::time_point now);
    // Takes a pending connection off the listening socket and closes it when
    // the process has no descriptor left for it.
    void refuseWithoutDescriptor(TcpHandlerState& state, Clock::time_point now);
    // Receives and answers one request once all of it has arrived; false
    // when a stop was requested meanwhile, which ends the scan.
    bool serveClient(std::stop_token stopToken, TcpHandlerState& state, int socket,
                     const ModbusMapSettingsTable& maps, Clock::time_point now);
    // Answers one received request of `length` bytes, or closes the
    // connection when the client may not address its unit id.
    void answerRequest(TcpHandlerState& state, int socket, int length, const ModbusMapSettingsTable& maps,
                       Clock::time_point now);
    void closeIdleClients(TcpHandlerState& state, Clock::time_point now);
    // Closes the clients whose request has been incomplete for too long.
    void closeStalledClients(TcpHandlerState& state, Clock::time_point now);
    void closeAllClients(TcpHandlerState& state);
    // Closes and forgets one client; returns its address text.
    std::string closeClient(TcpHandlerState& state, int socket);

    // Calls one statistic operation when handlers are set.
    void notify(void (ModbusStatisticHandlers::*event)()) const;

    std::shared_ptr<ModbusStatisticHandlers> m_pStatisticHandlers;
    ContextHandle m_pTcpContext;
    int m_serverSocket = -1;
    // The listening socket and every admitted client socket.
    fd_set m_activeSockets;
    Clock::duration m_idleLimit = g_defaultIdleLimit;
    std::optional<std::jthread> m_rtuThread;
    std::optional<std::jthread> m_tcpThread;
    ContextHandle m_pRtuContext;
};

// The text a TCP client is known by, for address matching and logs: dotted
// IPv4, or upper-case IPv6 text with IPv4-mapped addresses reduced to their
// IPv4 part ("::ffff:192.168.1.20" gives "192.168.1.20"). Empty for any
// other address family.
std::string peerAddressText(const sockaddr_storage& address);

// How many bytes libmodbus reads for the Modbus TCP request that starts with
// the `available` bytes at `bytes`, as far as they tell: the MBAP header and
// the function code, the fields of that code, then the data a write
// announces. libmodbus ignores the length field of the MBAP header. A result
// above `available` means the request has not fully arrived (more may be
// needed than the result says, once the missing bytes tell). A request that
// would not fit the largest frame ends after its fields: libmodbus refuses
// it there.
std::size_t tcpRequestLength(const std::uint8_t* bytes, std::size_t available);

} // namespace orv::modbus
