#include "ModbusSocketPair.h"

#include <stdexcept>

#include <sys/socket.h>
#include <unistd.h>

namespace orv::test {

void ModbusSocketPair::ContextDeleter::operator()(modbus_t* context) const
{
    modbus_free(context);
}

ModbusSocketPair::ModbusSocketPair()
{
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) {
        throw std::runtime_error("socketpair failed");
    }
    m_serverSocket = sockets[0];
    m_clientSocket = sockets[1];
    try {
        m_pServer = contextOn(m_serverSocket);
        m_pClient = contextOn(m_clientSocket);
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

ModbusSocketPair::Context ModbusSocketPair::contextOn(int socket)
{
    Context context(modbus_new_tcp("127.0.0.1", MODBUS_TCP_DEFAULT_PORT));
    if (!context || modbus_set_socket(context.get(), socket) != 0) {
        throw std::runtime_error("cannot create a libmodbus context");
    }
    modbus_set_indication_timeout(context.get(), 2, 0);
    modbus_set_response_timeout(context.get(), 2, 0);
    return context;
}

} // namespace orv::test
