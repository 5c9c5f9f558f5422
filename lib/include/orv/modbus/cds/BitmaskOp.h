#pragma once

#include <cstdint>

namespace orv::modbus::cds {

// The mask operation of a CdsUint32ToOneRegisterAccessor: 1 serves the
// value XOR the mask and makes every write store the mask; any other value
// means no mask operation.
enum class BitmaskOp : std::uint8_t {
    None = 0,
    Xor = 1,
};

} // namespace orv::modbus::cds
