// A map plug-in whose one entry's accessor throws whenever a read asks it
// whether its data is available: a broken plug-in the daemon must survive.

#include "FakeRegistersAccessor.h"

#include <orv/modbus/HoldingRegisters.h>
#include <orv/modbus/ModbusMap.h>

#include <stdexcept>

namespace {

class ThrowingAccessor : public orv::test::FakeRegistersAccessor {
public:
    using FakeRegistersAccessor::FakeRegistersAccessor;

    bool isDataAvailable() const override { throw std::runtime_error("the broken accessor fails a read"); }
};

} // namespace

extern "C" orv::modbus::ModbusMap* createMap()
{
    return new orv::modbus::ModbusMap(
        "throwing-map",
        {new orv::modbus::HoldingRegisters(0, new ThrowingAccessor(1, {0x002a}), true, "broken", "fails every read",
                                           "")},
        nullptr, orv::modbus::ByteOrder::ABCD);
}
