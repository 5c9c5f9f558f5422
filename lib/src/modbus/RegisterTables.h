#pragma once

#include "ModbusTable.h"

#include <orv/modbus/ModbusMapEntry.h>

#include <array>
#include <cstdint>

namespace orv::modbus {

// The tables each register kind writes its words to and reads them from.
// A legacy entry is visible in both register tables but written by clients
// through the holding table only, so after such a write it copies the words
// into the input table as well.

struct InputRegisterTables {
    static constexpr int g_type = ModbusMapEntry::g_typeRegisters;
    static constexpr std::array g_writeTables{g_inputRegisters};
    static constexpr ModbusTable<uint16_t> g_readTable = g_inputRegisters;
    static constexpr bool g_mirrorAfterClientWrite = false;
};

struct HoldingRegisterTables {
    static constexpr int g_type = ModbusMapEntry::g_typeHoldingRegisters;
    static constexpr std::array g_writeTables{g_holdingRegisters};
    static constexpr ModbusTable<uint16_t> g_readTable = g_holdingRegisters;
    static constexpr bool g_mirrorAfterClientWrite = false;
};

struct LegacyRegisterTables {
    static constexpr int g_type = ModbusMapEntry::g_typeLegacyRegisters;
    static constexpr std::array g_writeTables{g_inputRegisters, g_holdingRegisters};
    static constexpr ModbusTable<uint16_t> g_readTable = g_holdingRegisters;
    static constexpr bool g_mirrorAfterClientWrite = true;
};

} // namespace orv::modbus
