#pragma once
// A Modbus TCP conversation over a socket pair in which a thread answers
// each request of the client end with a map's processRequest, so that a real
// libmodbus client talks to the map.

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
    explicit ServedMap(modbus::ModbusMap& map);
    ~ServedMap();

    ServedMap(const ServedMap&) = delete;
    ServedMap& operator=(const ServedMap&) = delete;

    modbus_t* client() const;

    // What the client reads, each empty when the read failed.
    std::vector<std::uint16_t> readHolding(std::uint16_t address, int count) const; // function code 3
    std::vector<std::uint8_t> readCoils(std::uint16_t address, int count) const; // function code 1
    std::vector<std::uint8_t> readDiscreteInputs(std::uint16_t address, int count) const; // function code 2

private:
    std::vector<std::uint8_t> readBits(int (*read)(modbus_t*, int, int, std::uint8_t*), std::uint16_t address,
                                       int count) const;
    void serve();

    modbus::ModbusMap& m_map;
    ModbusSocketPair m_sockets;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace orv::test
