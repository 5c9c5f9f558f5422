#include "TcpHandlerState.h"

#include <algorithm>
#include <utility>

namespace orv::modbus {

TcpHandlerState::TcpHandlerState(int serverSocket)
    : m_fdMax(serverSocket)
{
}

int TcpHandlerState::fdMax() const
{
    return m_fdMax;
}

void TcpHandlerState::admit(int socket, Client client)
{
    m_clients.insert_or_assign(socket, std::move(client));
    m_fdMax = std::max(m_fdMax, socket);
}

TcpHandlerState::Client* TcpHandlerState::find(int socket)
{
    const auto found = m_clients.find(socket);
    return found == m_clients.end() ? nullptr : &found->second;
}

void TcpHandlerState::forget(int socket)
{
    m_clients.erase(socket);
    if (socket == m_fdMax) {
        --m_fdMax;
    }
}

std::vector<int> TcpHandlerState::sockets() const
{
    std::vector<int> result;
    result.reserve(m_clients.size());
    for (const auto& [socket, client] : m_clients) {
        result.push_back(socket);
    }
    return result;
}

std::vector<int> TcpHandlerState::socketsIdleFor(Clock::duration limit, Clock::time_point now) const
{
    std::vector<int> result;
    for (const auto& [socket, client] : m_clients) {
        if (now - client.lastActivity > limit) {
            result.push_back(socket);
        }
    }
    return result;
}

std::uint8_t* TcpHandlerState::query()
{
    return m_query.data();
}

} // namespace orv::modbus
