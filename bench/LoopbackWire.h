#pragma once
// A Modbus TCP conversation inside one thread: a socket pair whose server
// end is a libmodbus TCP context. The client end sends prepared request
// frames and reads each whole reply back, so that a benchmark loop can
// send, receive, answer and drain without a second thread.

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus::bench {

class LoopbackWire {
public:
    LoopbackWire()
    {
        int sockets[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) {
            throw std::runtime_error("socketpair failed");
        }
        m_server = sockets[0];
        m_client = sockets[1];
        m_pContext.reset(modbus_new_tcp("127.0.0.1", MODBUS_TCP_DEFAULT_PORT));
        if (!m_pContext || modbus_set_socket(m_pContext.get(), m_server) != 0) {
            throw std::runtime_error("cannot create a libmodbus context");
        }
        modbus_set_indication_timeout(m_pContext.get(), 1, 0);
    }

    ~LoopbackWire()
    {
        m_pContext.reset();
        close(m_server);
        close(m_client);
    }

    LoopbackWire(const LoopbackWire&) = delete;
    LoopbackWire& operator=(const LoopbackWire&) = delete;

    modbus_t* server() const
    {
        return m_pContext.get();
    }

    // Sends `frame` from the client end and receives it at the server end
    // into `query`; returns the request's length, or -1.
    int deliver(const std::vector<uint8_t>& frame, uint8_t* query) const
    {
        if (::send(m_client, frame.data(), frame.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size())) {
            return -1;
        }
        return modbus_receive(m_pContext.get(), query);
    }

    // Reads one whole reply at the client end; false when none came within
    // a second.
    bool drainReply() const
    {
        uint8_t reply[MODBUS_TCP_MAX_ADU_LENGTH];
        std::size_t length = 0;
        std::size_t expected = g_mbapLength;
        while (length < expected) {
            pollfd descriptor{m_client, POLLIN, 0};
            if (poll(&descriptor, 1, 1000) != 1) {
                return false;
            }
            const ssize_t received = recv(m_client, reply + length, expected - length, 0);
            if (received <= 0) {
                return false;
            }
            length += static_cast<std::size_t>(received);
            if (length == g_mbapLength) {
                // The MBAP length counts the unit id, which the header holds.
                expected = g_mbapLength - 1 + (static_cast<std::size_t>(reply[4]) << 8 | reply[5]);
            }
        }
        return true;
    }

    // A request frame with an MBAP header around `pdu`.
    static std::vector<uint8_t> frame(const std::vector<uint8_t>& pdu)
    {
        const auto length = static_cast<uint16_t>(pdu.size() + 1);
        std::vector<uint8_t> bytes(g_mbapLength + pdu.size());
        bytes[1] = 1; // transaction id
        bytes[4] = static_cast<uint8_t>(length >> 8);
        bytes[5] = static_cast<uint8_t>(length & 0xff);
        bytes[6] = g_unitId;
        std::copy(pdu.begin(), pdu.end(), bytes.begin() + g_mbapLength);
        return bytes;
    }

private:
    struct ContextDeleter {
        void operator()(modbus_t* ctx) const
        {
            modbus_free(ctx);
        }
    };

    static constexpr std::size_t g_mbapLength = 7;
    static constexpr uint8_t g_unitId = 1;

    int m_server = -1;
    int m_client = -1;
    std::unique_ptr<modbus_t, ContextDeleter> m_pContext;
};

} // namespace orv::modbus::bench
