#include <orv/modbus/ByteOrder.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace orv::modbus {

std::string to_string(ByteOrder order)
{
    switch (order) {
    case ByteOrder::ABCD:
        return "ABCD";
    case ByteOrder::CDAB:
        return "CDAB";
    }
    throw std::logic_error(unknownOrderMessage("to_string() is not implemented for ByteOrder ", order));
}

std::string unknownOrderMessage(const char* text, ByteOrder order)
{
    const std::string_view message(text);
    return std::string(message.substr(std::min<std::size_t>(static_cast<std::uint16_t>(order), message.size())));
}

} // namespace orv::modbus
