#pragma once

#include <orv/modbus/ModbusMapSettings.h>

#include <cstddef>

namespace orv::modbus {

// The settings of a unit id whose map can answer, or nullptr. Slots beyond
// the 248 unit ids never count, whatever size the table has.
const ModbusMapSettings* settingsFor(const ModbusMapSettingsTable& maps, std::size_t unit);

} // namespace orv::modbus
