#pragma once
// An input-register entry that also remembers the tables the map attaches,
// so that a fuzz target can look at every table element, not only at those
// an entry covers.

#include <orv/modbus/Registers.h>

#include <modbus/modbus.h>

namespace orv::modbus::fuzz {

class TableProbe : public Registers {
public:
    using Registers::Registers;

    void setMapping(modbus_mapping_t* mapping) override
    {
        m_pTables = mapping;
        Registers::setMapping(mapping);
    }

    // The map's tables, or nullptr before the map attached them.
    const modbus_mapping_t* tables() const
    {
        return m_pTables;
    }

private:
    modbus_mapping_t* m_pTables = nullptr;
};

} // namespace orv::modbus::fuzz
