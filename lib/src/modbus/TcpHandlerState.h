#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <modbus/modbus-tcp.h>

#include "SpareDescriptor.h"

namespace orv::modbus {

// What the Modbus TCP handler thread knows about its admitted clients and
// its listening socket, and its receive buffer. Lives as long as one run of
// the thread.
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
        // When the first bytes of a request that has not fully arrived yet
        // were seen; empty while no such request waits.
        std::optional<Clock::time_point> incompleteSince;
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
    // Sockets on which part of a request waits, ascending.
    std::vector<int> socketsWithIncompleteRequest() const;
    // Sockets whose waiting request has been incomplete for more than
    // `limit`, ascending.
    std::vector<int> socketsIncompleteFor(Clock::duration limit, Clock::time_point now) const;

    // The descriptor that lets the handler refuse a connection when the
    // process has none left.
    SpareDescriptor& spare();

    // Leaves pending connections alone until `until`: without a spare
    // descriptor the handler cannot take them off the listening socket.
    void pauseAccepting(Clock::time_point until);
    bool isAccepting(Clock::time_point now) const;
    Clock::time_point acceptResumesAt() const;

    std::uint8_t* query();

private:
    template <class Predicate>
    std::vector<int> socketsWhere(Predicate predicate) const;

    int m_fdMax;
    std::map<int, Client> m_clients;
    SpareDescriptor m_spare;
    Clock::time_point m_acceptResumesAt;
    std::array<std::uint8_t, MODBUS_TCP_MAX_ADU_LENGTH> m_query{};
};

} // namespace orv::modbus
