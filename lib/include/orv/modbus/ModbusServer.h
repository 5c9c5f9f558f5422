#pragma once

#include <orv/modbus/ModbusMapsConfiguration.h>
#include <orv/modbus/ModbusServerSettings.h>
#include <orv/modbus/ModbusStatisticHandlers.h>

#include <memory>
#include <optional>
#include <thread>

namespace orv::modbus {

class RtuFrontEnd;
class TcpFrontEnd;

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
    // the handler threads take it when they start.
    void setStatisticHandler(std::shared_ptr<ModbusStatisticHandlers> statisticHandlers);

    // Whether at least one front end is open.
    bool isEnabled() const;

    // Starts one handler thread per open front end, each with its own copy
    // of its table of the configuration. Call it once.
    void run(const ModbusMapsConfiguration& maps);

    // Requests both threads to end, waits for them and closes the front
    // ends. The listening TCP socket stays bound until destruction.
    void stop();

private:
    void initRtu(const ModbusServerSettings& settings, bool debug);
    void initTcp(const ModbusServerSettings& settings, bool debug);

    std::shared_ptr<ModbusStatisticHandlers> m_pStatisticHandlers;
    std::unique_ptr<TcpFrontEnd> m_pTcp;
    std::optional<std::jthread> m_rtuThread;
    std::optional<std::jthread> m_tcpThread;
    std::unique_ptr<RtuFrontEnd> m_pRtu;
};

} // namespace orv::modbus
