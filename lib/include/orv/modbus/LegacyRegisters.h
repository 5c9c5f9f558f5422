#pragma once

#include <orv/modbus/RegisterEntry.h>

namespace orv::modbus {

struct LegacyRegisterTables;

// Registers visible at the same address in both register tables: readable
// with function codes 3 and 4, writable through the holding table. After a
// client's write the input table follows the holding table.
class LegacyRegisters : public RegisterEntry<LegacyRegisterTables> {
public:
    using RegisterEntry::RegisterEntry;
};

} // namespace orv::modbus
