#include "ServiceNotifySocket.h"

#include <cstring>
#include <sstream>
#include <stdexcept>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace orv::test {
namespace {

bool hasLine(const std::string& message, const std::string& wanted)
{
    std::istringstream lines(message);
    for (std::string line; std::getline(lines, line);) {
        if (line == wanted) {
            return true;
        }
    }
    return false;
}

} // namespace

ServiceNotifySocket::ServiceNotifySocket(std::string path)
    : m_path(std::move(path))
    , m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_socket == -1 || m_path.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error("cannot make the notify socket " + m_path);
    }
    std::memcpy(address.sun_path, m_path.c_str(), m_path.size() + 1);
    unlink(m_path.c_str());
    if (bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        throw std::runtime_error("cannot bind the notify socket " + m_path + ": " + std::strerror(errno));
    }
}

ServiceNotifySocket::~ServiceNotifySocket()
{
    close(m_socket);
    unlink(m_path.c_str());
}

bool ServiceNotifySocket::waitFor(const std::string& line, std::chrono::milliseconds timeout)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + timeout;
    for (auto now = Clock::now(); now < deadline; now = Clock::now()) {
        pollfd waiting{m_socket, POLLIN, 0};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
        if (poll(&waiting, 1, static_cast<int>(left.count()) + 1) <= 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t length = recv(m_socket, buffer, sizeof(buffer), 0);
        if (length > 0 && hasLine(std::string(buffer, static_cast<std::size_t>(length)), line)) {
            return true;
        }
    }
    return false;
}

} // namespace orv::test
