#include <orv/modbus/ModbusMapsConfiguration.h>

namespace orv::modbus {

ModbusMapsConfiguration::ModbusMapsConfiguration()
    : rtuMaps(g_unitCount)
    , tcpMaps(g_unitCount)
{
}

} // namespace orv::modbus
