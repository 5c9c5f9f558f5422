#pragma once

#include <orv/common/SerialSettings.h>

#include <cstdint>
#include <string>

namespace orv::modbus {

// Which front ends a ModbusServer opens and how. The server reads it once,
// while it is constructed, and keeps no reference to it.
//
// The serial line always runs in RS-485 mode with RTS up, slave address 0,
// no error recovery and a 1 s indication timeout: there is deliberately no
// field for those.
struct ModbusServerSettings {
    // A label for the daemon and its user interfaces; the server ignores it.
    std::string name;
    bool tcpEnabled = false;
    // Port the Modbus TCP socket listens on, on every local IPv4 and IPv6
    // address.
    std::uint32_t tcpPort = 502;
    // Path of the serial device, handed to libmodbus as it is.
    std::string rtuDevice;
    bool rtuEnabled = false;
    common::BaudRate baudRate = common::BaudRate::Baud9600;
    // 5 to 8.
    std::int32_t dataBits = 8;
    common::Parity parity = common::Parity::None;
    // 1 or 2.
    std::int32_t stopBits = 1;
};

// The line speed in bit/s for libmodbus. Values without a table entry fall
// back to 9600 instead of failing: a configuration with an unknown speed
// still gets a working line.
int getBaudForLib(common::BaudRate baudRate);

// The parity letter libmodbus takes: 'E' for Even, 'O' for Odd and 'N' for
// everything else, unknown values included.
char getParityForLib(common::Parity parity);

} // namespace orv::modbus
