// The register kinds' export members, apart from the request path:
// cxxtools' headers still need C++17. The kinds' tables are only named here
// (their definitions use C++20).

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/LegacyRegisters.h>
#include <orv/modbus/RegisterEntry.h>
#include <orv/modbus/Registers.h>

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
