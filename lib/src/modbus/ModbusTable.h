#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus {

// One of the four tables of a modbus_mapping_t, named by its data and size
// members. Entries read and write through it element by element, without a
// lock (a notification may store while a request is answered), and never
// outside the table: an entry whose addresses wrap past 65535 or lie beyond
// the allocated size leaves those positions alone and reads them as 0, and
// an entry without tables (mapping nullptr) reads 0 and writes nothing.
template <class T>
struct ModbusTable {
    T* modbus_mapping_t::*m_data;
    int modbus_mapping_t::*m_size;

    std::vector<T> read(const modbus_mapping_t* mapping, uint16_t address, uint16_t count) const
    {
        std::vector<T> values(count, T{0});
        for (std::size_t i = 0; i < count; ++i) {
            if (contains(mapping, address + i)) {
                values[i] = (mapping->*m_data)[address + i];
            }
        }
        return values;
    }

    // Missing values are written as 0, extra ones are ignored.
    void write(modbus_mapping_t* mapping, uint16_t address, uint16_t count, const std::vector<T>& values) const
    {
        for (std::size_t i = 0; i < count; ++i) {
            if (contains(mapping, address + i)) {
                (mapping->*m_data)[address + i] = i < values.size() ? values[i] : T{0};
            }
        }
    }

private:
    bool contains(const modbus_mapping_t* mapping, std::size_t index) const
    {
        return mapping != nullptr && mapping->*m_data != nullptr
            && index < static_cast<std::size_t>(mapping->*m_size);
    }
};

inline constexpr ModbusTable<uint8_t> g_coils{&modbus_mapping_t::tab_bits, &modbus_mapping_t::nb_bits};
inline constexpr ModbusTable<uint8_t> g_discreteInputs{&modbus_mapping_t::tab_input_bits,
                                                       &modbus_mapping_t::nb_input_bits};
inline constexpr ModbusTable<uint16_t> g_holdingRegisters{&modbus_mapping_t::tab_registers,
                                                          &modbus_mapping_t::nb_registers};
inline constexpr ModbusTable<uint16_t> g_inputRegisters{&modbus_mapping_t::tab_input_registers,
                                                        &modbus_mapping_t::nb_input_registers};

} // namespace orv::modbus
