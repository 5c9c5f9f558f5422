// A well-formed map plug-in: one holding register whose value never changes.

#include "FakeRegistersAccessor.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

using orv::test::FakeRegistersAccessor;

extern "C" {

// How often the registry called the factory.
int createMapCalls = 0;

orv::modbus::ModbusMap* createMap()
{
    ++createMapCalls;
    return new orv::modbus::ModbusMap(
        "plugin-map",
        {new orv::modbus::HoldingRegisters(0, new FakeRegistersAccessor(1, {0x002a}), false, "answer", "the answer",
                                           "")},
        nullptr, orv::modbus::ByteOrder::ABCD);
}
}
