#include "RequestLength.h"

#include "ServerLogger.h"

#include <modbus/modbus.h>

namespace orv::modbus {
namespace {

// The MBAP header before the function code.
constexpr std::size_t g_mbapLength = 7;
// Unit id and function code before an RTU request's data; the CRC after it.
constexpr std::size_t g_rtuFramingLength = 3;
// The byte count of a write of many values, counted from the function code.
constexpr std::size_t g_writeByteCountIndex = 5;
constexpr std::size_t g_readWriteByteCountIndex = 9;
// Exception function codes 0x81 to 0x90 whose frame carries two data bytes,
// one bit per code from 0x81 up.
constexpr std::uint16_t g_exceptionRowsWithData = 0xCCFF;
constexpr std::uint8_t g_firstExceptionCode = 0x81;
constexpr std::uint8_t g_lastExceptionCode = 0x90;

std::size_t fieldsLength(std::uint8_t function)
{
    switch (function) {
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        return g_writeByteCountIndex;
    case MODBUS_FC_MASK_WRITE_REGISTER:
        return 6;
    case MODBUS_FC_WRITE_AND_READ_REGISTERS:
        return g_readWriteByteCountIndex;
    default:
        return function <= MODBUS_FC_WRITE_SINGLE_REGISTER ? 4 : 0;
    }
}

std::size_t dataLength(const std::uint8_t* pdu)
{
    switch (*pdu) {
    case MODBUS_FC_WRITE_MULTIPLE_COILS:
    case MODBUS_FC_WRITE_MULTIPLE_REGISTERS:
        return pdu[g_writeByteCountIndex];
    case MODBUS_FC_WRITE_AND_READ_REGISTERS:
        return pdu[g_readWriteByteCountIndex];
    default:
        return 0;
    }
}

// The data bytes the serial handler's table expects between function code
// and CRC.
std::uint8_t rtuDataSize(const std::uint8_t* frame)
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
        return static_cast<std::uint8_t>(frame[1 + g_writeByteCountIndex] + 6);
    default:
        if (function >= g_firstExceptionCode && function <= g_lastExceptionCode) {
            return (g_exceptionRowsWithData >> (function - g_firstExceptionCode)) & 1U ? 2 : 0;
        }
        return 0;
    }
}

} // namespace

std::size_t pduLength(const std::uint8_t* pdu, std::size_t available)
{
    std::size_t length = 1;
    if (available < length) {
        return length;
    }
    length += fieldsLength(*pdu);
    if (available < length) {
        return length;
    }
    return length + dataLength(pdu);
}

std::size_t tcpRequestLength(const std::uint8_t* bytes, std::size_t available)
{
    if (available <= g_mbapLength) {
        return g_mbapLength + 1;
    }
    const std::uint8_t* pdu = bytes + g_mbapLength;
    const std::size_t whole = g_mbapLength + pduLength(pdu, available - g_mbapLength);
    if (whole <= MODBUS_TCP_MAX_ADU_LENGTH) {
        return whole;
    }
    return g_mbapLength + 1 + fieldsLength(*pdu);
}

std::size_t getRequestSize(const std::uint8_t* frame, std::size_t length)
{
    if (length <= 2) {
        return 0;
    }
    SPDLOG_LOGGER_DEBUG(serverLogger(), "functionCode: {}", frame[1]);
    return rtuDataSize(frame) + g_rtuFramingLength;
}

std::uint16_t requestAddress(const std::uint8_t* pdu)
{
    return static_cast<std::uint16_t>(pdu[1] << 8 | pdu[2]);
}

std::uint16_t requestQuantity(const std::uint8_t* pdu)
{
    return static_cast<std::uint16_t>(pdu[3] << 8 | pdu[4]);
}

} // namespace orv::modbus
