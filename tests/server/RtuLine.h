#pragma once
// The master's side of a serial line in the RTU tests: raw frames written
// and read with bounded waits, and the CRC that makes a frame valid.

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/crc.hpp>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace orv::modbus::test {

using Bytes = std::vector<std::uint8_t>;

// `bytes` followed by their Modbus CRC, low byte first.
inline Bytes withCrc(Bytes bytes)
{
    boost::crc_optimal<16, 0x8005, 0xFFFF, 0, true, true> crc;
    crc.process_bytes(bytes.data(), bytes.size());
    bytes.push_back(static_cast<std::uint8_t>(crc.checksum() & 0xFF));
    bytes.push_back(static_cast<std::uint8_t>(crc.checksum() >> 8));
    return bytes;
}

class RawRtuLine {
public:
    explicit RawRtuLine(const std::string& path)
        : m_fd(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        termios settings{};
        if (m_fd == -1 || tcgetattr(m_fd, &settings) != 0) {
            throw std::runtime_error("cannot open " + path);
        }
        cfmakeraw(&settings);
        tcsetattr(m_fd, TCSANOW, &settings);
    }
    ~RawRtuLine() { close(m_fd); }
    RawRtuLine(const RawRtuLine&) = delete;
    RawRtuLine& operator=(const RawRtuLine&) = delete;

    void send(const Bytes& bytes) const
    {
        if (write(m_fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("short write");
        }
    }

    // What arrives within `timeout`, ending at the first pause of 50 ms
    // once something came.
    Bytes receive(std::chrono::milliseconds timeout = std::chrono::milliseconds(1000)) const
    {
        Bytes received;
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < deadline) {
            pollfd watched{m_fd, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            const int wait = received.empty() ? static_cast<int>(std::max(left, std::chrono::milliseconds(1)).count()) : 50;
            if (poll(&watched, 1, wait) <= 0) {
                if (!received.empty()) {
                    break;
                }
                continue;
            }
            std::uint8_t chunk[256];
            const ssize_t got = read(m_fd, chunk, sizeof(chunk));
            if (got <= 0) {
                break;
            }
            received.insert(received.end(), chunk, chunk + got);
        }
        return received;
    }

private:
    int m_fd;
};

} // namespace orv::modbus::test
