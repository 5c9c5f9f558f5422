#pragma once

#include <cstdint>
#include <string>

namespace orv::modbus {

// Text forms of raw values, used in error messages and in the accessors'
// human-readable values.

// "0x001a (26)": at least four lower-case hexadecimal digits and the decimal
// value.
std::string toHex(uint16_t value);

// "0x1a (26)": at least two lower-case hexadecimal digits and the decimal
// value.
std::string toHex(uint8_t value);

// "0x4142 (AB)": four hexadecimal digits, then the high and the low byte each
// written as one character.
std::string toHexChar(uint16_t value);

// "0b" and the sixteen binary digits of the value, most significant first.
std::string toBit(uint8_t value);

// "true" or "false".
std::string toString(bool value);

} // namespace orv::modbus
