#pragma once
// The conversions a discretes composite of boolean data points uses: one bit
// per data point, each way.

#include <zu/CValue.h>

#include <vector>

namespace orv::modbus::cds::test {

// Each data point's boolean as one bit.
inline std::vector<bool> eachAsBit(const std::vector<zu::CValue>& values)
{
    std::vector<bool> bits;
    for (const auto& value : values) {
        bits.push_back(value.as_bool());
    }
    return bits;
}

// Each bit back to its data point as a boolean.
inline std::vector<zu::CValue> eachAsBoolean(const std::vector<bool>& bits)
{
    return std::vector<zu::CValue>(bits.begin(), bits.end());
}

} // namespace orv::modbus::cds::test
