// The register kinds' export members, apart from the request path:
// cxxtools' headers still need C++17.

#include <orv/modbus/RegisterEntry.h>

#include "RegisterTables.h"

#include <cxxtools/serializationinfo.h>

namespace orv::modbus {

template <class Tables>
void RegisterEntry<Tables>::fillSerializationInfo(cxxtools::SerializationInfo& si) const
{
    ModbusMapEntry::fillSerializationInfo(si);
    si.addMember("unit") <<= m_unit;
}

template void RegisterEntry<InputRegisterTables>::fillSerializationInfo(cxxtools::SerializationInfo&) const;
template void RegisterEntry<HoldingRegisterTables>::fillSerializationInfo(cxxtools::SerializationInfo&) const;
template void RegisterEntry<LegacyRegisterTables>::fillSerializationInfo(cxxtools::SerializationInfo&) const;

} // namespace orv::modbus
