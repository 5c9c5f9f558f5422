// A well-formed map plug-in: one holding register whose value never changes.

#include "FixedAccessor.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

using orv::modbus::test::FixedAccessor;

extern "C" {

// How often the registry called the factory.
int createMapCalls = 0;

orv::modbus::ModbusMap* createMap()
{
    ++createMapCalls;
    return new orv::modbus::ModbusMap(
        "plugin-map",
        {new orv::modbus::HoldingRegisters(0, new FixedAccessor({0x002a}, "constant", "42"), false, "answer",
                                           "the answer", "")},
        nullptr, orv::modbus::ByteOrder::ABCD);
}
}
