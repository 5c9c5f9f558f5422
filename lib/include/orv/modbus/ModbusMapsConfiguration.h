#pragma once

#include <orv/modbus/ModbusMapSettings.h>

#include <cstddef>

namespace orv::modbus {

// Which map answers which unit id, on the serial line and over TCP. The
// daemon fills slots by index; the tables are never resized. One
// ModbusMapSettings may stand in several slots and in both tables.
struct ModbusMapsConfiguration {
    // Unit ids 0 to 247; 248 to 255 never have a map.
    static constexpr std::size_t g_unitCount = 248;

    // Both tables with g_unitCount empty slots.
    ModbusMapsConfiguration();

    ModbusMapSettingsTable rtuMaps;
    ModbusMapSettingsTable tcpMaps;
};

} // namespace orv::modbus
