// A map plug-in whose map definition is broken: two entries claim the same
// holding register, so building the map throws.

#include "FakeRegistersAccessor.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

using orv::test::FakeRegistersAccessor;

namespace {

orv::modbus::ModbusMapEntry* entry(const std::string& name)
{
    return new orv::modbus::HoldingRegisters(3, new FakeRegistersAccessor(1), true, name, "", "");
}

} // namespace

extern "C" orv::modbus::ModbusMap* createMap()
{
    return new orv::modbus::ModbusMap("broken", {entry("first"), entry("second")}, nullptr,
                                      orv::modbus::ByteOrder::ABCD);
}
