#include "RegisterWords.h"

#include <bit>

namespace orv::modbus::cds {

std::vector<uint16_t> RegisterWords::split(std::uint32_t value, ByteOrder order, const char* unknownOrderMessage)
{
    const auto high = static_cast<uint16_t>(value >> 16);
    const auto low = static_cast<uint16_t>(value & 0xFFFFu);
    switch (order) {
    case ByteOrder::ABCD:
        return {high, low};
    case ByteOrder::CDAB:
        return {low, high};
    }
    throw unknownOrder(order, unknownOrderMessage);
}

std::uint32_t RegisterWords::join(const std::vector<uint16_t>& words, ByteOrder order,
                                  const char* unknownOrderMessage)
{
    const std::uint32_t first = words.empty() ? 0 : words[0];
    const std::uint32_t second = words.size() < 2 ? 0 : words[1];
    switch (order) {
    case ByteOrder::ABCD:
        return (first << 16) | second;
    case ByteOrder::CDAB:
        return (second << 16) | first;
    }
    throw unknownOrder(order, unknownOrderMessage);
}

std::vector<uint16_t> RegisterWords::splitFloat(float value, ByteOrder order, const char* unknownOrderMessage)
{
    return split(std::bit_cast<std::uint32_t>(value), order, unknownOrderMessage);
}

float RegisterWords::joinFloat(const std::vector<uint16_t>& words, ByteOrder order, const char* unknownOrderMessage)
{
    return std::bit_cast<float>(join(words, order, unknownOrderMessage));
}

std::logic_error RegisterWords::unknownOrder(ByteOrder order, const char* message)
{
    return std::logic_error(unknownOrderMessage(message, order));
}

} // namespace orv::modbus::cds
