#pragma once
// A Modbus conversation without a network: two connected stream sockets
// with a libmodbus context on each end. The server end receives requests
// (modbus_receive) for a map to answer; the client end is a libmodbus
// client, or its socket sends hand-made frames. Tests, benchmarks and the
// request fuzz target all talk to the map through it.
//
// Both contexts wait at most 2 s for a request or a reply; a user changes
// that on its context where it needs to.

#include <cstdint>
#include <memory>
#include <vector>

#include <modbus/modbus.h>

namespace orv::test {

class ModbusSocketPair {
public:
    // Rtu frames the stream as a serial line would (unit id, PDU, CRC);
    // the serial device of the context is never opened.
    enum class Framing { Tcp, Rtu };

    explicit ModbusSocketPair(Framing framing = Framing::Tcp);
    ~ModbusSocketPair();

    ModbusSocketPair(const ModbusSocketPair&) = delete;
    ModbusSocketPair& operator=(const ModbusSocketPair&) = delete;

    modbus_t* server() const;
    modbus_t* client() const;
    int serverSocket() const;
    int clientSocket() const;

    // A Modbus TCP request: the MBAP header, then `pdu`.
    static std::vector<uint8_t> tcpFrame(uint16_t transactionId, uint8_t unitId, const std::vector<uint8_t>& pdu);

private:
    struct ContextDeleter {
        void operator()(modbus_t* context) const;
    };
    using Context = std::unique_ptr<modbus_t, ContextDeleter>;

    static Context contextOn(int socket, Framing framing);

    int m_serverSocket = -1;
    int m_clientSocket = -1;
    Context m_pServer;
    Context m_pClient;
};

} // namespace orv::test
