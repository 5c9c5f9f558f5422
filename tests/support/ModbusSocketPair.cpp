#include "ModbusSocketPair.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include <sys/socket.h>
#include <unistd.h>

namespace orv::test {

void ModbusSocketPair::ContextDeleter::operator()(modbus_t* context) const
{
    modbus_free(context);
}

ModbusSocketPair::ModbusSocketPair(Framing framing)
{
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) {
        throw std::runtime_error("socketpair failed");
    }
    m_serverSocket = sockets[0];
    m_clientSocket = sockets[1];
    try {
        m_pServer = contextOn(m_serverSocket, framing);
        m_pClient = contextOn(m_clientSocket, framing);
    } catch (...) {
        close(m_serverSocket);
        close(m_clientSocket);
        throw;
    }
}

ModbusSocketPair::~ModbusSocketPair()
{
    close(m_serverSocket);
    close(m_clientSocket);
}

modbus_t* ModbusSocketPair::server() const
{
    return m_pServer.get();
}

modbus_t* ModbusSocketPair::client() const
{
    return m_pClient.get();
}

int ModbusSocketPair::serverSocket() const
{
    return m_serverSocket;
}

int ModbusSocketPair::clientSocket() const
{
    return m_clientSocket;
}

std::vector<uint8_t> ModbusSocketPair::tcpFrame(uint16_t transactionId, uint8_t unitId,
                                                const std::vector<uint8_t>& pdu)
{
    const auto length = static_cast<uint16_t>(pdu.size() + 1);
    const std::array<uint8_t, 7> header{static_cast<uint8_t>(transactionId >> 8),
                                        static_cast<uint8_t>(transactionId & 0xff),
                                        0,
                                        0,
                                        static_cast<uint8_t>(length >> 8),
                                        static_cast<uint8_t>(length & 0xff),
                                        unitId};
    // Sized once and filled: growing a vector of seven from an initializer
    // list makes GCC 12 for 32-bit ARM warn of a copy out of bounds that
    // does not happen (-Warray-bounds).
    std::vector<uint8_t> frame(header.size() + pdu.size());
    std::copy(pdu.begin(), pdu.end(), std::copy(header.begin(), header.end(), frame.begin()));
    return frame;
}

ModbusSocketPair::Context ModbusSocketPair::contextOn(int socket, Framing framing)
{
    Context context(framing == Framing::Rtu ? modbus_new_rtu("/dev/null", 19200, 'N', 8, 1)
                                            : modbus_new_tcp("127.0.0.1", MODBUS_TCP_DEFAULT_PORT));
    if (!context || modbus_set_socket(context.get(), socket) != 0) {
        throw std::runtime_error("cannot create a libmodbus context");
    }
    modbus_set_indication_timeout(context.get(), 2, 0);
    modbus_set_response_timeout(context.get(), 2, 0);
    return context;
}

} // namespace orv::test
