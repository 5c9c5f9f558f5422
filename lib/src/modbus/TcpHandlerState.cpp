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

template <class Predicate>
std::vector<int> TcpHandlerState::socketsWhere(Predicate predicate) const
{
    std::vector<int> result;
    for (const auto& [socket, client] : m_clients) {
        if (predicate(client)) {
            result.push_back(socket);
        }
    }
    return result;
}

std::vector<int> TcpHandlerState::sockets() const
{
    return socketsWhere([](const Client&) { return true; });
}

std::vector<int> TcpHandlerState::socketsIdleFor(Clock::duration limit, Clock::time_point now) const
{
    return socketsWhere([limit, now](const Client& client) { return now - client.lastActivity > limit; });
}

std::vector<int> TcpHandlerState::socketsWithIncompleteRequest() const
{
    return socketsWhere([](const Client& client) { return client.incompleteSince.has_value(); });
}

std::vector<int> TcpHandlerState::socketsIncompleteFor(Clock::duration limit, Clock::time_point now) const
{
    return socketsWhere([limit, now](const Client& client) {
        return client.incompleteSince && now - *client.incompleteSince > limit;
    });
}

SpareDescriptor& TcpHandlerState::spare()
{
    return m_spare;
}

void TcpHandlerState::pauseAccepting(Clock::time_point until)
{
    m_acceptResumesAt = until;
}

bool TcpHandlerState::isAccepting(Clock::time_point now) const
{
    return now >= m_acceptResumesAt;
}

TcpHandlerState::Clock::time_point TcpHandlerState::acceptResumesAt() const
{
    return m_acceptResumesAt;
}

std::uint8_t* TcpHandlerState::query()
{
    return m_query.data();
}

} // namespace orv::modbus
