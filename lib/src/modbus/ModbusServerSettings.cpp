#include <orv/modbus/ModbusServerSettings.h>

#include <array>

namespace orv::modbus {
namespace {

constexpr int g_fallbackBaud = 9600;
// Indexed by BaudRate value - 1.
constexpr std::array g_bauds{1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};

} // namespace

int getBaudForLib(common::BaudRate baudRate)
{
    const auto value = static_cast<std::int32_t>(baudRate);
    if (value < 1 || value > static_cast<std::int32_t>(g_bauds.size())) {
        return g_fallbackBaud;
    }
    return g_bauds[static_cast<std::size_t>(value - 1)];
}

char getParityForLib(common::Parity parity)
{
    switch (parity) {
    case common::Parity::Even:
        return 'E';
    case common::Parity::Odd:
        return 'O';
    default:
        return 'N';
    }
}

} // namespace orv::modbus
