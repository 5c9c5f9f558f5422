#pragma once

#include <cstdint>

namespace orv::modbus::cds {

// Which property of a channel a CdsChannelAccessor reads, writes and
// watches. Map definitions are built from these numbers, so any 32-bit value
// converts into the type; a value outside 0..8 reads as an empty value and
// ignores writes.
enum class DataType : std::uint32_t {
    ChannelValue = 0,                 // the channel's own value, any kind
    AlarmEnabled = 1,                 // bool
    AlarmTriggerThreshold0 = 2,       // float
    AlarmTriggerThreshold1 = 3,       // float
    AlarmTriggerThreshold2 = 4,       // float
    AlarmTriggerThreshold3 = 5,       // float
    AlarmTriggerThresholdEnabled = 6, // bool
    AlarmHysteresis = 7,              // float
    AlarmLevel = 8,                   // 32-bit signed integer
};

} // namespace orv::modbus::cds
