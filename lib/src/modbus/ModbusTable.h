#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <modbus/modbus.h>

namespace orv::modbus {

// One of the four tables of a modbus_mapping_t, named by its data and size
// members. Entries read and write through it element by element, without a
// lock: a notification thread stores while a handler thread answers a
// request or hands a client's write to the accessor. Each element is one
// relaxed atomic load or store, so such meetings are well defined; the
// words of a value are independent, and nobody waits for a whole value.
// Never outside the table: an entry whose addresses wrap past 65535 or lie
// beyond the allocated size leaves those positions alone and reads them as
// 0, and an entry without tables (mapping nullptr) reads 0 and writes
// nothing.
template <class T>
struct ModbusTable {
    // A relaxed atomic store must stay the plain store of one element.
    static_assert(std::atomic_ref<T>::is_always_lock_free);

    T* modbus_mapping_t::*m_data;
    int modbus_mapping_t::*m_size;

    std::vector<T> read(const modbus_mapping_t* mapping, uint16_t address, uint16_t count) const
    {
        std::vector<T> values(count, T{0});
        for (std::size_t i = 0; i < count; ++i) {
            if (contains(mapping, address + i)) {
                values[i] = element(mapping, address + i).load(std::memory_order_relaxed);
            }
        }
        return values;
    }

    // Missing values are written as 0, extra ones are ignored.
    void write(modbus_mapping_t* mapping, uint16_t address, uint16_t count, const std::vector<T>& values) const
    {
        for (std::size_t i = 0; i < count; ++i) {
            if (contains(mapping, address + i)) {
                element(mapping, address + i).store(i < values.size() ? values[i] : T{0}, std::memory_order_relaxed);
            }
        }
    }

private:
    std::atomic_ref<T> element(const modbus_mapping_t* mapping, std::size_t index) const
    {
        return std::atomic_ref<T>((mapping->*m_data)[index]);
    }

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
