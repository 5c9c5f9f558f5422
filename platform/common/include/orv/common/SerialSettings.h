#pragma once
// Serial-line settings of the gateway. The enumerations are 32 bits wide so
// that any number converts into them: configuration files carry numbers, and
// a number without a name must still reach the code that maps it to a
// fallback.

#include <cstdint>

namespace orv::common {

enum class BaudRate : std::int32_t {
    Baud1200 = 1,
    Baud2400 = 2,
    Baud4800 = 3,
    Baud9600 = 4,
    Baud19200 = 5,
    Baud38400 = 6,
    Baud57600 = 7,
    Baud115200 = 8,
};

enum class Parity : std::int32_t {
    None = 0,
    NoneAlternative = 1,
    Even = 2,
    Odd = 3,
};

} // namespace orv::common
