#pragma once

#include <orv/modbus/ByteOrder.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace orv::modbus::cds {

// Splits a 32-bit quantity into two registers and joins two registers back,
// by word order: ABCD puts the high 16-bit half first, CDAB the low half.
// Floats go through their IEEE-754 bit pattern, so 150.0f (0x43160000) is
// {0x4316, 0x0000} in ABCD and {0x0000, 0x4316} in CDAB. This is done here
// rather than with libmodbus's float helpers, whose word and byte order
// changed between libmodbus releases.
//
// An unknown order throws std::logic_error whose message is
// `unknownOrderMessage` without its first N characters, N being the order's
// numeric value (capped at the message's length): callers pass the literal
// that names their own operation.
class RegisterWords {
public:
    // The messages the accessors pass for their operations.
    static constexpr const char* setDataMessage = "setData is not implemented for ByteOrder";
    static constexpr const char* buildFromInt32Message = "buildArrayFromInt32 is not implemented for ByteOrder";
    static constexpr const char* buildFromFloatMessage = "buildArrayFromFloat is not implemented for ByteOrder";

    static std::vector<uint16_t> split(std::uint32_t value, ByteOrder order, const char* unknownOrderMessage);
    // Missing words count as 0; words beyond the second are ignored.
    static std::uint32_t join(const std::vector<uint16_t>& words, ByteOrder order,
                              const char* unknownOrderMessage);

    static std::vector<uint16_t> splitFloat(float value, ByteOrder order, const char* unknownOrderMessage);
    static float joinFloat(const std::vector<uint16_t>& words, ByteOrder order, const char* unknownOrderMessage);

    static std::logic_error unknownOrder(ByteOrder order, const char* message);
};

} // namespace orv::modbus::cds
