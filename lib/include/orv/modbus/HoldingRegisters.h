#pragma once

#include <orv/modbus/RegisterEntry.h>

namespace orv::modbus {

struct HoldingRegisterTables;

// Holding registers: read with function code 3, written with 6 and 16.
class HoldingRegisters : public RegisterEntry<HoldingRegisterTables> {
public:
    using RegisterEntry::RegisterEntry;
};

} // namespace orv::modbus
