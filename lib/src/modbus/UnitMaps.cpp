#include "UnitMaps.h"

#include <orv/modbus/ModbusMapsConfiguration.h>

namespace orv::modbus {

const ModbusMapSettings* settingsFor(const ModbusMapSettingsTable& maps, std::size_t unit)
{
    if (unit >= ModbusMapsConfiguration::g_unitCount || unit >= maps.size()) {
        return nullptr;
    }
    const auto& settings = maps[unit];
    return settings && settings->map ? settings.get() : nullptr;
}

} // namespace orv::modbus
