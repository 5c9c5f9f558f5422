#include <orv/modbus/cds/CdsInBandAccessor.h>

namespace orv::modbus::cds {

cdsapi::CdsAccessor& CdsInBandAccessor::getInstance()
{
    static cdsapi::CdsAccessor accessor("modbus", true);
    return accessor;
}

} // namespace orv::modbus::cds
