#pragma once

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orv::modbus::test {

// Whether the peer closed `fd` (EOF or reset) within `timeout`. Unread data
// from the peer counts as "not closed".
inline bool peerClosedWithin(int fd, std::chrono::milliseconds timeout)
{
    pollfd watched{fd, POLLIN, 0};
    const int ready = poll(&watched, 1, static_cast<int>(timeout.count()));
    if (ready <= 0) {
        return false;
    }
    char byte = 0;
    const ssize_t received = recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return received == 0 || (received == -1 && errno == ECONNRESET);
}

// Whether the connection is still open right now (nothing to read, no EOF).
inline bool isOpenNow(int fd)
{
    pollfd watched{fd, POLLIN, 0};
    return poll(&watched, 1, 0) == 0;
}

// A blocking TCP connection to a numeric host, or -1 with errno set.
inline int connectTo(const std::string& host, std::uint16_t port)
{
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        errno = EINVAL;
        return -1;
    }
    const int fd = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd != -1 && connect(fd, found->ai_addr, found->ai_addrlen) == -1) {
        const int error = errno;
        close(fd);
        freeaddrinfo(found);
        errno = error;
        return -1;
    }
    freeaddrinfo(found);
    return fd;
}

// Whether a connection attempt is refused (nothing listens on the port).
inline bool connectionRefused(const std::string& host, std::uint16_t port)
{
    const int fd = connectTo(host, port);
    if (fd != -1) {
        close(fd);
        return false;
    }
    return errno == ECONNREFUSED;
}

} // namespace orv::modbus::test
