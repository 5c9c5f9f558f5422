#pragma once
// zu::CAlarmTrigger: one trigger of a channel alarm, as the data store
// reports its most critical alarm. It begins with a 32-bit code and a
// one-byte flag; the code 7 and the flag 1 are the values whose meaning the
// Modbus alarm discretes rely on. What the codes stand for is the data
// store's business.
//
// zu::CAlarmUpdate: one change of the alarm state of a channel (a trigger
// raised or cleared), as a notification carries it.

#include <cstdint>

namespace zu {

struct CAlarmTrigger {
    std::uint32_t code = 0;
    std::uint8_t flag = 0;
    float threshold = 0.0f;

    friend bool operator==(const CAlarmTrigger&, const CAlarmTrigger&) = default;
};

struct CAlarmUpdate {
    std::uint64_t channelId = 0;
    CAlarmTrigger trigger;
    bool active = false;

    friend bool operator==(const CAlarmUpdate&, const CAlarmUpdate&) = default;
};

} // namespace zu
