#include "SaturatingCast.h"

#include <cmath>
#include <limits>

namespace orv::modbus::cds {

namespace {

template <typename Integer>
Integer saturate(double value)
{
    if (std::isnan(value)) {
        return 0;
    }
    const double truncated = std::trunc(value);
    if (truncated <= static_cast<double>(std::numeric_limits<Integer>::min())) {
        return std::numeric_limits<Integer>::min();
    }
    if (truncated >= static_cast<double>(std::numeric_limits<Integer>::max())) {
        return std::numeric_limits<Integer>::max();
    }
    return static_cast<Integer>(truncated);
}

} // namespace

std::uint32_t SaturatingCast::toUint32(double value)
{
    return saturate<std::uint32_t>(value);
}

std::int32_t SaturatingCast::toInt32(double value)
{
    return saturate<std::int32_t>(value);
}

} // namespace orv::modbus::cds
