#pragma once
// A test-owned stand-in for the service manager's notify socket: a datagram
// socket the daemon finds through NOTIFY_SOCKET, whose messages the test
// reads with a bounded wait.

#include <chrono>
#include <string>

namespace orv::test {

class ServiceNotifySocket {
public:
    explicit ServiceNotifySocket(std::string path);
    ~ServiceNotifySocket();

    ServiceNotifySocket(const ServiceNotifySocket&) = delete;
    ServiceNotifySocket& operator=(const ServiceNotifySocket&) = delete;

    const std::string& path() const { return m_path; }

    // Waits, bounded, for the next message whose lines include `line`;
    // every message read on the way is dropped. False on the time-out.
    bool waitFor(const std::string& line, std::chrono::milliseconds timeout);

private:
    std::string m_path;
    int m_socket = -1;
};

} // namespace orv::test
