#include <orv/modbus/cds/CdsRegistersAccessorBase.h>

namespace orv::modbus::cds {

std::string CdsRegistersAccessorBase::describeWithByteOrder(const char* name) const
{
    return name + to_string(m_byteOrder) + ")";
}

} // namespace orv::modbus::cds
