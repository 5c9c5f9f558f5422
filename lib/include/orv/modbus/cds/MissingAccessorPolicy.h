#pragma once

#include <cstdint>

namespace orv::modbus::cds {

// When a composite of several data points is available: 0 while at least
// one of them exists, 1 only while all of them exist, never for any other
// value.
enum class MissingAccessorPolicy : std::uint8_t {
    AnyExisting = 0,
    AllExisting = 1,
};

} // namespace orv::modbus::cds
