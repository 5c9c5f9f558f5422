#pragma once

#include <cstdint>

namespace orv::modbus::cds {

// How a discrete relates to its boolean data point: 0 equal, any other
// value inverted, on reading and on writing alike.
enum class DiscreteModifier : std::uint8_t {
    None = 0,
    Inverted = 1,
};

} // namespace orv::modbus::cds
