#pragma once

#include <cstdint>

namespace orv::modbus::cds {

// Which alarm state of a channel a CdsAlarmToOneDiscreteAccessor reports as
// one bit. Map definitions are built from these numbers, so any 32-bit value
// converts into the type; a value outside 0..4 never matches an alarm.
//
// Types 1 to 4 compare the class number of the channel's most critical
// alarm trigger: 1 or 3 by its flag (3 when the flag is 1), 2 or 4 instead
// for a trigger with code 7. What the codes and flags stand for is the data
// store's business.
enum class AlarmType : std::uint32_t {
    ThresholdFlag = 0, // the channel's value equals its trigger-threshold flag
    Class1 = 1,
    Class2 = 2,
    Class3 = 3,
    Class4 = 4,
};

} // namespace orv::modbus::cds
