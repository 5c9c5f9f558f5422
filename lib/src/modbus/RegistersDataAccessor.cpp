#include <orv/modbus/RegistersDataAccessor.h>

namespace orv::modbus {

void RegistersDataAccessor::setByteOrder(ByteOrder order)
{
    m_byteOrder = order;
}

} // namespace orv::modbus
