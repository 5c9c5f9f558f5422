#pragma once

#include <cstdint>

namespace orv::modbus::cds {

// Conversions of a floating-point number to a 32-bit integer that truncate
// toward zero and saturate at the ends of the integer's range instead of
// being undefined; NaN gives 0.
class SaturatingCast {
public:
    static std::uint32_t toUint32(double value);
    static std::int32_t toInt32(double value);
};

} // namespace orv::modbus::cds
