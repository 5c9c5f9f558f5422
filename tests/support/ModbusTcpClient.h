#pragma once

#include "SocketChecks.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus::test {

// A real libmodbus TCP client for one unit id. It connects itself, or, given
// a `socket` connected elsewhere, talks over that one and then owns it.
class ModbusTcpClient {
public:
    ModbusTcpClient(const std::string& host, std::uint16_t port, int unit,
                    std::chrono::milliseconds responseTimeout = std::chrono::seconds(2), int socket = -1)
        : m_pContext(modbus_new_tcp_pi(host.c_str(), std::to_string(port).c_str()))
    {
        modbus_set_slave(m_pContext, unit);
        const auto ms = responseTimeout.count();
        modbus_set_response_timeout(m_pContext, static_cast<uint32_t>(ms / 1000),
                                    static_cast<uint32_t>(ms % 1000 * 1000));
        m_connected = socket == -1 ? modbus_connect(m_pContext) == 0 : modbus_set_socket(m_pContext, socket) == 0;
    }
    ~ModbusTcpClient()
    {
        modbus_close(m_pContext);
        modbus_free(m_pContext);
    }
    ModbusTcpClient(const ModbusTcpClient&) = delete;
    ModbusTcpClient& operator=(const ModbusTcpClient&) = delete;

    bool connected() const { return m_connected; }
    void setUnit(int unit) { modbus_set_slave(m_pContext, unit); }
    int fd() const { return modbus_get_socket(m_pContext); }
    // errno of the last failed call.
    int lastError() const { return m_lastError; }

    std::optional<std::vector<std::uint16_t>> readHolding(int address, int count)
    {
        return readWith(modbus_read_registers, address, count);
    }

    std::optional<std::vector<std::uint16_t>> readInput(int address, int count)
    {
        return readWith(modbus_read_input_registers, address, count);
    }

    bool writeHolding(int address, std::uint16_t value)
    {
        if (modbus_write_register(m_pContext, address, value) != 1) {
            m_lastError = errno;
            return false;
        }
        return true;
    }

    // Writes all of `words` with one request (function code 16).
    bool writeHolding(int address, const std::vector<std::uint16_t>& words)
    {
        const auto count = static_cast<int>(words.size());
        if (modbus_write_registers(m_pContext, address, count, words.data()) != count) {
            m_lastError = errno;
            return false;
        }
        return true;
    }

    // Sends a read of holding registers without waiting for the reply, so
    // that many clients can have a request outstanding at once.
    bool sendReadHolding(int address, int count)
    {
        const std::uint8_t request[] = {static_cast<std::uint8_t>(modbus_get_slave(m_pContext)), 0x03,
                                        static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address),
                                        static_cast<std::uint8_t>(count >> 8), static_cast<std::uint8_t>(count)};
        return modbus_send_raw_request(m_pContext, request, sizeof(request)) != -1;
    }

    // The words of the reply to sendReadHolding.
    std::optional<std::vector<std::uint16_t>> receiveReadHolding()
    {
        std::uint8_t reply[MODBUS_TCP_MAX_ADU_LENGTH] = {};
        const int length = modbus_receive_confirmation(m_pContext, reply);
        // MBAP header (7), function code, byte count, then the words.
        if (length < 9 || reply[7] != 0x03 || length != 9 + reply[8]) {
            m_lastError = errno;
            return std::nullopt;
        }
        std::vector<std::uint16_t> words;
        for (int index = 9; index + 1 < length; index += 2) {
            words.push_back(static_cast<std::uint16_t>(reply[index] << 8 | reply[index + 1]));
        }
        return words;
    }

    bool closedByPeerWithin(std::chrono::milliseconds timeout) const { return peerClosedWithin(fd(), timeout); }

private:
    using Read = int (*)(modbus_t*, int, int, std::uint16_t*);

    std::optional<std::vector<std::uint16_t>> readWith(Read read, int address, int count)
    {
        std::vector<std::uint16_t> words(static_cast<std::size_t>(count));
        if (read(m_pContext, address, count, words.data()) != count) {
            m_lastError = errno;
            return std::nullopt;
        }
        return words;
    }

    modbus_t* m_pContext;
    bool m_connected = false;
    int m_lastError = 0;
};

} // namespace orv::modbus::test
