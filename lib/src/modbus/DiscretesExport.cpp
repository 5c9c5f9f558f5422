// The discretes' export members, apart from the request path: cxxtools'
// headers still need C++17.

#include <orv/modbus/Discretes.h>

#include <cxxtools/serializationinfo.h>

namespace orv::modbus {

void Discretes::fillSerializationInfo(cxxtools::SerializationInfo& si) const
{
    ModbusMapEntry::fillSerializationInfo(si);
    si.addMember("status to 0") <<= m_statusTo0Text;
    si.addMember("status to 1") <<= m_statusTo1Text;
}

} // namespace orv::modbus
