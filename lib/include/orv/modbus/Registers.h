#pragma once

#include <orv/modbus/RegisterEntry.h>

namespace orv::modbus {

struct InputRegisterTables;

// Input registers: read with function code 4, never written by clients
// (input registers are not searched for writes).
class Registers : public RegisterEntry<InputRegisterTables> {
public:
    using RegisterEntry::RegisterEntry;
};

} // namespace orv::modbus
