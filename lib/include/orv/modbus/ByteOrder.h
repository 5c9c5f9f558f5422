#pragma once

#include <cstdint>
#include <string>

namespace orv::modbus {

// Word order of a 32-bit value spread over two registers. ABCD puts the
// high 16-bit half in the lower register address; CDAB the low half.
enum class ByteOrder : std::uint16_t {
    ABCD = 0,
    CDAB = 1,
};

// "ABCD" or "CDAB". Any other value throws std::logic_error; its message is
// the text "to_string() is not implemented for ByteOrder " with as many
// leading characters skipped as the value (see unknownOrderMessage), which
// is what existing callers see and match on.
std::string to_string(ByteOrder order);

// The message of the std::logic_error an operation throws for an order it
// does not know: `text` without as many leading characters as the order's
// numeric value, and empty for values beyond the text's length.
std::string unknownOrderMessage(const char* text, ByteOrder order);

} // namespace orv::modbus
