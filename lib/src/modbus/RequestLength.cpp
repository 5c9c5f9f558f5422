#include "RequestLength.h"

#include <modbus/modbus.h>

namespace orv::modbus {
namespace {

// The MBAP header before the function code.
constexpr std::size_t g_mbapLength = 7;
// The byte count of a write of many values, counted from the function code.
constexpr std::size_t g_writeByteCountIndex = 5;
constexpr std::size_t g_readWriteByteCountIndex = 9;

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

std::uint16_t requestAddress(const std::uint8_t* pdu)
{
    return static_cast<std::uint16_t>(pdu[1] << 8 | pdu[2]);
}

std::uint16_t requestQuantity(const std::uint8_t* pdu)
{
    return static_cast<std::uint16_t>(pdu[3] << 8 | pdu[4]);
}

} // namespace orv::modbus
