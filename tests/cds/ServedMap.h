#pragma once
// A Modbus TCP conversation over a socket pair between a real libmodbus
// client and a map: a thread answers each request of the client end with
// the map's processRequest.

#include "ModbusSocketPair.h"

#include <orv/modbus/ModbusMap.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include <modbus/modbus.h>

namespace orv::test {

class ServedMap {
public:
    explicit ServedMap(orv::modbus::ModbusMap& map)
        : m_map(map)
    {
        // Lets the serving loop look at its stop flag several times a second.
        modbus_set_indication_timeout(m_sockets.server(), 0, 50000);
        m_thread = std::thread([this] { serve(); });
    }

    ~ServedMap()
    {
        m_stop = true;
        m_thread.join();
    }

    ServedMap(const ServedMap&) = delete;
    ServedMap& operator=(const ServedMap&) = delete;

    modbus_t* client() const
    {
        return m_sockets.client();
    }

    // Function code 3.
    std::vector<uint16_t> readHolding(uint16_t address, int count) const
    {
        std::vector<uint16_t> words(static_cast<std::size_t>(count));
        if (modbus_read_registers(client(), address, count, words.data()) != count) {
            return {};
        }
        return words;
    }

    // Function code 1.
    std::vector<uint8_t> readCoils(uint16_t address, int count) const
    {
        return readBits(modbus_read_bits, address, count);
    }

    // Function code 2.
    std::vector<uint8_t> readDiscreteInputs(uint16_t address, int count) const
    {
        return readBits(modbus_read_input_bits, address, count);
    }

private:
    std::vector<uint8_t> readBits(int (*read)(modbus_t*, int, int, uint8_t*), uint16_t address, int count) const
    {
        std::vector<uint8_t> bits(static_cast<std::size_t>(count));
        if (read(client(), address, count, bits.data()) != count) {
            return {};
        }
        return bits;
    }

    void serve()
    {
        uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
        while (!m_stop) {
            const int length = modbus_receive(m_sockets.server(), query);
            if (length > 0) {
                m_map.processRequest(m_sockets.server(), query, static_cast<unsigned>(length), false, false, false);
            }
        }
    }

    orv::modbus::ModbusMap& m_map;
    ModbusSocketPair m_sockets;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace orv::test
