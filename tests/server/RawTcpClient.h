#pragma once

#include "SocketChecks.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv::modbus::test {

// A plain TCP connection for sending hand-made bytes, including frames a
// libmodbus client refuses to build.
class RawTcpClient {
public:
    RawTcpClient(const std::string& host, std::uint16_t port)
        : m_fd(connectTo(host, port))
    {
    }
    ~RawTcpClient()
    {
        if (m_fd != -1) {
            close(m_fd);
        }
    }
    RawTcpClient(const RawTcpClient&) = delete;
    RawTcpClient& operator=(const RawTcpClient&) = delete;

    bool connected() const { return m_fd != -1; }
    int fd() const { return m_fd; }

    bool send(const std::vector<std::uint8_t>& bytes) const
    {
        return ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    // A read-holding-registers request (function 3) for any unit id.
    static std::vector<std::uint8_t> readHoldingFrame(std::uint8_t unit, std::uint16_t address, std::uint16_t count)
    {
        return {0x00, 0x01, 0x00, 0x00, 0x00, 0x06, unit, 0x03,
                static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address),
                static_cast<std::uint8_t>(count >> 8), static_cast<std::uint8_t>(count)};
    }

    // Whatever arrives within `timeout` (empty on timeout or EOF).
    std::vector<std::uint8_t> receive(std::chrono::milliseconds timeout) const
    {
        pollfd watched{m_fd, POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(timeout.count())) <= 0) {
            return {};
        }
        std::vector<std::uint8_t> bytes(512);
        const ssize_t received = recv(m_fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
        return bytes;
    }

    bool closedByPeerWithin(std::chrono::milliseconds timeout) const { return peerClosedWithin(m_fd, timeout); }

private:
    int m_fd;
};

} // namespace orv::modbus::test
