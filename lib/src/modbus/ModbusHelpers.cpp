#include <orv/modbus/ModbusHelpers.h>

#include <bitset>

#include <fmt/format.h>

namespace orv::modbus {

std::string toHex(uint16_t value)
{
    return fmt::format("0x{:04x} ({})", value, value);
}

std::string toHex(uint8_t value)
{
    return fmt::format("0x{:02x} ({})", value, value);
}

std::string toHexChar(uint16_t value)
{
    const auto high = static_cast<char>(value >> 8);
    const auto low = static_cast<char>(value & 0xff);
    return fmt::format("0x{:04x} ({}{})", value, high, low);
}

std::string toBit(uint8_t value)
{
    return "0b" + std::bitset<16>(value).to_string();
}

std::string toString(bool value)
{
    return value ? "true" : "false";
}

} // namespace orv::modbus
