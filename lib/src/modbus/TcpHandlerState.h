#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <modbus/modbus-tcp.h>

namespace orv::modbus {

// What the Modbus TCP handler thread knows about its admitted clients, and
// its receive buffer. Lives as long as one run of the thread.
class TcpHandlerState {
public:
    using Clock = std::chrono::steady_clock;

    struct Client {
        // Text the client is known by in logs and address matching.
        std::string address;
        // Unit ids the client may address, fixed when it was accepted.
        std::set<std::uint8_t> allowedUnits;
        // Time of its last request, or of its acceptance.
        Clock::time_point lastActivity;
    };

    explicit TcpHandlerState(int serverSocket);

    // Highest socket number the handler scans.
    int fdMax() const;

    void admit(int socket, Client client);
    // nullptr when the socket is not an admitted client.
    Client* find(int socket);
    // Drops the client. When it held the highest socket, the scan bound
    // comes down by one only: it may stay above the highest open socket,
    // which costs a few empty scan steps and nothing else.
    void forget(int socket);

    // Admitted sockets, ascending.
    std::vector<int> sockets() const;
    // Sockets whose client has been silent for more than `limit`, ascending.
    std::vector<int> socketsIdleFor(Clock::duration limit, Clock::time_point now) const;

    std::uint8_t* query();

private:
    int m_fdMax;
    std::map<int, Client> m_clients;
    std::array<std::uint8_t, MODBUS_TCP_MAX_ADU_LENGTH> m_query{};
};

} // namespace orv::modbus
