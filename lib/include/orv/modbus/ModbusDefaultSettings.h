#pragma once

#include <cstdint>
#include <string>

namespace orv::modbus {

// The factory defaults of the Modbus server and the ranges a user may choose
// from, as the gateway's persistent configuration stores them:
//
//   {"zu.tk_proto.config.PersistentConfig": {"oobs": [{"data": {
//      "modbus_server_configuration": {
//        "tcp": {"enabled": {"value": true}},
//        "rtu": {"enabled": {"value": false},
//                "parity": {"minValue": 0, "maxValue": 3, "value": 2},
//                "baud": {"minValue": 1, "maxValue": 8, "value": 4},
//                "stop_bits": {"minValue": 1, "maxValue": 2, "value": 1}}}}}]}}
//
// Only the first element of "oobs" counts; an empty "oobs" leaves every
// field false or 0. The numbers are those of common::Parity and
// common::BaudRate and are taken as they are: checking them is the caller's.
class ModbusDefaultSettings {
public:
    // Reads the whole file. Throws std::runtime_error "Impossible to open
    // file: <path>" when it cannot be read, and "Impossible to parse file:
    // <path> <reason>" when it is not JSON of the shape above.
    explicit ModbusDefaultSettings(std::string filePath);

    std::string filePath;
    bool tcpEnabled = false;
    bool rtuEnabled = false;
    std::int32_t parityMin = 0;
    std::int32_t parityMax = 0;
    std::int32_t parity = 0;
    std::int32_t baudMin = 0;
    std::int32_t baudMax = 0;
    std::int32_t baud = 0;
    std::int32_t stopBitsMin = 0;
    std::int32_t stopBitsMax = 0;
    std::int32_t stopBits = 0;

private:
    void read(const std::string& text);
};

} // namespace orv::modbus
