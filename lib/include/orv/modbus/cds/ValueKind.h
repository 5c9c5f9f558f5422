#pragma once

#include <cstdint>

namespace orv::modbus::cds {

// How a one-register accessor reads its register: 1 as a signed 16-bit
// number, any other value as an unsigned one.
enum class ValueKind : std::uint8_t {
    Unsigned = 0,
    Signed = 1,
};

} // namespace orv::modbus::cds
