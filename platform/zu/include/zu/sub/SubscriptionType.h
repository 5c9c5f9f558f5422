#pragma once
// zu::sub::subscription_type: which kind of change a data-store subscription
// follows. The type is 32 bits wide so that any number the caller passes
// converts into it; a number without a name simply matches no change.

#include <cstdint>

namespace zu::sub {

enum subscription_type : std::uint32_t {
    channel_settings = 2,
    device_settings = 3,
    channel_state = 5,
    device_creation = 13,
    channel_value_update = 15,
};

} // namespace zu::sub
