#pragma once
// Serial-line settings of the gateway. The enumerations are 32 bits wide so
// that any number converts into them: configuration files carry numbers, and
// a number without a name must still reach the code that maps it to a
// fallback.
//
// Choices of this stand-in: the enumerator names are its own; the numbers
// are the platform's (speeds 1 to 8 for 1200 to 115200 bit/s, parity 2 even
// and 3 odd, 0 and 1 none). The type is signed, as configuration files
// store these numbers as signed 32-bit integers.

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
