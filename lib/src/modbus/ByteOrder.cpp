#include <orv/modbus/ByteOrder.h>

#include <stdexcept>

namespace orv::modbus {

std::string to_string(ByteOrder order)
{
    switch (order) {
    case ByteOrder::ABCD:
        return "ABCD";
    case ByteOrder::CDAB:
        return "CDAB";
    }
    const char* message = "to_string() is not implemented for ByteOrder ";
    throw std::logic_error(message + static_cast<std::uint16_t>(order));
}

} // namespace orv::modbus
