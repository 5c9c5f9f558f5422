#pragma once
// A Modbus TCP conversation without a network: two connected stream
// sockets with a libmodbus TCP context on each end. The server end receives
// requests (modbus_receive) for a map to answer; the client end is a
// libmodbus client, or its socket sends hand-made frames.
//
// Both contexts wait at most 2 s for a request or a reply; a test changes
// that on its context where it needs to.

#include <memory>

#include <modbus/modbus.h>

namespace orv::test {

class ModbusSocketPair {
public:
    ModbusSocketPair();
    ~ModbusSocketPair();

    ModbusSocketPair(const ModbusSocketPair&) = delete;
    ModbusSocketPair& operator=(const ModbusSocketPair&) = delete;

    modbus_t* server() const;
    modbus_t* client() const;
    int serverSocket() const;
    int clientSocket() const;

private:
    struct ContextDeleter {
        void operator()(modbus_t* context) const;
    };
    using Context = std::unique_ptr<modbus_t, ContextDeleter>;

    static Context contextOn(int socket);

    int m_serverSocket = -1;
    int m_clientSocket = -1;
    Context m_pServer;
    Context m_pClient;
};

} // namespace orv::test
