#pragma once

#include <orv/logging/Logger.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include <modbus/modbus.h>

namespace orv::modbus {

// The length check of the serial handler: the frame length it insists on
// for a request, by function code, before the request reaches a map. Its
// table keeps rows that differ from the protocol (diagnostics expects 6
// bytes, codes without a row 3, the exception codes 0x81 to 0x90 rows of
// their own), so that such frames are dropped as they always were.
class ModbusRtuRequestHandler {
public:
    // The length a frame of `length` bytes at `frame` (unit id first, CRC
    // last) must have, by its function code; 0 for a frame of 2 bytes or
    // fewer, which nothing accepts. Logs the function code at debug level.
    static std::size_t getRequestSize(const std::uint8_t* frame, std::size_t length)
    {
        if (length <= 2) {
            return 0;
        }
        SPDLOG_LOGGER_DEBUG(logger(), "functionCode: {}", frame[1]);
        return dataSize(frame) + g_framingLength;
    }

private:
    // Unit id and function code before the data; the CRC after it.
    static constexpr std::size_t g_framingLength = 3;
    // The byte count of a write of many values, counted from the unit id.
    static constexpr std::size_t g_byteCountIndex = 6;
    // Exception function codes 0x81 to 0x90 whose frame carries two data
    // bytes, one bit per code from 0x81 up.
    static constexpr std::uint16_t g_exceptionRowsWithData = 0xCCFF;
    static constexpr std::uint8_t g_firstExceptionCode = 0x81;
    static constexpr std::uint8_t g_lastExceptionCode = 0x90;

    // The data bytes expected between function code and CRC.
    static std::uint8_t dataSize(const std::uint8_t* frame)
    {
        const std::uint8_t function = frame[1];
        switch (function) {
        case MODBUS_FC_READ_COILS:
        case MODBUS_FC_READ_DISCRETE_INPUTS:
        case MODBUS_FC_READ_HOLDING_REGISTERS:
        case MODBUS_FC_READ_INPUT_REGISTERS:
        case MODBUS_FC_WRITE_SINGLE_COIL:
        case MODBUS_FC_WRITE_SINGLE_REGISTER:
            return 5;
        case MODBUS_FC_READ_EXCEPTION_STATUS:
        case 11: // get comm event counter
        case 12: // get comm event log
            return 1;
        case 8: // diagnostics
            return 3;
        case MODBUS_FC_WRITE_MULTIPLE_COILS:
        case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
            // Kept to 8 bits: a byte count above 249 wraps.
            return static_cast<std::uint8_t>(frame[g_byteCountIndex] + 6);
        default:
            if (function >= g_firstExceptionCode && function <= g_lastExceptionCode) {
                return (g_exceptionRowsWithData >> (function - g_firstExceptionCode)) & 1U ? 2 : 0;
            }
            return 0;
        }
    }

    // The library's logger, looked up once.
    static const std::shared_ptr<spdlog::logger>& logger()
    {
        static const auto instance = orv::logging::getLogger("ModbusServer");
        return instance;
    }
};

} // namespace orv::modbus
